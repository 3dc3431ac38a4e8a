// SPDX-License-Identifier: MIT
// A file descriptor that closes itself.
#ifndef ZOR_AUDIO_UNIQUE_FD_H
#define ZOR_AUDIO_UNIQUE_FD_H

#include <unistd.h>
#include <utility>

namespace zor::audio
{

class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
            reset(std::exchange(other.m_fd, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    void reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

} // namespace zor::audio

#endif
