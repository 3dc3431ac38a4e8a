// SPDX-License-Identifier: MIT
// Remote-control capture against the simulated sound card: a card that grants
// other rates and periods, overruns, suspends, fails, reads short and goes
// away. Each case checks what reached the callback and the dump, the lines,
// and that the capture gives back its thread and descriptors.
#include "audio/rc_capture.h"
#include "tests/audio/alsa_sim.h"
#include "tests/audio/rc_recorder.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <mutex>
#include <ostream>
#include <thread>

using namespace zor::test;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr uint16_t kFirstSample = 0x100;
constexpr size_t kInputFrames = 200 * 32;
constexpr size_t kFaultFrame = 64 * 32; // on a period boundary of 32 frames

// Frames [from, to) of the ramp that the card is fed.
Bytes inputFrames(size_t from, size_t to)
{
    return ramp(to - from, static_cast<uint16_t>(kFirstSample + from));
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

struct Condition {
    const char* name;
    std::string keys;               // the card's constraints and faults
    Bytes expected;                 // what the callback and the dump receive
    unsigned periodBytes;           // of every callback
    std::string grantedRate;        // in the card's set-up trace line
    std::vector<std::string> lines; // printed, besides the usual ones
    std::vector<std::string> absent;
    std::vector<std::string> traced = {}; // what the card saw besides transfers
};

void PrintTo(const Condition& condition, std::ostream* out)
{
    *out << condition.name;
}

const std::string kExpected = "rates [ 16000 ] channels [ 1 ] period_frames [ 32 ] ";

std::vector<Condition> conditions()
{
    const Bytes all = inputFrames(0, kInputFrames);
    const std::string at = "frame " + std::to_string(kFaultFrame) + " ";
    return {
        {"CardAsExpected", kExpected, all, 64, "16000", {}, {"error from read"}},
        {"OnlyAnotherRate",
         "rates [ 48000 ] channels [ 1 ]",
         all,
         64,
         "48000",
         {},
         {"hardware could not support"}},
        {"PeriodFixedAt256",
         "rates [ 16000 ] channels [ 1 ] period_frames [ 256 ]",
         all,
         512,
         "16000",
         {},
         {"hardware could not support", "short read"}},
        // The card drops the frames of the read that overran; the device is
        // prepared again and that period never reaches the application.
        {"Overrun",
         kExpected + "faults [ { " + at + "type overrun } ]",
         concat({inputFrames(0, kFaultFrame), inputFrames(kFaultFrame + 32, kInputFrames)}),
         64,
         "16000",
         {},
         {"error from read", "overrun", "recovered"},
         {"prepare " + std::to_string(kFaultFrame + 32)}},
        // Ten new frames; the rest of the period buffer still holds the end
        // of the period before, and the whole buffer goes out.
        {"ShortRead",
         kExpected + "faults [ { " + at + "type short frames 10 } ]",
         concat({inputFrames(0, kFaultFrame), inputFrames(kFaultFrame, kFaultFrame + 10),
                 inputFrames(kFaultFrame - 22, kFaultFrame),
                 inputFrames(kFaultFrame + 10, kInputFrames - 22)}),
         64,
         "16000",
         {"short read, read 10 frames"},
         {"error from read"}},
        {"IoError",
         kExpected + "faults [ { " + at + "type io_error } ]",
         all,
         64,
         "16000",
         {"error from read: Input/output error"},
         {"recovered"}},
        // Woken again (the card can resume), the capture goes on where it was.
        {"Suspend",
         kExpected + "faults [ { " + at + "type suspend } ]",
         all,
         64,
         "16000",
         {"error from read: Streams pipe error"},
         {"recovered"},
         {"resume " + std::to_string(kFaultFrame)}},
    };
}

class RcCaptureHostileTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // ThreadSanitizer starts a thread of its own with the first thread
        // created; it must be there before any thread count is taken.
        std::thread([] {}).join();
    }

    void SetUp() override
    {
        alsaCaptureRegisterCallback(recordPeriod);
        recorder.reset(0);
        ASSERT_EQ(zor::audio::captureState(), zor::audio::ThreadState::None);
        m_threads = settledThreadCount();
        m_fds = openFdCount();
    }

    void TearDown() override
    {
        stopAlsaCaptureThread();
        EXPECT_TRUE(zor::audio::waitForCaptureEnd(60000));
        EXPECT_TRUE(waitForThreadCount(m_threads, 60000));
        EXPECT_EQ(openFdCount(), m_fds);
        alsaCaptureRegisterCallback(nullptr);
    }

    int start() { return zor::audio::startAlsaCaptureThreadInto(m_sim.dumpDir().c_str()); }

    // Waits (bounded, generously) for the capture thread to be gone.
    static bool waitForEnd() { return zor::audio::waitForCaptureEnd(60000); }

    Bytes dump()
    {
        const std::vector<std::string> names = listDir(m_sim.dumpDir());
        return names.size() == 1 ? readFile(m_sim.dumpDir() + names[0]) : Bytes();
    }

    void useCard(const std::string& keys)
    {
        m_sim.useCard({{"0,6", keys + " trace \"" + m_sim.tracePath("0,6") + "\""}});
    }

    AlsaSim m_sim;
    int m_threads = 0;
    int m_fds = 0;
};

