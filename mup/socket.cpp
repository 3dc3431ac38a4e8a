// SPDX-License-Identifier: MIT
#include "mup/socket.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace mup
{

int millisecondsUntil(Clock::time_point deadline)
{
    const auto left = deadline - Clock::now();
    if (left <= Clock::duration::zero())
        return 0;
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::min<decltype(ms)>(ms, INT_MAX));
}

UniqueFd connectStream(const std::string& path, Clock::time_point deadline, int* error)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        *error = ENAMETOOLONG;
        return {};
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);

    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.valid()) {
        *error = errno;
        return {};
    }

    // A blocking connect() on a Unix socket waits for backlog room for as long
    // as the send timeout allows.
    const auto left =
        std::max<Clock::duration>(deadline - Clock::now(), std::chrono::milliseconds(1));
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(left).count();
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(us / 1000000);
    limit.tv_usec = static_cast<suseconds_t>(us % 1000000);
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));

    for (;;) {
        if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
            return fd;
        if (errno != EINTR || Clock::now() >= deadline)
            break;
    }
    *error = errno == EAGAIN ? ETIMEDOUT : errno;
    return {};
}

int sendAll(int fd, const iovec* iov, int count, const std::function<int()>& waitForRoom,
            size_t* sent)
{
    *sent = 0;
    // A copy that can be advanced past what has gone out.
    iovec pending[4];
    count = std::min(count, 4);
    std::copy(iov, iov + count, pending);
    int first = 0;
    while (first < count && pending[first].iov_len == 0)
        ++first;

    while (first < count) {
        msghdr message{};
        message.msg_iov = pending + first;
        message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count - first);
        const ssize_t written = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                return errno;
            if (const int error = waitForRoom())
                return error;
            continue;
        }

        *sent += static_cast<size_t>(written);
        size_t left = static_cast<size_t>(written);
        while (first < count && left >= pending[first].iov_len) {
            left -= pending[first].iov_len;
            ++first;
        }
        if (first < count) {
            pending[first].iov_base = static_cast<char*>(pending[first].iov_base) + left;
            pending[first].iov_len -= left;
        }
    }
    return 0;
}

namespace
{

std::atomic<unsigned int> g_forkGeneration{0};

void afterForkInChild()
{
    g_forkGeneration.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

unsigned int forkGeneration()
{
    static std::once_flag registered;
    std::call_once(registered, [] { pthread_atfork(nullptr, nullptr, afterForkInChild); });
    return g_forkGeneration.load(std::memory_order_relaxed);
}

} // namespace mup
