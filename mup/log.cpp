// SPDX-License-Identifier: MIT
#include "mup/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace mup
{

namespace
{

constexpr char kPrefix[] = "libmup: ";

} // namespace

void logLine(const char* format, ...)
{
    // Longer lines are cut rather than split, so that one line stays one write.
    char line[512];
    const int saved = errno;
    size_t length = sizeof(kPrefix) - 1;
    memcpy(line, kPrefix, length);

    va_list args;
    va_start(args, format);
    const int count = vsnprintf(line + length, sizeof(line) - length - 1, format, args);
    va_end(args);
    if (count > 0)
        length += std::min(static_cast<size_t>(count), sizeof(line) - length - 2);
    line[length++] = '\n';

    for (;;) {
        const ssize_t written = ::write(STDERR_FILENO, line, length);
        if (written >= 0 || errno != EINTR)
            break;
    }
    errno = saved;
}

void ThrottledLog::line(const char* service, const char* format, ...)
{
    constexpr std::chrono::seconds kInterval{1};
    const Clock::time_point now = Clock::now();
    if (now < m_next) {
        ++m_held;
        return;
    }
    char text[400];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    if (m_held)
        logLine("%s: %s (and %u more %s in the last second)", service, text, m_held, m_what);
    else
        logLine("%s: %s", service, text);
    m_held = 0;
    m_next = now + kInterval;
}

void ThrottledLog::flush(const char* service)
{
    if (!m_held || Clock::now() < m_next)
        return;
    logLine("%s: %u more %s in the last second", service, m_held, m_what);
    m_held = 0;
    m_next = Clock::now() + std::chrono::seconds(1);
}

const char* errorText(int error)
{
    const char* text = strerrordesc_np(error);
    return text ? text : "unknown error";
}

} // namespace mup
