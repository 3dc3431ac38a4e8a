// SPDX-License-Identifier: MIT
// The state word of a capture or detection thread, with the values that its
// log lines print.
#ifndef ZOR_AUDIO_THREAD_STATE_H
#define ZOR_AUDIO_THREAD_STATE_H

#include <cstdint>

namespace zor::audio
{

enum class ThreadState : int32_t {
    None = -1,         // no thread
    Running = 0,       // the thread runs (or is about to)
    StopRequested = 1, // asked to end; ends at its next loop test
};

// The number a log line prints for a state.
constexpr int toInt(ThreadState state)
{
    return static_cast<int>(state);
}

} // namespace zor::audio

#endif
