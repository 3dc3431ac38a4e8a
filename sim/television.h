// The simulated television: the state that the middleware's answers come from.
#ifndef ZOR_SIM_TELEVISION_H
#define ZOR_SIM_TELEVISION_H

#include "transport/command_table.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace zor::sim {

struct Answer {
    int32_t status = 0;
    std::vector<unsigned char> fields; // what follows the status word
};

struct AudioState {
    uint32_t mute = 0;
    uint32_t volume = 20;
    uint32_t maxVolume = 100;
    int32_t gain = 0;
    int32_t soundStyle = 0;
};

// Thread-safe: the three services are served on three threads.
class Television {
public:
    // Applies one command and builds its answer. `payload` is the request as
    // the library sent it; a short payload reads zeros for what is missing.
    Answer apply(const wire::CommandRow& row, const unsigned char* payload, size_t size);

    AudioState audio() const;

private:
    Answer applyAudio(const wire::CommandRow& row, uint32_t word);

    mutable std::mutex m_lock;
    AudioState m_audio;
};

} // namespace zor::sim

#endif
