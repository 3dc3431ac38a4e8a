// SPDX-License-Identifier: MIT
// An application process and the simulated television, through real sockets.
#include "tests/support/process.h"
#include "zor/zor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

using namespace zor::test;

namespace
{

class SimulatorAudioTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        static char dir[] = "/tmp/zor-sim-audio-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        setenv("ZOR_RUNTIME_DIR", dir, 1);
        setenv("ZOR_MUP_TIMEOUT_MS", "2000", 1);
    }

    std::unique_ptr<ChildProcess> startSimulator()
    {
        auto sim = std::make_unique<ChildProcess>(
            std::vector<std::string>{builtProgram("sim/tvsim"), "--quiet"});
        EXPECT_TRUE(waitForService("oxa.kel.avs.client"));
        return sim;
    }
};

TEST_F(SimulatorAudioTest, CommandsReachTheTelevisionAndComeBack)
{
    auto sim = startSimulator();
    ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);

    EXPECT_EQ(ZOR_App_SetVolume(30), 0);
    EXPECT_EQ(ZOR_App_GetVolume(), 30);
    EXPECT_EQ(ZOR_App_GetMaxVolume(), 100);
    EXPECT_EQ(ZOR_App_SetMute(1), 0);
    EXPECT_EQ(ZOR_App_GetMute(), 1);
    EXPECT_EQ(ZOR_App_SetMainAudioGain(-3), 0);
    EXPECT_EQ(ZOR_App_SetSoundStyle(2), 0);

    // The television keeps the volume within its maximum.
    EXPECT_EQ(ZOR_App_SetVolume(255), 0);
    EXPECT_EQ(ZOR_App_GetVolume(), 100);
}

TEST_F(SimulatorAudioTest, TelevisionGoneGivesMinusOneAndARestartIsReachedAgain)
{
    auto sim = startSimulator();
    ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
    EXPECT_EQ(ZOR_App_SetVolume(10), 0);

    sim->stop(SIGKILL);
    EXPECT_EQ(ZOR_App_SetVolume(11), -1);

    sim = startSimulator();
    EXPECT_EQ(ZOR_App_SetVolume(12), 0);
    EXPECT_EQ(ZOR_App_GetVolume(), 12);
}

TEST_F(SimulatorAudioTest, ConcurrentCallersEachGetTheirOwnAnswer)
{
    auto sim = startSimulator();
    ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);

    std::vector<std::thread> callers;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([t, &failures] {
            for (int i = 0; i < 200; ++i) {
                if (ZOR_App_SetMainAudioGain(t * 1000 + i) != 0 || ZOR_App_GetMaxVolume() != 100)
                    ++failures[t];
            }
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

} // namespace
