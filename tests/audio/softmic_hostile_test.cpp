// SPDX-License-Identifier: MIT
// Soft-microphone output against the simulated sound card: a card that grants
// another rate or period size than asked for (reported with direction 0, as
// most drivers do), refuses the format, underruns, suspends, fails and goes
// away. What reaches the card's output file is checked period by period.
#include "audio/softmic_output.h"
#include "tests/audio/alsa_sim.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <regex>

using namespace zor::test;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr unsigned kFrames = 320; // one 20 ms period of the capture thread

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

Bytes period(unsigned n)
{
    return ramp(kFrames, static_cast<uint16_t>(0x100 + n * kFrames));
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes periods(std::initializer_list<unsigned> numbers)
{
    Bytes all;
    for (unsigned n : numbers) {
        const Bytes p = period(n);
        all.insert(all.end(), p.begin(), p.end());
    }
    return all;
}

class SoftmicHostileTest : public testing::Test
{
protected:
    void SetUp() override
    {
        g_alsa_write_handle = {3, 2, 1, 16000, 896};
        m_fds = openFdCount();
    }
    void TearDown() override
    {
        {
            StdoutCapture quiet;
            youtube_softmic_alsa_write_stop();
        }
        g_alsa_write_handle = {3, 2, 1, 16000, 896};
        EXPECT_EQ(openFdCount(), m_fds);
    }

    // Set-up and start on a card with `keys`; the set-up's lines.
    std::vector<std::string> setUp(const std::string& keys, int expected = 0,
                                   const std::string& device = "0,3")
    {
        m_sim.useCard({{device, keys + " trace \"" + m_sim.tracePath(device) + "\""}});
        StdoutCapture output;
        EXPECT_EQ(youtube_softmic_alsa_write_init(), expected);
        youtube_softmic_alsa_write_start();
        return messages(output.take());
    }

    // Writes periods first..first+count-1; their results and lines.
    std::vector<int> write(unsigned first, unsigned count, std::vector<std::string>* lines)
    {
        std::vector<int> results;
        StdoutCapture output;
        for (unsigned n = first; n < first + count; ++n) {
            const Bytes samples = period(n);
            results.push_back(zor::audio::softmicWritePeriod(samples.data(), kFrames));
        }
        *lines = messages(output.take());
        return results;
    }

    AlsaSim m_sim;
    int m_fds = 0;
};

// ---- What the device grants -----------------------------------------------------

struct Grant {
    const char* name;
    std::string keys;
    unsigned rate;        // granted
    unsigned long period; // granted
};

void PrintTo(const Grant& grant, std::ostream* out)
{
    *out << grant.name;
}

class SoftmicGrantTest : public SoftmicHostileTest, public testing::WithParamInterface<Grant>
{
};

TEST_P(SoftmicGrantTest, KeepsAndPrintsWhatTheDeviceGranted)
{
    const Grant& g = GetParam();
    const std::vector<std::string> lines = setUp(g.keys + " channels [ 1 ]");

    EXPECT_EQ(g_alsa_write_handle.u32Rate, g.rate);
    EXPECT_EQ(g_alsa_write_handle.u32PeriodSize, g.period);
    const std::string rateLine = "youtube_softmic_alsa_write_init: hardware could not support "
                                 "sampling rate 16000 Hz, set " +
                                 std::to_string(g.rate) + " Hz";
    const std::string periodLine = "youtube_softmic_alsa_write_init: hardware could not support "
                                   "period size 320, set " +
                                   std::to_string(g.period);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), rateLine), g.rate != 16000 ? 1 : 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), periodLine), g.period != 320 ? 1 : 0);
    // The settings block shows what the device runs with; the buffer is
    // eight of the granted periods.
    const std::string rate = std::to_string(g.rate);
    const std::string size = std::to_string(g.period);
    EXPECT_THAT(lines, Contains(rate + " sampling_rate=" + rate + ", dir=0"));
    EXPECT_THAT(lines, Contains(size + " period=" + size + ", dir=0"));
    EXPECT_THAT(lines, Contains(size + " buffer=" + std::to_string(8 * g.period) + ", dir=0"));

    std::vector<std::string> writeLines;
    EXPECT_THAT(write(0, 4, &writeLines), Each(static_cast<int>(kFrames)));
    youtube_softmic_alsa_write_stop();
    EXPECT_EQ(readFile(m_sim.playbackOutput()), periods({0, 1, 2, 3}));
}

