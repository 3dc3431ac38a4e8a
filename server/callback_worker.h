// SPDX-License-Identifier: MIT
// A callback worker: a thread that calls one application callback away from
// the server thread, so that the reply to the middleware never waits for it.
// The server object holds the thread handle (0 until the thread exists); the
// worker's pending flag is a process-wide byte. The server thread latches the
// callback's argument, then raises the flag with release order; the worker
// polls the flag every 200 ms, takes it with acquire order (clearing it) and
// only then reads the latch and calls, so it always calls with the latest
// argument. Requests that arrive before the next poll merge into one call; one
// that arrives while the callback runs makes one more call after it.
#ifndef ZOR_SERVER_CALLBACK_WORKER_H
#define ZOR_SERVER_CALLBACK_WORKER_H

#include <atomic>
#include <cstdint>
#include <pthread.h>

namespace zor::server
{

class CallbackWorker
{
public:
    // `pending`: the worker's flag. `threadName`: the thread's name (15
    // characters at most). `callbackName`: the slot's name, for the "in" and
    // "out" log lines. `call`: reads the latched argument and calls the slot
    // as it is at that moment (skipping a slot cleared meanwhile); runs on the
    // worker thread. `entry`: the thread's entry function, which calls run().
    constexpr CallbackWorker(std::atomic<uint8_t>& pending, const char* threadName,
                             const char* callbackName, void (*call)(), void* (*entry)(void*))
        : m_pending(pending), m_threadName(threadName), m_callbackName(callbackName), m_call(call),
          m_entry(entry)
    {
    }

    // Server thread, after the argument has been latched. Creates the thread
    // when `handle` is 0 (default attributes, detached, never joined) and
    // stores its id there; if creation fails, prints "thread creation
    // failed!" and leaves `handle` 0, so that the next request tries again.
    // Then raises the pending flag, whether or not the thread exists.
    // Creation is serialised across the servers that share the object.
    void request(pthread_t& handle) const;

    // The worker thread's loop, for the life of the process. `function` is the
    // entry function's name, which the log lines carry.
    [[noreturn]] void run(const char* function) const;

private:
    std::atomic<uint8_t>& m_pending;
    const char* const m_threadName;
    const char* const m_callbackName;
    void (*const m_call)();
    void* (*const m_entry)(void*);
};

} // namespace zor::server

#endif
