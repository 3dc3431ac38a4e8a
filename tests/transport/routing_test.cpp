// SPDX-License-Identifier: MIT
// The router and the common frame of the class encoders, seen from the wire.
#include "tests/support/fake_middleware.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zor::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace
{

OXAPC::OXA_TV_CMD_ID id(unsigned int value)
{
    return static_cast<OXAPC::OXA_TV_CMD_ID>(value);
}

class RoutingTest : public testing::Test
{
protected:
    void SetUp() override
    {
        middleware().reset();
        setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
    }
    void TearDown() override
    {
        setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
        setDebugLevel(EN_DBG_PRT_LEVEL_ERROR);
    }
    static FakeMiddleware& middleware() { return FakeMiddleware::instance(); }

    // Runs a call with the given level and returns what it printed.
    template <typename Call> std::string output(int level, Call call)
    {
        testing::internal::CaptureStdout();
        setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
        setDebugLevel(static_cast<_EN_DBG_PRT_LEVEL>(level));
        call();
        std::string text = testing::internal::GetCapturedStdout();
        // Drop the two lines that the level change itself prints.
        for (int i = 0; i < 4; ++i)
            text.erase(0, text.find('\n') + 1);
        return text;
    }
};

// Each class reaches its own encoder: the class trace line, then the encoder's
// name lines for a command of that class.
struct ClassCase {
    unsigned int id;
    const char* classLine;
    const char* encoder;
    const char* commandLine;
};

const ClassCase kClassCases[] = {
    {0x1801000A, "OXA_TV_CMD_CLASS_ALEXA", "_alexaSendTransact",
     "OXA_TV_CMD_ID_AVS_START_STREAM_MIC_DATA"},
    {0x18020001, "OXA_TV_CMD_CLASS_VOICE_CTRL", "_voiceCtrlSendTransact",
     "OXA_TV_CMD_ID__VOICE_CTRL_INIT"},
    {0x18050002, "OXA_TV_CMD_CLASS_CHANNEL", "_channelModuleSendTransact",
     "OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel"},
    {0x18060002, "OXA_TV_CMD_CLASS_SYSTEM", "_systemModuleSendTransact",
     "OXA_TV_CMD_ID_SYSTEM_SetUSBSource"},
    {0x18060009, "OXA_TV_CMD_CLASS_SYSTEM", "_systemModuleSendTransact",
     "OXA_TV_CMD_ID_SYSTEM_restartCurrentFVPProgram"},
};

TEST_F(RoutingTest, EachClassReachesItsEncoderWithAnEmptyRequest)
{
    for (const ClassCase& c : kClassCases) {
        SCOPED_TRACE(c.commandLine);
        middleware().reset();
        middleware().setDefaultReply({7, {}});
        int result = 0;
        std::string text = output(8, [&] { result = forwardCommand(id(c.id), nullptr); });
        EXPECT_EQ(result, 7);
        EXPECT_THAT(text, ContainsRegex(std::string("^\\[forwardCommand\\(\\): [0-9]+\\]") +
                                        c.classLine + "\n"));
        EXPECT_THAT(text, ContainsRegex(std::string("\\[") + c.encoder + "\\(\\): [0-9]+\\]" +
                                        c.commandLine + "\n"));
        char enter[64];
        snprintf(enter, sizeof(enter), "transact[0x%08x] : enter\n", c.id);
        EXPECT_THAT(text, HasSubstr(enter));
        ASSERT_EQ(middleware().exchanges().size(), 1u);
        EXPECT_EQ(middleware().exchanges()[0].cmd, c.id);
        EXPECT_THAT(middleware().exchanges()[0].request, IsEmpty());
    }
}

TEST_F(RoutingTest, ClassOutsideOneToSevenReturnsZeroAndSendsNothing)
{
    int result = -1;
    std::string text = output(1, [&] { result = forwardCommand(id(0x18080001), nullptr); });
    EXPECT_EQ(result, 0);
    EXPECT_THAT(text, ContainsRegex("^\\[forwardCommand\\(\\): [0-9]+\\]unknown command "
                                    "\\[403177473\\]\n$"));
    EXPECT_EQ(forwardCommand(id(0x18000001), nullptr), 0);
    EXPECT_EQ(forwardCommand(id(0x180F0001), nullptr), 0);
    EXPECT_THAT(middleware().exchanges(), IsEmpty());
}

// Ids that fall into a class but are not commands: -1, a line from every
// encoder except the video one, nothing sent.
struct UnknownIdCase {
    unsigned int id;
    const char* line; // null: the encoder is silent
};

const UnknownIdCase kUnknownIds[] = {
    {0x18010004, "\\[_alexaSendTransact\\(\\): [0-9]+\\]unknown cmd 402718724\n"},
    {0x18010005, "\\[_alexaSendTransact\\(\\): [0-9]+\\]unknown cmd 402718725\n"},
    {0x18010010, "\\[_alexaSendTransact\\(\\): [0-9]+\\]unknown cmd 402718736\n"},
    {0x18020012, "\\[_voiceCtrlSendTransact\\(\\): [0-9]+\\]unknown cmd 402784274\n"},
    {0x1802001A, "\\[_voiceCtrlSendTransact\\(\\): [0-9]+\\]unknown cmd 402784282\n"},
    {0x1802001F, "\\[_voiceCtrlSendTransact\\(\\): [0-9]+\\]unknown cmd 402784287\n"},
    {0x18030009, nullptr},
    {0x18030000, nullptr},
    {0x18040000, "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]unknown cmd 402915328\n"},
    {0x18040008, "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]unknown cmd 402915336\n"},
    {0x10040001, "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]unknown cmd 268697601\n"},
    {0x1805000C, "\\[_channelModuleSendTransact\\(\\): [0-9]+\\]unknown cmd 402980876\n"},
    {0x18060010, "\\[_systemModuleSendTransact\\(\\): [0-9]+\\]unknown cmd 403046416\n"},
    {0x18070009, "\\[_miscModuleSendTransact\\(\\): [0-9]+\\]unknown cmd 403111945\n"},
};

TEST_F(RoutingTest, UnknownIdsAreRefusedBeforeSending)
{
    for (const UnknownIdCase& c : kUnknownIds) {
        SCOPED_TRACE(c.id);
        uint32_t record = 0;
        int result = 0;
        std::string text = output(1, [&] { result = forwardCommand(id(c.id), &record); });
        EXPECT_EQ(result, -1);
        if (c.line)
            EXPECT_THAT(text, ContainsRegex(std::string("^") + c.line + "$"));
        else
            EXPECT_EQ(text, "");
    }
    EXPECT_THAT(middleware().exchanges(), IsEmpty());
}

TEST_F(RoutingTest, NullRecordIsRefusedForCommandsThatCarryOne)
{
    const unsigned int withRecord[] = {0x18010002, 0x18010003, 0x1801000D, 0x18020005,
                                       0x18020021, 0x18030001, 0x18030006, 0x18040001,
                                       0x18050001, 0x1805000B, 0x18060004, 0x18070002};
    for (unsigned int command : withRecord) {
        SCOPED_TRACE(command);
        int result = 0;
        std::string text = output(1, [&] { result = forwardCommand(id(command), nullptr); });
        EXPECT_EQ(result, -1);
        EXPECT_THAT(text, ContainsRegex("\\]cmd_data is NULL\\.\n$"));
    }
    EXPECT_THAT(middleware().exchanges(), IsEmpty());
}

TEST_F(RoutingTest, NullRecordOfAudioCommandPrintsNameThenRefusal)
{
    std::string text = output(9, [] { EXPECT_EQ(forwardCommand(id(0x18040001), nullptr), -1); });
    EXPECT_THAT(text, ContainsRegex("\\[_audioModuleSendTransact\\(\\): [0-9]+\\]"
                                    "OXA_TV_CMD_ID_AUDIO_SetMute\n"
                                    "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]cmd_data is "
                                    "NULL\\.\n$"));
}

TEST_F(RoutingTest, CommandsWithoutRecordSendEmptyRequestWhateverThePointer)
{
    uint32_t ignored = 0xAABBCCDD;
    for (void* pointer : {static_cast<void*>(nullptr), static_cast<void*>(&ignored)}) {
        middleware().reset();
        EXPECT_EQ(forwardCommand(OXAPC::OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel, pointer), 0);
        ASSERT_EQ(middleware().exchanges().size(), 1u);
        EXPECT_THAT(middleware().exchanges()[0].request, IsEmpty());
    }
    EXPECT_EQ(ignored, 0xAABBCCDDu);
}

// The two read rules: unconditional reads whatever the status; guarded reads
// nothing when the status is -1 and prints the error line.
struct ReadRuleCase {
    unsigned int id;
    bool guarded;
};

const ReadRuleCase kReadRuleCases[] = {
    {0x18040004, false}, // GetVolume
    {0x18050007, false}, // GetNumberofChannels
    {0x18020020, false}, // voice-control source count
    {0x18030006, true},  // video source count
};

TEST_F(RoutingTest, ReadRulesUnderEachStatus)
{
    for (const ReadRuleCase& c : kReadRuleCases) {
        for (int32_t status : {0, 3, -1, -2}) {
            SCOPED_TRACE(testing::Message()
                         << std::hex << c.id << std::dec << " status " << status);
            middleware().reset();
            middleware().setDefaultReply({status, le32(0x01020304)});
            uint32_t record = 0x55555555;
            int result = 0;
            std::string text = output(1, [&] { result = forwardCommand(id(c.id), &record); });
            EXPECT_EQ(result, status);
            const bool skipped = c.guarded && status == -1;
            EXPECT_EQ(record, skipped ? 0x55555555u : 0x01020304u);
            if (skipped)
                EXPECT_THAT(text, ContainsRegex("\\]ERROR: _ret_val = -1\n$"));
            else
                EXPECT_EQ(text, "");
        }
    }
}

TEST_F(RoutingTest, GuardedListReadsNothingOnMinusOneAndTheArrayOtherwise)
{
    _VOICECTRL_CHANNEL_INFO channels[3];
    memset(channels, 0x77, sizeof(channels));
    _VOICECTRL_CHANNEL_LIST list = {channels, 3};
    Bytes records = repeat(0x11, 84) + repeat(0x22, 84) + repeat(0x33, 84);

    middleware().setDefaultReply({-1, records});
    EXPECT_EQ(forwardCommand(OXAPC::OXA_TV_CMD_ID__VOICE_CTRL_GetChannelList, &list), -1);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(channels)[0], 0x77);

    middleware().setDefaultReply({0, records});
    EXPECT_EQ(forwardCommand(OXAPC::OXA_TV_CMD_ID__VOICE_CTRL_GetChannelList, &list), 0);
    const uint8_t* bytes = reinterpret_cast<uint8_t*>(channels);
    EXPECT_EQ(bytes[0], 0x11);
    EXPECT_EQ(bytes[84], 0x22);
    EXPECT_EQ(bytes[251], 0x33);
    ASSERT_EQ(middleware().exchanges().size(), 2u);
    EXPECT_EQ(middleware().exchanges()[1].request, hex("03 00 00 00"));
}

TEST_F(RoutingTest, ListNeverWritesPastTheCountItAskedFor)
{
    _VOICECTRL_SOURCE_INFO sources[3];
    memset(sources, 0x77, sizeof(sources));
    _VOICECTRL_SOURCE_LIST list = {sources, 2};
    middleware().setDefaultReply({0, repeat(0x11, 66 * 3)});
    EXPECT_EQ(forwardCommand(OXAPC::OXA_TV_CMD_ID_VIDEO_GetInputSouceList, &list), 0);
    const uint8_t* bytes = reinterpret_cast<uint8_t*>(sources);
    EXPECT_EQ(bytes[131], 0x11);
    EXPECT_EQ(bytes[132], 0x77);
}

TEST_F(RoutingTest, EmptyReplyReadsStatusMinusOne)
{
    middleware().setDefaultReply({0, {}, true});
    uint32_t record = 9;
    EXPECT_EQ(forwardCommand(OXAPC::OXA_TV_CMD_ID_AUDIO_GetMute, &record), -1);
    EXPECT_EQ(record, 9u);
}

} // namespace
