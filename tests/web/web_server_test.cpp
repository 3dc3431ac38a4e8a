// SPDX-License-Identifier: MIT
// tvsim's dashboard over HTTP, without a browser: this process is the
// assistant application (libzor, real sockets), tvsim runs with --web in a
// child process, and the requests are what the page sends.
#include "tests/server/inbound_harness.h"
#include "tests/support/process.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <csignal>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>

using namespace zor::test;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

// The page's upload limit (8 MiB).
constexpr size_t kUploadLimit = 8 * 1024 * 1024;

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream out;
    out << file.rdbuf();
    return out.str();
}

class WebDashboardTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_dir = usePrivateRuntimeDir("zor-web");
        setenv("ZOR_MUP_TIMEOUT_MS", "3000", 1);
        ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
        const std::string output = s_dir + "/tvsim.out";
        s_sim = std::make_unique<ChildProcess>(std::vector<std::string>{builtProgram("sim/tvsim"),
                                                                        "--quiet", "--web",
                                                                        "--web-port", "0"},
                                               output);
        const std::string marker = "dashboard at http://127.0.0.1:";
        for (int i = 0; i < 1000 && s_port == 0; ++i) {
            const std::string text = readFile(output);
            const size_t at = text.find(marker);
            if (at != std::string::npos && text.find('/', at + marker.size()) != std::string::npos)
                s_port = std::stoi(text.substr(at + marker.size()));
            else
                usleep(10000);
        }
        ASSERT_GT(s_port, 0) << "tvsim printed no dashboard address";
    }
    static void TearDownTestSuite() { s_sim.reset(); }

    void SetUp() override
    {
        if (s_port == 0)
            GTEST_SKIP() << "no dashboard";
        registerRecordingCallbacks();
        clearRecordedEvents();
    }

    static httplib::Client client()
    {
        httplib::Client c("127.0.0.1", s_port);
        c.set_read_timeout(15, 0);
        c.set_write_timeout(15, 0);
        return c;
    }

    static json state()
    {
        auto res = client().Get("/api/state");
        return res && res->status == 200 ? json::parse(res->body) : json();
    }

    // A WAV file made by sox, as bytes; empty when sox is missing.
    static std::string soxWav(const std::string& name, const std::string& format)
    {
        const std::string path = s_dir + "/" + name;
        const std::string command =
            "sox -n " + format + " " + path + " synth 0.25 sine 440 2>/dev/null";
        return system(command.c_str()) == 0 ? readFile(path) : std::string();
    }

    static std::string s_dir;
    static int s_port;
    static std::unique_ptr<ChildProcess> s_sim;
};

std::string WebDashboardTest::s_dir;
int WebDashboardTest::s_port = 0;
std::unique_ptr<ChildProcess> WebDashboardTest::s_sim;

TEST_F(WebDashboardTest, PageAndAssetsAreServedFromTheBinary)
{
    auto c = client();
    const struct {
        const char* path;
        const char* type;
        const char* content;
    } cases[] = {
        {"/", "text/html", "<canvas id=\"waveform\""},
        {"/app.js", "text/javascript", "new EventSource('/api/events')"},
        {"/style.css", "text/css", ".screen"},
    };
    for (const auto& c2 : cases) {
        SCOPED_TRACE(c2.path);
        auto res = c.Get(c2.path);
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, 200);
        EXPECT_THAT(res->get_header_value("Content-Type"), HasSubstr(c2.type));
        EXPECT_THAT(res->body, HasSubstr(c2.content));
    }
    auto missing = c.Get("/etc/passwd");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);
    EXPECT_EQ(json::parse(missing->body)["error"], "no such page");
}

