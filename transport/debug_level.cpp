// SPDX-License-Identifier: MIT
#include "transport/debug_level.h"

#include "base/log.h"

int GetLogDebugLevel(void)
{
    return zor::log::debugLevel().load(std::memory_order_relaxed);
}

void setDebugLevel(_EN_DBG_PRT_LEVEL level)
{
    const int requested = static_cast<int>(level);
    std::atomic<int>& gs32DebugLevel = zor::log::debugLevel();
    ZOR_PRINT("s32DebugLevel = %d\n", requested);
    // Bits accumulate; only a request of 0 clears them.
    int result = requested == 0 ? 0 : (gs32DebugLevel.fetch_or(requested) | requested);
    if (requested == 0)
        gs32DebugLevel.store(0);
    ZOR_PRINT("gs32DebugLevel = %d\n", result);
}
