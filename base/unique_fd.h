// SPDX-License-Identifier: MIT
// Owns one file descriptor and closes it once. Header-only, for libmup and
// libzor alike. Not thread-safe: one owner at a time, handed on by moving.
#ifndef ZOR_BASE_UNIQUE_FD_H
#define ZOR_BASE_UNIQUE_FD_H

#include <unistd.h>
#include <utility>

namespace zor
{

class UniqueFd
{
public:
    UniqueFd() = default;
    // Takes ownership of `fd`; a negative value means none.
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    // Gives the descriptor up without closing it; the caller owns it.
    int release() { return std::exchange(m_fd, -1); }
    // Closes the descriptor held, if any, and takes `fd`.
    void reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

} // namespace zor

#endif
