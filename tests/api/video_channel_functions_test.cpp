// SPDX-License-Identifier: MIT
// Video- and channel-class functions: argument limits, messages, what is sent
// and what reaches the caller.
#include "tests/api/api_test.h"

#include <cstring>

using namespace zor::test;
using testing::MatchesRegex;

namespace
{

using VideoFunctionsTest = ApiTest;
using ChannelFunctionsTest = ApiTest;

TEST_F(VideoFunctionsTest, WallglowAndPictureStyleCarryTheirValues)
{
    EXPECT_EQ(ZOR_App_SetWallglowState(true), 0);
    EXPECT_EQ(onlyRequest(0x18030001), hex("01"));
    middleware().reset();
    EXPECT_EQ(ZOR_App_SetWallglowState(false), 0);
    EXPECT_EQ(onlyRequest(0x18030001), hex("00"));
    middleware().reset();
    EXPECT_EQ(ZOR_App_SetPictureStyle(0x01020304), 0);
    EXPECT_EQ(onlyRequest(0x18030008), hex("04 03 02 01"));
}

TEST_F(VideoFunctionsTest, SourceNameOf64IsSentAnd65Refused)
{
    const std::string name64(64, 'S');
    EXPECT_EQ(ZOR_App_TuneToInputSrc(name64.c_str()), 0);
    EXPECT_EQ(onlyRequest(0x18030003), text(name64) + hex("00 00 00 00") + le32(64));

    middleware().reset();
    const std::string name65(65, 'S');
    EXPECT_TRUE(
        refused([&] { return ZOR_App_TuneToInputSrc(name65.c_str()); },
                argLine("ZOR_App_TuneToInputSrc", "Then length of ps_srcName is out of range")));
    EXPECT_TRUE(refused([&] { return ZOR_App_TuneToInputSrc(nullptr); },
                        argLine("ZOR_App_TuneToInputSrc", "ps_srcName is NULL")));
    EXPECT_TRUE(sent().empty());
}

TEST_F(VideoFunctionsTest, CurrentSourceIsDeliveredWhateverTheStatusAndAlwaysTerminated)
{
    using Getter = int (*)(char*);
    const std::pair<Getter, const char*> getters[] = {
        {ZOR_App_GetCurrentInputSource, "pc_current_source"},
        {ZOR_App_GetCurrentInputSrc, "srcName"},
    };
    for (const auto& [get, argument] : getters) {
        SCOPED_TRACE(argument);
        middleware().reset();
        middleware().setDefaultReply({-5, strInfo("HDMI2")});
        char name[66];
        memset(name, 'x', sizeof(name));
        EXPECT_EQ(get(name), -5);
        EXPECT_EQ(onlyRequest(0x18030004), zeros(72));
        EXPECT_STREQ(name, "HDMI2");

        // A reply text without terminator: 64 characters and a terminator,
        // nothing written past the 65-byte buffer.
        middleware().setDefaultReply({0, repeat('A', 72)});
        memset(name, 'x', sizeof(name));
        EXPECT_EQ(get(name), 0);
        EXPECT_EQ(std::string(name), std::string(64, 'A'));
        EXPECT_EQ(name[65], 'x');

        middleware().reset();
        const std::string function = get == ZOR_App_GetCurrentInputSource
                                         ? "ZOR_App_GetCurrentInputSource"
                                         : "ZOR_App_GetCurrentInputSrc";
        EXPECT_TRUE(refused([fn = get] { return fn(nullptr); },
                            argLine(function, std::string(argument) + " is NULL")));
        EXPECT_TRUE(sent().empty());
    }
}

TEST_F(VideoFunctionsTest, SourceListOfZeroSendsNoListCommand)
{
    middleware().setReply(0x18030006, {0, le32(0)});
    _VOICECTRL_SOURCE_INFO sources[1];
    int count = -1;
    int result = -2;
    EXPECT_THAT(
        printed([&] { result = ZOR_App_GetInputSouceList(sources, &count); }),
        MatchesRegex("^\\[20200228\\] ZOR_App_GetInputSouceList line:[0-9]+  no source\n$"));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(sent().size(), 1u);
}

TEST_F(VideoFunctionsTest, SourceListFillsTheCallersArrayAtStride66)
{
    middleware().setReply(0x18030006, {0, le32(2)});
    middleware().setReply(0x18030005,
                          {0, sourceInfo("HDMI1", "Console") + repeat('B', 33) + field("", 33)});
    _VOICECTRL_SOURCE_INFO sources[3];
    memset(sources, 0x5A, sizeof(sources));
    int count = 0;
    EXPECT_EQ(ZOR_App_GetInputSouceList(sources, &count), 0);
    EXPECT_EQ(count, 2);
    const auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[0].cmd, 0x18030006u);
    EXPECT_EQ(exchanges[0].request, Bytes{});
    EXPECT_EQ(exchanges[1].cmd, 0x18030005u);
    EXPECT_EQ(exchanges[1].request, hex("02 00 00 00"));

