// SPDX-License-Identifier: MIT
// Far-field capture against the simulated sound card. The capture steps run
// one by one on a card that reads a regular file, so every period's effect
// on the ring can be checked; the whole pipeline runs with the card fed by
// the simulated board for the wake-word path and for an unplug.
#include "audio/ffm_capture.h"
#include "audio/ffm_pipeline.h"
#include "tests/audio/ffm_harness.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <regex>
#include <thread>

using namespace zor::test;
namespace ffm = zor::audio::ffm;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr uint16_t kFirst = 0x100;

// Stereo frames [from, to): channel 0 counts up from kFirst, channel 1 is
// its complement (the capture keeps channel 0).
Bytes stereoFrames(size_t from, size_t to)
{
    Bytes bytes;
    for (size_t k = from; k < to; ++k) {
        const uint16_t left = static_cast<uint16_t>(kFirst + k);
        const uint16_t right = static_cast<uint16_t>(~left);
        bytes.insert(bytes.end(), {static_cast<uint8_t>(left), static_cast<uint8_t>(left >> 8),
                                   static_cast<uint8_t>(right), static_cast<uint8_t>(right >> 8)});
    }
    return bytes;
}

// Channel 0 of those frames, as the ring holds it.
std::vector<int16_t> monoFrames(size_t from, size_t to)
{
    return rampSamples(to - from, static_cast<uint16_t>(kFirst + from));
}

