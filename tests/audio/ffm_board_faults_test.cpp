// SPDX-License-Identifier: MIT
// The far-field pipeline against a board that misbehaves the way real ones
// do: indexes not ready, indexes that cannot lie in the ring, a keyword
// overwritten while the detection waits, a transfer that fails, stalls or
// gets no answer, the board unplugged in the middle of a query, and key
// events other than one press of the wake key. The capture is served as fast
// as it reads (the fast card), so each case costs milliseconds; every keyword
// block and the stream after it is checked sample for sample.
#include "audio/ffm_pipeline.h"
#include "tests/audio/ffm_harness.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <fstream>
#include <unistd.h>

using namespace zor::test;
namespace ffm = zor::audio::ffm;
using Answer = zor::sim::XmosSimulator::QueryAnswer;

namespace
{

constexpr uint64_t kPreroll = 8000;
constexpr uint64_t kLead = 12000;   // audio before each keyword
constexpr uint64_t kKeyword = 9000; // keyword length in samples
constexpr uint64_t kSpeech = 16000; // speech after it

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

class FfmBoardFaultTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(bench.startPipeline()); }

    // A wake word that must come through whole: the block from the pre-roll
    // on, then the speech, every sample once.
    void expectCleanWakeWord()
    {
        FfmBench::WakeWord word;
        ASSERT_TRUE(bench.wakeWord(kLead, kKeyword, kSpeech, &word));
        EXPECT_EQ(word.begin, kPreroll);
        EXPECT_EQ(word.end, kPreroll + kKeyword);
        const StreamCheck check = word.check(word.keywordBegin - kPreroll);
        EXPECT_EQ(check.lost, 0u);
        EXPECT_EQ(check.repeated, 0u);
        EXPECT_EQ(check.drift, 0);
    }

    // The board takes `queries` more index queries; the detection comes to
    // nothing. The next wake word comes through whole, and it is the only
    // one reported.
    void expectDroppedThenRecovery(unsigned queries)
    {
        const int words = wakeWords();
        const int notified = notifications();
        const unsigned before = bench.board().queriesAnswered();
        uint64_t begin = 0;
        uint64_t end = 0;
        ASSERT_TRUE(bench.speakKeyword(kLead, kKeyword, &begin, &end));
        ASSERT_TRUE(waitFor([&] { return bench.board().queriesAnswered() - before >= queries; }));
        bench.board().scriptQueries({});
        // The detection thread handles one event at a time: had the dropped
        // detection reported anything, it would have before this one.
        expectCleanWakeWord();
        EXPECT_EQ(bench.board().queriesAnswered() - before, queries + 1);
        EXPECT_EQ(wakeWords(), words + 1);
        EXPECT_EQ(notifications(), notified + 1);
    }

    FfmBench bench{BoardFeed::Fast};
};

TEST_F(FfmBoardFaultTest, AWakeWordOnTheFastCardArrivesWhole)
{
    for (int k = 0; k < 3; ++k)
        expectCleanWakeWord();
    EXPECT_EQ(wakeWords(), 3);
}

// "Not ready" is asked again, 50 queries at most; the 50th "not ready" drops
// the detection with a line and the board is asked nothing more for it.
TEST_F(FfmBoardFaultTest, NotReadyAnswersAreRetriedABoundedNumberOfTimes)
{
    struct Case {
        unsigned notReady;
        bool detected;
        unsigned queries;
    };
    const Case cases[] = {
        {1, true, 2}, {3, true, 4}, {49, true, 50}, {50, false, 50}, {1000, false, 50}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.notReady);
        bench.board().scriptQueries(std::vector<Answer>(c.notReady, Answer::NotReady));
        if (c.detected) {
            const unsigned before = bench.board().queriesAnswered();
            expectCleanWakeWord();
            EXPECT_EQ(bench.board().queriesAnswered() - before, c.queries);
            continue;
        }
        testing::internal::CaptureStdout();
        expectDroppedThenRecovery(c.queries);
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(
            contains(output, "device indexes not ready after 50 queries, detection dropped"));
    }
}

