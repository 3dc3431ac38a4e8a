// SPDX-License-Identifier: MIT
// Soft-microphone output through ALSA's file plugin: the periods written must
// be exactly what reaches "hw:0,3", and set-up, stop and the capture thread's
// writes must be safe against each other.
#include "audio/softmic_output.h"
#include "tests/audio/alsa_sim.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <thread>

using namespace zor::test;
using testing::Contains;
using testing::ElementsAreArray;

namespace
{

constexpr unsigned kFrames = 320; // one 20 ms period

class SoftmicOutputTest : public testing::Test
{
protected:
    void SetUp() override { g_alsa_write_handle = {3, 2, 1, 16000, 896}; }
    void TearDown() override
    {
        StdoutCapture quiet;
        youtube_softmic_alsa_write_stop();
    }

    // The far-field log lines of the output's set-up, prefix removed.
    static std::vector<std::string> setUpLines(const std::string& output)
    {
        static const std::regex prefix(
            R"(\[AVS_FFM\]\[Line: [0-9]+\]\[youtube_softmic_alsa_write_init\(\)\](.*))");
        std::vector<std::string> lines;
        for (const std::string& line : splitLines(output)) {
            if (line.empty())
                continue; // the messages that end in two line feeds
            std::smatch match;
            if (std::regex_match(line, match, prefix))
                lines.push_back(match[1]);
            else
                ADD_FAILURE() << "unexpected line: " << line;
        }
        return lines;
    }

