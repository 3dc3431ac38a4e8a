// SPDX-License-Identifier: MIT
// The middleware's commands, sent from another process through the real
// sockets, reach the application's callbacks with the right arguments, and
// the sender gets the right reply.
#include "mup/frame.h"
#include "server/inbound_commands.h"
#include "tests/server/inbound_harness.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

using namespace zor::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

// libzor keeps its own copy of the messaging layer's payload limit (it may
// include nothing of libmup but mup/mup.h); the bundled libmup's must match.
static_assert(zor::inbound::kMaxFramePayload == mup::kMaxPayload);

constexpr const char* kAvsServer = "oxa.kel.idtv.client";

class InboundCommandsTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        usePrivateRuntimeDir("zor-inbound");
        setenv("ZOR_MUP_TIMEOUT_MS", "3000", 1);
        ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
    }

    void SetUp() override
    {
        registerRecordingCallbacks();
        clearRecordedEvents();
    }

    // Sends one command and returns its reply; waits for `events` callback calls.
    std::string send(const std::string& request, size_t events = 1)
    {
        auto lines = sendInbound(kAvsServer, {request});
        waitForEvents(events);
        return lines.size() == 1 ? replyOf(lines[0]) : "no output";
    }
};

struct SynchronousCase {
    const char* request;  // id:payload as the middleware sends it
    const char* callback; // what the application's callback received
    const char* reply;
};

// One row per synchronous command; payloads written out from the request
// layouts, little-endian.
const SynchronousCase kSynchronousCases[] = {
    {"10010001", "activate", "00000000"},
    {"10010002:02000000", "enable(2)", "00000000"},
    {"10010003:0300000007000000", "ui-status(3,7)", "00000000"},
    {"10010003:ffffffffffffffff", "ui-status(-1,4294967295)", "00000000"},
    {"10010004:656e0000", "language(en)", "00000000"},
    {"10010004:64652d44", "language(de-D)", "00000000"}, // a full field is still terminated
    {"10010005:474200", "country(GB)", "00000000"},
    {"10010005:474252", "country(GBR)", "00000000"},
    {"10010006:020000000100ff7f", "pcm(4:0100ff7f)", "00000000"},
    {"10010006:00000000", "pcm(0:)", "00000000"},
    {"10010008:05000000", "reset(5)", "00000000"},
    {"10010009:02000000", "power(2)", "00000000"},
    {"1001000d", "timezone", "00000000"},
    {"1001000f", "action-button", "00000000"},
    {"10010010:01000000", "fw-update(0)", "00000000"},
    {"10010011:01", "ffmic(1)", "00000000"},
    {"10010011:00", "ffmic(0)", "00000000"},
    {"10010011:07", "ffmic(1)", "00000000"}, // any non-zero byte is "on"
    {"10020002:"
     "616263000000000000000000000000000000000000000000000000000000000000000000000000000000000000"
     "0000000000000000000000000000000000000000000000000000000000000000000000000000000000000000"
     "00000000000000000000000000000000000000000000000000000000000000000000000000000000000000",
     "cert(abc)", "00000000"},
    {"10020003", "query-iot-cert", "2a000000"},
    // The Google Assistant's commands reach the same callbacks as their twins.
    {"10030001", "activate", "00000000"},
    {"10030002:03000000", "enable(3)", "00000000"},
    {"10030003:0100000009000000", "ui-status(1,9)", "00000000"},
    {"10030004:66720000", "language(fr)", "00000000"},
    {"10030005:444500", "country(DE)", "00000000"},
    {"10030006:05000000", "reset(5)", "00000000"},
    {"10030007:02000000", "power(2)", "00000000"},
};

TEST_F(InboundCommandsTest, EachCommandReachesItsCallbackAndIsAnswered)
{
    setCertificateAnswer(42);
    for (const SynchronousCase& c : kSynchronousCases) {
        SCOPED_TRACE(c.request);
        clearRecordedEvents();
        EXPECT_EQ(send(c.request), c.reply);
        EXPECT_THAT(eventTexts(recordedEvents()), ElementsAre(c.callback));
    }
}

