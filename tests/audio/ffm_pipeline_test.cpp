// SPDX-License-Identifier: MIT
// The far-field pipeline against the simulated XMOS board: real ALSA reads
// of a FIFO paced in real time, the board's key press and index query over
// its socket, and what the application's callbacks receive.
#include "audio/ffm_pipeline.h"
#include "audio/xmos_device.h"
#include "tests/audio/ffm_harness.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <pthread.h>
#include <thread>

using namespace zor::test;
namespace ffm = zor::audio::ffm;

namespace
{

std::vector<int16_t> received()
{
    std::lock_guard<std::mutex> lock(app().mutex);
    return asSamples(app().received);
}

// A 0.6 s keyword-only utterance: the quickest way to a detection.
void sayShortKeyword(FfmBench& bench)
{
    bench.board().say(rampSamples(9600, 1000), 1600, 8000);
}

TEST(FfmPipelineTest, KeywordPrerollAndFollowingSpeechArriveOnceWithoutGap)
{
    FfmBench bench;
    writeFile(bench.metadataFile(), {'3', '\n', '1', ' ', '2', ' ', '3', '0', '0', '\n'});
    ASSERT_TRUE(bench.startPipeline());

    // 2 s of ramp; the keyword is samples 10000 to 17999 of it.
    bench.board().say(rampSamples(32000), 10000, 17999);
    ASSERT_TRUE(bench.board().waitUntilIdle(6000));
    ASSERT_TRUE(waitFor([] { return received().size() >= 30000 + 1600; }));
    KEL_AVS_FFM_TrigSendPCMData(false);

    const std::vector<int16_t> audio = received();
    std::lock_guard<std::mutex> lock(app().mutex);
    ASSERT_EQ(app().wakeWords, 1);
    EXPECT_EQ(app().notifications, 1);
    EXPECT_EQ(app().keyword, "alexa");
    EXPECT_EQ(app().metadata, (Bytes{0x01, 0x02, 0x2c}));
    // Half a second of pre-roll: the stream starts 8000 samples before the
    // keyword, then runs on sample by sample to the utterance's end.
    EXPECT_EQ(app().begin, 8000u);
    EXPECT_EQ(app().end, 8000u + 7999u);
    ASSERT_GE(audio.size(), 30000u);
    size_t mismatches = 0;
    size_t firstMismatch = 0;
    for (size_t k = 0; k < 30000; ++k) {
        if (audio[k] != static_cast<int16_t>(2000 + k) && mismatches++ == 0)
            firstMismatch = k;
    }
    EXPECT_EQ(mismatches, 0u) << "first at " << firstMismatch << ": " << audio[firstMismatch];
    EXPECT_EQ(audio[app().begin], 10000);
    EXPECT_EQ(audio[app().end], 17999);
    // After the block and one catch-up, one call per 20 ms period.
    ASSERT_GE(app().callSizes.size(), 3u);
    EXPECT_EQ(app().callSizes.back(), 640u);
}

TEST(FfmPipelineTest, ActionButtonStreamsLivePeriodsWithoutKeywordBlock)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());

    KEL_AVS_FFM_NotifyActionButtonPressed();
    EXPECT_EQ(ffm::buttonState(), ffm::ActionButton::Pressed);
    KEL_AVS_FFM_NotifyActionButtonPressed(); // not idle: stays
    EXPECT_EQ(ffm::buttonState(), ffm::ActionButton::Pressed);
    KEL_AVS_FFM_TrigSendPCMData(true);
    EXPECT_EQ(ffm::buttonState(), ffm::ActionButton::Streaming);
    ASSERT_TRUE(waitFor([] { return received().size() >= 5 * 320; }));
    KEL_AVS_FFM_TrigSendPCMData(false);
    EXPECT_EQ(ffm::buttonState(), ffm::ActionButton::StreamEnded);

    std::lock_guard<std::mutex> lock(app().mutex);
    for (unsigned size : app().callSizes)
        EXPECT_EQ(size, 640u);
    EXPECT_EQ(app().wakeWords, 0);

    // The dump ends with the stream's separator record.
    const std::vector<std::string> dumps = listDir(bench.alsa().dumpDir());
    std::string pcm;
    for (const std::string& name : dumps)
        if (name.rfind("PCM_rec", 0) == 0)
            pcm = bench.alsa().dumpDir() + name;
    const Bytes dump = readFile(pcm);
    ASSERT_GE(dump.size(), 512u);
    Bytes separator(512, 0);
    separator[0] = 0x01;
    EXPECT_EQ(Bytes(dump.end() - 512, dump.end()), separator);
}

