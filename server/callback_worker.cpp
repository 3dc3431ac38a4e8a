// SPDX-License-Identifier: MIT
#include "server/callback_worker.h"

#include "base/log.h"

#include <mutex>
#include <sys/prctl.h>
#include <unistd.h>

namespace zor::server
{

namespace
{

// Several servers (one per application type) may share the one server object,
// each on its own thread. It guards only the server object's thread handles,
// so it stays here on its own.
std::mutex gWorkerCreation;

constexpr useconds_t kPollInterval = 200000;

} // namespace

void CallbackWorker::request(pthread_t& handle) const
{
    {
        std::lock_guard<std::mutex> guard(gWorkerCreation);
        if (handle == 0) {
            pthread_t thread = 0;
            if (pthread_create(&thread, nullptr, m_entry, nullptr) != 0) {
                ZOR_PRINT("thread creation failed!");
            } else {
                // Lives until the process ends; nothing ever joins it.
                pthread_detach(thread);
                handle = thread;
            }
        }
    }
    m_pending.store(1, std::memory_order_release);
}

void CallbackWorker::run(const char* function) const
{
    prctl(PR_SET_NAME, m_threadName, 0, 0, 0);
    for (;;) {
        // The exchange both clears the flag and makes the latch written before
        // the latest raise visible.
        if (m_pending.load(std::memory_order_relaxed) != 0 &&
            m_pending.exchange(0, std::memory_order_acquire) != 0) {
            log::line(log::Family::Server, function, __LINE__, "in  %s\n", m_callbackName);
            m_call();
            log::line(log::Family::Server, function, __LINE__, "out  %s\n", m_callbackName);
        }
        usleep(kPollInterval);
    }
}

} // namespace zor::server