std::vector<int16_t> concat(std::initializer_list<std::vector<int16_t>> parts)
{
    std::vector<int16_t> all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// The far-field lines of `output`, prefixes removed.
std::vector<std::string> messages(const std::string& output)
{
    static const std::regex prefix(R"(\[AVS_FFM\]\[Line: [0-9]+\]\[[A-Za-z_]+\(\)\])");
    std::vector<std::string> lines;
    for (const std::string& line : splitLines(std::regex_replace(output, prefix, "")))
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

// The capture record and ring of one direct run on "hw:1,0".
struct DirectCapture {
    ffm::_ST_FFM_CAPTURE_BUF_CFG cap;
    ffm::_ST_FFM_RING_BUF_CFG ring;
    int initResult = -1;

    explicit DirectCapture(AlsaSim& sim)
    {
        ffm::Params settings;
        settings.dumpDir = sim.dumpDir();
        settings.captureOpenAttempts = 1;
        initResult = ffm::kel_avs_ffm_alsa_capture_init(&cap, &ring, "hw:1,0", settings);
    }
    ~DirectCapture() { ffm::kel_avs_ffm_alsa_capture_stop(&cap, &ring, "hw:1,0"); }

    // The samples written into the ring so far (it has not wrapped).
    std::vector<int16_t> ringSamples() const
    {
        const auto* p = reinterpret_cast<const int16_t*>(ring.pu8RingBuf.get());
        return std::vector<int16_t>(p, p + ring.u64CurrentIndex);
    }
};

const std::string kExpected = "rates [ 16000 ] channels [ 2 ] period_frames [ 320 ] ";
constexpr size_t kInputFrames = 40 * 320;
constexpr size_t kFault = 3 * 320;
constexpr int kSteps = 10;

struct Condition {
    const char* name;
    std::string keys;
    unsigned long frames;           // the granted period
    std::vector<int16_t> ring;      // after kSteps capture steps
    std::vector<std::string> lines; // among the step's and the set-up's lines
    std::vector<std::string> absent;
};

void PrintTo(const Condition& condition, std::ostream* out)
{
    *out << condition.name;
}

std::vector<Condition> conditions()
{
    const std::string at = "faults [ { frame " + std::to_string(kFault) + " ";
    const char* rateLine = "kel_avs_ffm_alsa_capture_init: hardware could not support "
                           "sampling rate 48000 Hz, set 48000 Hz";
    return {
        {"CardAsExpected",
         kExpected,
         320,
         monoFrames(0, 3200),
         {},
         {"hardware could not", "error"}},
        {"OnlyAnotherRate",
         "rates [ 48000 ] channels [ 2 ] period_frames [ 320 ]",
         320,
         monoFrames(0, 3200),
         {rateLine},
         {"period size 320, set"}},
        {"PeriodFixedAt256",
         "rates [ 16000 ] channels [ 2 ] period_frames [ 256 ]",
         256,
         monoFrames(0, 2560),
         {"kel_avs_ffm_alsa_capture_init: hardware could not support period size 256, set 256",
          "get_period_size,  data->frames = 256"},
         {"sampling rate"}},
        {"RateAndPeriod",
         "rates [ 48000 ] channels [ 2 ] period_frames { min 960 max 4800 }",
         960,
         monoFrames(0, 9600),
         {rateLine,
          "kel_avs_ffm_alsa_capture_init: hardware could not support period size 960, set 960",
          "get_period_size,  data->frames = 960"},
         {"error"}},
        // The period is lost and the ring's indexes stay where they were.
        {"Overrun",
         kExpected + at + "type overrun } ]",
         320,
         concat({monoFrames(0, kFault), monoFrames(kFault + 320, 3200)}),
         {"overrun occurred Broken pipe"},
         {"error from read"}},
        // A whole period all the same: its tail keeps the period before.
        {"ShortRead",
         kExpected + at + "type short frames 100 } ]",
         320,
         concat({monoFrames(0, kFault), monoFrames(kFault, kFault + 100),
                 monoFrames(kFault - 220, kFault), monoFrames(kFault + 100, 3200 - 220)}),
         {"short read, read 100 frames"},
         {"error from read"}},
        {"IoError",
         kExpected + at + "type io_error } ]",
         320,
         monoFrames(0, 2880),
         {"error from read: Input/output error"},
         {"overrun"}},
        {"Suspend",
         kExpected + at + "type suspend } ]",
         320,
         monoFrames(0, 2880),
         {"error from read: Streams pipe error"},
         {"overrun"}},
    };
}

class FfmCaptureConditionTest : public testing::TestWithParam<Condition>
{
protected:
    AlsaSim m_sim;
};

TEST_P(FfmCaptureConditionTest, RingHoldsWhatTheCardGaveOnce)
{
    const Condition& c = GetParam();
    writeFile(m_sim.dir() + "/pcm1,0.in", stereoFrames(0, kInputFrames));
    m_sim.useCard({{"1,0", c.keys}});
    const int fds = openFdCount();

    StdoutCapture output;
    std::vector<std::string> lines;
    {
        DirectCapture run(m_sim);
        ASSERT_EQ(run.initResult, 0) << output.take();
        EXPECT_EQ(run.cap.frames, c.frames);
        EXPECT_EQ(run.cap.u32MonoBufSize, 2 * c.frames);
        EXPECT_EQ(run.cap.u32StereoBufSize, 4 * c.frames);
        for (int step = 0; step < kSteps; ++step) {
            const uint64_t before = run.ring.u64CurrentIndex;
            ffm::kel_avs_ffm_alsa_capture_write(&run.cap, &run.ring);
            // A step moves the ring by a whole period or not at all.
            const uint64_t moved = run.ring.u64CurrentIndex - before;
            EXPECT_TRUE(moved == 0 || moved == c.frames) << "step " << step << ": " << moved;
            EXPECT_EQ(run.ring.u32CurrentIndex, run.ring.u64CurrentIndex % ffm::kRingSamples);
            EXPECT_EQ(run.ring.u32WriteBytes, 2 * run.ring.u32CurrentIndex);
        }
        EXPECT_EQ(run.ringSamples(), c.ring);
    }
    lines = messages(output.take());
    EXPECT_EQ(openFdCount(), fds);

    for (const std::string& line : c.lines)
        EXPECT_THAT(lines, testing::Contains(line));
    for (const std::string& text : c.absent)
        EXPECT_THAT(lines, testing::Each(Not(HasSubstr(text))));
}

INSTANTIATE_TEST_SUITE_P(Card, FfmCaptureConditionTest, testing::ValuesIn(conditions()),
                         [](const testing::TestParamInfo<Condition>& testCase) {
                             return testCase.param.name;
                         });

struct RefusedSetUp {
    const char* name;
    std::string device; // the card's one device
    std::string keys;
    const char* line;
};

void PrintTo(const RefusedSetUp& refused, std::ostream* out)
{
    *out << refused.name;
}

class FfmRefusedSetUpTest : public testing::TestWithParam<RefusedSetUp>
{
protected:
    AlsaSim m_sim;
};

TEST_P(FfmRefusedSetUpTest, TheFailingStepSaysSoAndInitFails)
{
    writeFile(m_sim.dir() + "/pcm1,0.in", stereoFrames(0, 3200));
    m_sim.useCard({{GetParam().device, GetParam().keys}});
    const int fds = openFdCount();
    StdoutCapture output;
    int result = 0;
    {
        DirectCapture run(m_sim);
        result = run.initResult;
    }
    const std::vector<std::string> lines = messages(output.take());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(lines, testing::Contains(GetParam().line));
    EXPECT_THAT(lines, testing::Each(Not(HasSubstr("ffmalsaCaptureInit success"))));
    EXPECT_EQ(openFdCount(), fds);
}

INSTANTIATE_TEST_SUITE_P(
    Card, FfmRefusedSetUpTest,
    testing::Values(RefusedSetUp{"NoS16", "1,0", "formats [ S32_LE ] channels [ 2 ]",
                                 "could not set alsa sample format:Invalid argument"},
                    RefusedSetUp{"MonoOnly", "1,0", "channels [ 1 ]",
                                 "could not set alsa channels:Invalid argument"},
                    RefusedSetUp{"NoDevice", "2,0", "",
                                 "unable to open \"hw:1,0\"  PCM device: No such file or "
                                 "directory(1)"}),
    [](const testing::TestParamInfo<RefusedSetUp>& testCase) { return testCase.param.name; });

// A device that keeps failing is read once a period (here 2 ms), says so
// once per thousand failures, and says when it is back.
TEST(FfmHostileTest, FailingDeviceIsPacedAndItsLinesThinnedOut)
{
    AlsaSim sim;
    writeFile(sim.dir() + "/pcm1,0.in", stereoFrames(0, 3200));
    sim.useCard({{"1,0", "channels [ 2 ] period_frames [ 32 ] "
                         "faults [ { frame 64 type io_error count 1001 } ]"}});
    StdoutCapture output;
    std::vector<int16_t> ring;
    double ms = 0;
    {
        DirectCapture run(sim);
        ASSERT_EQ(run.initResult, 0) << output.take();
        ffm::kel_avs_ffm_alsa_capture_write(&run.cap, &run.ring);
        ffm::kel_avs_ffm_alsa_capture_write(&run.cap, &run.ring);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 1001; ++i)
            ffm::kel_avs_ffm_alsa_capture_write(&run.cap, &run.ring);
        ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                 .count();
        ffm::kel_avs_ffm_alsa_capture_write(&run.cap, &run.ring);
        ring = run.ringSamples();
    }
    const std::vector<std::string> lines = messages(output.take());

    // All but the first two failures wait a period first.
    EXPECT_GE(ms, 999 * 2.0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "error from read: Input/output error"), 2);
    EXPECT_THAT(lines, testing::Contains("read recovered after 1001 failed reads"));
    EXPECT_EQ(ring, monoFrames(0, 96)); // nothing lost, nothing repeated
}