TEST(FfmPipelineTest, EveryStopLeavesReadinessOneAndDspReadyRestarts)
{
    FfmBench bench;
    struct Case {
        const char* what;
        std::function<void()> stop;
    };
    const Case cases[] = {
        {"DSP not ready in state 3", [] { KEL_AVS_FFM_NotifyAudDSPStatus(0); }},
        {"power mode 1", [] { KEL_AVS_FFM_NotifyPowerStatus(1); }},
        {"board unplugged", [&bench] { bench.board().vanish(); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        bench.board().reappear();
        ASSERT_TRUE(bench.startPipeline());
        EXPECT_EQ(ffm::readinessState(), ffm::Readiness::BothReady);
        KEL_AVS_FFM_NotifyActionButtonPressed();
        c.stop();
        ASSERT_TRUE(bench.waitStopped());
        EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
        EXPECT_EQ(ffm::buttonState(), ffm::ActionButton::Idle);
    }
    // Plugged in again, the next DSP-ready report brings both threads back.
    bench.board().reappear();
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    EXPECT_TRUE(waitFor([&bench] { return bench.running(); }));
    EXPECT_EQ(ffm::readinessState(), ffm::Readiness::BothReady);
}

TEST(FfmPipelineTest, SoftMicrophoneHoldsBackTheWakeWordButNotTheNotification)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());
    youtube_softmic_alsa_write_start();
    sayShortKeyword(bench);
    ASSERT_TRUE(waitFor([] { return notifications() == 1; }));
    EXPECT_EQ(wakeWords(), 0);
    youtube_softmic_alsa_write_stop();
}

// What a wake-word callback that keeps its arguments kept.
struct KeptWakeWord {
    std::mutex mutex;
    const char* keyword = nullptr;
    const char* metadata = nullptr;
    unsigned length = 0;
    // The calling thread's stack.
    const char* stackLow = nullptr;
    const char* stackHigh = nullptr;

    bool onStack(const char* p)
    {
        std::lock_guard<std::mutex> lock(mutex);
        return p >= stackLow && p < stackHigh;
    }
};

KeptWakeWord& kept()
{
    static KeptWakeWord value;
    return value;
}

int keepWakeWordPointers(unsigned int, unsigned int, char* keyword, unsigned int length,
                         char* metadata)
{
    pthread_attr_t attr;
    void* stack = nullptr;
    size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
        pthread_attr_getstack(&attr, &stack, &size);
        pthread_attr_destroy(&attr);
    }
    std::lock_guard<std::mutex> lock(kept().mutex);
    kept().keyword = keyword;
    kept().metadata = metadata;
    kept().length = length;
    kept().stackLow = static_cast<const char*>(stack);
    kept().stackHigh = static_cast<const char*>(stack) + size;
    return 0;
}

TEST(FfmPipelineTest, WakeWordKeywordAndMetadataOutliveTheCallback)
{
    FfmBench bench;
    const std::string metadataText = "4\n7 8 9 300\n";
    writeFile(bench.metadataFile(), Bytes(metadataText.begin(), metadataText.end()));
    KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(keepWakeWordPointers);
    ASSERT_TRUE(bench.startPipeline());
    sayShortKeyword(bench);
    // The notify-UI callback comes after the wake-word callback has returned.
    ASSERT_TRUE(waitFor([] { return notifications() == 1; }));

    const char* keyword = nullptr;
    const char* metadata = nullptr;
    {
        std::lock_guard<std::mutex> lock(kept().mutex);
        keyword = kept().keyword;
        metadata = kept().metadata;
        ASSERT_EQ(kept().length, 4u);
    }
    ASSERT_NE(keyword, nullptr);
    ASSERT_NE(metadata, nullptr);
    // Not the detection thread's stack, which the thread goes on using.
    EXPECT_FALSE(kept().onStack(keyword));
    EXPECT_FALSE(kept().onStack(metadata));
    const Bytes expected{7, 8, 9, 0x2c};
    EXPECT_STREQ(keyword, "alexa");
    EXPECT_EQ(Bytes(metadata, metadata + 4), expected);

    // Both stay readable after the pipeline has stopped, too.
    KEL_AVS_FFM_TriggerCaptureData(0);
    ASSERT_TRUE(bench.waitStopped());
    EXPECT_STREQ(keyword, "alexa");
    EXPECT_EQ(Bytes(metadata, metadata + 4), expected);
}

