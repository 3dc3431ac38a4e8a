// SPDX-License-Identifier: MIT
// Soft-microphone output: while the middleware reports the YouTube soft
// microphone active, far-field audio is played into "hw:0,3".
#include "audio/softmic_output.h"

#include "audio/alsa_pcm.h"
#include "audio/pcm_failures.h"
#include "base/log.h"
#include "base/no_destructor.h"
#include "zor/zor_audio.h"

#include <cerrno>
#include <mutex>

_ST_ALSA_WRITE_PARAMS g_alsa_write_handle = {
    3,     // SND_PCM_ACCESS_RW_INTERLEAVED
    2,     // SND_PCM_FORMAT_S16_LE
    1,     // mono
    16000, // Hz
    896,   // frames; every set-up replaces it
};

namespace zor::audio
{

std::atomic<bool> bYTSoftMicstart{false};

namespace
{

constexpr const char* kOutputDevice = "hw:0,3";
constexpr snd_pcm_uframes_t kPeriodFrames = 320;
constexpr unsigned kPeriodsPerBuffer = 8;

// The open output and what guards it, one for the process.
struct SoftmicOutput {
    // Set-up and stop run one at a time (they also guard g_alsa_write_handle).
    std::mutex controlMutex;
    // Guards write_handle and every write to it: a stop takes the handle away
    // only between two periods.
    std::mutex handleMutex;
    PcmHandle write_handle;
    // Failed writes in a row on the open output, under handleMutex.
    FailureRun writeFailures;

    // Takes the open output away from the writer; the caller closes it (with
    // a drain) outside the write lock, so the capture thread never waits for
    // it.
    PcmHandle takeOutput()
    {
        std::lock_guard<std::mutex> lock(handleMutex);
        return std::move(write_handle);
    }
};

// Never destroyed: the detached capture thread may still write a period
// while the process exits.
SoftmicOutput& softmicOutput()
{
    static zor::NoDestructor<SoftmicOutput> instance;
    return *instance;
}

} // namespace

int softmicWritePeriod(const void* mono, unsigned frames)
{
    if (!bYTSoftMicstart.load())
        return 0;
    SoftmicOutput& output = softmicOutput();
    std::lock_guard<std::mutex> lock(output.handleMutex);
    PcmHandle& write_handle = output.write_handle;
    FailureRun& writeFailures = output.writeFailures;
    if (!write_handle)
        return 0;
    const snd_pcm_sframes_t written = snd_pcm_writei(write_handle.get(), mono, frames);
    if (written < 0) {
        // The period is dropped. An underrun or a suspend is recovered for
        // the next period; the capture thread's own read paces the attempts,
        // so only the lines of a device that keeps failing are thinned out.
        const int error = static_cast<int>(written);
        if (error == -EPIPE)
            writeFailures.count(error);
        else if (writeFailures.lineDue(error))
            ZOR_FFM_LOG("short read, read %d frames\n\n", error);
        recoverPcm(write_handle.get(), error);
        return error;
    }
    if (const unsigned failed = writeFailures.succeeded())
        ZOR_FFM_LOG("write recovered after %u failed writes\n\n", failed);
    if (written != static_cast<snd_pcm_sframes_t>(frames))
        ZOR_FFM_LOG("short read, read %d frames\n\n", static_cast<int>(written));
    return static_cast<int>(written);
}

bool softmicOutputOpen()
{
    SoftmicOutput& output = softmicOutput();
    std::lock_guard<std::mutex> lock(output.handleMutex);
    return static_cast<bool>(output.write_handle);
}

} // namespace zor::audio

int youtube_softmic_alsa_write_init(void)
{
    using namespace zor::audio;
    SoftmicOutput& output = softmicOutput();
    std::lock_guard<std::mutex> control(output.controlMutex);

    // A set-up over an open output starts afresh: the device is given up
    // first, since it cannot be opened twice. A device that fails to
    // configure is closed again when `pcm` goes out of scope.
    output.takeOutput().reset();

    PcmHandle pcm;
    const int err = openPcm(pcm, kOutputDevice, SND_PCM_STREAM_PLAYBACK);
    if (err < 0) {
        ZOR_FFM_LOG("unable to open pcm device: %s\n\n", snd_strerror(err));
        return -1;
    }

    // The record says what is asked; it keeps the rate and period granted,
    // even when a later step fails.
    _ST_ALSA_WRITE_PARAMS& params = g_alsa_write_handle;
    PcmRequest request;
    request.access = static_cast<snd_pcm_access_t>(params.u32Access);
    request.format = static_cast<snd_pcm_format_t>(params.u32Format);
    request.channels = params.u32Channels;
    request.rate = params.u32Rate;
    request.periodFrames = kPeriodFrames;
    request.periodsPerBuffer = kPeriodsPerBuffer;
    PcmSetupLines lines;
    lines.function = __func__;
    lines.bufferTimeMax = nullptr;
    // The buffer's refusal has always carried the period's text.
    lines.bufferFailed = "could not set alsa period size:%s\n";
    lines.adjustedFirst = FirstNumber::Asked;
    lines.settingsEnd = "\n";
    lines.settingsRate = FirstNumber::Granted;
    PcmGranted granted;
    granted.rate = params.u32Rate;
    granted.periodFrames = kPeriodFrames;
    const int result = setUpPcmHardware(pcm.get(), request, lines, granted);
    params.u32Rate = granted.rate;
    params.u32PeriodSize = static_cast<uint32_t>(granted.periodFrames);
    if (result < 0)
        return -1;

    std::lock_guard<std::mutex> lock(output.handleMutex);
    output.write_handle = std::move(pcm);
    output.writeFailures = FailureRun();
    return 0;
}

void youtube_softmic_alsa_write_start(void)
{
    zor::audio::bYTSoftMicstart.store(true);
}

void youtube_softmic_alsa_write_stop(void)
{
    using namespace zor::audio;
    bYTSoftMicstart.store(false);
    SoftmicOutput& output = softmicOutput();
    std::lock_guard<std::mutex> control(output.controlMutex);
    output.takeOutput().reset();
}
