// SPDX-License-Identifier: MIT
// Remote-control microphone capture, internal side: the dump directory can be
// chosen, and the project's tests and tools can watch the capture state.
#ifndef ZOR_AUDIO_RC_CAPTURE_H
#define ZOR_AUDIO_RC_CAPTURE_H

#include "audio/thread_state.h"
#include "zor/zor_types.h"

namespace zor::audio
{

// startAlsaCaptureThread() with the dump file created in `dumpDir` (which ends
// in '/') instead of "/tmp/". The directory is copied; same results.
int startAlsaCaptureThreadInto(const char* dumpDir);

// The capture state. Not exported: zorctl and the tests link the library's objects statically
// (zor_internal) to wait for the capture they started.
ThreadState captureState();

// Waits until the capture state is None, at most `timeoutMs`; true when it is.
// The thread may still be printing its last line when this returns.
bool waitForCaptureEnd(int timeoutMs);

} // namespace zor::audio

#endif
