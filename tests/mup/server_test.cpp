// SPDX-License-Identifier: MIT
// Servers and clients in one process, through the internal classes, as the
// simulator uses them: descriptors and threads are given back, the handler's
// failures stay on the server's side, stopping is clean.
#include "mup/client.h"
#include "mup/server.h"
#include "tests/mup/mup_test_util.h"
#include "tests/support/process_counts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace
{

using namespace mup_test;

constexpr unsigned int kEcho = 1;
constexpr unsigned int kThrow = 2;
constexpr unsigned int kStopSelf = 3;
constexpr unsigned int kOversizedReply = 4;

class Handler : public OXAPC::C_OXAAVSServerHandler
{
public:
    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int flags) override
    {
        ++calls;
        lastFlags = flags;
        switch (cmd) {
        case kThrow:
            if (out)
                out->writeInt32(99); // dropped: the reply goes out empty
            throw std::runtime_error("handler trouble");
        case kStopSelf:
            if (server)
                server->stop();
            break;
        case kOversizedReply:
            if (out) {
                Bytes big(1048577, 1);
                writeBytes(*out, big);
            }
            break;
        }
        if (out) {
            Bytes rest(in.remaining());
            in.read(rest.data(), static_cast<unsigned int>(rest.size()));
            writeBytes(*out, rest);
        }
        return 0;
    }

    std::atomic<int> calls{0};
    std::atomic<unsigned int> lastFlags{0xFFFFFFFF};
    mup::Server* server = nullptr;
};

TEST(Lifecycle, NoDescriptorOrThreadOutlivesItsObject)
{
    TestRuntime runtime;
    Handler handler;
    // One cycle first: a sanitizer starts a helper thread with the first
    // thread of the process.
    mup::Server::start("svc.warmup", handler).reset();
    const int fdsBefore = zor::test::openFdCount();
    const int threadsBefore = zor::test::settledThreadCount();

    {
        std::unique_ptr<mup::Server> server = mup::Server::start("svc.cycle", handler);
        ASSERT_NE(server, nullptr);
        for (int i = 0; i < 200; ++i) {
            mup::Client client("svc.cycle");
            MUPParam in;
            in.writeInt32(i);
            MUPParam out;
            ASSERT_EQ(client.transmit(kEcho, in, &out), 0);
            ASSERT_EQ(out.readInt32(), i);
            // A one-way command too, and a client that never connects.
            ASSERT_EQ(client.transmit(kEcho, in, nullptr), 0);
            mup::Client idle("svc.cycle");
        }
        // Failed connections leave nothing behind either.
        for (int i = 0; i < 20; ++i) {
            mup::Client client("svc.nobody");
            MUPParam in;
            MUPParam out;
            ASSERT_EQ(client.transmit(kEcho, in, &out), -1);
        }
    }
    for (int i = 0; i < 20; ++i) {
        std::unique_ptr<mup::Server> server = mup::Server::start("svc.cycle", handler);
        ASSERT_NE(server, nullptr);
        server->stop();
    }

    EXPECT_EQ(zor::test::openFdCount(), fdsBefore);
    EXPECT_TRUE(zor::test::waitForThreadCount(threadsBefore));
    EXPECT_EQ(zor::test::settledThreadCount(), threadsBefore);
}

TEST(Handler, ThrowingHandlerGivesAnEmptyReplyAndServingGoesOn)
{
    TestRuntime runtime;
    Handler handler;
    std::unique_ptr<mup::Server> server = mup::Server::start("svc.throws", handler);
    ASSERT_NE(server, nullptr);
    mup::Client client("svc.throws");

    MUPParam in;
    in.writeInt32(5);
    MUPParam out;
    EXPECT_EQ(client.transmit(kThrow, in, &out), 0);
    EXPECT_EQ(out.size(), 0u);
    EXPECT_EQ(out.readInt32(), -1);

    EXPECT_EQ(client.transmit(kOversizedReply, in, &out), 0);
    EXPECT_EQ(out.size(), 0u) << "a reply too large for a frame goes out empty";

    EXPECT_EQ(client.transmit(kEcho, in, &out), 0);
    EXPECT_EQ(out.readInt32(), 5);
    EXPECT_EQ(handler.lastFlags.load(), 0u);
}

