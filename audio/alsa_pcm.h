// SPDX-License-Identifier: MIT
// Owning handles for the ALSA objects of the capture and output paths.
#ifndef ZOR_AUDIO_ALSA_PCM_H
#define ZOR_AUDIO_ALSA_PCM_H

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
inline int openPcm(PcmHandle& out, const char* device, snd_pcm_stream_t stream)
{
    snd_pcm_t* pcm = nullptr;
    int result = snd_pcm_open(&pcm, device, stream, 0);
    if (result >= 0)
        out.reset(pcm);
    return result;
}

inline int allocateHwParams(HwParams& out)
{
    snd_pcm_hw_params_t* params = nullptr;
    int result = snd_pcm_hw_params_malloc(&params);
    if (result >= 0)
        out.reset(params);
    return result;
}

} // namespace zor::audio

#endif
