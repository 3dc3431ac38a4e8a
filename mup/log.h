// SPDX-License-Identifier: MIT
// Diagnostics of the messaging layer. They go to stderr, never to stdout,
// which belongs to the application; each line starts with "libmup: " and is
// written with a single write() so that lines from several threads or
// processes sharing a terminal do not interleave.
#ifndef MUP_LOG_H
#define MUP_LOG_H

#include <chrono>

namespace mup
{

void logLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Lines of one kind at most once a second, for what a hostile peer could
// otherwise repeat without end (refused connections, dropped ones): those
// held back meanwhile are counted, and the count goes out with the next line
// of the kind, or on its own from flush() once the second is over. Not
// thread-safe: one owner thread.
class ThrottledLog
{
public:
    using Clock = std::chrono::steady_clock;

    // `what` names the lines in the count ("refusals").
    explicit ThrottledLog(const char* what) : m_what(what) {}

    // Logs "<service>: <text>", or counts it when a line went out less than a
    // second ago.
    void line(const char* service, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // Logs the count of lines held back once their second is over.
    void flush(const char* service);
    // When flush() will have something to say; Clock::time_point::max() when
    // nothing is held back.
    Clock::time_point due() const { return m_held ? m_next : Clock::time_point::max(); }

private:
    const char* const m_what;
    Clock::time_point m_next{};
    unsigned int m_held = 0;
};

// strerror() that is safe to call from several threads and allocates
// nothing, so that it can be used on the out-of-memory path too.
const char* errorText(int error);

} // namespace mup

#endif