class RcCaptureConditionTest : public RcCaptureHostileTest,
                               public testing::WithParamInterface<Condition>
{
};

TEST_P(RcCaptureConditionTest, DeliversWhatTheCardGaveOnce)
{
    const Condition& c = GetParam();
    writeFile(m_sim.captureInput(), inputFrames(0, kInputFrames));
    useCard(c.keys);
    recorder.reset(c.expected.size());

    StdoutCapture output;
    ASSERT_EQ(start(), 0);
    ASSERT_TRUE(waitForEnd());
    const std::vector<std::string> lines = output.takeLines();

    // Whole periods of the granted size, and nothing beyond the stop.
    EXPECT_THAT(recorder.sizes, Each(c.periodBytes));
    ASSERT_GE(recorder.bytes.size(), c.expected.size());
    EXPECT_EQ(Bytes(recorder.bytes.begin(), recorder.bytes.begin() + c.expected.size()),
              c.expected);
    EXPECT_EQ(dump(), recorder.bytes);

    EXPECT_THAT(lines, Contains("alsaCaptureInit success."));
    for (const std::string& line : c.lines)
        EXPECT_THAT(lines, Contains(line));
    for (const std::string& text : c.absent)
        EXPECT_THAT(lines, Each(Not(HasSubstr(text))));
    const std::vector<std::string> trace = m_sim.traceLines("0,6");
    EXPECT_THAT(trace, Contains(testing::StartsWith("hw_params " + c.grantedRate + " 1 ")));
    for (const std::string& line : c.traced)
        EXPECT_THAT(trace, Contains(line));
}

INSTANTIATE_TEST_SUITE_P(Card, RcCaptureConditionTest, testing::ValuesIn(conditions()),
                         [](const testing::TestParamInfo<Condition>& testCase) {
                             return testCase.param.name;
                         });

// Unplugged, the device fails every read from then on: the capture goes on
// (it is the application that stops it), says so once, and does not spin.
TEST_F(RcCaptureHostileTest, UnpluggedDeviceIsReadOncePerPeriodWithOneLine)
{
    writeFile(m_sim.captureInput(), inputFrames(0, kInputFrames));
    useCard(kExpected + "faults [ { frame " + std::to_string(kFaultFrame) + " type unplug } ]");

    StdoutCapture output;
    ASSERT_EQ(start(), 0);
    ASSERT_TRUE(waitFor([] { return recorder.size() >= kFaultFrame * 2; }, 60000));
    // Half a second of a gone device: 250 periods of 2 ms. A thread that
    // retried at once would burn the whole half second.
    const clock_t cpuBefore = clock();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const double cpuSeconds = static_cast<double>(clock() - cpuBefore) / CLOCKS_PER_SEC;
    EXPECT_EQ(zor::audio::captureState(), zor::audio::ThreadState::Running);
    EXPECT_EQ(stopAlsaCaptureThread(), 0);
    ASSERT_TRUE(waitForEnd());
    const std::vector<std::string> lines = output.takeLines();

    EXPECT_LT(cpuSeconds, 0.25);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "error from read: No such device"), 1);
    EXPECT_EQ(recorder.bytes, inputFrames(0, kFaultFrame));
    EXPECT_EQ(dump(), recorder.bytes);
}

