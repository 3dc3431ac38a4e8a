// SPDX-License-Identifier: MIT
// The field-by-field decoding that `zorctl decode` prints (and that the
// Wireshark dissector mirrors): requests and replies of both directions,
// short payloads, bytes beyond a layout, unknown ids, and the simulator's
// one-line log of a request.
#include "transport/command_table.h"
#include "transport/record_format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

Bytes hex(const std::string& text)
{
    Bytes out;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        out.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
    return out;
}

Bytes withText(Bytes bytes, const std::string& text, size_t width)
{
    std::string field = text;
    field.resize(width, '\0');
    bytes.insert(bytes.end(), field.begin(), field.end());
    return bytes;
}

// "name=value name=value | note | note"
std::string shown(const zor::wire::Decoding& decoding)
{
    std::string out;
    for (const auto& field : decoding.fields)
        out += (out.empty() ? "" : " ") + field.name + "=" + field.value;
    for (const auto& note : decoding.notes)
        out += " | " + note;
    return out;
}

struct Case {
    const char* what;
    uint32_t id;
    bool reply;
    Bytes payload;
    const char* command;
    const char* commandClass;
    std::string expected;
};

TEST(RecordDecode, RequestsAndRepliesFieldByField)
{
    Bytes channel = hex("65 00 00 00 01 00 02 00 03 00 04 00 07 00 00 00");
    channel = withText(channel, "BBC One", 65);
    channel.resize(84, 0); // padding to the record's size
    Bytes channelReply = hex("00 00 00 00");
    channelReply.insert(channelReply.end(), channel.begin(), channel.end());
    channelReply.insert(channelReply.end(), {0xAA, 0xBB, 0xCC});

    const Case cases[] = {
        {"word request", 0x18040003, false, hex("25 00 00 00"), "OXA_TV_CMD_ID_AUDIO_SetVolume",
         "4 OXA_TV_CMD_CLASS_AUDIO", "value=37"},
        {"word reply", 0x18040004, true, hex("00 00 00 00 19 00 00 00"),
         "OXA_TV_CMD_ID_AUDIO_GetVolume", "4 OXA_TV_CMD_CLASS_AUDIO", "status=0 value=25"},
        {"negative word", 0x18040006, false, hex("fd ff ff ff"),
         "OXA_TV_CMD_ID_AUDIO_SetMainAudioGain", "4 OXA_TV_CMD_CLASS_AUDIO", "value=-3"},
        {"short request", 0x18040003, false, hex("25 00"), "OXA_TV_CMD_ID_AUDIO_SetVolume",
         "4 OXA_TV_CMD_CLASS_AUDIO", " | short: 2 of 4 bytes"},
        {"bytes beyond", 0x18040003, false, hex("25 00 00 00 ff"), "OXA_TV_CMD_ID_AUDIO_SetVolume",
         "4 OXA_TV_CMD_CLASS_AUDIO", "value=37 | 1 bytes beyond the layout"},
        {"no record sent",
         0x18050002,
         false,
         {},
         "OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel",
         "5 OXA_TV_CMD_CLASS_CHANNEL",
         ""},
        {"channel record", 0x18050006, true, channelReply,
         "OXA_TV_CMD_ID_CHANNEL_GetCurrentChannel", "5 OXA_TV_CMD_CLASS_CHANNEL",
         "status=0 u32Param1=101 u16Param1=1 u16Param2=2 u16Param3=3 u16Param4=4 u32Param2=7 "
         "c8ChannelName=\"BBC One\" | 3 bytes beyond the layout"},
        {"list reply", 0x18050001, true, channelReply, "OXA_TV_CMD_ID_CHANNEL_GetChannelList",
         "5 OXA_TV_CMD_CLASS_CHANNEL",
         "status=0 [0].u32Param1=101 [0].u16Param1=1 [0].u16Param2=2 [0].u16Param3=3 "
         "[0].u16Param4=4 [0].u32Param2=7 [0].c8ChannelName=\"BBC One\" | 3 bytes beyond the "
         "layout"},
        {"list count", 0x18050001, false, hex("0c 00 00 00"),
         "OXA_TV_CMD_ID_CHANNEL_GetChannelList", "5 OXA_TV_CMD_CLASS_CHANNEL", "u32ChanelNum=12"},
        {"guarded reply, status -1", 0x18030005, true, hex("ff ff ff ff"),
         "OXA_TV_CMD_ID_VIDEO_GetInputSouceList", "3 OXA_TV_CMD_CLASS_VIDEO",
         "status=-1 | status -1: the library does not read the fields"},
        {"reply without status", 0x18040004, true, hex("00 00"), "OXA_TV_CMD_ID_AUDIO_GetVolume",
         "4 OXA_TV_CMD_CLASS_AUDIO", " | short: 2 of 4 bytes"},
        {"counted string", 0x1805000B, false, withText(hex("07 00 00 00"), "BBC Two", 7),
         "OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2", "5 OXA_TV_CMD_CLASS_CHANNEL",
         "length=7 text=\"BBC Two\""},
        {"counted string cut", 0x1805000B, false, hex("ff ff ff ff 41"),
         "OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2", "5 OXA_TV_CMD_CLASS_CHANNEL",
         "length=4294967295 text=\"A\" | short: 1 of 4294967295 bytes"},
        {"browser certificates", 0x18020021, false,
         hex("02 00 00 00 02 00 00 00 01 00 00 00 03 00 00 00 61 00 62 00 00 73 6e 00"),
         "OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts", "2 OXA_TV_CMD_CLASS_VOICE_CTRL",
         "pcData1_len=2 pcData2_len=2 pcData3_len=1 pcSubjectName_len=3 pcData1=\"a\" "
         "pcData2=\"b\" pcData3=\"\" pcSubjectName=\"sn\""},
        {"text without terminator, escaped", 0x1801000E, false,
         hex("65 6e 2d 22 5c 0a 41 42 06 00 00 00"), "OXA_TV_CMD_ID_AVS_SET_LANGUAGE_SELECTION",
         "1 OXA_TV_CMD_CLASS_ALEXA", "c8Language=\"en-\\\"\\\\\\x0aAB\" u32LanguageLen=6"},
        {"inbound bytes", 0x1001000E, false, hex("01 ff 06"), "OXA_CMD_ID_AVS_SET_FFM_SUP",
         "1 OXV_CMD_CLASS_ALEXA", "u8Sup=1 c8CardID=-1 c8DevID=6"},
        {"inbound pcm", 0x10010006, false, hex("02 00 00 00 01 00 02 00"),
         "OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA", "1 OXV_CMD_CLASS_ALEXA",
         "samples=2 pcm=4 bytes: 01 00 02 00"},
        {"inbound pcm short", 0x10010006, false, hex("05 00 00 00 01 00"),
         "OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA", "1 OXV_CMD_CLASS_ALEXA",
         "samples=5 pcm=2 bytes: 01 00 | short: 2 of 10 bytes"},
        {"inbound text", 0x10030005, false, hex("47 42 00"), "OXA_CMD_ID_GA_USER_CHANGE_COUNTRY",
         "3 OXV_CMD_CLASS_GA", "code=\"GB\""},
        {"inbound reply", 0x10020003, true, hex("01 00 00 00"),
         "OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE", "2 voice control", "result=1"},
        {"inbound short", 0x10010003, false, hex("03 00 00 00 09"),
         "OXA_CMD_ID_AVS_REPORT_UI_STATUS", "1 OXV_CMD_CLASS_ALEXA",
         "status=3 | short: 5 of 8 bytes"},
        {"outbound id without command", 0x18010004, false, hex("01 02 03 04"), "unknown command",
         "", " | 4 bytes beyond the layout"},
        {"inbound id without command", 0x10010012, false, {}, "unknown command", "", ""},
        {"class 8", 0x18080001, true, {}, "unknown command", "", ""},
    };
    for (const Case& c : cases) {
        const zor::wire::Decoding decoding =
            zor::wire::decodePayload(c.id, c.reply, c.payload.data(), c.payload.size());
        EXPECT_EQ(decoding.command, c.command) << c.what;
        EXPECT_EQ(decoding.commandClass, c.commandClass) << c.what;
        EXPECT_EQ(shown(decoding), c.expected) << c.what;
    }
}

