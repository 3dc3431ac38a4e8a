// SPDX-License-Identifier: MIT
// Soft-microphone output, internal side: the far-field capture step writes
// its mono periods here.
#ifndef ZOR_AUDIO_SOFTMIC_OUTPUT_H
#define ZOR_AUDIO_SOFTMIC_OUTPUT_H

#include <atomic>

namespace zor::audio
{

// Routes captured far-field audio to the output; set by
// youtube_softmic_alsa_write_start(), cleared by ..._stop(). The detection
// thread reads it to hold back wake-word reports.
extern std::atomic<bool> bYTSoftMicstart;

// Writes one period of `frames` mono frames (S16_LE) to "hw:0,3" when the
// soft microphone is started and the output is open; returns the frames
// written, 0 when nothing was written (not started or closed) or a negative
// ALSA error. An underrun re-prepares the device and drops the period
// (-EPIPE). Holds the output lock for the write, so a concurrent stop or
// set-up waits for the period to finish. Called on the far-field capture
// thread.
int softmicWritePeriod(const void* mono, unsigned frames);

// True while the output device is open (for tests and logs).
bool softmicOutputOpen();

} // namespace zor::audio

#endif