// A device that fails every read: one attempt per period, one line per run
// (and one per thousand failures), and the capture still stops on request.
TEST_F(RcCaptureHostileTest, FailingDeviceIsRetriedOncePerPeriod)
{
    writeFile(m_sim.captureInput(), inputFrames(0, kInputFrames));
    useCard(kExpected + "faults [ { frame " + std::to_string(kFaultFrame) +
            " type io_error count 0 } ]");

    StdoutCapture output;
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(start(), 0);
    ASSERT_TRUE(waitFor([] { return recorder.size() >= kFaultFrame * 2; }, 60000));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(stopAlsaCaptureThread(), 0);
    ASSERT_TRUE(waitForEnd());
    const auto ended = std::chrono::steady_clock::now();
    const std::vector<std::string> lines = output.takeLines();

    const std::vector<std::string> trace = m_sim.traceLines("0,6");
    const auto failed = std::count_if(trace.begin(), trace.end(), [](const std::string& line) {
        return line.rfind("transfer ", 0) == 0 && line.size() > 3 &&
               line.compare(line.size() - 3, 3, " -5") == 0;
    });
    // At most one attempt per 2 ms period (the second failure of a run is
    // retried at once), counted over all the time the capture ran.
    const double ms = std::chrono::duration<double, std::milli>(ended - started).count();
    EXPECT_GE(failed, 2);
    EXPECT_LE(failed, 2 + static_cast<long>(ms / 2.0)) << ms << " ms";
    const long expectedLines = 1 + failed / 1000;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "error from read: Input/output error"),
              expectedLines);
    EXPECT_EQ(recorder.bytes, inputFrames(0, kFaultFrame));
}

// A card that cannot give what the capture needs: the set-up fails at its
// step and the capture ends; nothing is delivered.
struct Refusal {
    const char* name;
    std::vector<CardDevice> card;
    const char* line;
};

void PrintTo(const Refusal& refusal, std::ostream* out)
{
    *out << refusal.name;
}

class RcCaptureRefusalTest : public RcCaptureHostileTest,
                             public testing::WithParamInterface<Refusal>
{
};

TEST_P(RcCaptureRefusalTest, FailingStepSaysSoAndTheCaptureEnds)
{
    writeFile(m_sim.captureInput(), inputFrames(0, kInputFrames));
    m_sim.useCard(GetParam().card);

    StdoutCapture output;
    ASSERT_EQ(start(), 0);
    ASSERT_TRUE(waitForEnd());
    const std::vector<std::string> lines = output.takeLines();

    EXPECT_THAT(lines, Contains(GetParam().line));
    EXPECT_THAT(lines, Contains("Error: alsa capture initialize failed!"));
    EXPECT_THAT(lines, Not(Contains("alsaCaptureInit success.")));
    EXPECT_TRUE(recorder.bytes.empty());
    EXPECT_EQ(zor::audio::captureState(), zor::audio::ThreadState::None);
}

INSTANTIATE_TEST_SUITE_P(
    Card, RcCaptureRefusalTest,
    testing::Values(
        Refusal{"NoS16",
                {{"0,6", "formats [ MU_LAW ] channels [ 1 ]"}},
                "unable to set hw parameters: Invalid argument"},
        Refusal{"StereoOnly",
                {{"0,6", "channels [ 2 ]"}},
                "unable to set hw parameters: Invalid argument"},
        Refusal{"NoDevice", {{"0,5", ""}}, "unable to open pcm device: No such file or directory"}),
    [](const testing::TestParamInfo<Refusal>& testCase) { return testCase.param.name; });

} // namespace
