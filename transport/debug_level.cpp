// SPDX-License-Identifier: MIT
#include "transport/debug_level.h"

#include "transport/log.h"

#include <atomic>

namespace
{

// Written by the server thread, read by every log statement on any thread.
std::atomic<int> gs32DebugLevel{EN_DBG_PRT_LEVEL_ERROR};

} // namespace

int GetLogDebugLevel(void)
{
    return gs32DebugLevel.load(std::memory_order_relaxed);
}

void setDebugLevel(_EN_DBG_PRT_LEVEL level)
{
    const int requested = static_cast<int>(level);
    ZOR_PRINT("s32DebugLevel = %d\n", requested);
    // Bits accumulate; only a request of 0 clears them.
    int result = requested == 0 ? 0 : (gs32DebugLevel.fetch_or(requested) | requested);
    if (requested == 0)
        gs32DebugLevel.store(0);
    ZOR_PRINT("gs32DebugLevel = %d\n", result);
}
