// SPDX-License-Identifier: MIT
// Audio commands on the wire: one word each way.
#include "tests/support/fake_middleware.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace zor::test;
using testing::ContainsRegex;

namespace
{

class AudioCommandsTest : public testing::Test
{
protected:
    void SetUp() override { FakeMiddleware::instance().reset(); }
    FakeMiddleware& middleware() { return FakeMiddleware::instance(); }
};

struct SetCase {
    const char* name;
    std::function<int()> call;
    unsigned int id;
    const char* request;
};

const SetCase kSetCases[] = {
    {"SetMute(1)", [] { return ZOR_App_SetMute(1); }, 0x18040001, "01 00 00 00"},
    {"SetMute(0)", [] { return ZOR_App_SetMute(0); }, 0x18040001, "00 00 00 00"},
    {"SetVolume(30)", [] { return ZOR_App_SetVolume(30); }, 0x18040003, "1E 00 00 00"},
    {"SetVolume(255)", [] { return ZOR_App_SetVolume(255); }, 0x18040003, "FF 00 00 00"},
    {"SetMainAudioGain(-3)", [] { return ZOR_App_SetMainAudioGain(-3); }, 0x18040006,
     "FD FF FF FF"},
    {"SetMainAudioGain(0x12345678)", [] { return ZOR_App_SetMainAudioGain(0x12345678); },
     0x18040006, "78 56 34 12"},
    {"SetSoundStyle(5)", [] { return ZOR_App_SetSoundStyle(5); }, 0x18040007, "05 00 00 00"},
};

TEST_F(AudioCommandsTest, SetFunctionsSendOneWordAndReturnTheStatus)
{
    for (const SetCase& c : kSetCases) {
        for (int32_t status : {0, -1, 42}) {
            SCOPED_TRACE(testing::Message() << c.name << " status " << status);
            middleware().reset();
            middleware().setDefaultReply({status, {}});
            EXPECT_EQ(c.call(), status);
            ASSERT_EQ(middleware().exchanges().size(), 1u);
            EXPECT_EQ(middleware().exchanges()[0].cmd, c.id);
            EXPECT_EQ(middleware().exchanges()[0].request, hex(c.request));
        }
    }
}

struct QueryCase {
    const char* name;
    int (*call)();
    unsigned int id;
};

const QueryCase kQueryCases[] = {
    {"GetMute", ZOR_App_GetMute, 0x18040002},
    {"GetVolume", ZOR_App_GetVolume, 0x18040004},
    {"GetMaxVolume", ZOR_App_GetMaxVolume, 0x18040005},
};

TEST_F(AudioCommandsTest, QueriesSendZeroAndReturnTheReplyWordWhateverTheStatus)
{
    for (const QueryCase& c : kQueryCases) {
        for (int32_t status : {0, -1, -7}) {
            SCOPED_TRACE(testing::Message() << c.name << " status " << status);
            middleware().reset();
            middleware().setDefaultReply({status, hex("19 00 00 00")});
            EXPECT_EQ(c.call(), 25);
            ASSERT_EQ(middleware().exchanges().size(), 1u);
            EXPECT_EQ(middleware().exchanges()[0].cmd, c.id);
            EXPECT_EQ(middleware().exchanges()[0].request, hex("00 00 00 00"));
        }
    }
}

TEST_F(AudioCommandsTest, QueryWithoutValueInTheReplyReturnsZero)
{
    middleware().setDefaultReply({0, {}});
    EXPECT_EQ(ZOR_App_GetVolume(), 0);
}

TEST_F(AudioCommandsTest, GetVolumeHasItsOwnEntryAndExitLines)
{
    setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
    setDebugLevel(EN_DBG_PRT_LEVEL_TRACE);
    testing::internal::CaptureStdout();
    ZOR_App_GetVolume();
    ZOR_App_GetMute();
    std::string text = testing::internal::GetCapturedStdout();
    setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
    setDebugLevel(EN_DBG_PRT_LEVEL_ERROR);

    EXPECT_THAT(text, ContainsRegex("^\\[ZOR_App_GetVolume\\(\\): [0-9]+\\]===>\n\n"));
    EXPECT_THAT(text, ContainsRegex("\\[ZOR_App_GetVolume\\(\\): [0-9]+\\]===>\n\n"
                                    "\\[ZOR_App_GetMute\\(\\): [0-9]+\\]<===\n"));
    EXPECT_THAT(text, ContainsRegex("\\[ZOR_App_GetMute\\(\\): [0-9]+\\]===>\n$"));
}

} // namespace
