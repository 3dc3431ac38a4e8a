// SPDX-License-Identifier: MIT
// Remote-control capture through ALSA's own file plugin: what the device
// delivers must reach the PCM callback and the dump file byte for byte, and
// the capture state machine must survive every start/stop order and failure.
#include "audio/rc_capture.h"
#include "tests/audio/alsa_sim.h"
#include "tests/audio/rc_recorder.h"
#include "tests/support/process_counts.h"
#include "zor/zor_audio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <mutex>
#include <regex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace zor::test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace
{

constexpr unsigned kPeriodBytes = 64; // 32 frames of S16 mono
// Waits that only time out when something hangs: generous, since a loaded
// machine under a sanitizer can take seconds for a thread to run.
constexpr int kWaitMs = 60000;

// Feeds a FIFO the way the television does: in period-sized writes, once
// the capture has opened its end; keeps it open until told to close.
class FifoWriter
{
public:
    FifoWriter(const std::string& path, Bytes data)
        : m_thread([this, path, data = std::move(data)] { run(path, data); })
    {
    }
    ~FifoWriter() { finish(); }
    // Lets the writer close its end and end; true when it wrote everything.
    bool finish()
    {
        m_close = true;
        if (m_thread.joinable())
            m_thread.join();
        return m_ok;
    }

private:
    void run(const std::string& path, const Bytes& data)
    {
        int fd = -1;
        // Non-blocking open fails with ENXIO until a reader is there.
        if (!waitFor([&] { return (fd = open(path.c_str(), O_WRONLY | O_NONBLOCK)) >= 0; },
                     kWaitMs))
            return;
        fcntl(fd, F_SETFL, 0);
        for (size_t offset = 0; offset < data.size(); offset += 640) {
            const size_t chunk = std::min<size_t>(640, data.size() - offset);
            if (write(fd, data.data() + offset, chunk) != static_cast<ssize_t>(chunk)) {
                close(fd);
                return;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
        m_ok = true;
        waitFor([this] { return m_close.load(); }, 60000);
        close(fd);
    }

    std::atomic<bool> m_close{false};
    std::atomic<bool> m_ok{false};
    std::thread m_thread;
};

class RcCaptureTest : public testing::Test
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
        m_baseThreads = settledThreadCount();
    }

    void TearDown() override
    {
        stopAlsaCaptureThread();
        EXPECT_TRUE(zor::audio::waitForCaptureEnd(kWaitMs));
        EXPECT_TRUE(waitForThreadCount(m_baseThreads, kWaitMs));
        alsaCaptureRegisterCallback(nullptr);
    }

    int start() { return zor::audio::startAlsaCaptureThreadInto(m_sim.dumpDir().c_str()); }

    // Waits for the state to return to -1 and the thread to be gone (its
    // last line printed); `otherThreads` are the test's own.
    void waitForEnd(int otherThreads = 0)
    {
        ASSERT_TRUE(zor::audio::waitForCaptureEnd(kWaitMs));
        ASSERT_TRUE(waitForThreadCount(m_baseThreads + otherThreads, kWaitMs));
    }

    std::vector<std::string> dumps() { return listDir(m_sim.dumpDir()); }

    // Runs a capture whose callback stops it after `bytes` and returns the
    // path of its dump file.
    std::string captureAndStopAfter(size_t bytes)
    {
        recorder.reset(bytes);
        StdoutCapture output;
        EXPECT_EQ(start(), 0);
        waitForEnd();
        const std::vector<std::string> lines = output.takeLines();
        std::smatch match;
        const std::regex closeLine(R"(close "hw:0,6" PCM device success\. \[file:(.*)\])");
        for (const std::string& line : lines)
            if (std::regex_match(line, match, closeLine))
                return match[1];
        ADD_FAILURE() << "no close line";
        return {};
    }

    AlsaSim m_sim;
    int m_baseThreads = 0;
};

// ---- What reaches the callback and the dump --------------------------------

enum class Input { RegularFile, PacedFifo };

class RcCaptureDataTest : public RcCaptureTest, public testing::WithParamInterface<Input>
{
};

TEST_P(RcCaptureDataTest, CallbackAndDumpReceiveExactlyTheInputInPeriods)
{
    const Bytes input = ramp(200 * 32, 0x1234); // 200 periods
    std::unique_ptr<FifoWriter> writer;
    if (GetParam() == Input::RegularFile) {
        writeFile(m_sim.captureInput(), input);
    } else {
        ASSERT_EQ(mkfifo(m_sim.captureInput().c_str(), 0600), 0);
        writer = std::make_unique<FifoWriter>(m_sim.captureInput(), input);
    }

    recorder.reset(input.size());
    StdoutCapture output;
    ASSERT_EQ(start(), 0);
    waitForEnd(writer ? 1 : 0);
    const std::vector<std::string> lines = output.takeLines();
    if (writer) {
        EXPECT_TRUE(writer->finish());
        writer.reset();
    }

    EXPECT_EQ(recorder.bytes, input);
    EXPECT_THAT(recorder.sizes, Each(kPeriodBytes));

    ASSERT_EQ(dumps().size(), 1u);
    const std::string name = dumps()[0];
    EXPECT_THAT(name, MatchesRegex("rec[0-9]{14}\\.pcm"));
    const std::string path = m_sim.dumpDir() + name;
    EXPECT_EQ(readFile(path), input);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);

    EXPECT_THAT(lines,
                ElementsAre(MatchesRegex("Start ALSA capture thread! "
                                         "g_fptrSendAudioPCMDataCallback 0x[0-9a-f]+"),
                            "open \"hw:0,6\" PCM device success.", "alsaCaptureInit success.",
                            "Attempt to stop ALSA capture thread.", "record Done.",
                            "close \"hw:0,6\" PCM device success. [file:" + path + "]",
                            "Exit ALSA capture thread."));
}

