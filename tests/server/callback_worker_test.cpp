// SPDX-License-Identifier: MIT
// The callback worker on its own: how requests merge into calls, which
// thread calls, and that the thread is made once. Each scenario has a worker
// of its own (the threads live until the process ends), whose entry function
// waits for the scenario's word before it starts polling, and whose callback
// records the latched argument and can be held while the scenario goes on.
#include "base/no_destructor.h"
#include "server/callback_worker.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

using zor::server::CallbackWorker;

namespace
{

// Generous: the worker polls every 200 ms; nothing is measured against it.
constexpr std::chrono::seconds kPatience{10};

struct Call {
    int argument;
    pthread_t thread;
    std::string threadName;
};

// One worker's world. `pending` and `latched` are what a server object has;
// the rest is the test's record, under `lock`.
struct Slot {
    std::atomic<uint8_t> pending{0};
    std::atomic<int> latched{0};
    pthread_t handle = 0; // the test thread's only

    std::mutex lock;
    std::condition_variable changed;
    bool started = false; // the entry function may run the loop
    bool holdCalls = false;
    bool callHeld = false;
    std::vector<Call> calls;

    // The worker's callback: records, then waits while calls are held.
    void call()
    {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        std::unique_lock<std::mutex> guard(lock);
        calls.push_back({latched.load(std::memory_order_relaxed), pthread_self(), name});
        callHeld = holdCalls;
        changed.notify_all();
        changed.wait(guard, [this] { return !holdCalls; });
        callHeld = false;
    }

    void waitForStart()
    {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait(guard, [this] { return started; });
    }

    template <typename Predicate> bool waitFor(Predicate done)
    {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, kPatience, [&] { return done(*this); });
    }

    template <typename Change> void update(Change change)
    {
        {
            std::lock_guard<std::mutex> guard(lock);
            change(*this);
        }
        changed.notify_all();
    }
};

constexpr size_t kSlots = 3;
constexpr const char* kThreadNames[kSlots] = {"cbw_before", "cbw_during", "cbw_after"};

Slot& slot(size_t index)
{
    // Never destroyed: the workers outlive the tests.
    static zor::NoDestructor<std::array<Slot, kSlots>> slots;
    return (*slots)[index];
}

const CallbackWorker& workerOf(size_t index);

template <size_t K> void callSlot()
{
    slot(K).call();
}

template <size_t K> [[noreturn]] void* runSlot(void*)
{
    slot(K).waitForStart();
    workerOf(K).run("runSlot");
}

template <size_t... K> std::array<CallbackWorker, kSlots> makeWorkers(std::index_sequence<K...>)
{
    return {CallbackWorker{slot(K).pending, kThreadNames[K], "testCallback", callSlot<K>,
                           runSlot<K>}...};
}

const CallbackWorker& workerOf(size_t index)
{
    static const std::array<CallbackWorker, kSlots> workers =
        makeWorkers(std::make_index_sequence<kSlots>());
    return workers[index];
}

// What a scenario does, in order, from the test thread.
enum class Step {
    Request,   // latch `value` and request a call
    Start,     // let the worker thread start polling
    Hold,      // calls from now on wait in the callback until Release
    WaitHeld,  // until a call waits in the callback
    Release,   // let held calls return
    WaitCalls, // until `value` calls were made
};

struct Action {
    Step step;
    int value = 0;
};

struct Scenario {
    const char* name;
    std::vector<Action> actions;
    std::vector<int> arguments; // of the calls made, in order
};

// Runs a scenario's actions on slot `index`; checks every request's handle.
void play(size_t index, const Scenario& scenario)
{
    Slot& s = slot(index);
    for (const Action& action : scenario.actions) {
        switch (action.step) {
        case Step::Request: {
            const pthread_t before = s.handle;
            s.latched.store(action.value, std::memory_order_relaxed);
            workerOf(index).request(s.handle);
            ASSERT_NE(s.handle, pthread_t{0}) << "no thread after a request";
            if (before != 0) {
                ASSERT_TRUE(pthread_equal(before, s.handle)) << "a second thread was made";
            }
            break;
        }
        case Step::Start:
            s.update([](Slot& t) { t.started = true; });
            break;
        case Step::Hold:
            s.update([](Slot& t) { t.holdCalls = true; });
            break;
        case Step::WaitHeld:
            ASSERT_TRUE(s.waitFor([](const Slot& t) { return t.callHeld; }))
                << "no call came to be held";
            break;
        case Step::Release:
            s.update([](Slot& t) { t.holdCalls = false; });
            break;
        case Step::WaitCalls:
            ASSERT_TRUE(s.waitFor([&](const Slot& t) {
                return t.calls.size() >= static_cast<size_t>(action.value);
            })) << "fewer than "
                << action.value << " calls";
            break;
        }
    }
}

TEST(CallbackWorker, MergesRequestsAndCallsOnItsOwnNamedThread)
{
    // Each scenario waits for the calls it expects; then a last request (99)
    // is made while the last of them runs or after it, so its call comes
    // next: any call more than expected shows up before it.
    const Scenario scenarios[kSlots] = {
        {"requests before the first poll merge into one call with the latest argument",
         {{Step::Request, 1},
          {Step::Request, 2},
          {Step::Request, 3},
          {Step::Start},
          {Step::WaitCalls, 1}},
         {3, 99}},
        {"requests while the callback runs make exactly one more call, after it",
         {{Step::Start},
          {Step::Hold},
          {Step::Request, 1},
          {Step::WaitHeld},
          {Step::Request, 2},
          {Step::Request, 3},
          {Step::Release},
          {Step::WaitCalls, 2}},
         {1, 3, 99}},
        {"a request after a call makes its own call",
         {{Step::Start},
          {Step::Request, 1},
          {Step::WaitCalls, 1},
          {Step::Request, 2},
          {Step::WaitCalls, 2}},
         {1, 2, 99}},
    };
    const pthread_t testThread = pthread_self();
    for (size_t index = 0; index < kSlots; ++index) {
        const Scenario& scenario = scenarios[index];
        SCOPED_TRACE(scenario.name);
        Scenario whole = scenario;
        whole.actions.push_back({Step::Request, 99});
        whole.actions.push_back({Step::WaitCalls, static_cast<int>(scenario.arguments.size())});
        play(index, whole);
        if (testing::Test::HasFatalFailure())
            return;

        Slot& s = slot(index);
        std::lock_guard<std::mutex> guard(s.lock);
        std::vector<int> arguments;
        for (const Call& call : s.calls) {
            arguments.push_back(call.argument);
            EXPECT_TRUE(pthread_equal(call.thread, s.handle)) << "not the worker's thread";
            EXPECT_FALSE(pthread_equal(call.thread, testThread)) << "called on the caller";
            EXPECT_EQ(call.threadName, kThreadNames[index]);
        }
        EXPECT_EQ(arguments, scenario.arguments);
    }
}

} // namespace
