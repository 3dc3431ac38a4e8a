// SPDX-License-Identifier: MIT
// The three callbacks that run on worker threads: requests that arrive while
// a call is pending merge into one call with the latest argument, a request
// during a running call gives exactly one more call, and no worker callback
// runs on the server thread.
#include "tests/server/inbound_harness.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zor::test;
using testing::ElementsAre;

namespace
{

constexpr const char* kAvsServer = "oxa.kel.idtv.client";

class CallbackWorkersTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        usePrivateRuntimeDir("zor-workers");
        ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
    }

    void SetUp() override
    {
        registerRecordingCallbacks();
        clearRecordedEvents();
        openWorkerGate();
    }

    void TearDown() override { openWorkerGate(); }

    static bool waitForEntries(int count)
    {
        for (int i = 0; i < 300 && workerEntries() < count; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return workerEntries() >= count;
    }

    // Long enough for a worker to poll twice more: nothing further may come.
    static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(600)); }

    // The server thread, as seen by a synchronous callback.
    static std::thread::id serverThread()
    {
        const size_t before = recordedEvents().size();
        sendInbound(kAvsServer, {"10010001"});
        auto events = waitForEvents(before + 1);
        return events.back().thread;
    }
};

// While the first call is held inside the callback, further requests only
// raise the pending flag again: after the release they give one more call.
struct MergeCase {
    const char* name;
    const char* first;                  // the request that starts the busy call
    std::vector<std::string> whileBusy; // requests arriving during it
    std::vector<std::string> expected;  // the calls the application sees
};

const MergeCase kMergeCases[] = {
    {"tapped", "10010007", {"10010007", "10010007", "10010007"}, {"tapped", "tapped"}},
    {"hold", "1001000c:01", {"1001000c:01", "1001000c:00"}, {"hold(1)", "hold(0)"}},
    {"control changed",
     "10020001:03000000",
     {"10020001:05000000"},
     {"control-changed(3)", "control-changed(5)"}},
};

TEST_F(CallbackWorkersTest, RequestsDuringARunningCallGiveExactlyOneMoreCallWithTheLatestArgument)
{
    for (const MergeCase& c : kMergeCases) {
        SCOPED_TRACE(c.name);
        clearRecordedEvents();
        closeWorkerGate();

        auto lines = sendInbound(kAvsServer, {c.first});
        ASSERT_EQ(lines.size(), 1u);
        // The reply does not wait for the callback.
        EXPECT_EQ(replyOf(lines[0]), "00000000");
        ASSERT_TRUE(waitForEntries(1));

        lines = sendInbound(kAvsServer, c.whileBusy);
        for (const std::string& line : lines)
            EXPECT_EQ(replyOf(line), "00000000");
        EXPECT_EQ(workerEntries(), 1);

        openWorkerGate();
        waitForEvents(c.expected.size());
        settle();
        EXPECT_EQ(eventTexts(recordedEvents()), c.expected);
    }
}

TEST_F(CallbackWorkersTest, WorkerCallbacksNeverRunOnTheServerThread)
{
    const std::thread::id server = serverThread();
    clearRecordedEvents();
    sendInbound(kAvsServer, {"10010007", "1001000c:01", "10020001:02000000"});
    auto events = waitForEvents(3);
    settle();
    events = recordedEvents();
    ASSERT_EQ(events.size(), 3u);
    std::vector<std::thread::id> threads;
    for (const CallbackEvent& event : events) {
        EXPECT_NE(event.thread, server) << event.text;
        EXPECT_NE(event.thread, std::this_thread::get_id()) << event.text;
        threads.push_back(event.thread);
    }
    // One worker per callback.
    EXPECT_NE(threads[0], threads[1]);
    EXPECT_NE(threads[1], threads[2]);
    EXPECT_NE(threads[0], threads[2]);
}

TEST_F(CallbackWorkersTest, CallbackClearedBeforeThePollIsNotCalled)
{
    closeWorkerGate();
    sendInbound(kAvsServer, {"10010007"});
    ASSERT_TRUE(waitForEntries(1));
    sendInbound(kAvsServer, {"10010007"});
    ZOR_MicButtonTapped_register_callback(nullptr);
    openWorkerGate();
    settle();
    EXPECT_THAT(eventTexts(recordedEvents()), ElementsAre("tapped"));
}

} // namespace
