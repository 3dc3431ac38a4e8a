// SPDX-License-Identifier: MIT
// An application process against the simulated television, through real
// sockets: channels, sources, the token and injected failures.
#include "tests/support/process.h"
#include "zor/zor.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

using namespace zor::test;

namespace
{

class SimulatorCommandsTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        static char dir[] = "/tmp/zor-sim-commands-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        setenv("ZOR_RUNTIME_DIR", dir, 1);
        setenv("ZOR_MUP_TIMEOUT_MS", "2000", 1);
        s_dir = dir;
    }

    std::unique_ptr<ChildProcess> startSimulator(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {builtProgram("sim/tvsim"), "--quiet"});
        auto sim = std::make_unique<ChildProcess>(arguments);
        EXPECT_TRUE(waitForService("oxa.kel.avs.client"));
        EXPECT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
        return sim;
    }

    static void stop(std::unique_ptr<ChildProcess>& sim)
    {
        const int status = sim->stop(SIGTERM);
        EXPECT_TRUE(WIFEXITED(status)) << status;
        sim.reset();
    }

    static std::string currentChannelName()
    {
        _VOICECTRL_CHANNEL_INFO channel;
        memset(&channel, 0, sizeof(channel));
        EXPECT_EQ(ZOR_App_GetCurrentChannel(&channel), 0);
        return channel.c8ChannelName;
    }

    static inline std::string s_dir;
};

TEST_F(SimulatorCommandsTest, ChannelListAndTuningChangeTheTelevision)
{
    auto sim = startSimulator({});

    unsigned long count = 0;
    ASSERT_EQ(ZOR_App_GetChannelNumber(&count), 0);
    ASSERT_EQ(count, 12u);
    std::vector<_VOICECTRL_CHANNEL_INFO> channels(count);
    unsigned long listed = 0;
    ASSERT_EQ(ZOR_App_GetChannelList(channels.data(), &listed), 0);
    ASSERT_EQ(listed, 12u);
    EXPECT_STREQ(channels[0].c8ChannelName, "BBC One");
    EXPECT_EQ(channels[0].u32Param1, 1u);
    EXPECT_STREQ(channels[11].c8ChannelName, "CBBC");

    EXPECT_EQ(currentChannelName(), "BBC One");
    EXPECT_EQ(ZOR_App_TuneToChannel(5), 0);
    EXPECT_EQ(currentChannelName(), "Channel 5");
    EXPECT_EQ(ZOR_App_TuneToNextChannel(), 0);
    EXPECT_EQ(currentChannelName(), "E4");
    EXPECT_EQ(ZOR_App_TuneToLastTunedChannel(), 0);
    EXPECT_EQ(currentChannelName(), "Channel 5");
    char film4[] = "film4";
    EXPECT_EQ(ZOR_App_TuneToChannel_2(film4), 0);
    EXPECT_EQ(currentChannelName(), "Film4");
    EXPECT_EQ(ZOR_App_TuneToChannel(99), -1);
    EXPECT_EQ(currentChannelName(), "Film4");

    int sources = 0;
    std::vector<_VOICECTRL_SOURCE_INFO> list(8);
    EXPECT_EQ(ZOR_App_GetInputSouceList(list.data(), &sources), 0);
    EXPECT_EQ(sources, 4);
    EXPECT_EQ(ZOR_App_TuneToInputSrc("hdmi2"), 0);
    char source[65] = {};
    EXPECT_EQ(ZOR_App_GetCurrentInputSource(source), 0);
    EXPECT_STREQ(source, "HDMI2");

    stop(sim);
}

TEST_F(SimulatorCommandsTest, TokenIsStoredAndReadBack)
{
    auto sim = startSimulator({});
    char token[] = "Atza|token-from-the-test";
    EXPECT_EQ(ZOR_App_SetAVSToken(token, static_cast<int>(strlen(token))), 0);
    std::vector<char> back(4097, 'x');
    int length = 0;
    EXPECT_EQ(ZOR_App_GetAVSToken(back.data(), &length), 0);
    EXPECT_STREQ(back.data(), token);
    EXPECT_EQ(length, static_cast<int>(strlen(token)));
    stop(sim);
}

TEST_F(SimulatorCommandsTest, InjectedStatusesAndShortRepliesArrive)
{
    auto sim = startSimulator(
        {"--fail", "0x18050001=-1", "--fail", "0x18060004=-5", "--short", "0x1806000D"});

    std::vector<_VOICECTRL_CHANNEL_INFO> channels(12);
    memset(channels.data(), 0x5A, channels.size() * sizeof(channels[0]));
    unsigned long listed = 0;
    EXPECT_EQ(ZOR_App_GetChannelList(channels.data(), &listed), -1);
    EXPECT_EQ(listed, 12u);
    EXPECT_EQ(channels[0].u32Param1, 0x5A5A5A5Au);

    unsigned char env = 9;
    EXPECT_EQ(ZOR_App_GetEnvironment(&env), -5);
    EXPECT_EQ(env, 0);

    // Half of the time-zone record arrives: its length field is missing.
    std::vector<char> zone(1025, 'x');
    EXPECT_EQ(ZOR_App_GetTimeZone(zone.data()), -1);
    EXPECT_EQ(zone[0], 'x');
    stop(sim);
}

TEST_F(SimulatorCommandsTest, StateFileReplacesTheDefaultTelevision)
{
    const std::string path = s_dir + "/state.json";
    std::ofstream(path) << R"({"channels": [{"number": 7, "name": "Seven"},
                                            {"number": 8, "name": "Eight"}],
                              "currentChannel": 1, "timeZone": "Asia/Tokyo"})";
    auto sim = startSimulator({"--state", path});
    unsigned long count = 0;
    EXPECT_EQ(ZOR_App_GetChannelNumber(&count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(currentChannelName(), "Eight");
    std::vector<char> zone(1025, 0);
    EXPECT_EQ(ZOR_App_GetTimeZone(zone.data()), 0);
    EXPECT_STREQ(zone.data(), "Asia/Tokyo");
    stop(sim);
}

} // namespace
