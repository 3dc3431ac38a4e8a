// SPDX-License-Identifier: MIT
#include "tests/audio/ffm_harness.h"

#include "audio/ffm_pipeline.h"
#include "audio/xmos_device.h"
#include "zor/zor_audio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace zor::test
{

namespace
{

constexpr uint64_t kPeriodFrames = 320;
constexpr uint64_t kPeriodBytes = kPeriodFrames * 4;
// Whole periods of at most PIPE_BUF bytes: a FIFO write of that size is
// atomic, so the capture's reads always find whole periods.
constexpr uint64_t kPeriodsPerWrite = PIPE_BUF / kPeriodBytes;
// Device index of the first frame the fast card serves: a board counts from
// its own power-up, not from the capture's start.
constexpr uint64_t kFastCardFirstIndex = 5000000000ull;

int onPcm(void* data, unsigned int bytes)
{
    FfmApplication& app = FfmApplication::instance();
    {
        std::lock_guard<std::mutex> lock(app.mutex);
        const auto* p = static_cast<const uint8_t*>(data);
        app.received.insert(app.received.end(), p, p + bytes);
        app.callSizes.push_back(bytes);
    }
    app.changed.notify_all();
    return 0;
}

int onWakeWord(unsigned int begin, unsigned int end, char* keyword, unsigned int length,
               char* metadata)
{
    FfmApplication& app = FfmApplication::instance();
    bool stream = false;
    {
        std::lock_guard<std::mutex> lock(app.mutex);
        app.wakeWordAt = std::chrono::steady_clock::now();
        ++app.wakeWords;
        app.begin = begin;
        app.end = end;
        app.keyword = keyword;
        app.metadata.assign(metadata, metadata + length);
        stream = app.streamOnWakeWord;
    }
    app.changed.notify_all();
    if (stream)
        KEL_AVS_FFM_TrigSendPCMData(true);
    return 0;
}

int onNotify()
{
    FfmApplication& app = FfmApplication::instance();
    {
        std::lock_guard<std::mutex> lock(app.mutex);
        ++app.notifications;
    }
    app.changed.notify_all();
    return 0;
}

} // namespace

FfmApplication& FfmApplication::instance()
{
    static FfmApplication app;
    return app;
}

void FfmApplication::clear()
{
    std::lock_guard<std::mutex> lock(mutex);
    received.clear();
    callSizes.clear();
    wakeWords = 0;
    begin = end = 0;
    keyword.clear();
    metadata.clear();
    notifications = 0;
    streamOnWakeWord = true;
}

bool FfmApplication::waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), condition);
}

FastCard::FastCard(std::string fifoPath, sim::XmosSimulator& board, uint64_t firstIndex)
    : m_path(std::move(fifoPath)), m_board(board), m_next(firstIndex), m_runStart(firstIndex)
{
    // A capture that closes the device must not end the test.
    signal(SIGPIPE, SIG_IGN);
    if (mkfifo(m_path.c_str(), 0644) != 0 && errno != EEXIST)
        ADD_FAILURE() << "mkfifo " << m_path << ": " << strerror(errno);
    m_chunk.resize(2 * kPeriodFrames * kPeriodsPerWrite);
    m_board.setCurrentIndex(m_next);
}

FastCard::~FastCard()
{
    unplug();
}

