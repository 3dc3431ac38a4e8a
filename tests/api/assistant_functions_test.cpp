// SPDX-License-Identifier: MIT
// The assistant class as the television sees it: request bytes of every
// function, and the start and stop of streaming for each microphone source.
#include "api/streaming_state.h"
#include "audio/rc_capture.h"
#include "tests/support/fake_middleware.h"
#include "tests/support/process.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <future>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace zor::test;
using testing::HasSubstr;

namespace
{

constexpr unsigned kStartStream = 0x1801000A;
constexpr unsigned kStopStream = 0x1801000B;

std::atomic<int> gFirmwareUpdateCalls{0};
std::atomic<int> gFirmwareUpdateValue{-1};
std::atomic<unsigned> gCapturedBytes{0};

class AssistantFunctionsTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // The remote-control microphone "hw:0,6" becomes a FIFO that this test feeds.
        static char alsaDir[] = "/tmp/zor-assistant-alsa-XXXXXX";
        ASSERT_NE(mkdtemp(alsaDir), nullptr);
        const char* source = getenv("ZOR_SOURCE_DIR");
        ASSERT_NE(source, nullptr);
        setenv("ALSA_CONFIG_PATH", (std::string(source) + "/sim/alsa/asound.conf").c_str(), 1);
        setenv("ZOR_ALSA_DIR", alsaDir, 1);
        s_fifo = std::string(alsaDir) + "/pcm0,6.in";
        ASSERT_EQ(mkfifo(s_fifo.c_str(), 0600), 0);
        FakeMiddleware::instance();
    }

    void SetUp() override
    {
        FakeMiddleware::instance().reset();
        ZOR_App_stopStreamingMicrophoneData();
        FakeMiddleware::instance().reset();
    }

    static std::vector<Exchange> sent() { return FakeMiddleware::instance().exchanges(); }

    // Opens the FIFO's writing end (without waiting for a reader) and fills
    // it with silence, so that a capture can run; closing it ends the input.
    static int feedMicrophone()
    {
        int fd = open(s_fifo.c_str(), O_RDWR | O_NONBLOCK);
        std::vector<char> silence(32768, 0);
        if (fd >= 0 && write(fd, silence.data(), silence.size()) < 0)
            ADD_FAILURE() << "cannot feed the microphone";
        return fd;
    }

    // Waits until the remote-control capture has delivered PCM, so that it
    // has opened the FIFO before the test closes its end.
    static bool waitForCapturedPcm()
    {
        for (int i = 0; i < 500 && gCapturedBytes == 0; ++i)
            usleep(10000);
        return gCapturedBytes > 0;
    }

    static int countCapturedBytes(void*, unsigned int bytes)
    {
        gCapturedBytes += bytes;
        return 0;
    }

    static std::string s_fifo;
};

std::string AssistantFunctionsTest::s_fifo;

TEST_F(AssistantFunctionsTest, UrlWindowRecordCarriesParamCodeUrlAndBackground)
{
    EXPECT_EQ(ZOR_App_LoadURLInWindow(7, 3, "http://tv/a", 1), 0);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_EQ(exchanges[0].cmd, 0x18010002u);
    const Bytes& request = exchanges[0].request;
    ASSERT_EQ(request.size(), 1036u);
    EXPECT_EQ(Bytes(request.begin(), request.begin() + 20),
              hex("07000000 01000000") + text("http://tv/a") + hex("00"));
    EXPECT_EQ(request[1032], 0x01);
}

TEST_F(AssistantFunctionsTest, WindowTypeIsMappedToTheTelevisionsCode)
{
    const struct {
        int type;
        Bytes code;
    } cases[] = {{0, hex("00000000")}, {1, hex("01000000")}, {2, hex("02000000")},
                 {3, hex("01000000")}, {4, hex("03000000")}, {9, hex("03000000")},
                 {-1, hex("03000000")}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        FakeMiddleware::instance().reset();
        ZOR_App_LoadURLInWindow(0, c.type, "u", 0);
        auto exchanges = sent();
        ASSERT_EQ(exchanges.size(), 1u);
        EXPECT_EQ(Bytes(exchanges[0].request.begin() + 4, exchanges[0].request.begin() + 8),
                  c.code);
    }
}

TEST_F(AssistantFunctionsTest, UrlOfTheFieldsSizeIsSentLongerOrMissingIsRefused)
{
    const std::string full(1024, 'u');
    EXPECT_EQ(ZOR_App_LoadURLInWindow(1, 0, full.c_str(), 0), 0);
    const std::string over(1025, 'u');
    EXPECT_EQ(ZOR_App_LoadURLInWindow(1, 0, over.c_str(), 0), -1);
    EXPECT_EQ(ZOR_App_LoadURLInWindow(1, 0, nullptr, 0), -1);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_EQ(Bytes(exchanges[0].request.begin() + 8, exchanges[0].request.begin() + 1032),
              repeat('u', 1024));
}

