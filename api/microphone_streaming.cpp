// SPDX-License-Identifier: MIT
// Microphone streaming from one of three sources (the far-field pipeline, the
// middleware's stream, the library's own remote-control capture): which one
// streams, and its start and stop.
//
// Applications start and stop from any thread, and the server thread stops
// when the middleware changes the button mode. Each call decides its switch
// (and updates genSource and gbCaptured) under one lock, so calls take effect
// in one order. Switching a source may mean transmitting a command, and the
// middleware may be waiting for this library's server thread meanwhile: no
// lock is held across it, and no call waits for another thread's switch.
// Instead one thread at a time carries switches out, its own first, then
// those that other calls handed over meanwhile, in the order they were
// decided; so the television hears them in that order too.
#include "api/streaming_state.h"
#include "base/log.h"
#include "base/no_destructor.h"
#include "zor/zor_api.h"
#include "zor/zor_audio.h"
#include "zor/zor_transport.h"

#include <array>
#include <cstddef>
#include <mutex>

using namespace OXAPC;

std::atomic<int32_t> genSource{EN_AVS_AUDIO_SOURCE_NONE};
std::atomic<uint8_t> gbCaptured{0};

namespace
{

// Switches handed over to the thread that is carrying switches out: a bound
// on what a caller in a loop can pile up while a command waits for its reply.
constexpr size_t kMaxWaitingSwitches = 16;

struct Switch {
    bool start;
    int32_t source;
};

// Switches handed over, oldest first: a fixed ring, so that handing one
// over never allocates.
class WaitingSwitches
{
public:
    bool full() const { return m_count == m_slots.size(); }
    bool empty() const { return m_count == 0; }
    size_t size() const { return m_count; }
    void push(const Switch& change)
    {
        m_slots[(m_first + m_count) % m_slots.size()] = change;
        ++m_count;
    }
    Switch pop()
    {
        const Switch change = m_slots[m_first];
        m_first = (m_first + 1) % m_slots.size();
        --m_count;
        return change;
    }

private:
    std::array<Switch, kMaxWaitingSwitches> m_slots{};
    size_t m_first = 0;
    size_t m_count = 0;
};

// The microphone switches in progress, one for the process.
struct Switching {
    std::mutex lock;         // genSource and gbCaptured changes, waiting, active
    WaitingSwitches waiting; // handed over to the thread that is switching
    bool active = false;     // a thread is carrying switches out
};

Switching& switching()
{
    static zor::NoDestructor<Switching> instance;
    return *instance;
}

// Sources 0 to 2 have something to switch; any other value streams nothing.
bool switchesSomething(int32_t source)
{
    return source == EN_AVS_AUDIO_SOURCE_FFM || source == EN_AVS_AUDIO_SOURCE_MIDDLEWARE ||
           source == EN_AVS_AUDIO_SOURCE_RC_MIC;
}

int sendMicOpen(uint8_t open)
{
    return forwardCommand(OXA_TV_CMD_ID_AVS_START_BTRC_MIC_OPEN, &open);
}

// What the call that decided `change` returns.
int carryOut(const Switch& change)
{
    switch (change.source) {
    case EN_AVS_AUDIO_SOURCE_FFM:
        KEL_AVS_FFM_TrigSendPCMData(change.start);
        return 1;
    case EN_AVS_AUDIO_SOURCE_MIDDLEWARE:
        return forwardCommand(change.start ? OXA_TV_CMD_ID_AVS_START_STREAM_MIC_DATA
                                           : OXA_TV_CMD_ID_AVS_STOP_STREAM_MIC_DATA,
                              nullptr);
    case EN_AVS_AUDIO_SOURCE_RC_MIC:
        // The television opens or closes the remote's microphone; its status
        // is not what the caller needs to know, the local capture's is.
        sendMicOpen(change.start ? 1 : 0);
        return change.start ? startAlsaCaptureThread() : stopAlsaCaptureThread();
    default:
        return 0;
    }
}

// Room for one more switch; false (with its line) when another thread is
// switching and too many wait for it already.
bool roomFor(const char* function)
{
    const Switching& state = switching();
    if (!state.active || !state.waiting.full())
        return true;
    zor::log::line(zor::log::Family::Error, function, __LINE__,
                   "%zu microphone starts and stops wait already, refused\n", state.waiting.size());
    return false;
}

// Carries out `change`, decided under `lock`, unless another thread is
// switching: that thread then carries it out after what it has, and the
// caller gets the result it would have had without a status to wait for.
int carryOutInTurn(std::unique_lock<std::mutex>& lock, const Switch& change)
{
    Switching& state = switching();
    if (state.active) {
        state.waiting.push(change);
        return change.source == EN_AVS_AUDIO_SOURCE_FFM ? 1 : 0;
    }
    state.active = true;
    lock.unlock();
    const int result = carryOut(change);
    for (;;) {
        lock.lock();
        if (state.waiting.empty()) {
            state.active = false;
            return result;
        }
        const Switch next = state.waiting.pop();
        lock.unlock();
        carryOut(next);
    }
}

} // namespace

int ZOR_App_startStreamingMicrophoneData(_EN_AVS_AUDIO_SOURCE_TYPE source)
{
    ZOR_TRACE("<===\n");
    std::unique_lock<std::mutex> lock(switching().lock);
    const bool switches = switchesSomething(source);
    if (switches && !roomFor(__func__))
        return -1;
    ZOR_PRINT("enSource = %d, genSource = %d\n", static_cast<int>(source),
              static_cast<int>(genSource.load()));
    genSource.store(source);
    gbCaptured.store(1);
    const int result = switches ? carryOutInTurn(lock, {true, source}) : 0;
    if (lock.owns_lock())
        lock.unlock();
    ZOR_TRACE("===>\n");
    return result;
}

int ZOR_App_stopStreamingMicrophoneData(void)
{
    ZOR_TRACE("<===\n");
    std::unique_lock<std::mutex> lock(switching().lock);
    const int32_t source = genSource.load();
    const bool switches = switchesSomething(source);
    if (switches && !roomFor(__func__))
        return -1;
    ZOR_PRINT("genSource = %d\n", static_cast<int>(source));
    // The source is taken here: a stop racing this one finds none left.
    genSource.store(EN_AVS_AUDIO_SOURCE_NONE);
    gbCaptured.store(0);
    const int result = switches ? carryOutInTurn(lock, {false, source}) : 0;
    if (lock.owns_lock())
        lock.unlock();
    ZOR_TRACE("===>\n");
    return result;
}
