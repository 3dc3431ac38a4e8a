// SPDX-License-Identifier: MIT
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

// True for the read errors of a device that has gone (unplugged): -ENODEV
// and -ENXIO. The error code decides, not its text, which the C library
// translates once the application sets a locale.
bool kel_avs_ffm_device_gone(int error);
// A negative read result: its line, and for a device that has gone the stop
// of both threads.
void kel_avs_ffm_capture_read_failed(int error);
// One period: read, down-mix, ring write and live delivery. Always 0.
int kel_avs_ffm_alsa_capture_write(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring);

// Hands over the keyword block or the backlog when one is due. Always 0.
int kel_avs_ffm_alsa_pcm_read(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring);

// Releases everything init acquired.
void kel_avs_ffm_alsa_capture_stop(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                   const char* device);

} // namespace zor::audio::ffm

#endif
