// SPDX-License-Identifier: MIT
// The library's log lines. Everything goes to stdout, one formatted write per
// line, with no time stamp. The families differ by prefix and by gating:
//  - Trace / Error: "[func(): line]", printed only when the debug level has
//    bit 8 (trace) or bit 1 (error) set;
//  - Argument: "func line:N ", printed whatever the level (bad arguments and
//    some start-up messages);
//  - Server / ServerError: "[AVSServerBackend][func()][line] " and
//    "[AVSServerBackend] ERROR: [func()][line] ", always printed;
//  - FarField: "[AVS_FFM][Line: N][func()]", always printed;
//  - Bare: no prefix, always printed.
// The gate is the process-wide debug level (gs32DebugLevel), kept here so that
// every subsystem logs through this unit alone; the exported GetLogDebugLevel
// and setDebugLevel of transport/ read and write it. All functions are safe on
// any thread and never throw.
#ifndef ZOR_BASE_LOG_H
#define ZOR_BASE_LOG_H

#include <atomic>

namespace zor::log
{

enum class Family { Trace, Error, Argument, Server, ServerError, FarField, Bare };

// The debug level word: bit 1 turns error lines on, bit 8 trace lines. Starts
// at 1 (errors). Relaxed order is enough: it orders nothing else.
std::atomic<int>& debugLevel();

bool enabled(Family family);

// The message is a printf format; it carries its own line ends.
void line(Family family, const char* function, int sourceLine, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

} // namespace zor::log

#define ZOR_LOG(family, ...)                                                                       \
    ::zor::log::line(::zor::log::Family::family, __func__, __LINE__, __VA_ARGS__)
#define ZOR_TRACE(...) ZOR_LOG(Trace, __VA_ARGS__)
#define ZOR_ERROR(...) ZOR_LOG(Error, __VA_ARGS__)
#define ZOR_ARG_ERROR(...) ZOR_LOG(Argument, __VA_ARGS__)
#define ZOR_SERVER_LOG(...) ZOR_LOG(Server, __VA_ARGS__)
#define ZOR_SERVER_ERROR(...) ZOR_LOG(ServerError, __VA_ARGS__)
#define ZOR_FFM_LOG(...) ZOR_LOG(FarField, __VA_ARGS__)
#define ZOR_PRINT(...) ZOR_LOG(Bare, __VA_ARGS__)

#endif