TEST_F(AssistantFunctionsTest, LanguageRecordHoldsAtMostSixBytesAndTheWordSix)
{
    ZOR_FF_NotifyFWUpdateStatus_register_callback(+[](bool updating) {
        gFirmwareUpdateValue = updating;
        return ++gFirmwareUpdateCalls;
    });
    char five[] = "en-US";
    char seven[] = "abcdefg";
    EXPECT_EQ(ZOR_App_SetAlexaLanguageSlection(five), 0);
    EXPECT_EQ(ZOR_App_SetAlexaLanguageSlection(seven), 0);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[0].cmd, 0x1801000Eu);
    EXPECT_EQ(exchanges[0].request, hex("656e2d5553000000 06000000"));
    EXPECT_EQ(exchanges[1].request, hex("616263646566 0000 06000000"));
    // The application hears that the DSP is reloading after each change.
    EXPECT_EQ(gFirmwareUpdateCalls, 2);
    EXPECT_EQ(gFirmwareUpdateValue, 1);
    ZOR_FF_NotifyFWUpdateStatus_register_callback(nullptr);
}

TEST_F(AssistantFunctionsTest, MissingLanguageIsRefusedWithoutSendingOrTellingTheDsp)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_SetAlexaLanguageSlection(nullptr), -1);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(sent().empty());
    EXPECT_THAT(output, HasSubstr("language is NULL"));
    EXPECT_THAT(output, testing::Not(HasSubstr("Status = 0")));
}

TEST_F(AssistantFunctionsTest, DeviceSettingIsFilledFromTheReplyWhateverTheStatus)
{
    FakeMiddleware::instance().setReply(0x18010003, {-3, repeat(0x5a, 68)});
    ST_ZOR_APP_DATA_SETTING_T setting = {};
    EXPECT_EQ(ZOR_App_GetDeviceSetting(&setting), -3);
    EXPECT_EQ(Bytes(setting.au8Setting, setting.au8Setting + 68), repeat(0x5a, 68));
    EXPECT_EQ(ZOR_App_GetDeviceSetting(nullptr), -1);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_TRUE(exchanges[0].request.empty());
}

TEST_F(AssistantFunctionsTest, PlainSendersCarryTheirWordAndReturnTheStatus)
{
    FakeMiddleware::instance().setDefaultReply({5, {}});
    EXPECT_EQ(ZOR_App_informStates(3), 5);
    EXPECT_EQ(ZOR_App_InformSetupStatus(2), 5);
    EXPECT_EQ(ZOR_App_SetSwitchOnMode(1), 5);
    EXPECT_EQ(ZOR_App_setUserSelectionChromeGlow(-1), 5);
    // The wake-word report drops the status.
    EXPECT_EQ(ZOR_App_NotifyAVSWakeword(), 0);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 5u);
    EXPECT_EQ(exchanges[0].cmd, 0x18010006u);
    EXPECT_EQ(exchanges[0].request, hex("03000000"));
    EXPECT_EQ(exchanges[1].cmd, 0x18010007u);
    EXPECT_EQ(exchanges[1].request, hex("02000000"));
    EXPECT_EQ(exchanges[2].cmd, 0x18010008u);
    EXPECT_EQ(exchanges[2].request, hex("01000000"));
    EXPECT_EQ(exchanges[3].cmd, 0x18010009u);
    EXPECT_EQ(exchanges[3].request, hex("ffffffff"));
    EXPECT_EQ(exchanges[4].cmd, 0x1801000Fu);
    EXPECT_TRUE(exchanges[4].request.empty());
}

TEST_F(AssistantFunctionsTest, MiddlewareStreamIsStartedAndStoppedByCommand)
{
    FakeMiddleware::instance().setDefaultReply({7, {}});
    EXPECT_EQ(ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE), 7);
    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 7);
    // A second stop finds no source and sends nothing.
    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 0);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[0].cmd, 0x1801000Au);
    EXPECT_EQ(exchanges[1].cmd, 0x1801000Bu);
    EXPECT_TRUE(exchanges[0].request.empty());
}

TEST_F(AssistantFunctionsTest, FarFieldStreamIsSwitchedInThePipelineAndReportsOne)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_FFM), 1);
    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 1);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(sent().empty());
    EXPECT_THAT(output, HasSubstr("enSource = 0, genSource = 3"));
    EXPECT_THAT(output, HasSubstr("TrigSendPCMData 1"));
    EXPECT_THAT(output, HasSubstr("TrigSendPCMData 0"));
}

