// SPDX-License-Identifier: MIT
// zorctl and tvsim as a user meets them, from outside: exit status, what goes
// to standard output and what to standard error, with the simulated
// television running, frozen, or absent.
#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zor::test;
using testing::HasSubstr;
using testing::Not;

namespace
{

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string shellQuoted(const std::string& word)
{
    std::string out = "'";
    for (const char c : word)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

size_t lineCount(const std::string& text)
{
    size_t lines = 0;
    for (const char c : text)
        lines += c == '\n';
    return lines;
}

class ToolOutputTest : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/zor-tool-output-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
        setenv("ZOR_RUNTIME_DIR", (m_dir + "/run").c_str(), 1);
        setenv("ZOR_MUP_TIMEOUT_MS", "3000", 1);
    }

    void TearDown() override
    {
        m_tvsim.reset();
        const std::string remove = "rm -rf " + shellQuoted(m_dir);
        EXPECT_EQ(system(remove.c_str()), 0);
    }

    // Runs a built program with `args`; `environment` is prepended
    // ("NAME=value ...", as the shell takes it).
    Outcome run(const std::string& program, const std::vector<std::string>& args,
                const std::string& environment = "")
    {
        std::string line = environment;
        line += " ";
        if (const char* emulator = getenv("ZOR_TEST_EMULATOR"))
            line += std::string(emulator) + " ";
        line += shellQuoted(builtProgram(program));
        for (const std::string& arg : args)
            line += " " + shellQuoted(arg);
        const std::string out = m_dir + "/out";
        const std::string err = m_dir + "/err";
        line += " > " + shellQuoted(out) + " 2> " + shellQuoted(err) + " < /dev/null";
        Outcome result;
        const int status = system(line.c_str());
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = readFile(out);
        result.err = readFile(err);
        return result;
    }

    Outcome zorctl(const std::vector<std::string>& args, const std::string& environment = "")
    {
        return run("tools/zorctl", args, environment);
    }

    void startTvsim(const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> argv = {builtProgram("sim/tvsim"), "--quiet"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        m_tvsim = std::make_unique<ChildProcess>(argv, m_dir + "/tvsim.log");
        ASSERT_TRUE(waitForService("oxa.kel.avs.client"));
    }

    std::string socketPath() const { return m_dir + "/run/oxa.kel.avs.client.sock"; }

    std::string m_dir;
    std::unique_ptr<ChildProcess> m_tvsim;
};

TEST_F(ToolOutputTest, QueriesWithoutAMiddlewareFailOnStderrAndPrintNothing)
{
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"volume", "get"},
                                               {"mute", "get"},
                                               {"max-volume"},
                                               {"channels"},
                                               {"sources"},
                                               {"token", "get"},
                                               {"tune-channel", "3"},
                                               {"listen", "--seconds", "1"}}) {
        SCOPED_TRACE(args[0]);
        const Outcome result = zorctl(args);
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.out.find("volume:"), std::string::npos);
        EXPECT_THAT(result.out, Not(HasSubstr("channels")));
        if (args[0] != "listen") { // its events before the first command stay
            EXPECT_EQ(result.out, "");
        }
        EXPECT_EQ(lineCount(result.err), 1u) << result.err;
        EXPECT_THAT(result.err, HasSubstr("no answer from the middleware at " + socketPath()));
    }
}

TEST_F(ToolOutputTest, AnswersAreOneLineOnStdoutAndTheLibrarysLinesStayAside)
{
    startTvsim();
    const struct {
        std::vector<std::string> args;
        const char* out;
    } cases[] = {
        {{"volume", "set", "30"}, "volume: status 0\n"},
        {{"volume", "get"}, "volume: 30\n"},
        {{"mute", "get"}, "mute: 0\n"},
        {{"max-volume"}, "max-volume: 100\n"},
        {{"token", "set", "abc123"}, "token set: status 0\n"},
        {{"token", "get"}, "token (6): abc123\n"},
        {{"current-source"}, "current-source: TV\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0]);
        const Outcome result = zorctl(c.args);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, c.out);
        EXPECT_EQ(result.err, "");
    }

    const Outcome help = zorctl({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("volume"));
    EXPECT_THAT(help.out + help.err, Not(HasSubstr("AVSServerBackend")));

    // -v: the library's lines, on stderr only.
    const Outcome verbose = zorctl({"-v", "volume", "get"});
    EXPECT_EQ(verbose.out, "volume: 30\n");
    EXPECT_THAT(verbose.err, HasSubstr("SRVTVBackend constructor"));
    EXPECT_THAT(verbose.err, HasSubstr("SRVTVBackend destructor"));
}

TEST_F(ToolOutputTest, RefusalIsToldApartFromNoAnswer)
{
    startTvsim({"--fail", "0x18040004=-1"});
    const Outcome refused = zorctl({"tune-channel", "999"}); // no such channel
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, HasSubstr("tune-channel: the middleware refused it (status -1)"));

    // The value word of a refused query is not shown.
    const Outcome query = zorctl({"volume", "get"});
    EXPECT_EQ(query.status, 1);
    EXPECT_EQ(query.out, "");
    EXPECT_THAT(query.err, HasSubstr("refused it (status -1)"));

    // Refused by the library before sending: nothing reached tvsim.
    const Outcome local = zorctl({"tune-source", std::string(65, 'x')});
    EXPECT_EQ(local.status, 1);
    EXPECT_THAT(local.err, HasSubstr("not sent"));
}

