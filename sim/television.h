// SPDX-License-Identifier: MIT
// The simulated television: applies each command to its state and builds the
// middleware's answer.
#ifndef ZOR_SIM_TELEVISION_H
#define ZOR_SIM_TELEVISION_H

#include "sim/television_state.h"
#include "transport/command_table.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <vector>

namespace zor::sim
{

struct Answer {
    int32_t status = 0;
    std::vector<unsigned char> fields; // what follows the status word
};

// Answers that tests ask for: a status for an id (the state is left alone and
// the reply fields are zeros), or a reply cut to half its fields.
struct FaultPlan {
    std::map<uint32_t, int32_t> failures;
    std::set<uint32_t> shortReplies;
};

// Thread-safe: the three services are served on three threads.
class Television
{
public:
    explicit Television(TelevisionState state = defaultTelevision(), FaultPlan faults = {});

    // Applies one command and builds its answer. `payload` is the request as
    // the library sent it; a short payload reads zeros for what is missing.
    Answer apply(const wire::CommandRow& row, const unsigned char* payload, size_t size);

    TelevisionState state() const;
    AudioState audio() const;

private:
    // A request of a fixed-size record, zero-padded when it came short.
    using Request = std::vector<unsigned char>;

    Answer applyCommand(uint32_t id, const wire::CommandRow& row, const Request& request);
    Answer applyAudio(uint32_t id, uint32_t word);
    Answer applyVideo(uint32_t id, const Request& request);
    Answer applyChannel(uint32_t id, const Request& request);
    Answer applySystem(uint32_t id, const Request& request);
    Answer applyMisc(uint32_t id, const Request& request);
    Answer applyVoiceControl(uint32_t id, const Request& request);
    Answer applyAssistant(uint32_t id, const Request& request);

    void tuneTo(uint32_t index);
    // -1 when no channel matches.
    int findChannelByNumber(uint32_t number) const;
    int findChannelByName(const std::string& name) const;

    mutable std::mutex m_lock;
    TelevisionState m_state;
    FaultPlan m_faults;
};

} // namespace zor::sim

#endif