INSTANTIATE_TEST_SUITE_P(Inputs, RcCaptureDataTest,
                         testing::Values(Input::RegularFile, Input::PacedFifo),
                         [](const testing::TestParamInfo<Input>& testCase) {
                             return testCase.param == Input::RegularFile ? "RegularFile"
                                                                         : "PacedFifo";
                         });

TEST_F(RcCaptureTest, WithoutCallbackTheDumpStillGetsEveryPeriod)
{
    const Bytes input = ramp(50 * 32);
    writeFile(m_sim.captureInput(), input);
    alsaCaptureRegisterCallback(nullptr);

    StdoutCapture output;
    ASSERT_EQ(start(), 0);
    ASSERT_TRUE(waitFor(
        [&] {
            const auto names = dumps();
            struct stat info;
            return names.size() == 1 && stat((m_sim.dumpDir() + names[0]).c_str(), &info) == 0 &&
                   static_cast<size_t>(info.st_size) >= input.size();
        },
        kWaitMs));
    EXPECT_EQ(stopAlsaCaptureThread(), 0);
    waitForEnd();
    const std::vector<std::string> lines = output.takeLines();

    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "Start ALSA capture thread! g_fptrSendAudioPCMDataCallback (nil)");
    const Bytes dump = readFile(m_sim.dumpDir() + dumps()[0]);
    EXPECT_EQ(dump.size() % kPeriodBytes, 0u);
    ASSERT_GE(dump.size(), input.size());
    EXPECT_EQ(Bytes(dump.begin(), dump.begin() + input.size()), input);
}

// ---- The state machine -----------------------------------------------------

TEST_F(RcCaptureTest, StopWithoutCaptureDoesNothing)
{
    StdoutCapture output;
    EXPECT_EQ(stopAlsaCaptureThread(), 0);
    EXPECT_EQ(output.take(), "");
    EXPECT_EQ(zor::audio::captureState(), zor::audio::ThreadState::None);
    EXPECT_TRUE(dumps().empty());
}

TEST_F(RcCaptureTest, StartWhileRunningStopsTheCaptureAndStartsNothing)
{
    const Bytes input = ramp(1000 * 32);
    writeFile(m_sim.captureInput(), input);

    ASSERT_EQ(start(), 0);
    ASSERT_TRUE(waitFor([] { return recorder.size() >= kPeriodBytes; }, kWaitMs));
    // Initialising the lock must not break it under a running capture.
    EXPECT_EQ(initCaptureThreadMutex(), 0);

    StdoutCapture output;
    EXPECT_EQ(start(), 0);
    const zor::audio::ThreadState stateAfterSecondStart = zor::audio::captureState();
    waitForEnd();
    const std::vector<std::string> lines = output.takeLines();

    EXPECT_NE(stateAfterSecondStart, zor::audio::ThreadState::Running);
    EXPECT_THAT(lines, Contains("Already a capture thread running. wait it stopping "));
    EXPECT_THAT(lines, Contains("Exit ALSA capture thread."));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "alsaCaptureInit success."), 0);
    EXPECT_EQ(zor::audio::captureState(), zor::audio::ThreadState::None);
    EXPECT_EQ(dumps().size(), 1u);

    // Once the thread has ended, a start opens the device again: the input
    // is read from its beginning into a fresh dump.
    const std::string path = captureAndStopAfter(10 * kPeriodBytes);
    EXPECT_EQ(recorder.bytes, Bytes(input.begin(), input.begin() + 10 * kPeriodBytes));
    EXPECT_EQ(readFile(path), recorder.bytes);
}