TEST_F(ToolOutputTest, FrozenMiddlewareIsNoAnswer)
{
    startTvsim();
    ASSERT_EQ(kill(m_tvsim->pid(), SIGSTOP), 0);
    // The stop reaches tvsim's other threads only once the thread that took the
    // signal has run; until the parent sees it stopped, its server thread could
    // still answer.
    int status = 0;
    ASSERT_EQ(waitpid(m_tvsim->pid(), &status, WUNTRACED), m_tvsim->pid());
    ASSERT_TRUE(WIFSTOPPED(status));
    const Outcome result = zorctl({"volume", "get"}, "ZOR_MUP_TIMEOUT_MS=300");
    kill(m_tvsim->pid(), SIGCONT);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("no answer from the middleware"));
}

TEST_F(ToolOutputTest, MistypedSubcommandIsNamedWithTheNearestOne)
{
    const struct {
        std::vector<std::string> args;
        const char* named;
        const char* suggested;
    } cases[] = {
        {{"volum", "get"}, "'volum'", "'volume'"},
        {{"volume", "gte"}, "'gte'", "'get'"},
        {{"chanels"}, "'chanels'", "'channels'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.named);
        const Outcome result = zorctl(c.args);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(lineCount(result.err), 1u) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.named));
        EXPECT_THAT(result.err, HasSubstr(c.suggested));
    }
}

TEST_F(ToolOutputTest, CommandsStayQuietWhileAnApplicationListens)
{
    startTvsim();
    ChildProcess listener({builtProgram("tools/zorctl"), "listen", "--wav", m_dir + "/l.wav"},
                          m_dir + "/listen.log");
    ASSERT_TRUE(waitForService("oxa.kel.idtv.client"));

    const Outcome command = zorctl({"volume", "set", "42"});
    EXPECT_EQ(command.status, 0);
    EXPECT_EQ(command.out, "volume: status 0\n");
    EXPECT_EQ(command.err, "");

    // A second listener could get none of the television's commands.
    const Outcome second = zorctl({"listen", "--seconds", "1", "--wav", m_dir + "/m.wav"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(lineCount(second.err), 1u) << second.err;
    EXPECT_THAT(second.err, HasSubstr("already serves oxa.kel.idtv.client"));
}

TEST_F(ToolOutputTest, RecordWithoutTheAlsaConfigurationSaysWhatToSet)
{
    const Outcome result = zorctl({"record", "-d", "1", m_dir + "/r.wav"},
                                  "env -u ALSA_CONFIG_PATH ZOR_ALSA_DIR=" + m_dir);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(lineCount(result.err), 1u) << result.err;
    EXPECT_THAT(result.err, HasSubstr("ALSA_CONFIG_PATH="));
    EXPECT_THAT(result.err, HasSubstr("asound.conf"));
    EXPECT_THAT(result.err, Not(HasSubstr("ALSA lib")));
}

TEST_F(ToolOutputTest, StateFileKeysThatAreNoPartOfTheStateAreNamed)
{
    const std::string state = m_dir + "/tv.json";
    std::ofstream(state) << R"({"volume": 55, "audio": {"volume": 30, "bass": 2},
                              "channels": [{"number": 1, "name": "One"}, {"nmae": "x"}]})";
    const Outcome result = run("sim/tvsim", {"--state", state, "--print-state"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("unknown key volume (did you mean audio.volume?)"));
    EXPECT_THAT(result.err, HasSubstr("unknown key audio.bass"));
    EXPECT_THAT(result.err, HasSubstr("unknown key channels[1].nmae"));
    EXPECT_EQ(lineCount(result.err), 3u) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\"volume\": 30"));

    // What --print-state prints is a state file without a stray key, and so
    // is the shipped example.
    std::ofstream(state) << result.out;
    const Outcome again = run("sim/tvsim", {"--state", state, "--print-state"});
    EXPECT_EQ(again.err, "");
    EXPECT_EQ(again.out, result.out);
    const char* source = getenv("ZOR_SOURCE_DIR");
    ASSERT_NE(source, nullptr);
    const Outcome example =
        run("sim/tvsim",
            {"--state", std::string(source) + "/sim/tv-state.example.json", "--print-state"});
    EXPECT_EQ(example.status, 0);
    EXPECT_EQ(example.err, "");
}

} // namespace