    const Bytes delivered(reinterpret_cast<uint8_t*>(sources),
                          reinterpret_cast<uint8_t*>(sources) + sizeof(sources));
    // A 33-byte text without terminator arrives as 33 bytes; the third record
    // was not asked for and stays as it was.
    EXPECT_EQ(delivered,
              sourceInfo("HDMI1", "Console") + repeat('B', 33) + zeros(33) + repeat(0x5A, 66));
}

TEST_F(VideoFunctionsTest, SourceListWithFailedListCommandCopiesNothing)
{
    for (int32_t status : {-1, -5}) {
        SCOPED_TRACE(status);
        middleware().reset();
        middleware().setReply(0x18030006, {0, le32(2)});
        middleware().setReply(0x18030005, {status, sourceInfo("A", "B") + sourceInfo("C", "D")});
        _VOICECTRL_SOURCE_INFO sources[2];
        memset(sources, 0x5A, sizeof(sources));
        int count = 0;
        EXPECT_EQ(ZOR_App_GetInputSouceList(sources, &count), status);
        EXPECT_EQ(count, 2);
        const Bytes delivered(reinterpret_cast<uint8_t*>(sources),
                              reinterpret_cast<uint8_t*>(sources) + sizeof(sources));
        EXPECT_EQ(delivered, repeat(0x5A, sizeof(sources)));
    }
}

TEST_F(VideoFunctionsTest, PlayerStatusIsPresetTo6AndDeliveredOnFailure)
{
    middleware().setDefaultReply({-3, le32(4)});
    EXPECT_EQ(ZOR_App_GetPlayerStatus(nullptr), -1);
    EXPECT_TRUE(sent().empty());
    EN_VOICECTRL_PLAYBACK_STATUS status = 0;
    EXPECT_EQ(ZOR_App_GetPlayerStatus(&status), -3);
    EXPECT_EQ(onlyRequest(0x18030007), Bytes{});
    EXPECT_EQ(status, 4);
    // A reply without the value leaves the preset.
    middleware().reset();
    middleware().setDefaultReply({0, {}});
    EXPECT_EQ(ZOR_App_GetPlayerStatus(&status), 0);
    EXPECT_EQ(status, 6);
}

TEST_F(ChannelFunctionsTest, ChannelListOfZeroSendsNoListCommandEvenWhenTheCountFailed)
{
    for (int32_t status : {0, -1}) {
        middleware().reset();
        middleware().setReply(0x18050007, {status, le32(0)});
        _VOICECTRL_CHANNEL_INFO channels[1];
        unsigned long count = 99;
        int result = -2;
        EXPECT_THAT(
            printed([&] { result = ZOR_App_GetChannelList(channels, &count); }),
            MatchesRegex("^\\[20200228\\] ZOR_App_GetChannelList line:[0-9]+  no channel\n$"));
        EXPECT_EQ(result, 0);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(sent().size(), 1u);
    }
}

