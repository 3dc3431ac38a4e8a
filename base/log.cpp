// SPDX-License-Identifier: MIT
#include "base/log.h"

#include "zor/zor_types.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace
{

// Written by the server thread, read by every log statement on any thread.
std::atomic<int> gs32DebugLevel{EN_DBG_PRT_LEVEL_ERROR};

} // namespace

namespace zor::log
{

std::atomic<int>& debugLevel()
{
    return gs32DebugLevel;
}

bool enabled(Family family)
{
    const int level = gs32DebugLevel.load(std::memory_order_relaxed);
    switch (family) {
    case Family::Trace:
        return (level & EN_DBG_PRT_LEVEL_TRACE) != 0;
    case Family::Error:
        return (level & EN_DBG_PRT_LEVEL_ERROR) != 0;
    default:
        return true;
    }
}

namespace
{

int formatPrefix(Family family, const char* function, int sourceLine, char* out, size_t size)
{
    switch (family) {
    case Family::Trace:
    case Family::Error:
        return snprintf(out, size, "[%s(): %d]", function, sourceLine);
    case Family::Argument:
        return snprintf(out, size, "%s line:%d ", function, sourceLine);
    case Family::Server:
        return snprintf(out, size, "[AVSServerBackend][%s()][%d] ", function, sourceLine);
    case Family::ServerError:
        return snprintf(out, size, "[AVSServerBackend] ERROR: [%s()][%d] ", function, sourceLine);
    case Family::FarField:
        return snprintf(out, size, "[AVS_FFM][Line: %d][%s()]", sourceLine, function);
    case Family::Bare:
        break;
    }
    if (size > 0)
        out[0] = '\0';
    return 0;
}

} // namespace

void line(Family family, const char* function, int sourceLine, const char* format, ...)
{
    if (!enabled(family))
        return;

    // Prefix and message are built first and written in one call, so that lines
    // from several threads never interleave.
    char buffer[512];
    int prefix = formatPrefix(family, function, sourceLine, buffer, sizeof(buffer));
    if (prefix < 0)
        prefix = 0;
    if (static_cast<size_t>(prefix) >= sizeof(buffer))
        prefix = sizeof(buffer) - 1;

    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int body = vsnprintf(buffer + prefix, sizeof(buffer) - prefix, format, args);
    va_end(args);

    if (body >= 0 && static_cast<size_t>(prefix) + static_cast<size_t>(body) < sizeof(buffer)) {
        fwrite(buffer, 1, prefix + body, stdout);
    } else if (body >= 0) {
        std::string longLine(buffer, prefix);
        longLine.resize(prefix + body + 1);
        vsnprintf(&longLine[prefix], body + 1, format, copy);
        longLine.resize(prefix + body);
        fwrite(longLine.data(), 1, longLine.size(), stdout);
    }
    va_end(copy);
    fflush(stdout);
}

} // namespace zor::log
