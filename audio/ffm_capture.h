// The far-field capture thread's steps, callable one by one by the
// project's tests and benchmarks.
#ifndef ZOR_AUDIO_FFM_CAPTURE_H
#define ZOR_AUDIO_FFM_CAPTURE_H

#include "audio/ffm_pipeline.h"
#include "audio/ffm_records.h"

namespace zor::audio::ffm
{

// Dump files, device open (with `settings`' attempts), hardware parameters
// and buffers. 0 on success, -1 after the failure's line; what was acquired
// stays for the stop step.
int kel_avs_ffm_alsa_capture_init(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                  const char* device, const Params& settings);

// One period: read, down-mix, ring write and live delivery. Always 0.
int kel_avs_ffm_alsa_capture_write(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring);

// Hands over the keyword block or the backlog when one is due. Always 0.
int kel_avs_ffm_alsa_pcm_read(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring);

// Releases everything init acquired.
void kel_avs_ffm_alsa_capture_stop(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                   const char* device);

} // namespace zor::audio::ffm

#endif
