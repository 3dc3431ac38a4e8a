// Diagnostics of the messaging layer. They go to stderr, never to stdout,
// which belongs to the application; each line starts with "libmup: " and is
// written with a single write() so that lines from several threads or
// processes sharing a terminal do not interleave.
#ifndef MUP_LOG_H
#define MUP_LOG_H

namespace mup
{

void logLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

// strerror() that is safe to call from several threads and allocates
// nothing, so that it can be used on the out-of-memory path too.
const char* errorText(int error);

} // namespace mup

#endif