TEST(RecordDecode, SimulatorLogLineKeepsItsShortNames)
{
    Bytes token = withText({}, "abc", 4096);
    token.insert(token.end(), {3, 0, 0, 0});
    Bytes smartTv = withText({}, "play", 1028);
    smartTv.insert(smartTv.end(), {4, 0, 0, 0});
    smartTv = withText(smartTv, "YouTube", 68);
    smartTv.insert(smartTv.end(), {7, 0, 0, 0, 0xfb, 0xff, 0xff, 0xff});
    const struct {
        uint32_t id;
        Bytes payload;
        const char* line;
    } cases[] = {
        {0x18040003, hex("25 00 00 00"), "OXA_TV_CMD_ID_AUDIO_SetVolume value=37"},
        {0x1806000B, token, "OXA_TV_CMD_ID_SYSTEM_SetAVSToken token=\"abc\" len=3"},
        {0x18070004, smartTv,
         "OXA_TV_CMD_ID_MISC_StartSmartTVApp command=\"play\" command_len=4 app=\"YouTube\" "
         "app_len=7 param=-5"},
        {0x1805000B, withText(hex("07 00 00 00"), "BBC Two", 7),
         "OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2 len=7 text=\"BBC Two\""},
        {0x18050001, hex("0c 00 00 00"), "OXA_TV_CMD_ID_CHANNEL_GetChannelList count=12"},
        {0x18040003, hex("25"), "OXA_TV_CMD_ID_AUDIO_SetVolume (short)"},
        {0x18010003, {}, "OXA_TV_CMD_ID_AVS_GET_DEVICE_SETTING"},
    };
    for (const auto& c : cases) {
        const zor::wire::CommandRow* row = zor::wire::findCommand(c.id);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(zor::wire::describeRequest(*row, c.payload.data(), c.payload.size()), c.line);
    }
}

} // namespace