INSTANTIATE_TEST_SUITE_P(
    Card, SoftmicGrantTest,
    testing::Values(Grant{"AsAsked", "rates [ 16000 ] period_frames [ 320 ]", 16000, 320},
                    Grant{"OnlyAnotherRate", "rates [ 48000 ]", 48000, 320},
                    Grant{"OnlyRate22050", "rates [ 22050 ]", 22050, 320},
                    Grant{"PeriodFixedAt256", "rates [ 16000 ] period_frames [ 256 ]", 16000, 256},
                    Grant{"RateAndPeriod", "rates [ 48000 ] period_frames { min 960 max 4800 }",
                          48000, 960}),
    [](const testing::TestParamInfo<Grant>& testCase) { return testCase.param.name; });

struct Refusal {
    const char* name;
    std::string keys;
    const char* line;
    std::string device = "0,3"; // the card's one device
};

void PrintTo(const Refusal& refusal, std::ostream* out)
{
    *out << refusal.name;
}

class SoftmicRefusalTest : public SoftmicHostileTest, public testing::WithParamInterface<Refusal>
{
};

TEST_P(SoftmicRefusalTest, FailingStepSaysSoAndNothingIsWritten)
{
    const std::vector<std::string> lines = setUp(GetParam().keys, -1, GetParam().device);
    EXPECT_THAT(lines, Contains(GetParam().line));
    EXPECT_FALSE(zor::audio::softmicOutputOpen());
    std::vector<std::string> writeLines;
    EXPECT_THAT(write(0, 2, &writeLines), Each(0));
}

INSTANTIATE_TEST_SUITE_P(
    Card, SoftmicRefusalTest,
    testing::Values(
        Refusal{"NoS16", "formats [ S32_LE ]", "could not set alsa sample format:Invalid argument"},
        Refusal{"StereoOnly", "channels [ 2 ]", "could not set alsa channels:Invalid argument"},
        Refusal{"NoDevice", "", "unable to open pcm device: No such file or directory", "0,5"}),
    [](const testing::TestParamInfo<Refusal>& testCase) { return testCase.param.name; });

// ---- Failing writes ---------------------------------------------------------------

struct WriteFault {
    const char* name;
    std::string fault;        // the card's fault at period 2
    std::vector<int> results; // of periods 0 to 5
    Bytes output;             // what the card wrote
    std::vector<std::string> lines;
    std::vector<std::string> traced = {}; // what the card saw besides transfers
};

void PrintTo(const WriteFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class SoftmicWriteFaultTest : public SoftmicHostileTest,
                              public testing::WithParamInterface<WriteFault>
{
};

TEST_P(SoftmicWriteFaultTest, PeriodDroppedAndOutputGoesOnWhereItCan)
{
    const WriteFault& f = GetParam();
    setUp("rates [ 16000 ] channels [ 1 ] period_frames [ 320 ] faults [ { frame 640 " + f.fault +
          " } ]");
    std::vector<std::string> lines;
    EXPECT_EQ(write(0, 6, &lines), f.results);
    youtube_softmic_alsa_write_stop();
    EXPECT_EQ(readFile(m_sim.playbackOutput()), f.output);
    EXPECT_EQ(lines, f.lines);
    const std::vector<std::string> trace = m_sim.traceLines("0,3");
    for (const std::string& line : f.traced)
        EXPECT_THAT(trace, Contains(line));
}

const int k = static_cast<int>(kFrames);

INSTANTIATE_TEST_SUITE_P(
    Card, SoftmicWriteFaultTest,
    testing::Values(
        // An underrun is prepared again without a line; its period is lost.
        WriteFault{"Underrun",
                   "type underrun",
                   {k, k, -EPIPE, k, k, k},
                   periods({0, 1, 3, 4, 5}),
                   {},
                   {"prepare 640"}},
        // Woken again (the card can resume) for the next period.
        WriteFault{"Suspend",
                   "type suspend",
                   {k, k, -ESTRPIPE, k, k, k},
                   periods({0, 1, 3, 4, 5}),
                   {"short read, read -86 frames"},
                   {"resume 640"}},
        WriteFault{"IoError",
                   "type io_error",
                   {k, k, -EIO, k, k, k},
                   periods({0, 1, 3, 4, 5}),
                   {"short read, read -5 frames"}},
        // Gone for good: one line, then every period fails quietly.
        WriteFault{"Unplug",
                   "type unplug",
                   {k, k, -ENODEV, -ENODEV, -ENODEV, -ENODEV},
                   periods({0, 1}),
                   {"short read, read -19 frames"}},
        WriteFault{"ShortWrite",
                   "type short frames 100",
                   {k, k, 100, k, k, k},
                   concat({periods({0, 1}), ramp(100, 0x100 + 2 * kFrames), periods({3, 4, 5})}),
                   {"short read, read 100 frames"}}),
    [](const testing::TestParamInfo<WriteFault>& testCase) { return testCase.param.name; });

} // namespace
