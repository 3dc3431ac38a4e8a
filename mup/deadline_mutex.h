// SPDX-License-Identifier: MIT
// A mutex whose waiters give up at a deadline. std::timed_mutex would do, but
// its steady-clock wait goes through pthread_mutex_clocklock, which the
// thread sanitizer does not follow; this one waits on a condition variable,
// which it does. Uncontended, it costs no system call.
#ifndef MUP_DEADLINE_MUTEX_H
#define MUP_DEADLINE_MUTEX_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace mup
{

class DeadlineMutex
{
public:
    DeadlineMutex() = default;
    DeadlineMutex(const DeadlineMutex&) = delete;
    DeadlineMutex& operator=(const DeadlineMutex&) = delete;

    template <typename Clock, typename Duration>
    bool try_lock_until(const std::chrono::time_point<Clock, Duration>& deadline)
    {
        std::unique_lock<std::mutex> guard(m_lock);
        if (!m_freed.wait_until(guard, deadline, [this] { return !m_held; }))
            return false;
        m_held = true;
        return true;
    }

    void lock()
    {
        std::unique_lock<std::mutex> guard(m_lock);
        m_freed.wait(guard, [this] { return !m_held; });
        m_held = true;
    }

    void unlock()
    {
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_held = false;
        }
        m_freed.notify_one();
    }

private:
    std::mutex m_lock;
    std::condition_variable m_freed;
    bool m_held = false;
};

} // namespace mup

#endif