TEST_F(AssistantFunctionsTest, UnknownSourceSendsNothingButCountsAsStreaming)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_startStreamingMicrophoneData(static_cast<_EN_AVS_AUDIO_SOURCE_TYPE>(7)), 0);
    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 0);
    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 0);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(sent().empty());
    EXPECT_THAT(output, HasSubstr("genSource = 7\n"));
    EXPECT_THAT(output, HasSubstr("genSource = 3\n"));
}

TEST_F(AssistantFunctionsTest, RemoteMicrophoneIsOpenedThenCapturedThenClosedAndStopped)
{
    gCapturedBytes = 0;
    ZOR_SendAudioPCMData_register_callback(countCapturedBytes);
    const int feed = feedMicrophone();
    ASSERT_GE(feed, 0);

    EXPECT_EQ(ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_RC_MIC), 0);
    EXPECT_EQ(zor::audio::captureState(), zor::audio::ThreadState::Running);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_EQ(exchanges[0].cmd, 0x1801000Du);
    EXPECT_EQ(exchanges[0].request, hex("01"));
    // The one PCM callback also receives the remote-control capture.
    EXPECT_TRUE(waitForCapturedPcm());

    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 0);
    close(feed);
    EXPECT_TRUE(zor::audio::waitForCaptureEnd(5000));
    exchanges = sent();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[1].cmd, 0x1801000Du);
    EXPECT_EQ(exchanges[1].request, hex("00"));
    ZOR_SendAudioPCMData_register_callback(nullptr);
}

TEST_F(AssistantFunctionsTest, StateFourStopsLocalCaptureBeforeItIsSent)
{
    gCapturedBytes = 0;
    ZOR_SendAudioPCMData_register_callback(countCapturedBytes);
    const int feed = feedMicrophone();
    ASSERT_GE(feed, 0);
    ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_RC_MIC);
    ASSERT_EQ(zor::audio::captureState(), zor::audio::ThreadState::Running);
    ASSERT_TRUE(waitForCapturedPcm());
    FakeMiddleware::instance().reset();

    EXPECT_EQ(ZOR_App_informStates(4), 0);
    EXPECT_NE(zor::audio::captureState(), zor::audio::ThreadState::Running);
    close(feed);
    EXPECT_TRUE(zor::audio::waitForCaptureEnd(5000));
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_EQ(exchanges[0].cmd, 0x18010006u);
    EXPECT_EQ(exchanges[0].request, hex("04000000"));

    // The stream itself is still the remote's: the next stop closes it.
    FakeMiddleware::instance().reset();
    ZOR_App_stopStreamingMicrophoneData();
    exchanges = sent();
    ASSERT_EQ(exchanges.size(), 1u);
    EXPECT_EQ(exchanges[0].request, hex("00"));
    ZOR_SendAudioPCMData_register_callback(nullptr);
}

TEST_F(AssistantFunctionsTest, ButtonModeChangeDuringStreamingStopsIt)
{
    setButtonTappedType(4);
    ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE);
    setButtonTappedType(4); // unchanged: streaming goes on
    EXPECT_EQ(sent().size(), 1u);
    setButtonTappedType(5);
    auto exchanges = sent();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[1].cmd, 0x1801000Bu);
    // Not streaming any more: a further change sends nothing.
    setButtonTappedType(6);
    EXPECT_EQ(sent().size(), 2u);
}

// The ids of the stream commands the television received, in order.
std::vector<unsigned> streamCommands()
{
    std::vector<unsigned> ids;
    for (const Exchange& exchange : FakeMiddleware::instance().exchanges())
        if (exchange.cmd == kStartStream || exchange.cmd == kStopStream)
            ids.push_back(exchange.cmd);
    return ids;
}

// Starts `count` threads that run `body` at the same moment.
void runTogether(int count, const std::function<void(int)>& body)
{
    std::atomic<int> waiting{count};
    std::vector<std::thread> threads;
    for (int k = 0; k < count; ++k) {
        threads.emplace_back([&, k] {
            --waiting;
            while (waiting.load() > 0)
                std::this_thread::yield();
            body(k);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(AssistantFunctionsTest, RacingStopsStopTheStreamOnce)
{
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        FakeMiddleware::instance().reset();
        ASSERT_EQ(ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE), 0);
        runTogether(2, [](int) { ZOR_App_stopStreamingMicrophoneData(); });
        EXPECT_EQ(streamCommands(), (std::vector<unsigned>{kStartStream, kStopStream}));
        EXPECT_EQ(genSource.load(), EN_AVS_AUDIO_SOURCE_NONE);
        EXPECT_EQ(gbCaptured.load(), 0);
    }
}

TEST_F(AssistantFunctionsTest, RacingStartsAndStopsLeaveTheLastOnesStateOnBothSides)
{
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        FakeMiddleware::instance().reset();
        runTogether(3, [](int k) {
            for (int call = 0; call < 10; ++call) {
                const int result =
                    k == 0 ? ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE)
                           : ZOR_App_stopStreamingMicrophoneData();
                // 0 (the status, or handed over) or -1 (too many waiting).
                EXPECT_TRUE(result == 0 || result == -1) << result;
            }
        });
        // The two words agree, and the television was told last what they say.
        const std::vector<unsigned> ids = streamCommands();
        const int32_t source = genSource.load();
        const uint8_t captured = gbCaptured.load();
        if (captured == 1) {
            EXPECT_EQ(source, EN_AVS_AUDIO_SOURCE_MIDDLEWARE);
            ASSERT_FALSE(ids.empty());
            EXPECT_EQ(ids.back(), kStartStream);
        } else {
            EXPECT_EQ(source, EN_AVS_AUDIO_SOURCE_NONE);
            EXPECT_TRUE(ids.empty() || ids.back() == kStopStream);
        }
        // A stop is only sent for a stream that a start opened.
        for (size_t k = 0; k < ids.size(); ++k) {
            if (ids[k] == kStopStream) {
                EXPECT_TRUE(k > 0 && ids[k - 1] == kStartStream) << "command " << k;
            }
        }
        ZOR_App_stopStreamingMicrophoneData();
    }
}

