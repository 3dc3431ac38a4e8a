// SPDX-License-Identifier: MIT
// The far-field detection thread's steps.
#ifndef ZOR_AUDIO_FFM_DETECTION_H
#define ZOR_AUDIO_FFM_DETECTION_H

#include "audio/ffm_records.h"

namespace zor::audio::ffm
{

// Opens the board; 1 when it could be opened, else 0.
int kel_avs_ffm_hid_init();
// Closes the board; always 1.
int kel_avs_ffm_hid_deinit();
// One poll of the board's events, with the whole detection on a key press.
void kel_avs_ffm_hid_detectionLoop(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring);

} // namespace zor::audio::ffm

#endif