// ---- The pipeline with the card behind the board's FIFO ----------------------

class FfmPipelineOnCardTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        std::thread([] {}).join();
    }
    void SetUp() override
    {
        m_threads = settledThreadCount();
        m_fds = openFdCount();
    }
    void TearDown() override
    {
        EXPECT_TRUE(waitForThreadCount(m_threads, 60000));
        EXPECT_EQ(openFdCount(), m_fds);
    }

    int m_threads = 0;
    int m_fds = 0;
};

std::vector<int16_t> received()
{
    FfmApplication& app = FfmApplication::instance();
    std::lock_guard<std::mutex> lock(app.mutex);
    return asSamples(app.received);
}

// Ring, keyword block and live path as with any other device.
TEST_F(FfmPipelineOnCardTest, KeywordBlockAndLiveStreamAsExpected)
{
    {
        FfmBench bench;
        bench.alsa().useCard({{"1,0", kExpected}});
        ASSERT_TRUE(bench.startPipeline());
        bench.board().say(rampSamples(32000), 10000, 17999);
        ASSERT_TRUE(bench.board().waitUntilIdle(60000));
        ASSERT_TRUE(waitFor([] { return received().size() >= 30000 + 1600; }, 60000));
        KEL_AVS_FFM_TrigSendPCMData(false);

        const std::vector<int16_t> audio = received();
        FfmApplication& app = FfmApplication::instance();
        std::lock_guard<std::mutex> lock(app.mutex);
        EXPECT_EQ(app.wakeWords, 1);
        EXPECT_EQ(app.begin, 8000u);
        EXPECT_EQ(app.end, 8000u + 7999u);
        ASSERT_GE(audio.size(), 30000u);
        EXPECT_EQ(std::vector<int16_t>(audio.begin(), audio.begin() + 30000),
                  rampSamples(30000, 2000));
        EXPECT_EQ(app.callSizes.back(), 640u);
    }
}

// The capture device unplugged under a running pipeline: its line, and both
// threads asked to stop, readiness back to "application ready".
TEST_F(FfmPipelineOnCardTest, UnpluggedCaptureDeviceStopsBothThreads)
{
    {
        FfmBench bench;
        bench.alsa().useCard({{"1,0", kExpected + "faults [ { frame 8000 type unplug } ]"}});
        StdoutCapture output;
        // Not startPipeline(): on a loaded machine the card may be gone
        // before both threads are seen running. The start marks both
        // threads running before it returns.
        _ST_FFM_INFO info = {1, 1, 0};
        KEL_AVS_FFM_Init(info);
        KEL_AVS_FFM_NotifyAudDSPStatus(1);
        ASSERT_TRUE(bench.waitStopped(60000));
        const std::vector<std::string> lines = messages(output.take());
        EXPECT_THAT(lines, testing::Contains("error from read: No such device"));
        EXPECT_THAT(lines, testing::Contains("Attempt to stop HID detection thread."));
        EXPECT_THAT(lines, testing::Contains("Attempt to stop ALSA capture thread."));
        EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
    }
}

} // namespace
