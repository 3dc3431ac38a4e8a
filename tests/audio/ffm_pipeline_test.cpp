// The far-field pipeline against the simulated XMOS board: real ALSA reads
// of a FIFO paced in real time, the board's key press and index query over
// its socket, and what the application's callbacks receive.
#include "audio/ffm_pipeline.h"
#include "tests/audio/ffm_harness.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <thread>

using namespace zor::test;
namespace ffm = zor::audio::ffm;

namespace
{

FfmApplication& app()
{
    return FfmApplication::instance();
}

int wakeWords()
{
    std::lock_guard<std::mutex> lock(app().mutex);
    return app().wakeWords;
}

int notifications()
{
    std::lock_guard<std::mutex> lock(app().mutex);
    return app().notifications;
}

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
    EXPECT_EQ(ffm::buttonState(), 1);
    KEL_AVS_FFM_NotifyActionButtonPressed(); // not idle: stays
    EXPECT_EQ(ffm::buttonState(), 1);
    KEL_AVS_FFM_TrigSendPCMData(true);
    EXPECT_EQ(ffm::buttonState(), 2);
    ASSERT_TRUE(waitFor([] { return received().size() >= 5 * 320; }));
    KEL_AVS_FFM_TrigSendPCMData(false);
    EXPECT_EQ(ffm::buttonState(), 3);

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
        EXPECT_EQ(ffm::readinessState(), 3);
        KEL_AVS_FFM_NotifyActionButtonPressed();
        c.stop();
        ASSERT_TRUE(bench.waitStopped());
        EXPECT_EQ(ffm::readinessState(), 1);
        EXPECT_EQ(ffm::buttonState(), 0);
    }
    // Plugged in again, the next DSP-ready report brings both threads back.
    bench.board().reappear();
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    EXPECT_TRUE(waitFor([&bench] { return bench.running(); }));
    EXPECT_EQ(ffm::readinessState(), 3);
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

TEST(FfmPipelineTest, BoardFailuresDropOrDelayTheDetection)
{
    FfmBench bench;
    ASSERT_TRUE(bench.startPipeline());

    // A few "not ready" answers only delay the detection.
    bench.board().setNotReadyAnswers(3);
    unsigned before = bench.board().queriesAnswered();
    sayShortKeyword(bench);
    // The notify-UI callback follows the wake-word one: wait for both before
    // the counts are cleared.
    ASSERT_TRUE(waitFor([] { return wakeWords() == 1 && notifications() == 1; }));
    EXPECT_EQ(bench.board().queriesAnswered() - before, 4u);

    // A board that is never ready: the detection is given up.
    app().clear();
    {
        std::lock_guard<std::mutex> lock(app().mutex);
        app().streamOnWakeWord = false;
    }
    bench.board().setNotReadyAnswers(1000);
    before = bench.board().queriesAnswered();
    sayShortKeyword(bench);
    ASSERT_TRUE(bench.board().waitUntilIdle(3000));
    ASSERT_TRUE(waitFor([&] { return bench.board().queriesAnswered() - before >= 50; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(bench.board().queriesAnswered() - before, 50u);
    EXPECT_EQ(notifications(), 0);

    // Indexes that do not fit the ring are dropped: no callback at all.
    bench.board().setNotReadyAnswers(0);
    bench.board().setIndexesOutOfRange(true);
    before = bench.board().queriesAnswered();
    sayShortKeyword(bench);
    ASSERT_TRUE(waitFor([&] { return bench.board().queriesAnswered() > before; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(notifications(), 0);
    EXPECT_EQ(wakeWords(), 0);

    // A failed transfer goes on with zero indexes: an empty keyword at the
    // write position, with its pre-roll.
    bench.board().setIndexesOutOfRange(false);
    bench.board().setFailedTransfers(1);
    sayShortKeyword(bench);
    ASSERT_TRUE(waitFor([] { return wakeWords() == 1; }));
    std::lock_guard<std::mutex> lock(app().mutex);
    EXPECT_EQ(app().begin, 8000u);
    EXPECT_EQ(app().end, 8000u);
    EXPECT_TRUE(app().metadata.empty()); // no metadata file
}

} // namespace
