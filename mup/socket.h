// SPDX-License-Identifier: MIT
// Descriptors and Unix stream sockets, with every wait bounded by a deadline.
#ifndef MUP_SOCKET_H
#define MUP_SOCKET_H

#include "base/unique_fd.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <sys/types.h>
#include <sys/uio.h>

namespace mup
{

using Clock = std::chrono::steady_clock;

// The descriptor owner shared with libzor.
using zor::UniqueFd;

// Milliseconds left until the deadline, rounded up, for poll(); 0 once passed.
int millisecondsUntil(Clock::time_point deadline);

// A stream socket connected to `path`. A listener with a full backlog makes
// connect() wait; that wait ends at the deadline. On failure the descriptor
// is invalid and *error holds the errno value (ENOENT, ECONNREFUSED, ...).
// The socket is blocking (replies are awaited with SO_RCVTIMEO) and
// close-on-exec.
UniqueFd connectStream(const std::string& path, Clock::time_point deadline, int* error);

// Sends all the bytes described by iov, without ever raising SIGPIPE. When
// the socket has no room, waitForRoom() is called: 0 to try again, else the
// errno value to give up with (ETIMEDOUT once a deadline passed). Returns 0
// or that errno value. *sent tells how many bytes went out, so that the
// caller knows whether the stream is still aligned on frames.
int sendAll(int fd, const iovec* iov, int count, const std::function<int()>& waitForRoom,
            size_t* sent);

// Bumped in a child process after fork(): connections made before belong to
// the parent and must not be used by the child.
unsigned int forkGeneration();

} // namespace mup

#endif