TEST_F(InboundCommandsTest, SynchronousCallbacksRunOnTheServerThreadBeforeTheReply)
{
    // The reply is only written after the callback returned: the event is
    // there as soon as the sender has its answer, and not on this thread.
    auto lines = sendInbound(kAvsServer, {"10010001", "10030001"});
    ASSERT_EQ(lines.size(), 2u);
    auto events = recordedEvents();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_NE(events[0].thread, std::this_thread::get_id());
}

TEST_F(InboundCommandsTest, CertificateTextFillingTheWholeFieldIsTerminated)
{
    const std::string text(129, 'c');
    std::string hex;
    for (size_t i = 0; i < text.size(); ++i)
        hex += "63";
    EXPECT_EQ(send("10020002:" + hex), "00000000");
    EXPECT_THAT(eventTexts(recordedEvents()), ElementsAre("cert(" + text + ")"));
}

TEST_F(InboundCommandsTest, ShortRequestsReadZerosForWhatIsMissing)
{
    EXPECT_EQ(send("10010003:03000000"), "00000000");
    EXPECT_EQ(send("10010002:05", 2), "00000000");
    EXPECT_EQ(send("10010009", 3), "00000000");
    EXPECT_EQ(send("10010004", 4), "00000000");
    // N = 4 samples announced, one carried: the rest is silence.
    EXPECT_EQ(send("10010006:040000000102", 5), "00000000");
    EXPECT_THAT(eventTexts(recordedEvents()), ElementsAre("ui-status(3,0)", "enable(5)", "power(0)",
                                                          "language()", "pcm(8:0102000000000000)"));
}

TEST_F(InboundCommandsTest, PcmOfThreeHundredTwentySamplesHandsOverSixHundredFortyBytes)
{
    std::string payload = "40010000";
    for (int i = 0; i < 320; ++i)
        payload += "3412";
    EXPECT_EQ(send("10010006:" + payload), "00000000");
    auto events = recordedEvents();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].text.substr(0, 9), "pcm(640:3");
}

TEST_F(InboundCommandsTest, PcmCountBeyondAFrameIsDroppedWithoutReplyOrCallback)
{
    testing::internal::CaptureStdout();
    // 524287 samples would need 1 MiB + 2 bytes; 0xffffffff samples 8 GiB.
    auto lines = sendInbound(kAvsServer,
                             {"10010006:ffff0700", "10010006:ffffffff0000", "10010006:feff0700"});
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(replyOf(lines[0]), "");
    EXPECT_EQ(replyOf(lines[1]), "");
    // The largest count a frame could carry is accepted (and reads silence).
    EXPECT_EQ(replyOf(lines[2]), "00000000");
    auto events = waitForEvents(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].text.substr(0, 12), "pcm(1048572:");
    EXPECT_THAT(output, HasSubstr("PCM sample count 524287 is more than a 1 MiB frame can carry"));
    EXPECT_THAT(output, HasSubstr("PCM sample count 4294967295 is more than"));
}

TEST_F(InboundCommandsTest, UnknownClassesAndIdsAreAnsweredWithNothing)
{
    testing::internal::CaptureStdout();
    auto lines = sendInbound(kAvsServer, {"10040001", "100f0001", "10010000", "10010012",
                                          "10020005", "10030008", "20010001"});
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_EQ(lines.size(), 7u);
    for (const std::string& line : lines)
        EXPECT_EQ(replyOf(line), "") << line;
    EXPECT_TRUE(recordedEvents().empty());

    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[AVSServerBackend\] ERROR: \[handleAlexaTransact\(\)\]\[\d+\] unknown cmd 268500992\n)")));
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[AVSServerBackend\] ERROR: \[handleAlexaTransact\(\)\]\[\d+\] unknown cmd 268501010\n)")));
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[AVSServerBackend\]\[handleVoiceControlTransact\(\)\]\[\d+\] unknown cmd 268566533\n)")));
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[AVSServerBackend\] ERROR: \[handleGATransact\(\)\]\[\d+\] unknown cmd 268632072\n)")));
    // 0x20010001 has class 1 but is not a command of it.
    EXPECT_TRUE(std::regex_search(output, std::regex(R"(unknown cmd 536936449\n)")));
    // Classes outside 1 to 3 are not even logged.
    EXPECT_THAT(output, testing::Not(HasSubstr("unknown cmd 268697601")));
}

