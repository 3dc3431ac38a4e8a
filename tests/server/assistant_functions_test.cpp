// The assistant class as the television sees it: request bytes of every
// function, and the start and stop of streaming for each microphone source.
#include "audio/rc_capture.h"
#include "tests/support/fake_middleware.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace zor::test;
using testing::HasSubstr;

namespace
{

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
    EXPECT_EQ(zor::audio::captureState(), 0);
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
    ASSERT_EQ(zor::audio::captureState(), 0);
    ASSERT_TRUE(waitForCapturedPcm());
    FakeMiddleware::instance().reset();

    EXPECT_EQ(ZOR_App_informStates(4), 0);
    EXPECT_NE(zor::audio::captureState(), 0);
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

} // namespace
