// SPDX-License-Identifier: MIT
// The debug level: how requests accumulate, and which lines each bit lets out.
#include "tests/support/fake_middleware.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zor::test;
using testing::ContainsRegex;

namespace
{

std::string captured(void (*call)())
{
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

class DebugLevelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        FakeMiddleware::instance().reset();
        setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
    }
    void TearDown() override { setDebugLevel(EN_DBG_PRT_LEVEL_ERROR); }
};

TEST_F(DebugLevelTest, BitsAccumulateUntilZeroClearsThem)
{
    setDebugLevel(EN_DBG_PRT_LEVEL_ERROR);
    EXPECT_EQ(GetLogDebugLevel(), 1);

    struct Step {
        int request;
        int level;
        const char* printed;
    };
    const Step steps[] = {
        {8, 9, "s32DebugLevel = 8\ngs32DebugLevel = 9\n"},
        {1, 9, "s32DebugLevel = 1\ngs32DebugLevel = 9\n"},
        {0x40, 0x49, "s32DebugLevel = 64\ngs32DebugLevel = 73\n"},
        {0, 0, "s32DebugLevel = 0\ngs32DebugLevel = 0\n"},
    };
    for (const Step& step : steps) {
        testing::internal::CaptureStdout();
        setDebugLevel(static_cast<_EN_DBG_PRT_LEVEL>(step.request));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), step.printed);
        EXPECT_EQ(GetLogDebugLevel(), step.level);
    }
}

void unknownClassAndVolume()
{
    forwardCommand(static_cast<OXAPC::OXA_TV_CMD_ID>(0x18080001), nullptr);
    ZOR_App_SetVolume(30);
}

TEST_F(DebugLevelTest, ErrorAndTraceBitsGateTheirLines)
{
    // Level 0: neither the unknown-class error nor any trace line.
    EXPECT_EQ(captured(unknownClassAndVolume), "");

    setDebugLevel(EN_DBG_PRT_LEVEL_ERROR);
    EXPECT_THAT(
        captured(unknownClassAndVolume),
        ContainsRegex("^\\[forwardCommand\\(\\): [0-9]+\\]unknown command \\[403177473\\]\n$"));

    setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
    setDebugLevel(EN_DBG_PRT_LEVEL_TRACE);
    EXPECT_THAT(
        captured(unknownClassAndVolume),
        ContainsRegex("^\\[ZOR_App_SetVolume\\(\\): [0-9]+\\]<===\n"
                      "\\[forwardCommand\\(\\): [0-9]+\\]OXA_TV_CMD_CLASS_AUDIO\n"
                      "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]"
                      "OXA_TV_CMD_ID_AUDIO_SetVolume\n"
                      "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]transact\\[0x18040003\\] "
                      ": enter\n"
                      "\\[_audioModuleSendTransact\\(\\): [0-9]+\\]transact\\[0x18040003\\] "
                      ": leave\n"
                      "\\[ZOR_App_SetVolume\\(\\): [0-9]+\\]===>\n$"));
}

TEST_F(DebugLevelTest, OtherBitsHaveNoEffect)
{
    setDebugLevel(static_cast<_EN_DBG_PRT_LEVEL>(0x76));
    EXPECT_EQ(captured(unknownClassAndVolume), "");
}

} // namespace
