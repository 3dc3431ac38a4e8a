// SPDX-License-Identifier: MIT
// What the remote-control capture's PCM callback saw, for the tests that run
// the capture thread.
#ifndef ZOR_TESTS_AUDIO_RC_RECORDER_H
#define ZOR_TESTS_AUDIO_RC_RECORDER_H

#include "tests/audio/alsa_sim.h"
#include "zor/zor_audio.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace zor::test
{

// Filled on the capture thread, read by the test under `mutex`.
struct Recorder {
    std::mutex mutex;
    Bytes bytes;
    std::vector<unsigned> sizes;
    size_t stopAt = 0; // the callback stops the capture at this many bytes

    void reset(size_t stop)
    {
        std::lock_guard<std::mutex> lock(mutex);
        bytes.clear();
        sizes.clear();
        stopAt = stop;
    }
    size_t size()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return bytes.size();
    }
};
inline Recorder recorder;

// The PCM callback. Stopping from it ends the loop right after this period.
inline int recordPeriod(void* data, unsigned int size)
{
    std::lock_guard<std::mutex> lock(recorder.mutex);
    const auto* bytes = static_cast<const uint8_t*>(data);
    recorder.bytes.insert(recorder.bytes.end(), bytes, bytes + size);
    recorder.sizes.push_back(size);
    if (recorder.stopAt != 0 && recorder.bytes.size() >= recorder.stopAt)
        stopAlsaCaptureThread();
    return 0;
}

} // namespace zor::test

#endif