TEST_F(ChannelFunctionsTest, ChannelListFillsNRecordsAtStride84WithoutPadding)
{
    const Bytes three = channelInfo(1, 2, 3, 4, 5, 6, "One") +
                        channelInfo(7, 8, 9, 10, 11, 12, "Two") +
                        // A 65-byte name without terminator, padding bytes set.
                        channelInfo(13, 14, 15, 16, 17, 18, "");
    Bytes reply = three;
    for (size_t i = 0; i < 65; ++i)
        reply[2 * 84 + 16 + i] = 'N';
    for (size_t i = 81; i < 84; ++i)
        reply[2 * 84 + i] = 0x77;

    middleware().setReply(0x18050007, {0, le32(3)});
    middleware().setReply(0x18050001, {0, reply});
    _VOICECTRL_CHANNEL_INFO channels[4];
    memset(channels, 0x5A, sizeof(channels));
    unsigned long count = 0;
    EXPECT_EQ(ZOR_App_GetChannelList(channels, &count), 0);
    EXPECT_EQ(count, 3u);
    const auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[1].cmd, 0x18050001u);
    EXPECT_EQ(exchanges[1].request, hex("03 00 00 00"));

    const Bytes delivered(reinterpret_cast<uint8_t*>(channels),
                          reinterpret_cast<uint8_t*>(channels) + sizeof(channels));
    Bytes expected = reply;
    // Padding is not the library's to copy: the caller's bytes stay.
    for (int r = 0; r < 3; ++r)
        for (size_t i = 81; i < 84; ++i)
            expected[r * 84 + i] = 0x5A;
    expected = expected + repeat(0x5A, 84);
    EXPECT_EQ(delivered, expected);
}

TEST_F(ChannelFunctionsTest, ChannelListWithFailedListCommandCopiesNothing)
{
    for (int32_t status : {-1, -5}) {
        SCOPED_TRACE(status);
        middleware().reset();
        middleware().setReply(0x18050007, {0, le32(1)});
        middleware().setReply(0x18050001, {status, channelInfo(1, 1, 1, 1, 1, 1, "X")});
        _VOICECTRL_CHANNEL_INFO channel;
        memset(&channel, 0x5A, sizeof(channel));
        unsigned long count = 0;
        int result = 0;
        EXPECT_THAT(printed([&] { result = ZOR_App_GetChannelList(&channel, &count); }),
                    testing::HasSubstr("  ERROR: iRetVal < 0 \n"));
        EXPECT_EQ(result, status);
        const Bytes delivered(reinterpret_cast<uint8_t*>(&channel),
                              reinterpret_cast<uint8_t*>(&channel) + sizeof(channel));
        EXPECT_EQ(delivered, repeat(0x5A, sizeof(channel)));
    }
}

TEST_F(ChannelFunctionsTest, NullArgumentsAreRefusedWithTheirMessages)
{
    unsigned long count = 0;
    _VOICECTRL_CHANNEL_INFO channel{};
    expectRefused({
        {[] { return ZOR_App_GetChannelNumber(nullptr); }, "ZOR_App_GetChannelNumber",
         "number is NULL"},
        {[&] { return ZOR_App_GetChannelList(nullptr, &count); }, "ZOR_App_GetChannelList",
         "pt_channel_info or number is NULL"},
        {[&] { return ZOR_App_GetChannelList(&channel, nullptr); }, "ZOR_App_GetChannelList",
         "pt_channel_info or number is NULL"},
        {[] { return ZOR_App_GetCurrentChannel(nullptr); }, "ZOR_App_GetCurrentChannel",
         "pt_current_info is NULL"},
        {[] { return ZOR_App_ChangeToChannel(nullptr); }, "ZOR_App_ChangeToChannel",
         "pt_channel_info is NULL"},
        {[] { return ZOR_App_StartFVPApp(nullptr, const_cast<char*>("c")); }, "ZOR_App_StartFVPApp",
         "ait_url is NULL"},
        {[] { return ZOR_App_StartFVPApp(const_cast<char*>("u"), nullptr); }, "ZOR_App_StartFVPApp",
         "crid is NULL"},
        {[] { return ZOR_App_TuneToFVPChannel(nullptr); }, "ZOR_App_TuneToFVPChannel",
         "crid is NULL"},
    });
}

