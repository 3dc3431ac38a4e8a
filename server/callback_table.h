// SPDX-License-Identifier: MIT
// The application's callback table. The register functions write a slot on
// the application's threads while the server and worker threads read it, so
// every access goes through these atomic helpers: a slot is one pointer-sized
// word, and a reader sees either the old or the new callback, never a torn one.
#ifndef ZOR_SERVER_CALLBACK_TABLE_H
#define ZOR_SERVER_CALLBACK_TABLE_H

#include "zor/zor_callbacks.h"

// The process's table, zero at load; filled by the register functions.
extern ST_AVSP_CALLBACK_FUN g_stAVSP_CBHandle;
// The table the server object reads, set by RegisterCallbackFun; null until then.
extern ST_AVSP_CALLBACK_FUN* g_pstCBHandle;

namespace zor::callbacks
{

template <typename Fn> using Slot = Fn ST_AVSP_CALLBACK_FUN::*;

inline void setTable(ST_AVSP_CALLBACK_FUN* table)
{
    __atomic_store_n(&g_pstCBHandle, table, __ATOMIC_RELEASE);
}

inline ST_AVSP_CALLBACK_FUN* table()
{
    return __atomic_load_n(&g_pstCBHandle, __ATOMIC_ACQUIRE);
}

// The callback in `slot` of the server's table at this moment; null when the
// slot is empty or no table has been handed to the server yet.
template <typename Fn> Fn load(Slot<Fn> slot)
{
    ST_AVSP_CALLBACK_FUN* current = table();
    return current ? __atomic_load_n(&(current->*slot), __ATOMIC_ACQUIRE) : nullptr;
}

// Writes a slot of the process's own table (what the register functions fill).
template <typename Fn> void store(Slot<Fn> slot, Fn fn)
{
    __atomic_store_n(&(g_stAVSP_CBHandle.*slot), fn, __ATOMIC_RELEASE);
}

// Reads a slot of the process's own table, whether or not the server has it.
template <typename Fn> Fn loadOwn(Slot<Fn> slot)
{
    return __atomic_load_n(&(g_stAVSP_CBHandle.*slot), __ATOMIC_ACQUIRE);
}

} // namespace zor::callbacks

#endif