TEST_F(InboundCommandsTest, DispatchLinesNameTheDispatcherAndTheCommand)
{
    testing::internal::CaptureStdout();
    sendInbound(kAvsServer, {"10010001", "1001000e:01ff06", "10030007:00000000"});
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(R"(\[AVSServerBackend\]\[handleCommand\(\)\]\[\d+\] OXV_CMD_CLASS_ALEXA\n)")));
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[AVSServerBackend\]\[handleAlexaTransact\(\)\]\[\d+\] OXA_CMD_ID_AVS_ACTIVATE_AVS\n)")));
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[handleAlexaTransact\(\)\]\[\d+\] OXA_CMD_ID_AVS_SET_FFM_SUP\(u8Sup=1, c8CardID=-1, c8DevID=6\)\n)")));
    EXPECT_TRUE(std::regex_search(
        output, std::regex(R"(\[SetFFMSup\(\)\]\[\d+\] u8_sup = 1 c8CardID = -1 c8DevID = 6 \n)")));
    EXPECT_TRUE(std::regex_search(
        output, std::regex(R"(\[handleCommand\(\)\]\[\d+\] OXV_CMD_CLASS_GA\n)")));
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(R"(\[handleGATransact\(\)\]\[\d+\] OXA_CMD_ID_GA_NOTIFY_POWER_MODE\n)")));
}

TEST_F(InboundCommandsTest, CommandWithoutReplyBufferStillRunsItsOperation)
{
    auto lines = sendInbound(kAvsServer, {"10010008:06000000:noreply", "10020003::noreply"});
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(replyOf(lines[0]), "sent");
    EXPECT_THAT(eventTexts(waitForEvents(2)), ElementsAre("reset(6)", "query-iot-cert"));
}

TEST_F(InboundCommandsTest, MissingCallbacksAreLoggedAndStillAnsweredWithZero)
{
    ZOR_ActivateApp_register_callback(nullptr);
    ZOR_QueryForIOTCertificate_register_callback(nullptr);
    ZOR_SetPowerMode_register_callback(nullptr);
    ZOR_MicButtonTapped_register_callback(nullptr);
    ZOR_InformControlChanged_register_callback(nullptr);
    testing::internal::CaptureStdout();
    auto lines = sendInbound(
        kAvsServer, {"10010001", "10020003", "10010009:01000000", "10010007", "10020001:01000000"});
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_EQ(lines.size(), 5u);
    for (const std::string& line : lines)
        EXPECT_EQ(replyOf(line), "00000000") << line;
    EXPECT_TRUE(recordedEvents().empty());
    EXPECT_TRUE(std::regex_search(
        output,
        std::regex(
            R"(\[AVSServerBackend\] ERROR: \[ActivateAVS\(\)\]\[\d+\] fptrActivateAVSCallback null \n)")));
    EXPECT_THAT(output, HasSubstr("fptrQueryForIOTCertificateCallback  null \n"));
    EXPECT_THAT(output, HasSubstr("[SetPowerMode()]"));
    EXPECT_THAT(output, HasSubstr("fptrSetPowerModeCallback null \n"));
    // Without an application callback the far-field control hears nothing.
    EXPECT_THAT(output, testing::Not(HasSubstr("power mode 1")));
    EXPECT_THAT(output, HasSubstr("fptrMicButtonTappedCallback null \n"));
    EXPECT_THAT(output, HasSubstr("fptrInformControlChangedCallback  null \n"));
}

TEST_F(InboundCommandsTest, DspReadyAloneEndsTheFirmwareUpdateOtherStatusesDoNot)
{
    auto lines =
        sendInbound(kAvsServer, {"10010010:02000000", "10010010:00000000", "10010010:01000000"});
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(eventTexts(recordedEvents()), ElementsAre("fw-update(0)"));
}

TEST_F(InboundCommandsTest, MiddlewareSetsTheDebugLevel)
{
    sendInbound(kAvsServer, {"1001000b:00000000"});
    EXPECT_EQ(GetLogDebugLevel(), 0);
    sendInbound(kAvsServer, {"1001000b:09000000"});
    EXPECT_EQ(GetLogDebugLevel(), 9);
    sendInbound(kAvsServer, {"1001000b:00000000", "1001000b:01000000"});
    EXPECT_EQ(GetLogDebugLevel(), 1);
}

} // namespace