// A transfer that fails leaves the payload as it was, so the first failure
// reads as ready with zero indexes: an empty keyword at the board's current
// index with its pre-roll. The stream goes on from the block's end.
TEST_F(FfmBoardFaultTest, AFailedTransferGivesAnEmptyKeywordAtTheCurrentIndex)
{
    const struct {
        const char* what;
        Answer answer;
    } cases[] = {
        {"I/O error", Answer::IoError},
        {"stall", Answer::Stall},
        {"no answer (the transfer times out)", Answer::NoAnswer},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        bench.board().scriptQueries({c.answer});
        testing::internal::CaptureStdout();
        FfmBench::WakeWord word;
        const bool complete = bench.wakeWord(kLead, kKeyword, kSpeech, &word);
        const std::string output = testing::internal::GetCapturedStdout();
        ASSERT_TRUE(complete);
        EXPECT_TRUE(contains(output, "get paload error"));
        EXPECT_EQ(word.begin, kPreroll);
        EXPECT_EQ(word.end, kPreroll);
        const StreamCheck check = word.check(word.queryIndex - kPreroll);
        EXPECT_EQ(check.lost, 0u);
        EXPECT_EQ(check.repeated, 0u);
        EXPECT_EQ(check.drift, 0);
        expectCleanWakeWord();
    }
    // "Not ready", then a failure: the status byte still says not ready, so
    // the board is asked again.
    bench.board().scriptQueries({Answer::NotReady, Answer::Stall, Answer::IoError});
    const unsigned before = bench.board().queriesAnswered();
    expectCleanWakeWord();
    EXPECT_EQ(bench.board().queriesAnswered() - before, 4u);
}