TEST_F(WebDashboardTest, BadInputIsRefusedWithAMessageAndChangesNothing)
{
    const json before = state();
    ASSERT_FALSE(before.is_null());

    const struct {
        const char* body;
        const char* error;
    } commands[] = {
        {"not json", "must be a JSON object"},
        {"[\"tap\"]", "must be a JSON object"},
        {"{\"line\": 5}", "\"line\" must be a string"},
        {"{}", "\"line\" must be a string"},
        {"{\"line\": \"   \"}", "the command is empty"},
        {"{\"line\": \"bogus\"}", "unknown command bogus"},
        {"{\"line\": \"power abc\"}", "not a number: abc"},
        {"{\"line\": \"power 1.5\"}", "not a number: 1.5"},
        {"{\"line\": \"debug 99999999999\"}", "out of range for 32 bits: 99999999999"},
        {"{\"line\": \"reset -4294967296\"}", "out of range"},
        {"{\"line\": \"softmic 0x\"}", "not a number: 0x"},
        {"{\"line\": \"hold 2\"}", "expected 0 or 1"},
        {"{\"line\": \"dsp\"}", "usage: dsp <status>"},
        {"{\"line\": \"power 1 2\"}", "usage: power <mode>"},
        {"{\"line\": \"@tv tap\"}", "unknown application @tv"},
        {"{\"line\": \"tap\\nactivate\"}", "control characters"},
        {"{\"line\": \"quit\"}", "quit is not available from the page"},
        {"{\"line\": \"pcm /etc/passwd\"}", "upload"},
        {"{\"line\": \"language en-GB\"}", "a language code has at most 4 characters"},
        {"{\"line\": \"@ga country GBR1\"}", "a country code has at most 3 characters"},
    };
    auto c = client();
    for (const auto& command : commands) {
        SCOPED_TRACE(command.body);
        auto res = c.Post("/api/command", command.body, "application/json");
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, 400);
        EXPECT_THAT(json::parse(res->body).value("error", ""), HasSubstr(command.error));
    }
    const std::string longLine = "{\"line\": \"language " + std::string(300, 'x') + "\"}";
    auto tooLong = c.Post("/api/command", longLine, "application/json");
    ASSERT_TRUE(tooLong);
    EXPECT_EQ(tooLong->status, 400);

    const std::string cdQuality = soxWav("cd.wav", "-r 44100 -c 2 -b 16");
    const struct {
        const char* path;
        std::string content;
        const char* field;
        const char* error;
    } uploads[] = {
        {"/api/pcm", "just some text, not audio", "file", "not an audio file"},
        {"/api/pcm", std::string("RIFF\x24\0\0\0WAVEfmt ", 16), "file", "not an audio file"},
        {"/api/pcm", "", "file", "empty"},
        {"/api/pcm", "hello", "wav", "a field named \"file\""},
        {"/api/pcm", std::string(kUploadLimit + 1, 'R'), "file", "too large"},
        {"/api/pcm", cdQuality, "file", "16 kHz mono; this file is 44100 Hz with 2 channel(s)"},
        {"/api/say-wav", "just some text, not audio", "file", "not an audio file"},
        {"/api/say-wav", std::string(kUploadLimit + 1, 'R'), "file", "too large"},
    };
    for (const auto& upload : uploads) {
        if (upload.content.empty() && std::string(upload.error) != "empty")
            continue; // sox is missing
        SCOPED_TRACE(std::string(upload.path) + " " + upload.error);
        httplib::MultipartFormDataItems items = {
            {upload.field, upload.content, "upload.wav", "audio/wav"}};
        auto res = c.Post(upload.path, items);
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, 400);
        EXPECT_THAT(json::parse(res->body).value("error", ""), HasSubstr(upload.error));
    }
    auto notMultipart = c.Post("/api/pcm", "RIFF", "audio/wav");
    ASSERT_TRUE(notMultipart);
    EXPECT_EQ(notMultipart->status, 400);

    const struct {
        const char* body;
        const char* error;
    } sentences[] = {
        {"{\"text\": \"\"}", "the sentence is empty"},
        {"{\"text\": 12}", "\"text\" must be a string"},
        {"{\"words\": \"alexa\"}", "\"text\" must be a string"},
        {"{\"text\": \"alexa\\u0007\"}", "control characters"},
        {"alexa", "must be a JSON object"},
    };
    for (const auto& sentence : sentences) {
        SCOPED_TRACE(sentence.body);
        auto res = c.Post("/api/say", sentence.body, "application/json");
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, 400);
        EXPECT_THAT(json::parse(res->body).value("error", ""), HasSubstr(sentence.error));
    }

    // Nothing reached the application, the television is as it was, and
    // "quit" did not stop the simulator.
    EXPECT_TRUE(waitForEvents(1, std::chrono::milliseconds(300)).empty());
    EXPECT_EQ(state(), before);
    EXPECT_EQ(kill(s_sim->pid(), 0), 0);
}

TEST_F(WebDashboardTest, RequestsFromOtherSitesAreRefused)
{
    auto c = client();
    // A foreign name that resolves to this machine (DNS rebinding).
    auto rebound = c.Get("/api/state", {{"Host", "attacker.example:8480"}});
    ASSERT_TRUE(rebound);
    EXPECT_EQ(rebound->status, 403);

    auto foreign = c.Post("/api/command", {{"Origin", "http://attacker.example"}},
                          "{\"line\": \"tap\"}", "application/json");
    ASSERT_TRUE(foreign);
    EXPECT_EQ(foreign->status, 403);
    EXPECT_THAT(json::parse(foreign->body).value("error", ""), HasSubstr("other origins"));
    EXPECT_TRUE(waitForEvents(1, std::chrono::milliseconds(300)).empty());

    // The page's own origin is fine.
    const std::string own = "http://127.0.0.1:" + std::to_string(s_port);
    auto same =
        c.Post("/api/command", {{"Origin", own}}, "{\"line\": \"activate\"}", "application/json");
    ASSERT_TRUE(same);
    EXPECT_EQ(same->status, 200);
    EXPECT_THAT(eventTexts(waitForEvents(1)), ElementsAre("activate"));
}