bool FastCard::plugIn(int timeoutMs)
{
    unplug();
    // Opening for writing fails until the capture has the FIFO open.
    const bool opened = waitFor(
        [this] {
            m_fd = open(m_path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            return m_fd >= 0;
        },
        timeoutMs);
    m_runStart = m_next;
    return opened;
}

uint64_t FastCard::unread() const
{
    int bytes = 0;
    if (m_fd < 0 || ioctl(m_fd, FIONREAD, &bytes) != 0)
        return 0;
    return static_cast<uint64_t>(bytes) / 4;
}

void FastCard::unplug()
{
    if (m_fd < 0)
        return;
    m_next -= unread();
    close(m_fd);
    m_fd = -1;
}

bool FastCard::serve(uint64_t frames, int timeoutMs)
{
    uint64_t periods = (frames + kPeriodFrames - 1) / kPeriodFrames;
    while (periods > 0 && m_fd >= 0) {
        const uint64_t count = std::min(periods, kPeriodsPerWrite);
        for (uint64_t k = 0; k < count * kPeriodFrames; ++k) {
            const int16_t value = sampleAt(m_next + k);
            m_chunk[2 * k] = value;
            m_chunk[2 * k + 1] = static_cast<int16_t>(~value); // the other microphone
        }
        const size_t bytes = count * kPeriodBytes;
        const ssize_t n = write(m_fd, m_chunk.data(), bytes);
        if (n == static_cast<ssize_t>(bytes)) {
            m_next += count * kPeriodFrames;
            periods -= count;
            continue;
        }
        if (n >= 0 || errno != EAGAIN)
            return false; // the capture closed the device
        pollfd fd = {m_fd, POLLOUT, 0};
        if (poll(&fd, 1, timeoutMs) <= 0)
            return false;
    }
    return periods == 0;
}

bool FastCard::waitTaken(int timeoutMs)
{
    using namespace audio::ffm;
    const uint64_t served = m_next - m_runStart;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const uint64_t taken = ringSamplesWritten();
        if (taken == served && unread() == 0)
            break;
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    m_board.setCurrentIndex(m_next);
    return true;
}

StreamCheck checkStream(const std::vector<int16_t>& samples, uint64_t first, uint64_t count)
{
    StreamCheck check;
    std::vector<uint8_t> seen(count, 0);
    // Each sample's device index, told by its ramp value relative to where the
    // one before it came from.
    int64_t expected = static_cast<int64_t>(first);
    for (size_t k = 0; k < samples.size(); ++k) {
        const int16_t step =
            static_cast<int16_t>(static_cast<uint16_t>(samples[k]) -
                                 static_cast<uint16_t>(FastCard::sampleAt(expected)));
        const int64_t at = expected + step;
        if (k == 0)
            check.drift = at - static_cast<int64_t>(first);
        const int64_t offset = at - static_cast<int64_t>(first);
        if (offset < 0 || offset >= static_cast<int64_t>(count) || seen[offset]++ != 0)
            ++check.repeated;
        expected = at + 1;
    }
    check.lost = static_cast<uint64_t>(std::count(seen.begin(), seen.end(), 0));
    return check;
}

FfmBench::FfmBench(BoardFeed feed)
{
    using namespace audio::ffm;
    const std::string socket = m_alsa.dir() + "/xmos.sock";
    audio::setXmosDeviceOpener([socket](const audio::XmosOpenParams& params) {
        return audio::openSimulatedXmosDevice(socket.c_str(), params);
    });
    Params settings;
    settings.dumpDir = m_alsa.dumpDir();
    settings.captureOpenAttempts = 3;
    settings.captureOpenDelayMs = 20;
    settings.hidOpenAttempts = 50;
    settings.hidOpenDelayMs = 20;
    settings.metadataScript = "";
    settings.metadataFile = metadataFile();
    setParams(settings);

    std::string error;
    const std::string fifo = m_alsa.dir() + "/pcm1,0.in";
    if (feed == BoardFeed::Fast) {
        if (!m_board.startWithoutAudio(socket, &error))
            ADD_FAILURE() << error;
        m_card = std::make_unique<FastCard>(fifo, m_board, kFastCardFirstIndex);
        // The ALSA file configuration copies what was captured to the .out
        // file: an hour of fast audio need not land on the disk.
        if (symlink("/dev/null", (m_alsa.dir() + "/pcm1,0.out").c_str()) != 0)
            ADD_FAILURE() << "symlink: " << strerror(errno);
    } else if (!m_board.start(socket, fifo, &error)) {
        ADD_FAILURE() << error;
    }
    FfmApplication::instance().clear();
    KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(onPcm);
    KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(onWakeWord);
    KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(onNotify);
}

FfmBench::~FfmBench()
{
    KEL_AVS_FFM_TriggerCaptureData(0);
    if (!waitStopped())
        ADD_FAILURE() << "the far-field threads did not end";
    m_board.stop();
    youtube_softmic_alsa_write_stop();
    audio::setXmosDeviceOpener(nullptr);
}

bool FfmBench::running()
{
    using namespace audio::ffm;
    const bool ready = ringReady();
    const bool reading = m_card ? m_card->pluggedIn() : m_board.captureReading();
    return ready && captureState() == zor::audio::ThreadState::Running &&
           detectionState() == zor::audio::ThreadState::Running && m_board.libraryConnected() &&
           reading;
}

bool FfmBench::startPipeline()
{
    _ST_FFM_INFO info = {1, 1, 0};
    KEL_AVS_FFM_Init(info);
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    if (m_card && !m_card->plugIn())
        return false;
    return waitFor([this] { return running(); });
}

bool FfmBench::waitStopped(int timeoutMs)
{
    using namespace audio::ffm;
    if (m_card)
        m_card->unplug();
    return waitFor(
        [] {
            return captureState() == zor::audio::ThreadState::None &&
                   detectionState() == zor::audio::ThreadState::None;
        },
        timeoutMs);
}

bool FfmBench::speakKeyword(uint64_t lead, uint64_t length, uint64_t* begin, uint64_t* end)
{
    const uint64_t first = m_card->deviceIndex() + lead;
    if (!m_card->serve(lead + length) || !m_card->waitTaken())
        return false;
    *begin = first;
    *end = first + length;
    m_board.pressWakeKey(*begin, *end);
    return true;
}

bool FfmBench::wakeWord(uint64_t lead, uint64_t length, uint64_t after, WakeWord* result,
                        int timeoutMs)
{
    FfmApplication& app = FfmApplication::instance();
    int before = 0;
    {
        std::lock_guard<std::mutex> lock(app.mutex);
        before = app.notifications;
        app.received.clear();
        app.callSizes.clear();
    }
    if (!speakKeyword(lead, length, &result->keywordBegin, &result->keywordEnd))
        return false;
    result->queryIndex = m_card->deviceIndex();
    if (!app.waitUntil([&] { return app.notifications > before; }, timeoutMs))
        return false;
    {
        std::lock_guard<std::mutex> lock(app.mutex);
        result->begin = app.begin;
        result->end = app.end;
    }
    // The period read in the step that hands the block over comes with the
    // catch-up of the next step, so at least one more period is served.
    bool complete = m_card->serve(kPeriodFrames) &&
                    app.waitUntil([&] { return !app.callSizes.empty(); }, timeoutMs) &&
                    m_card->serve(std::max(after, kPeriodFrames));
    result->endIndex = m_card->deviceIndex();
    // The card holds back now: everything has arrived once the last sample
    // served has.
    const int16_t last = FastCard::sampleAt(result->endIndex - 1);
    complete = complete &&
               app.waitUntil(
                   [&] {
                       const Bytes& got = app.received;
                       return got.size() >= 2 &&
                              static_cast<int16_t>(got[got.size() - 2] | got.back() << 8) == last;
                   },
                   timeoutMs);
    KEL_AVS_FFM_TrigSendPCMData(false);
    std::lock_guard<std::mutex> lock(app.mutex);
    result->samples = asSamples(app.received);
    return complete;
}

std::vector<int16_t> rampSamples(size_t count, uint16_t first)
{
    std::vector<int16_t> samples(count);
    for (size_t k = 0; k < count; ++k)
        samples[k] = static_cast<int16_t>(static_cast<uint16_t>(first + k));
    return samples;
}

std::vector<int16_t> asSamples(const Bytes& bytes)
{
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t k = 0; k < samples.size(); ++k)
        samples[k] = static_cast<int16_t>(bytes[2 * k] | (bytes[2 * k + 1] << 8));
    return samples;
}

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

} // namespace zor::test