TEST_F(ChannelFunctionsTest, ChangeToChannelTakesNamesOf64)
{
    _VOICECTRL_CHANNEL_INFO channel;
    memset(&channel, 0x33, sizeof(channel)); // padding must not travel
    channel.u32Param1 = 0x01020304;
    channel.u16Param1 = 0x0506;
    channel.u16Param2 = 0x0708;
    channel.u16Param3 = 0x090A;
    channel.u16Param4 = 0x0B0C;
    channel.u32Param2 = 0x0D0E0F10;
    memset(channel.c8ChannelName, 'C', 64);
    channel.c8ChannelName[64] = '\0';
    EXPECT_EQ(ZOR_App_ChangeToChannel(&channel), 0);
    EXPECT_EQ(onlyRequest(0x18050004),
              hex("04 03 02 01 06 05 08 07 0A 09 0C 0B 10 0F 0E 0D") + repeat('C', 64) + zeros(8));

    middleware().reset();
    channel.c8ChannelName[64] = 'C'; // 65 characters without terminator
    EXPECT_TRUE(refused([&] { return ZOR_App_ChangeToChannel(&channel); },
                        argLine("ZOR_App_ChangeToChannel",
                                "Then length of channelNameTobeTuned  is out of range")));
    EXPECT_TRUE(sent().empty());
}

TEST_F(ChannelFunctionsTest, FvpApplicationTextsAtTheirFieldSizes)
{
    std::string url(1024, 'u');
    std::string crid(64, 'c');
    EXPECT_EQ(ZOR_App_StartFVPApp(&url[0], &crid[0]), 0);
    // Both fill their fields: no terminators.
    EXPECT_EQ(onlyRequest(0x18050009), repeat('u', 1024) + repeat('c', 64));

    middleware().reset();
    std::string shortUrl = "http://a";
    std::string shortCrid = "crid://b";
    EXPECT_EQ(ZOR_App_StartFVPApp(&shortUrl[0], &shortCrid[0]), 0);
    EXPECT_EQ(onlyRequest(0x18050009), field(shortUrl, 1024) + field(shortCrid, 64));

    middleware().reset();
    std::string longUrl(1025, 'u');
    std::string longCrid(65, 'c');
    EXPECT_TRUE(refused([&] { return ZOR_App_StartFVPApp(&longUrl[0], &crid[0]); },
                        argLine("ZOR_App_StartFVPApp", "Then length of ait_url is out of range")));
    EXPECT_TRUE(refused([&] { return ZOR_App_StartFVPApp(&url[0], &longCrid[0]); },
                        argLine("ZOR_App_StartFVPApp", "Then length of crid is out of range")));
    EXPECT_TRUE(
        refused([&] { return ZOR_App_TuneToFVPChannel(&longCrid[0]); },
                argLine("ZOR_App_TuneToFVPChannel", "Then length of crid is out of range")));
    EXPECT_TRUE(sent().empty());
}

TEST_F(ChannelFunctionsTest, FvpChannelSends72Bytes)
{
    std::string crid = "crid://a/b";
    EXPECT_EQ(ZOR_App_TuneToFVPChannel(&crid[0]), 0);
    EXPECT_EQ(onlyRequest(0x1805000A),
              hex("63 72 69 64 3A 2F 2F 61 2F 62") + zeros(58) + hex("0A 00 00 00"));
}

TEST_F(ChannelFunctionsTest, TuneByTextSendsLengthAndBytesWithoutTerminator)
{
    std::string two = "12";
    EXPECT_EQ(ZOR_App_TuneToChannel_2(&two[0]), 0);
    EXPECT_EQ(onlyRequest(0x1805000B), hex("02 00 00 00 31 32"));
    middleware().reset();
    std::string empty;
    EXPECT_EQ(ZOR_App_TuneToChannel_2(&empty[0]), 0);
    EXPECT_EQ(onlyRequest(0x1805000B), hex("00 00 00 00"));
}