TEST_F(WebDashboardTest, ControlsReachTheApplication)
{
    const struct {
        const char* line;
        const char* callback; // null: the library handles it without a callback
    } cases[] = {
        {"activate", "activate"},
        {"tap", "tapped"},
        {"hold 1", "hold(1)"},
        {"hold 0", "hold(0)"},
        {"power 2", "power(2)"},
        {"language deu", "language(deu)"},
        {"language en-G", "language(en-G)"}, // fills the field
        {"country DEU", "country(DEU)"},
        {"reset 1", "reset(1)"},
        {"cert-changed renewed today", "cert(renewed today)"},
        {"@avs activate", "activate"},
        {"dsp 1", nullptr},
        {"dsp 0", nullptr},
        {"softmic 1", nullptr},
        {"debug 9", nullptr},
        {"debug 1", nullptr},
    };
    auto c = client();
    for (const auto& command : cases) {
        SCOPED_TRACE(command.line);
        clearRecordedEvents();
        const json body = {{"line", command.line}};
        auto res = c.Post("/api/command", body.dump(), "application/json");
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, 200) << res->body;
        EXPECT_EQ(json::parse(res->body)["answer"], "reply=0");
        if (command.callback) {
            EXPECT_THAT(eventTexts(waitForEvents(1)), ElementsAre(command.callback));
        }
    }

    const std::string tone = soxWav("tone.wav", "-r 16000 -c 1 -b 16");
    if (tone.empty())
        GTEST_SKIP() << "sox is not available";
    clearRecordedEvents();
    httplib::MultipartFormDataItems items = {{"file", tone, "tone.wav", "audio/wav"}};
    auto pcm = c.Post("/api/pcm", items);
    ASSERT_TRUE(pcm);
    EXPECT_EQ(pcm->status, 200) << pcm->body;
    EXPECT_EQ(json::parse(pcm->body)["answer"], "sent 4000 samples in 3 commands");
    const auto events = waitForEvents(3);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].text.substr(0, 9), "pcm(3200:");
}

TEST_F(WebDashboardTest, FarFieldPanelSaysWhenThereIsNoDevice)
{
    EXPECT_EQ(state()["farField"], false);
    auto res = client().Post("/api/say", "{\"text\": \"alexa, hello\"}", "application/json");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 503);
    EXPECT_THAT(json::parse(res->body).value("error", ""), HasSubstr("no simulated far-field"));
}

// The event stream carries the state after each command and the decoded
// lines, with the token's text hidden.
TEST_F(WebDashboardTest, EventStreamFollowsTheApplicationsCommands)
{
    std::mutex lock;
    std::string received;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        auto c = client();
        c.set_read_timeout(30, 0);
        c.Get("/api/events", [&](const char* data, size_t size) {
            std::lock_guard<std::mutex> guard(lock);
            received.append(data, size);
            return !done.load();
        });
    });
    const auto waitFor = [&](const std::string& text) {
        for (int i = 0; i < 1000; ++i) {
            {
                std::lock_guard<std::mutex> guard(lock);
                if (received.find(text) != std::string::npos)
                    return true;
            }
            usleep(10000);
        }
        return false;
    };

    EXPECT_TRUE(waitFor("event: state\ndata: {"));
    EXPECT_EQ(ZOR_App_SetVolume(42), 0);
    EXPECT_TRUE(waitFor("\"volume\":42"));
    EXPECT_TRUE(waitFor("OXA_TV_CMD_ID_AUDIO_SetVolume"));
    char token[] = "SECRET-web-token";
    EXPECT_EQ(ZOR_App_SetAVSToken(token, 16), 0);
    EXPECT_TRUE(waitFor("\"avsToken\":{\"length\":16,\"present\":true}"));
    EXPECT_TRUE(waitFor("SetAVSToken token=<hidden>"));

    // Window type 3 travels as 1.
    EXPECT_EQ(ZOR_App_LoadURLInWindow(7, static_cast<EN_ZOR_APP_WINDOW_TYPE>(3),
                                      "https://weather.example/today", 1),
              0);
    EXPECT_TRUE(waitFor("\"urlWindow\":{\"background\":true,\"param\":7,\"type\":1,"
                        "\"url\":\"https://weather.example/today\"}"));

    done = true;
    // One more event wakes the reader so that it can hang up.
    client().Post("/api/command", "{\"line\": \"bogus\"}", "application/json");
    reader.join();
    EXPECT_EQ(received.find("SECRET"), std::string::npos);
}

} // namespace
