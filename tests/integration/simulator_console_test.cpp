// SPDX-License-Identifier: MIT
// tvsim as the middleware: `tvsim ctl <command>` reaches the running
// simulator's control socket, which sends the command to the application
// (this test process) through the real sockets.
#include "tests/server/inbound_harness.h"
#include "tests/support/process.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zor::test;
using testing::ElementsAre;

namespace
{

struct CtlResult {
    std::string answer;
    int status = -1;
};

CtlResult ctl(const std::string& command)
{
    std::string line;
    if (const char* emulator = getenv("ZOR_TEST_EMULATOR"))
        line += std::string(emulator) + " ";
    line += builtProgram("sim/tvsim") + " ctl " + command + " 2>&1";
    CtlResult result;
    FILE* pipe = popen(line.c_str(), "r");
    if (!pipe)
        return result;
    char buffer[4096];
    while (fgets(buffer, sizeof(buffer), pipe))
        result.answer += buffer;
    if (!result.answer.empty() && result.answer.back() == '\n')
        result.answer.pop_back();
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

class SimulatorConsoleTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_dir = usePrivateRuntimeDir("zor-sim-console");
        ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
        ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_GA), 0);
        s_sim = new ChildProcess({builtProgram("sim/tvsim"), "--quiet"});
        struct stat info;
        for (int i = 0; i < 500 && stat((s_dir + "/tvsim.control").c_str(), &info) != 0; ++i)
            usleep(10000);
    }
    static void TearDownTestSuite()
    {
        delete s_sim;
        s_sim = nullptr;
    }
    void SetUp() override
    {
        registerRecordingCallbacks();
        clearRecordedEvents();
    }

    static std::string s_dir;
    static ChildProcess* s_sim;
};

std::string SimulatorConsoleTest::s_dir;
ChildProcess* SimulatorConsoleTest::s_sim = nullptr;

TEST_F(SimulatorConsoleTest, CommandsReachTheApplicationsCallbacks)
{
    const struct {
        const char* command;
        const char* callback;
    } cases[] = {
        {"activate", "activate"},
        {"enable 2", "enable(2)"},
        {"ui-status 3 7", "ui-status(3,7)"},
        {"language de", "language(de)"},
        {"country GBR", "country(GBR)"},
        {"reset 5", "reset(5)"},
        {"power 2", "power(2)"},
        {"timezone", "timezone"},
        {"action-button", "action-button"},
        {"xmos-mic 1", "ffmic(1)"},
        {"cert-changed two words", "cert(two words)"},
        {"ga-activate", "activate"},
        {"ga-reset 4", "reset(4)"},
        {"@ga ui-status 1 2", "ui-status(1,2)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        clearRecordedEvents();
        const CtlResult result = ctl(c.command);
        EXPECT_EQ(result.answer, "ok reply=0");
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(eventTexts(waitForEvents(1)), ElementsAre(c.callback));
    }
}

TEST_F(SimulatorConsoleTest, ControlSocketIsForItsOwnUserOnly)
{
    struct stat info = {};
    ASSERT_EQ(stat((s_dir + "/tvsim.control").c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u) << std::oct << (info.st_mode & 07777);
}

TEST_F(SimulatorConsoleTest, QueryAnswersWithTheApplicationsResult)
{
    setCertificateAnswer(7);
    EXPECT_EQ(ctl("query-iot-cert").answer, "ok reply=7");
}

TEST_F(SimulatorConsoleTest, WorkerCallbacksFollow)
{
    EXPECT_EQ(ctl("tap").status, 0);
    EXPECT_EQ(ctl("hold 1").status, 0);
    EXPECT_EQ(ctl("control-changed 4").status, 0);
    auto events = eventTexts(waitForEvents(3));
    std::sort(events.begin(), events.end());
    EXPECT_THAT(events, ElementsAre("control-changed(4)", "hold(1)", "tapped"));
}

TEST_F(SimulatorConsoleTest, WavFileArrivesAsPcmCommands)
{
    const std::string wav = s_dir + "/tone.wav";
    const std::string make =
        "sox -n -r 16000 -c 1 -b 16 " + wav + " synth 0.25 sine 440 2>/dev/null";
    if (system(make.c_str()) != 0)
        GTEST_SKIP() << "sox is not available";
    const CtlResult result = ctl("pcm " + wav);
    EXPECT_EQ(result.answer, "ok sent 4000 samples in 3 commands");
    auto events = waitForEvents(3);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].text.substr(0, 9), "pcm(3200:");
    EXPECT_EQ(events[2].text.substr(0, 9), "pcm(1600:"); // the last 800 samples
}

TEST_F(SimulatorConsoleTest, MistakesAreAnsweredWithAnError)
{
    // Texts longer than their field would arrive cut ("de-D"): refused.
    for (const char* command : {"bogus", "enable", "hold 2", "ga-tap", "@tv activate",
                                "language de-DE", "@ga country GBR1"}) {
        SCOPED_TRACE(command);
        const CtlResult result = ctl(command);
        EXPECT_EQ(result.answer.rfind("error ", 0), 0u) << result.answer;
        EXPECT_EQ(result.status, 1);
    }
    EXPECT_TRUE(recordedEvents().empty());
}

TEST_F(SimulatorConsoleTest, TextThatDoesNotFitItsFieldIsRefusedWithTheReason)
{
    const CtlResult result = ctl("language de-DE");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.answer, testing::HasSubstr("a language code has at most 4 characters"));
    EXPECT_THAT(result.answer, testing::HasSubstr("'de-D'"));
}

// No running tvsim is needed, and each command stands on a line of its own.
TEST(SimulatorHelp, CtlHelpWorksOfflineOneCommandPerLine)
{
    const std::string dir = usePrivateRuntimeDir("zor-sim-help");
    const CtlResult result = ctl("help");
    EXPECT_EQ(result.status, 0) << result.answer;
    std::vector<std::string> lines;
    for (size_t start = 0; start <= result.answer.size();) {
        const size_t end = result.answer.find('\n', start);
        lines.push_back(result.answer.substr(start, end - start));
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    for (const char* command : {"  activate", "  language <code>", "  ffm-sup <sup> <card> <dev>",
                                "  pcm <file.wav>", "  say-text <sentence>", "  quit"}) {
        SCOPED_TRACE(command);
        EXPECT_EQ(
            std::count_if(lines.begin(), lines.end(),
                          [&](const std::string& line) { return line.rfind(command, 0) == 0; }),
            1);
    }
    // Not the old single line with " | " between commands.
    for (const std::string& line : lines)
        EXPECT_EQ(line.find(" | "), std::string::npos) << line;
}

} // namespace