TEST_F(AssistantFunctionsTest, CallsDuringAStartAreCarriedOutAfterItInOrderUpToSixteen)
{
    // The television holds the first start's reply back until released.
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    FakeMiddleware::instance().setBeforeReply(kStartStream, [&] {
        if (first.exchange(false))
            released.wait_for(std::chrono::seconds(3));
    });
    std::future<int> firstStart = std::async(std::launch::async, [] {
        return ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE);
    });
    for (int i = 0; i < 500 && streamCommands().empty(); ++i)
        usleep(2000);
    ASSERT_EQ(streamCommands().size(), 1u);

    // Sixteen calls hand their switch over and return at once.
    for (int call = 0; call < 16; ++call) {
        SCOPED_TRACE(call);
        if (call % 2 == 0)
            EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), 0);
        else
            EXPECT_EQ(ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE), 0);
    }
    // The seventeenth is refused and changes nothing.
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_stopStreamingMicrophoneData(), -1);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(output,
                testing::ContainsRegex("\\[ZOR_App_stopStreamingMicrophoneData\\(\\): [0-9]+\\]16 "
                                       "microphone starts and stops wait already, refused\n"));
    EXPECT_EQ(genSource.load(), EN_AVS_AUDIO_SOURCE_MIDDLEWARE);
    EXPECT_EQ(gbCaptured.load(), 1);
    EXPECT_EQ(streamCommands().size(), 1u);

    release.set_value();
    EXPECT_EQ(firstStart.get(), 0);
    std::vector<unsigned> expected{kStartStream};
    for (int call = 0; call < 8; ++call) {
        expected.push_back(kStopStream);
        expected.push_back(kStartStream);
    }
    EXPECT_EQ(streamCommands(), expected);
    EXPECT_EQ(genSource.load(), EN_AVS_AUDIO_SOURCE_MIDDLEWARE);
    EXPECT_EQ(gbCaptured.load(), 1);
    FakeMiddleware::instance().reset();
}

// The middleware asks the library's server (which changes the button mode)
// before it answers the start: the stop that follows must not wait for the
// start, which waits for the middleware.
TEST_F(AssistantFunctionsTest, ButtonModeChangeWhileTheStartWaitsForTheTelevision)
{
    initServer("test.assistant");
    ASSERT_TRUE(waitForService("test.assistant"));
    setButtonTappedType(4);
    std::string inbound;
    FakeMiddleware::instance().setBeforeReply(kStartStream, [&] {
        // The middleware gives up on the library's server after 2 s.
        std::string command = "ZOR_MUP_TIMEOUT_MS=2000 ";
        if (const char* emulator = getenv("ZOR_TEST_EMULATOR"))
            command += std::string(emulator) + " ";
        command +=
            builtProgram("tests/server/server_inbound_send") + " test.assistant 1001000a:05000000";
        if (FILE* pipe = popen(command.c_str(), "r")) {
            char line[256];
            while (fgets(line, sizeof(line), pipe))
                inbound += line;
            pclose(pipe);
        }
    });
    EXPECT_EQ(ZOR_App_startStreamingMicrophoneData(EN_AVS_AUDIO_SOURCE_MIDDLEWARE), 0);
    // The mode change was answered at once, and the stream stopped after the
    // start, by the thread that started it.
    EXPECT_EQ(inbound, "1001000a reply 00000000\n");
    EXPECT_EQ(streamCommands(), (std::vector<unsigned>{kStartStream, kStopStream}));
    EXPECT_EQ(genSource.load(), EN_AVS_AUDIO_SOURCE_NONE);
    EXPECT_EQ(gbCaptured.load(), 0);
    setButtonTappedType(4);
}

} // namespace
