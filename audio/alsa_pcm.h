// SPDX-License-Identifier: MIT
// ALSA PCM devices of the capture and output paths: owning handles, opening,
// and the hardware set-up that all three paths share.
#ifndef ZOR_AUDIO_ALSA_PCM_H
#define ZOR_AUDIO_ALSA_PCM_H

#include "base/log.h"

#include <alsa/asoundlib.h>

#include <memory>

namespace zor::audio
{

// Closing lets what the device still holds finish first (drain), as every
// path of the library does when it gives a device up.
struct PcmDrainAndClose {
    void operator()(snd_pcm_t* pcm) const
    {
        snd_pcm_drain(pcm);
        snd_pcm_close(pcm);
    }
};
using PcmHandle = std::unique_ptr<snd_pcm_t, PcmDrainAndClose>;

struct HwParamsFree {
    void operator()(snd_pcm_hw_params_t* params) const { snd_pcm_hw_params_free(params); }
};
using HwParams = std::unique_ptr<snd_pcm_hw_params_t, HwParamsFree>;

// Opens `device` in blocking mode; the ALSA result (0 or a negative errno).
// `out` is left alone on failure.
inline int openPcm(PcmHandle& out, const char* device, snd_pcm_stream_t stream)
{
    snd_pcm_t* pcm = nullptr;
    int result = snd_pcm_open(&pcm, device, stream, 0);
    if (result >= 0)
        out.reset(pcm);
    return result;
}

// What a path asks of its device.
struct PcmRequest {
    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
    unsigned channels = 1;
    unsigned rate = 16000;
    snd_pcm_uframes_t periodFrames = 0;
    // The buffer is asked as this many periods; 0 leaves it to the device.
    unsigned periodsPerBuffer = 0;
};

// What the device granted. The near setters' answers are filled in as the
// set-up goes, so after a failure they tell how far it got; the values read
// back from the applied configuration only after a success.
struct PcmGranted {
    unsigned rate = 0;                  // the rate setter's answer
    snd_pcm_uframes_t periodFrames = 0; // the period setter's answer
    snd_pcm_uframes_t bufferFrames = 0; // asked of the buffer setter
    unsigned appliedRate = 0;
    snd_pcm_uframes_t appliedPeriodFrames = 0;
    unsigned periodTimeUs = 0;
};

// Which number an adjustment line (and the rate line of the settings block)
// shows first: what was asked, or what the device granted.
enum class FirstNumber { Asked, Granted };

// The lines one path prints while it sets its device up; the three paths
// share the sequence and differ in these. Every text is a printf format.
// Failure texts take the ALSA error text ("%s"; a text may leave it out). A
// null failure text means the step prints nothing of its own: a refusal there
// is reported by the apply step, with its text, and the set-up goes on until
// then. A null line is not printed. The defaults are the far-field capture's.
struct PcmSetupLines {
    log::Family family = log::Family::FarField;
    // The caller's name: the line prefix and the adjustment lines carry it.
    const char* function = "";
    const char* allocFailed = "could not allocate alsa hardware parameter structure:%s\n";
    const char* anyFailed = "could not initialize alsa parameter structure:%s\n";
    const char* accessFailed = "could not set access mode as INTERLEAVED.\n";
    const char* formatFailed = "could not set alsa sample format:%s\n";
    const char* channelsFailed = "could not set alsa channels:%s\n";
    const char* rateFailed = "could not set alsa sample rate:%s\n";
    // Function name, a rate, the rate granted.
    const char* rateAdjusted = "%s: hardware could not support sampling rate %d Hz, set %d Hz\n";
    // The largest buffer time the configuration space allows (µs).
    const char* bufferTimeMax = "buffer_time %u\n\n";
    // Function name, the period asked.
    const char* periodAsked = "%s: set period size %d frames\n";
    const char* periodFailed = "could not set alsa period size:%s\n";
    // Function name, a period size, the size granted.
    const char* periodAdjusted = "%s: hardware could not support period size %d, set %d\n";
    const char* bufferFailed = "could not set alsa buffer size:%s\n";
    const char* applyFailed = "unable to set hw parameters: %s\n\n";
    FirstNumber adjustedFirst = FirstNumber::Granted;
    // The block of settings asked and read back after a success: the line
    // end of its lines, or null for no block.
    const char* settingsEnd = "\n\n";
    FirstNumber settingsRate = FirstNumber::Asked;
};

// Configures the open `pcm` for `request`: access, format, channels, the rate
// and period nearest those asked, the buffer, then applies them. A device
// that answers a near setter with another value (or a direction) gets its
// adjustment line. Returns 0, or the negative ALSA result of the step that
// failed after printing that step's line; the device is then left opened but
// unconfigured, for the caller to close. The parameter object lives only for
// the call. Prints from the calling thread; no lock is taken.
int setUpPcmHardware(snd_pcm_t* pcm, const PcmRequest& request, const PcmSetupLines& lines,
                     PcmGranted& granted);

} // namespace zor::audio

#endif