TEST_F(FfmBoardFaultTest, IndexesThatCannotLieInTheRingDropTheDetection)
{
    const struct {
        Answer answer;
        const char* line;
    } cases[] = {
        {Answer::BeginAfterCurrent, "keyword indexes refused (begin after the current index)"},
        {Answer::EndBeforeBegin, "keyword indexes refused (end before begin)"},
        {Answer::BeginOverwritten, "keyword indexes refused (begin no longer in the ring)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        bench.board().scriptQueries({c.answer});
        testing::internal::CaptureStdout();
        expectDroppedThenRecovery(1);
        EXPECT_TRUE(contains(testing::internal::GetCapturedStdout(), c.line));
    }
}

// A keyword 14.5 s long ends at the query: its block, pre-roll included, is
// the whole ring. One period more and its begin has been overwritten.
TEST_F(FfmBoardFaultTest, AKeywordThatBeganFourteenAndAHalfSecondsAgoIsTheWholeRing)
{
    FfmBench::WakeWord word;
    ASSERT_TRUE(bench.wakeWord(kPreroll, 232000, kSpeech, &word));
    EXPECT_EQ(word.queryIndex - word.keywordBegin, 232000u);
    EXPECT_EQ(word.end, 240000u);
    {
        std::lock_guard<std::mutex> lock(app().mutex);
        ASSERT_FALSE(app().callSizes.empty());
        EXPECT_EQ(app().callSizes.front(), 480000u);
    }
    const StreamCheck check = word.check(word.keywordBegin - kPreroll);
    EXPECT_EQ(check.lost, 0u);
    EXPECT_EQ(check.repeated, 0u);
    EXPECT_EQ(check.drift, 0);

    testing::internal::CaptureStdout();
    const unsigned before = bench.board().queriesAnswered();
    uint64_t begin = 0;
    uint64_t end = 0;
    ASSERT_TRUE(bench.speakKeyword(kPreroll, 232000 + 320, &begin, &end));
    ASSERT_TRUE(waitFor([&] { return bench.board().queriesAnswered() > before; }));
    expectCleanWakeWord();
    EXPECT_TRUE(contains(testing::internal::GetCapturedStdout(),
                         "keyword indexes refused (begin no longer in the ring)"));
}

// The indexes were fine when the board answered, but the capture went on
// for more than a ring while the detection waited (here for the metadata
// script): the block is gone, the detection is dropped.
TEST_F(FfmBoardFaultTest, AKeywordOverwrittenWhileTheDetectionWaitsIsDropped)
{
    // The script says when it runs (the detection has read the ring's index
    // by then) and waits for the test.
    const std::string running = bench.alsa().dir() + "/running";
    const std::string flag = bench.alsa().dir() + "/go";
    const std::string script = bench.alsa().dir() + "/metadata.sh";
    std::ofstream(script) << "touch '" << running << "'\nwhile [ ! -e '" << flag
                          << "' ]; do sleep 0.01; done\n";
    ffm::Params slow = ffm::params();
    const ffm::Params quick = slow;
    slow.metadataScript = script;
    ffm::setParams(slow);

    testing::internal::CaptureStdout();
    const int words = wakeWords();
    const unsigned before = bench.board().queriesAnswered();
    uint64_t begin = 0;
    uint64_t end = 0;
    ASSERT_TRUE(bench.speakKeyword(kLead, kKeyword, &begin, &end));
    ASSERT_TRUE(waitFor([&] { return access(running.c_str(), F_OK) == 0; }, 10000));
    EXPECT_EQ(bench.board().queriesAnswered() - before, 1u);
    ASSERT_TRUE(bench.card().serve(240000));
    ASSERT_TRUE(bench.card().waitTaken());
    ffm::setParams(quick);
    std::ofstream{flag}.close(); // the file appearing is the signal

    expectCleanWakeWord();
    EXPECT_TRUE(contains(testing::internal::GetCapturedStdout(),
                         "keyword block overwritten before it was copied, dropped"));
    EXPECT_EQ(wakeWords(), words + 1);
}

// Unplugged with the query outstanding: no indexes and no audio will come.
// The detection is dropped and both threads stop, as for any device loss;
// with the board back, the DSP-ready report starts them again.
TEST_F(FfmBoardFaultTest, UnplugInTheMiddleOfAQueryStopsUntilTheBoardIsBack)
{
    expectCleanWakeWord();
    const int fds = openFdCount();
    const int threads = settledThreadCount();
    const int words = wakeWords();
    bench.board().scriptQueries({Answer::Unplug});
    testing::internal::CaptureStdout();
    uint64_t begin = 0;
    uint64_t end = 0;
    ASSERT_TRUE(bench.speakKeyword(kLead, kKeyword, &begin, &end));
    ASSERT_TRUE(waitFor([&] { return !bench.board().plugged(); }));
    const bool stopped = bench.waitStopped(); // the card goes with the board
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(stopped);
    EXPECT_TRUE(contains(output, "HID device lost during the index query: No such device, "
                                 "detection dropped"));
    EXPECT_FALSE(contains(output, "get paload error"));
    EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
    EXPECT_EQ(wakeWords(), words);
    EXPECT_EQ(notifications(), words);

    bench.board().reappear();
    ASSERT_TRUE(waitFor([&] { return bench.board().plugged(); }));
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    ASSERT_TRUE(bench.card().plugIn());
    ASSERT_TRUE(waitFor([&] { return bench.running(); }));
    expectCleanWakeWord();
    EXPECT_EQ(wakeWords(), words + 1);
    // The stopped run gave back its device, buffers, dump files and threads.
    EXPECT_EQ(openFdCount(), fds);
    EXPECT_EQ(settledThreadCount(), threads);
}

// A board that said "not ready" and then stops answering holds each retry
// for the transfer's 500 ms: 50 of them would keep the detection thread for
// 25 s. A stop request is honoured after the transfer under way, and
// nothing more is asked.
TEST_F(FfmBoardFaultTest, AStopEndsTheRetriesOfABoardThatNoLongerAnswers)
{
    std::vector<Answer> script{Answer::NotReady};
    script.resize(60, Answer::NoAnswer);
    bench.board().scriptQueries(script);
    testing::internal::CaptureStdout();
    uint64_t begin = 0;
    uint64_t end = 0;
    ASSERT_TRUE(bench.speakKeyword(kLead, kKeyword, &begin, &end));
    // The "not ready" answer, then a second query that gets none.
    ASSERT_TRUE(waitFor([&] { return bench.board().controlRequests().size() >= 2; }));
    KEL_AVS_FFM_NotifyAudDSPStatus(0);
    const bool stopped = bench.waitStopped(10000);
    const size_t asked = bench.board().controlRequests().size();
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(stopped);
    EXPECT_LT(asked, 10u);
    EXPECT_FALSE(contains(output, "not ready after"));
    EXPECT_EQ(wakeWords(), 0);
    EXPECT_EQ(notifications(), 0);

    // Nothing is left waiting: the next run detects as usual.
    bench.board().scriptQueries({});
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    ASSERT_TRUE(bench.card().plugIn());
    ASSERT_TRUE(waitFor([&] { return bench.running(); }));
    expectCleanWakeWord();
    EXPECT_EQ(wakeWords(), 1);
}

// Only KEY_F23 going down starts a detection: its auto-repeat, its release,
// other keys and other event types are read and ignored.
TEST_F(FfmBoardFaultTest, OnlyTheWakeKeyGoingDownStartsADetection)
{
    const unsigned before = bench.board().queriesAnswered();
    bench.board().setWakeKeyValues({1, 2, 2, 2, 2, 0});
    expectCleanWakeWord();

    const struct {
        uint16_t type;
        uint16_t code;
        int32_t value;
    } others[] = {
        {EV_KEY, KEY_F23, 2},        {EV_KEY, KEY_F23, 0},      {EV_KEY, KEY_F22, 1},
        {EV_KEY, KEY_F24, 1},        {EV_KEY, KEY_VOLUMEUP, 1}, {EV_KEY, KEY_F22, 2},
        {EV_MSC, MSC_SCAN, KEY_F23}, {EV_SYN, SYN_REPORT, 0},   {EV_REL, KEY_F23, 1},
        {EV_ABS, KEY_F23, 1},
    };
    for (const auto& event : others)
        bench.board().sendKeyEvent(event.type, event.code, event.value);
    bench.board().setWakeKeyValues({1, 0});
    // Sent after the others: handled after them.
    expectCleanWakeWord();
    EXPECT_EQ(bench.board().queriesAnswered() - before, 2u);
    EXPECT_EQ(wakeWords(), 2);
    EXPECT_EQ(notifications(), 2);
}

} // namespace