TEST(Handler, StopFromTheHandlerEndsServingWithoutDeadlock)
{
    TestRuntime runtime;
    Handler handler;
    std::unique_ptr<mup::Server> server = mup::Server::start("svc.selfstop", handler);
    ASSERT_NE(server, nullptr);
    handler.server = server.get();
    mup::Client client("svc.selfstop");

    MUPParam in;
    MUPParam out;
    // The reply to the stopping command may or may not go out; after it the
    // service is gone.
    client.transmit(kStopSelf, in, &out);
    mup::Client later("svc.selfstop");
    EXPECT_EQ(later.transmit(kEcho, in, &out), -1);
    server.reset();
    EXPECT_NE(access(runtime.socketPath("svc.selfstop").c_str(), F_OK), 0);
}

TEST(Lifecycle, StoppedServerFailsWaitingCallersAtOnce)
{
    TestRuntime runtime("20000");
    Handler handler;
    std::unique_ptr<mup::Server> server = mup::Server::start("svc.stopping", handler);
    ASSERT_NE(server, nullptr);
    mup::Client client("svc.stopping");
    MUPParam in;
    MUPParam out;
    ASSERT_EQ(client.transmit(kEcho, in, &out), 0);

    server.reset();
    const auto start = SteadyClock::now();
    EXPECT_EQ(client.transmit(kEcho, in, &out), -1);
    EXPECT_LT(std::chrono::duration<double>(SteadyClock::now() - start).count(), 10.0);

    // A new server under the same name is found by the same client.
    server = mup::Server::start("svc.stopping", handler);
    ASSERT_NE(server, nullptr);
    in.writeInt32(77);
    EXPECT_EQ(client.transmit(kEcho, in, &out), 0);
    EXPECT_EQ(out.readInt32(), 77);
}

TEST(Lifecycle, SecondServerOnTheSameNameIsRefused)
{
    TestRuntime runtime;
    Handler handler;
    std::unique_ptr<mup::Server> first = mup::Server::start("svc.once", handler);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(mup::Server::start("svc.once", handler), nullptr);
    // The refused attempt did not take the first one's socket away.
    mup::Client client("svc.once");
    MUPParam in;
    MUPParam out;
    EXPECT_EQ(client.transmit(kEcho, in, &out), 0);
}

TEST(Concurrency, ManyClientsOnManyThreads)
{
    TestRuntime runtime("5000");
    Handler handler;
    std::unique_ptr<mup::Server> server = mup::Server::start("svc.busy", handler);
    ASSERT_NE(server, nullptr);

    // Several clients, each shared by several threads.
    constexpr int kClients = 3;
    constexpr int kThreadsPerClient = 3;
    constexpr int kCalls = 300;
    std::vector<std::unique_ptr<mup::Client>> clients;
    for (int c = 0; c < kClients; ++c)
        clients.push_back(std::make_unique<mup::Client>("svc.busy"));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < kClients; ++c) {
        for (int t = 0; t < kThreadsPerClient; ++t) {
            threads.emplace_back([&, c, t] {
                for (int i = 0; i < kCalls; ++i) {
                    MUPParam in;
                    in.writeInt32(c);
                    in.writeInt32(t);
                    in.writeInt32(i);
                    MUPParam out;
                    // Every tenth call does not wait for a reply.
                    if (i % 10 == 9) {
                        wrong += clients[c]->transmit(kEcho, in, nullptr) != 0;
                        continue;
                    }
                    if (clients[c]->transmit(kEcho, in, &out) != 0 || bytesOf(out) != bytesOf(in))
                        ++wrong;
                }
            });
        }
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    // A connection is served in order: once a reply is back, every one-way
    // command sent before it on that client has been handled.
    for (auto& client : clients) {
        MUPParam in;
        MUPParam out;
        EXPECT_EQ(client->transmit(kEcho, in, &out), 0);
    }
    EXPECT_EQ(handler.calls.load(), kClients * kThreadsPerClient * kCalls + kClients);
}

} // namespace
