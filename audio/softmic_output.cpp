// SPDX-License-Identifier: MIT
// Soft-microphone output: while the middleware reports the YouTube soft
// microphone active, far-field audio is played into "hw:0,3".
#include "audio/softmic_output.h"

#include "audio/alsa_pcm.h"
#include "audio/pcm_failures.h"
#include "base/log.h"
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
constexpr snd_pcm_uframes_t kPeriodsPerBuffer = 8;

// Set-up and stop run one at a time (they also guard g_alsa_write_handle).
std::mutex controlMutex;
// Guards write_handle and every write to it: a stop takes the handle away
// only between two periods.
std::mutex handleMutex;
PcmHandle write_handle;
// Failed writes in a row on the open output, under handleMutex.
FailureRun writeFailures;

// Takes the open output away from the writer; the caller closes it (with a
// drain) outside the write lock, so the capture thread never waits for it.
PcmHandle takeOutput()
{
    std::lock_guard<std::mutex> lock(handleMutex);
    return std::move(write_handle);
}

} // namespace

int softmicWritePeriod(const void* mono, unsigned frames)
{
    if (!bYTSoftMicstart.load())
        return 0;
    std::lock_guard<std::mutex> lock(handleMutex);
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
    std::lock_guard<std::mutex> lock(handleMutex);
    return static_cast<bool>(write_handle);
}

} // namespace zor::audio

int youtube_softmic_alsa_write_init(void)
{
    using namespace zor::audio;
    std::lock_guard<std::mutex> control(controlMutex);

    // A set-up over an open output starts afresh: the device is given up
    // first, since it cannot be opened twice. A device that fails to
    // configure is closed again when `pcm` goes out of scope.
    takeOutput().reset();

    PcmHandle pcm;
    _ST_ALSA_WRITE_PARAMS& params = g_alsa_write_handle;

    int err = openPcm(pcm, kOutputDevice, SND_PCM_STREAM_PLAYBACK);
    if (err < 0) {
        ZOR_FFM_LOG("unable to open pcm device: %s\n\n", snd_strerror(err));
        return -1;
    }
    snd_pcm_t* handle = pcm.get();

    // Freed when the set-up ends; the device keeps its own copy.
    HwParams write_params;
    err = allocateHwParams(write_params);
    if (err < 0) {
        ZOR_FFM_LOG("could not allocate alsa hardware parameter structure:%s\n", snd_strerror(err));
        return -1;
    }
    snd_pcm_hw_params_t* hw = write_params.get();
    err = snd_pcm_hw_params_any(handle, hw);
    if (err < 0) {
        ZOR_FFM_LOG("could not initialize alsa parameter structure:%s\n", snd_strerror(err));
        return -1;
    }
    if (snd_pcm_hw_params_set_access(handle, hw, static_cast<snd_pcm_access_t>(params.u32Access)) <
        0) {
        ZOR_FFM_LOG("could not set access mode as INTERLEAVED.\n");
        return -1;
    }
    err = snd_pcm_hw_params_set_format(handle, hw, static_cast<snd_pcm_format_t>(params.u32Format));
    if (err < 0) {
        ZOR_FFM_LOG("could not set alsa sample format:%s\n", snd_strerror(err));
        return -1;
    }
    err = snd_pcm_hw_params_set_channels(handle, hw, params.u32Channels);
    if (err < 0) {
        ZOR_FFM_LOG("could not set alsa channels:%s\n", snd_strerror(err));
        return -1;
    }

    int dir = 0;
    unsigned int rate = params.u32Rate;
    err = snd_pcm_hw_params_set_rate_near(handle, hw, &rate, &dir);
    if (err < 0) {
        ZOR_FFM_LOG("could not set alsa sample rate:%s\n", snd_strerror(err));
        return -1;
    }
    // Drivers mostly report a whole-value change with direction 0: a rate
    // other than the one asked for is an adjustment too.
    if (dir != 0 || rate != params.u32Rate) {
        ZOR_FFM_LOG("%s: hardware could not support sampling rate %d Hz, set %d Hz\n", __func__,
                    static_cast<int>(params.u32Rate), static_cast<int>(rate));
        params.u32Rate = rate;
        dir = 0;
    }

    snd_pcm_uframes_t period = kPeriodFrames;
    ZOR_FFM_LOG("%s: set period size %d frames\n", __func__, static_cast<int>(period));
    params.u32PeriodSize = static_cast<uint32_t>(period);
    err = snd_pcm_hw_params_set_period_size_near(handle, hw, &period, &dir);
    if (err < 0) {
        ZOR_FFM_LOG("could not set alsa period size:%s\n", snd_strerror(err));
        return -1;
    }
    if (dir != 0 || period != params.u32PeriodSize) {
        ZOR_FFM_LOG("%s: hardware could not support period size %d, set %d\n", __func__,
                    static_cast<int>(params.u32PeriodSize), static_cast<int>(period));
        params.u32PeriodSize = static_cast<uint32_t>(period);
        dir = 0;
    }

    snd_pcm_uframes_t buffer = params.u32PeriodSize * kPeriodsPerBuffer;
    err = snd_pcm_hw_params_set_buffer_size_near(handle, hw, &buffer);
    if (err < 0) {
        ZOR_FFM_LOG("could not set alsa period size:%s\n", snd_strerror(err));
        return -1;
    }

    err = snd_pcm_hw_params(handle, hw);
    if (err < 0) {
        ZOR_FFM_LOG("unable to set hw parameters: %s\n\n", snd_strerror(err));
        return -1;
    }

    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
    unsigned int channels = 0;
    snd_pcm_hw_params_get_access(hw, &access);
    snd_pcm_hw_params_get_format(hw, &format);
    snd_pcm_hw_params_get_channels(hw, &channels);
    snd_pcm_hw_params_get_rate(hw, &rate, &dir);
    ZOR_FFM_LOG("***********%s************\n", __func__);
    ZOR_FFM_LOG("%d access_mode=%d\n", static_cast<int>(params.u32Access),
                static_cast<int>(access));
    ZOR_FFM_LOG("%d sample_format=%d\n", static_cast<int>(params.u32Format),
                static_cast<int>(format));
    ZOR_FFM_LOG("%d channels=%d\n", static_cast<int>(params.u32Channels),
                static_cast<int>(channels));
    ZOR_FFM_LOG("%d sampling_rate=%d, dir=%d\n", static_cast<int>(params.u32Rate),
                static_cast<int>(rate), dir);
    snd_pcm_hw_params_get_period_size(hw, &period, &dir);
    ZOR_FFM_LOG("%d period=%d, dir=%d\n", static_cast<int>(params.u32PeriodSize),
                static_cast<int>(period), dir);
    snd_pcm_hw_params_get_buffer_size(hw, &buffer);
    ZOR_FFM_LOG("%d buffer=%d, dir=%d\n", static_cast<int>(params.u32PeriodSize),
                static_cast<int>(buffer), dir);
    ZOR_FFM_LOG("************************\n");

    std::lock_guard<std::mutex> lock(handleMutex);
    write_handle = std::move(pcm);
    writeFailures = FailureRun();
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
    std::lock_guard<std::mutex> control(controlMutex);
    takeOutput().reset();
}
