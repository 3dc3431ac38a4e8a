// SPDX-License-Identifier: MIT
// Remote-control microphone capture: one thread reads 16 kHz mono periods from
// "hw:0,6", hands each to the application's PCM callback and appends it to a
// raw dump file.
#include "audio/rc_capture.h"

#include "audio/alsa_pcm.h"
#include "audio/pcm_failures.h"
#include "audio/thread_state.h"
#include "base/log.h"
#include "base/no_destructor.h"
#include "base/unique_fd.h"
#include "zor/zor_audio.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace zor::audio
{

namespace
{

constexpr const char* kCaptureDevice = "hw:0,6";
constexpr const char* kDumpDir = "/tmp/";
constexpr unsigned kRequestedRate = 16000;
constexpr snd_pcm_uframes_t kRequestedPeriodFrames = 32;
constexpr size_t kPathSize = 256;

// Every change and every read happens under the lock; a std::mutex is
// constant-initialised, so it is usable from the first call on.
std::mutex mutex_capture_exit;
ThreadState capture_exit = ThreadState::None;
// Kept beside the state word it announces (capture_exit goes to None), under
// the same lock; never destroyed, since the detached thread may notify it
// while the process exits.
std::condition_variable& captureEnded()
{
    static zor::NoDestructor<std::condition_variable> instance;
    return *instance;
}

// Read afresh for every period: the application may register at any time.
std::atomic<ZOR_PFN_PCM> g_fptrSendAudioPCMDataCallback{nullptr};

struct CaptureContext {
    int lastResult = 0;
    unsigned periodBytes = 0;
    PcmHandle pcm;
    unsigned rate = 0;
    int dir = 0;
    snd_pcm_uframes_t periodFrames = 0;
    std::vector<unsigned char> periodBuffer;
    UniqueFd dumpFd;
    char dumpPath[kPathSize] = {};
    FailureRun readFailures;
};

ThreadState readState()
{
    std::lock_guard<std::mutex> lock(mutex_capture_exit);
    return capture_exit;
}

// The device's set-up prints only its failures, and those once, at the step
// that applies the parameters: a device that refuses the layout is refused
// rather than captured in a layout that the callback and the dump do not
// expect; the rate and period are the nearest the device grants.
int configureDevice(CaptureContext& context)
{
    PcmRequest request;
    request.rate = kRequestedRate;
    request.periodFrames = kRequestedPeriodFrames;
    PcmSetupLines lines;
    lines.family = log::Family::Bare;
    lines.function = "alsaCaptureInit";
    lines.applyFailed = "unable to set hw parameters: %s\n";
    lines.allocFailed = lines.applyFailed;
    for (const char** quiet :
         {&lines.anyFailed, &lines.accessFailed, &lines.formatFailed, &lines.channelsFailed,
          &lines.rateFailed, &lines.rateAdjusted, &lines.bufferTimeMax, &lines.periodAsked,
          &lines.periodFailed, &lines.periodAdjusted, &lines.bufferFailed, &lines.settingsEnd})
        *quiet = nullptr;
    PcmGranted granted;
    const int result = setUpPcmHardware(context.pcm.get(), request, lines, granted);
    context.rate = granted.rate;
    context.periodFrames = granted.appliedPeriodFrames;
    return result;
}

int alsaCaptureInit(CaptureContext& context, const std::string& dumpDir)
{
    context.dumpFd.reset();

    char stamp[80] = "";
    time_t now = time(nullptr);
    struct tm utc;
    if (gmtime_r(&now, &utc) != nullptr)
        strftime(stamp, sizeof(stamp), "%Y%m%d%H%M%S", &utc);
    char path[kPathSize];
    snprintf(path, sizeof(path), "%s%s%s%s", dumpDir.c_str(), "rec", stamp, ".pcm");
    memcpy(context.dumpPath, path, sizeof(path));

    context.dumpFd.reset(open(context.dumpPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!context.dumpFd.valid()) {
        ZOR_PRINT("[PCM Play]==> %%%%%%%% file open fail!!!---[%s]\n", strerror(errno));
        return -1;
    }

    context.lastResult = openPcm(context.pcm, kCaptureDevice, SND_PCM_STREAM_CAPTURE);
    if (context.lastResult < 0) {
        ZOR_PRINT("unable to open pcm device: %s\n", snd_strerror(context.lastResult));
        return -1;
    }
    ZOR_PRINT("open \"%s\" PCM device success.\n", kCaptureDevice);

    const int set = configureDevice(context);
    if (set < 0) {
        context.lastResult = set;
        return -1;
    }
    context.lastResult = 0;
    context.periodBytes = static_cast<unsigned>(context.periodFrames * 2);
    context.readFailures.setPeriod(context.periodFrames, context.rate);
    try {
        context.periodBuffer.assign(context.periodBytes, 0);
    } catch (const std::bad_alloc&) {
        return -1;
    }

    ZOR_PRINT("alsaCaptureInit success.\n");
    return 0;
}

void alsaCaptureWrite(CaptureContext& context)
{
    snd_pcm_t* pcm = context.pcm.get();
    const snd_pcm_sframes_t frames =
        snd_pcm_readi(pcm, context.periodBuffer.data(), context.periodFrames);
    context.lastResult = static_cast<int>(frames);
    if (frames < 0) {
        // Overrun: the period is lost, capture goes on from a fresh start.
        // Other errors have their line; a suspended device is woken, one that
        // has gone is read again once a period (capture goes on until it is
        // stopped; the next start opens the device afresh).
        const int error = static_cast<int>(frames);
        if (error == -EPIPE)
            context.readFailures.count(error);
        else if (context.readFailures.lineDue(error))
            ZOR_PRINT("error from read: %s\n", snd_strerror(error));
        recoverPcm(pcm, error);
        context.readFailures.pace();
        return;
    }
    if (const unsigned failed = context.readFailures.succeeded())
        ZOR_PRINT("read recovered after %u failed reads\n", failed);
    if (frames < static_cast<snd_pcm_sframes_t>(context.periodFrames))
        ZOR_PRINT("short read, read %d frames\n", static_cast<int>(frames));

    // The whole period goes out even after a short read: the callback and the
    // dump keep a fixed period length.
    if (ZOR_PFN_PCM callback = g_fptrSendAudioPCMDataCallback.load())
        callback(context.periodBuffer.data(), context.periodBytes);

    const ssize_t written =
        write(context.dumpFd.get(), context.periodBuffer.data(), context.periodBytes);
    context.lastResult = static_cast<int>(written);
    if (written < static_cast<ssize_t>(context.periodBytes))
        ZOR_PRINT("short write: wrote %d bytes\n", static_cast<int>(written));
}

void alsaCaptureStop(CaptureContext& context)
{
    ZOR_PRINT("record Done.\n");
    context.pcm.reset();
    context.periodBuffer = std::vector<unsigned char>();
    context.dumpFd.reset();
    ZOR_PRINT("close \"%s\" PCM device success. [file:%s]\n", kCaptureDevice, context.dumpPath);
}

void alsaCaptureThread(const std::string& dumpDir)
{
    ZOR_PRINT("Start ALSA capture thread! g_fptrSendAudioPCMDataCallback %p\n",
              reinterpret_cast<void*>(g_fptrSendAudioPCMDataCallback.load()));

    {
        // Everything the context holds is released before the state says the
        // thread is gone, so a new capture can open the device again.
        CaptureContext context;
        ThreadState state = readState();
        if (alsaCaptureInit(context, dumpDir) != 0) {
            ZOR_PRINT("Error: alsa capture initialize failed!\n");
        } else {
            while (state == ThreadState::Running) {
                alsaCaptureWrite(context);
                state = readState();
            }
        }
        alsaCaptureStop(context);
    }

    {
        // Notified under the lock: once a waiter has seen None, this thread no
        // longer touches the condition variable.
        std::lock_guard<std::mutex> lock(mutex_capture_exit);
        capture_exit = ThreadState::None;
        captureEnded().notify_all();
    }
    ZOR_PRINT("Exit ALSA capture thread.\n");
}

} // namespace

int startAlsaCaptureThreadInto(const char* dumpDir)
{
    std::unique_lock<std::mutex> lock(mutex_capture_exit);
    if (capture_exit != ThreadState::None) {
        // A start that finds a capture asks it to stop; the caller starts
        // again once the state is back to None.
        capture_exit = ThreadState::StopRequested;
        lock.unlock();
        ZOR_PRINT("Already a capture thread running. wait it stopping \n");
        return 0;
    }
    capture_exit = ThreadState::Running;
    lock.unlock();

    try {
        std::thread(alsaCaptureThread, std::string(dumpDir)).detach();
    } catch (const std::exception&) {
        {
            std::lock_guard<std::mutex> relock(mutex_capture_exit);
            capture_exit = ThreadState::None;
            captureEnded().notify_all();
        }
        ZOR_PRINT("Create thread error!\n");
        return -1;
    }
    return 0;
}

ThreadState captureState()
{
    return readState();
}

bool waitForCaptureEnd(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex_capture_exit);
    return captureEnded().wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                   [] { return capture_exit == ThreadState::None; });
}

} // namespace zor::audio

int startAlsaCaptureThread(void)
{
    return zor::audio::startAlsaCaptureThreadInto(zor::audio::kDumpDir);
}

int stopAlsaCaptureThread(void)
{
    using namespace zor::audio;
    std::unique_lock<std::mutex> lock(mutex_capture_exit);
    if (capture_exit == ThreadState::Running) {
        capture_exit = ThreadState::StopRequested;
        lock.unlock();
        ZOR_PRINT("Attempt to stop ALSA capture thread.\n");
    }
    return 0;
}

int initCaptureThreadMutex(void)
{
    // The lock is constant-initialised and may be held by a running capture:
    // initialising it again would break it, so there is nothing to do.
    return 0;
}

void alsaCaptureRegisterCallback(ZOR_PFN_PCM fn)
{
    zor::audio::g_fptrSendAudioPCMDataCallback.store(fn);
}