// The library asks the board one thing only, the index query; the board
// stalls anything else, as the real one does.
TEST(FfmPipelineTest, OnlyTheIndexQueryIsSentAndAnsweredOverUsb)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());
    using Answer = zor::sim::XmosSimulator::QueryAnswer;
    bench.board().scriptQueries({Answer::NotReady, Answer::NotReady});
    sayShortKeyword(bench);
    ASSERT_TRUE(waitFor([] { return wakeWords() == 1 && notifications() == 1; }));
    const auto requests = bench.board().controlRequests();
    EXPECT_EQ(requests.size(), 3u); // two "not ready" answers, then the indexes
    for (const auto& request : requests) {
        EXPECT_TRUE(request.complete);
        EXPECT_EQ(request.requestType, 0xC0);
        EXPECT_EQ(request.request, 0);
        EXPECT_EQ(request.value, 0xAF);
        EXPECT_EQ(request.index, 0xE0);
        EXPECT_EQ(request.length, 25);
    }
    KEL_AVS_FFM_TriggerCaptureData(0);
    ASSERT_TRUE(bench.waitStopped());

    // Another client on the board's socket, the pipeline stopped.
    const std::string socket = bench.alsa().dir() + "/xmos.sock";
    std::unique_ptr<zor::audio::XmosDevice> device =
        zor::audio::openSimulatedXmosDevice(socket.c_str(), {50, 20});
    ASSERT_TRUE(device);
    ASSERT_TRUE(waitFor([&bench] { return bench.board().libraryConnected(); }));
    const struct {
        const char* what;
        uint8_t requestType;
        uint8_t request;
        uint16_t value;
        uint16_t index;
        uint16_t length;
    } refused[] = {
        {"host to device", 0x40, 0, 0xAF, 0xE0, 25},
        {"class request", 0xC1, 0, 0xAF, 0xE0, 25},
        {"other request", 0xC0, 1, 0xAF, 0xE0, 25},
        {"other command", 0xC0, 0, 0xAE, 0xE0, 25},
        {"other resource", 0xC0, 0, 0xAF, 0xE1, 25},
        {"shorter", 0xC0, 0, 0xAF, 0xE0, 24},
        {"longer", 0xC0, 0, 0xAF, 0xE0, 26},
        {"standard GET_DESCRIPTOR", 0x80, 6, 0x0100, 0, 18},
    };
    for (const auto& r : refused) {
        SCOPED_TRACE(r.what);
        uint8_t data[64] = {0x5A};
        EXPECT_EQ(device->controlTransfer(r.requestType, r.request, r.value, r.index, data,
                                          r.length, 2000),
                  -9); // LIBUSB_ERROR_PIPE
        EXPECT_EQ(data[0], 0x5A);
    }
    uint8_t data[25];
    memset(data, 0x5A, sizeof(data));
    EXPECT_EQ(device->controlTransfer(0xC0, 0, 0xAF, 0xE0, data, 25, 2000), 25);
    EXPECT_EQ(data[0], 0); // ready
}

// A device loss that the detection thread notices is a readiness transition
// like the others: it waits for the one in progress.
TEST(FfmPipelineTest, DeviceLossStopWaitsForTheReadinessTransitionInProgress)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());
    {
        const std::unique_lock<std::mutex> transition = ffm::holdReadiness();
        bench.board().vanish();
        // The detection thread sees the board gone within a poll or two.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_EQ(ffm::detectionState(), zor::audio::ThreadState::Running);
        EXPECT_EQ(ffm::captureState(), zor::audio::ThreadState::Running);
        EXPECT_EQ(ffm::readinessState(), ffm::Readiness::BothReady);
    }
    ASSERT_TRUE(bench.waitStopped());
    EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
    bench.board().reappear();
}

// The DSP's status flapping while the board comes and goes: transitions from
// the server's thread and device-loss stops from the pipeline's own threads
// never overlap, and once things settle the pipeline runs again.
TEST(FfmPipelineTest, DspStatusFlappingWhileTheBoardComesAndGoes)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());
    std::atomic<bool> done{false};
    std::thread dsp([&done] {
        for (int status = 0; !done.load(); status ^= 1) {
            KEL_AVS_FFM_NotifyAudDSPStatus(status);
            std::this_thread::sleep_for(std::chrono::milliseconds(7));
        }
    });
    for (int round = 0; round < 6; ++round) {
        bench.board().vanish();
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        bench.board().reappear();
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
    }
    done.store(true);
    dsp.join();

    // Stopped and started once more with the board present: both threads run.
    KEL_AVS_FFM_NotifyAudDSPStatus(0);
    EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
    ASSERT_TRUE(bench.waitStopped(10000));
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    EXPECT_TRUE(waitFor([&bench] { return bench.running(); }, 10000));
    EXPECT_EQ(ffm::readinessState(), ffm::Readiness::BothReady);
}

} // namespace