TEST_F(ChannelFunctionsTest, TuneByTextLeavesTheNullStringToTheEncoder)
{
    int result = 0;
    // Silent at level 0.
    EXPECT_EQ(printedAtLevel(0, [&] { result = ZOR_App_TuneToChannel_2(nullptr); }), "");
    EXPECT_EQ(result, -1);
    // With trace and error lines: the function's own lines around the
    // encoder's refusal.
    EXPECT_THAT(printedAtLevel(9, [&] { result = ZOR_App_TuneToChannel_2(nullptr); }),
                MatchesRegex(
                    gatedLine("ZOR_App_TuneToChannel_2", "<===") +
                    gatedLine("forwardCommand", "OXA_TV_CMD_CLASS_CHANNEL") +
                    gatedLine("_channelModuleSendTransact", "OXA_TV_CMD_ID_CHANNEL_TuneToChannel") +
                    gatedLine("_channelModuleSendTransact", "cmd_data is NULL\\.") +
                    gatedLine("ZOR_App_TuneToChannel_2", "===>")));
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(ChannelFunctionsTest, CommandsWithoutDataPrintTheirOwnTraceLines)
{
    const struct {
        int (*call)();
        const char* function;
        unsigned id;
    } cases[] = {
        {ZOR_App_TuneToNextChannel, "ZOR_App_TuneToNextChannel", 0x18050002},
        {ZOR_App_TuneToPreviousChannel, "ZOR_App_TuneToPreviousChannel", 0x18050003},
        {ZOR_App_TuneToLastTunedChannel, "ZOR_App_TuneToLastTunedChannel", 0x18050008},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        middleware().reset();
        const std::string output = printedAtLevel(8, [&] { EXPECT_EQ(c.call(), 0); });
        EXPECT_THAT(output, testing::ContainsRegex("^" + gatedLine(c.function, "<===")));
        EXPECT_THAT(output, testing::ContainsRegex(gatedLine(c.function, "===>") + "$"));
        EXPECT_EQ(onlyRequest(c.id), Bytes{});
    }
}

TEST_F(ChannelFunctionsTest, CurrentChannelAndCountAreDeliveredOnFailure)
{
    middleware().setDefaultReply({-7, channelInfo(5, 6, 7, 8, 9, 10, "Film4")});
    _VOICECTRL_CHANNEL_INFO channel;
    memset(&channel, 0, sizeof(channel));
    EXPECT_EQ(ZOR_App_GetCurrentChannel(&channel), -7);
    EXPECT_EQ(onlyRequest(0x18050006), Bytes{});
    EXPECT_EQ(channel.u32Param1, 5u);
    EXPECT_EQ(channel.u16Param4, 9u);
    EXPECT_EQ(channel.u32Param2, 10u);
    EXPECT_STREQ(channel.c8ChannelName, "Film4");

    middleware().reset();
    middleware().setDefaultReply({-2, le32(12)});
    unsigned long count = 0;
    EXPECT_EQ(ZOR_App_GetChannelNumber(&count), -2);
    EXPECT_EQ(count, 12u);
}

TEST_F(ChannelFunctionsTest, TuneCommandsWithoutRecordSendNothing)
{
    using Call = int (*)();
    const std::pair<Call, unsigned int> calls[] = {
        {ZOR_App_TuneToNextChannel, 0x18050002},
        {ZOR_App_TuneToPreviousChannel, 0x18050003},
        {ZOR_App_TuneToLastTunedChannel, 0x18050008},
    };
    for (const auto& [call, id] : calls) {
        middleware().reset();
        middleware().setDefaultReply({-4, {}});
        EXPECT_EQ(call(), -4);
        EXPECT_EQ(onlyRequest(id), Bytes{});
    }
    middleware().reset();
    EXPECT_EQ(ZOR_App_TuneToChannel(0xA0B0C0D0), 0);
    EXPECT_EQ(onlyRequest(0x18050005), hex("D0 C0 B0 A0"));
}

} // namespace
