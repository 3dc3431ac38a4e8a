// SPDX-License-Identifier: MIT
// How many descriptors and threads this process holds, for the tests that
// check that objects give back what they took.
#ifndef ZOR_TESTS_SUPPORT_PROCESS_COUNTS_H
#define ZOR_TESTS_SUPPORT_PROCESS_COUNTS_H

#include <chrono>
#include <dirent.h>
#include <thread>

namespace zor::test
{

inline int countDirEntries(const char* path)
{
    int count = 0;
    if (DIR* dir = opendir(path)) {
        while (dirent* entry = readdir(dir))
            count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

inline int openFdCount()
{
    return countDirEntries("/proc/self/fd") - 1; // the listing's own descriptor
}

inline int threadCount()
{
    return countDirEntries("/proc/self/task");
}

// Polls until the thread count is at most `count`; false after `timeoutMs`.
inline bool waitForThreadCount(int count, int timeoutMs = 5000)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (threadCount() > count) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The thread count once it has held still for 300 ms (at most 10 s). Under
// qemu-arm a joined thread stays listed until its host thread is gone, so a
// count taken right after a join can be one too high; a baseline taken that
// way would let a later wait return before the thread under test has ended.
inline int settledThreadCount()
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    int count = threadCount();
    auto since = Clock::now();
    while (Clock::now() - since < std::chrono::milliseconds(300) && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const int now = threadCount();
        if (now != count) {
            count = now;
            since = Clock::now();
        }
    }
    return count;
}

} // namespace zor::test

#endif