    AlsaSim m_sim;
};

TEST_F(SoftmicOutputTest, WrittenPeriodsReachTheOutputExactly)
{
    StdoutCapture capture;
    ASSERT_EQ(youtube_softmic_alsa_write_init(), 0);
    const std::string output = capture.take();
    youtube_softmic_alsa_write_start();

    Bytes expected;
    for (unsigned period = 0; period < 10; ++period) {
        const Bytes samples = ramp(kFrames, static_cast<uint16_t>(period * 1000));
        EXPECT_EQ(zor::audio::softmicWritePeriod(samples.data(), kFrames),
                  static_cast<int>(kFrames));
        expected.insert(expected.end(), samples.begin(), samples.end());
    }
    youtube_softmic_alsa_write_stop();

    EXPECT_FALSE(zor::audio::softmicOutputOpen());
    EXPECT_FALSE(zor::audio::bYTSoftMicstart.load());
    EXPECT_EQ(readFile(m_sim.playbackOutput()), expected);

    EXPECT_EQ(g_alsa_write_handle.u32Access, 3u);
    EXPECT_EQ(g_alsa_write_handle.u32Format, 2u);
    EXPECT_EQ(g_alsa_write_handle.u32Channels, 1u);
    EXPECT_EQ(g_alsa_write_handle.u32Rate, 16000u);
    EXPECT_EQ(g_alsa_write_handle.u32PeriodSize, 320u);
    EXPECT_THAT(setUpLines(output),
                ElementsAreArray({
                    "youtube_softmic_alsa_write_init: set period size 320 frames",
                    "***********youtube_softmic_alsa_write_init************",
                    "3 access_mode=3",
                    "2 sample_format=2",
                    "1 channels=1",
                    "16000 sampling_rate=16000, dir=0",
                    "320 period=320, dir=0",
                    "320 buffer=2560, dir=0",
                    "************************",
                }));
}

TEST_F(SoftmicOutputTest, NothingIsWrittenUnlessStartedAndOpen)
{
    const Bytes samples = ramp(kFrames);

    // Started but closed: only the flag changes, and stop clears it.
    StdoutCapture closed;
    youtube_softmic_alsa_write_start();
    EXPECT_TRUE(zor::audio::bYTSoftMicstart.load());
    EXPECT_EQ(zor::audio::softmicWritePeriod(samples.data(), kFrames), 0);
    youtube_softmic_alsa_write_stop();
    EXPECT_FALSE(zor::audio::bYTSoftMicstart.load());
    EXPECT_EQ(closed.take(), "");
    EXPECT_THAT(listDir(m_sim.dir()), testing::ElementsAre("dumps")); // nothing opened

    // Open but not started: nothing reaches the device.
    StdoutCapture opened;
    ASSERT_EQ(youtube_softmic_alsa_write_init(), 0);
    EXPECT_EQ(zor::audio::softmicWritePeriod(samples.data(), kFrames), 0);
    youtube_softmic_alsa_write_stop();
    opened.take();
    EXPECT_TRUE(readFile(m_sim.playbackOutput()).empty());
}

TEST_F(SoftmicOutputTest, SecondSetUpReopensWithoutLeaking)
{
    StdoutCapture quiet;
    const int before = openFdCount();
    ASSERT_EQ(youtube_softmic_alsa_write_init(), 0);
    const int withOutput = openFdCount();
    youtube_softmic_alsa_write_start();
    const Bytes first = ramp(kFrames, 1);
    EXPECT_EQ(zor::audio::softmicWritePeriod(first.data(), kFrames), static_cast<int>(kFrames));

    ASSERT_EQ(youtube_softmic_alsa_write_init(), 0);
    EXPECT_EQ(openFdCount(), withOutput);
    EXPECT_TRUE(zor::audio::softmicOutputOpen());
    const Bytes second = ramp(kFrames, 5000);
    EXPECT_EQ(zor::audio::softmicWritePeriod(second.data(), kFrames), static_cast<int>(kFrames));

    youtube_softmic_alsa_write_stop();
    EXPECT_EQ(openFdCount(), before);
    quiet.take();
    // The reopened device starts a new output.
    EXPECT_EQ(readFile(m_sim.playbackOutput()), second);
}

struct SetUpFailure {
    const char* name;
    const char* config; // the ALSA configuration in force
    const char* expectedLine;
};

const SetUpFailure kSetUpFailures[] = {
    {"NoSuchDevice", "pcm.null { type null }\n",
     "unable to open pcm device: No such file or directory"},
    {"DeviceRefusesTheFormat",
     "pcm.hw {\n"
     "  @args [ CARD DEV SUBDEV ]\n"
     "  @args.CARD { type string default \"0\" }\n"
     "  @args.DEV { type integer default 0 }\n"
     "  @args.SUBDEV { type integer default -1 }\n"
     "  type plug\n"
     "  slave { pcm { type null } format MPEG }\n"
     "}\n",
     "could not initialize alsa parameter structure:Invalid argument"},
};

class SoftmicSetUpFailureTest : public SoftmicOutputTest,
                                public testing::WithParamInterface<SetUpFailure>
{
};

TEST_P(SoftmicSetUpFailureTest, FailsClosedAndALaterSetUpWorks)
{
    m_sim.useConfig(GetParam().config);
    StdoutCapture failed;
    EXPECT_EQ(youtube_softmic_alsa_write_init(), -1);
    youtube_softmic_alsa_write_start();
    const std::vector<std::string> lines = setUpLines(failed.take());
    EXPECT_THAT(lines, Contains(GetParam().expectedLine));
    EXPECT_FALSE(zor::audio::softmicOutputOpen());
    EXPECT_TRUE(zor::audio::bYTSoftMicstart.load());
    const Bytes samples = ramp(kFrames);
    EXPECT_EQ(zor::audio::softmicWritePeriod(samples.data(), kFrames), 0);

    m_sim.useSimConfig();
    StdoutCapture again;
    EXPECT_EQ(youtube_softmic_alsa_write_init(), 0);
    EXPECT_EQ(zor::audio::softmicWritePeriod(samples.data(), kFrames), static_cast<int>(kFrames));
    youtube_softmic_alsa_write_stop();
    again.take();
    EXPECT_EQ(readFile(m_sim.playbackOutput()), samples);
}

INSTANTIATE_TEST_SUITE_P(Failures, SoftmicSetUpFailureTest, testing::ValuesIn(kSetUpFailures),
                         [](const testing::TestParamInfo<SetUpFailure>& testCase) {
                             return testCase.param.name;
                         });

// The far-field capture thread writes every period while the server thread
// switches the soft microphone on and off. Every third output waits until the
// writer has got a period into it (however loaded the machine), so writes do
// meet open outputs; the others are stopped at once, mid-write or not.
TEST_F(SoftmicOutputTest, WritesRaceSafelyWithSetUpAndStop)
{
    StdoutCapture quiet;
    std::atomic<bool> done{false};
    std::atomic<int> written{0};
    std::atomic<int> unexpected{0};
    std::thread writer([&] {
        const Bytes samples = ramp(kFrames);
        while (!done.load()) {
            const int result = zor::audio::softmicWritePeriod(samples.data(), kFrames);
            if (result == static_cast<int>(kFrames))
                written.fetch_add(1);
            else if (result != 0)
                unexpected.fetch_add(1);
        }
    });

    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(youtube_softmic_alsa_write_init(), 0);
        youtube_softmic_alsa_write_start();
        if (i % 3 == 0) {
            const int before = written.load();
            EXPECT_TRUE(waitFor([&] { return written.load() > before; }, 60000));
            EXPECT_EQ(youtube_softmic_alsa_write_init(), 0); // over an open output
        }
        youtube_softmic_alsa_write_stop();
    }
    done = true;
    writer.join();
    quiet.take();

    EXPECT_GE(written.load(), 34);
    EXPECT_EQ(unexpected.load(), 0);
    EXPECT_FALSE(zor::audio::softmicOutputOpen());
    // Whatever reached the last output is whole periods.
    EXPECT_EQ(readFile(m_sim.playbackOutput()).size() % (kFrames * 2), 0u);
}

} // namespace