TEST_F(RcCaptureTest, StopRightAfterStartIsHonoured)
{
    writeFile(m_sim.captureInput(), ramp(1000 * 32));
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(start(), 0);
        EXPECT_EQ(stopAlsaCaptureThread(), 0);
        ASSERT_TRUE(zor::audio::waitForCaptureEnd(kWaitMs));
    }
    waitForEnd();
}

// ---- Failures end the thread and leave the capture startable ----------------

struct FailureCase {
    const char* name;
    void (*prepare)(AlsaSim& sim, std::string& dumpDir);
    const char* expectedLine;
};

const FailureCase kFailureCases[] = {
    {"DumpDirectoryMissing",
     [](AlsaSim& sim, std::string& dumpDir) {
         writeFile(sim.captureInput(), ramp(64));
         dumpDir = sim.dir() + "/no-such-dir/";
     },
     "[PCM Play]==> %%%% file open fail!!!---[No such file or directory]"},
    {"DeviceMissing", [](AlsaSim&, std::string&) {},
     "unable to open pcm device: No such file or directory"},
    {"DeviceRefusesTheFormat",
     [](AlsaSim& sim, std::string&) {
         writeFile(sim.captureInput(), ramp(64));
         // A device that only takes MPEG frames: nothing converts S16 to it.
         sim.useConfig("pcm.hw {\n"
                       "  @args [ CARD DEV SUBDEV ]\n"
                       "  @args.CARD { type string default \"0\" }\n"
                       "  @args.DEV { type integer default 0 }\n"
                       "  @args.SUBDEV { type integer default -1 }\n"
                       "  type plug\n"
                       "  slave { pcm { type file slave.pcm { type null } file \"/dev/null\"\n"
                       "                infile \"" +
                       sim.captureInput() +
                       "\" format raw }\n"
                       "          format MPEG }\n"
                       "}\n");
     },
     "unable to set hw parameters: Invalid argument"},
};

class RcCaptureFailureTest : public RcCaptureTest, public testing::WithParamInterface<FailureCase>
{
};

TEST_P(RcCaptureFailureTest, ThreadEndsAndALaterStartWorks)
{
    const FailureCase& failure = GetParam();
    std::string dumpDir = m_sim.dumpDir();
    failure.prepare(m_sim, dumpDir);

    StdoutCapture output;
    ASSERT_EQ(zor::audio::startAlsaCaptureThreadInto(dumpDir.c_str()), 0);
    waitForEnd();
    const std::vector<std::string> lines = output.takeLines();

    EXPECT_THAT(lines, Contains(failure.expectedLine));
    EXPECT_THAT(lines, Contains("Error: alsa capture initialize failed!"));
    EXPECT_THAT(lines, Contains("record Done."));
    EXPECT_THAT(lines, Contains("Exit ALSA capture thread."));
    EXPECT_THAT(lines, testing::Not(Contains("alsaCaptureInit success.")));
    EXPECT_TRUE(recorder.sizes.empty());
    EXPECT_EQ(zor::audio::captureState(), zor::audio::ThreadState::None);

    m_sim.useSimConfig();
    const Bytes input = ramp(10 * 32, 7);
    writeFile(m_sim.captureInput(), input);
    const std::string path = captureAndStopAfter(input.size());
    EXPECT_EQ(recorder.bytes, input);
    EXPECT_EQ(readFile(path), input);
}

INSTANTIATE_TEST_SUITE_P(Failures, RcCaptureFailureTest, testing::ValuesIn(kFailureCases),
                         [](const testing::TestParamInfo<FailureCase>& testCase) {
                             return testCase.param.name;
                         });

// ---- Resources -------------------------------------------------------------

TEST_F(RcCaptureTest, TwoHundredStartStopCyclesLeakNoDescriptorOrThread)
{
    writeFile(m_sim.captureInput(), ramp(1000 * 32));
    StdoutCapture output;
    // Warm up: ALSA loads and caches its configuration on first use.
    ASSERT_EQ(start(), 0);
    stopAlsaCaptureThread();
    waitForEnd();
    const int fds = openFdCount();
    const int threads = settledThreadCount();
    recorder.reset(0);

    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(start(), 0);
        if (i % 2 == 0) {
            ASSERT_TRUE(waitFor([] { return recorder.size() > 0; }, kWaitMs));
        }
        EXPECT_EQ(stopAlsaCaptureThread(), 0);
        ASSERT_TRUE(zor::audio::waitForCaptureEnd(kWaitMs)) << "cycle " << i;
        recorder.reset(0);
    }
    EXPECT_TRUE(waitForThreadCount(threads, kWaitMs));
    EXPECT_EQ(settledThreadCount(), threads);
    EXPECT_EQ(openFdCount(), fds);
}

} // namespace
