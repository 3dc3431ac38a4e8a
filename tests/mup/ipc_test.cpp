// SPDX-License-Identifier: MIT
// The messaging layer between real processes over real sockets: the client
// side in this process, the serving side in forked peers that use the
// exported API (initAVSServer), as the television middleware does.
//
// This process never runs a server thread of its own when it forks, so that
// the peers start from a single-threaded image.
#include "mup/client.h"
#include "mup/mup.h"
#include "tests/mup/mup_test_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace
{

using namespace mup_test;

// The peer's commands.
constexpr unsigned int kEcho = 0x18040003;  // replies with the request's bytes
constexpr unsigned int kSleep = 0x00000101; // waits the int32 ms it is given, then echoes the rest
constexpr unsigned int kDie = 0x00000102;   // the peer is killed while handling it
constexpr unsigned int kNote = 0x00000103;  // counted; replies nothing
constexpr unsigned int kCount = 0x00000104; // notes seen, and how many came without `out`
constexpr unsigned int kPid = 0x00000105;   // the peer's process id

class PeerHandler : public OXAPC::C_OXAAVSServerHandler
{
public:
    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int) override
    {
        switch (cmd) {
        case kSleep:
            usleep(static_cast<useconds_t>(in.readInt32()) * 1000);
            echo(in, out);
            return 0;
        case kEcho:
            echo(in, out);
            return 0;
        case kDie:
            raise(SIGKILL);
            return 0;
        case kNote:
            ++m_notes;
            if (!out)
                ++m_notesWithoutReply;
            return 0;
        case kCount:
            out->writeInt32(m_notes);
            out->writeInt32(m_notesWithoutReply);
            return 0;
        case kPid:
            out->writeInt32(getpid());
            return 0;
        }
        return -1;
    }

private:
    static void echo(MUPParam& in, MUPParam* out)
    {
        if (!out)
            return;
        Bytes rest(in.remaining());
        in.read(rest.data(), static_cast<unsigned int>(rest.size()));
        out->write(rest.data(), static_cast<unsigned int>(rest.size()));
    }

    int m_notes = 0;
    int m_notesWithoutReply = 0;
};

// A peer process serving `service`.
class Peer : public ServingProcess
{
public:
    explicit Peer(const std::string& service, const std::string& stderrPath = {})
        : ServingProcess(service, servingBody<PeerHandler>(service), stderrPath)
    {
    }
};

int transmit(unsigned int cmd, const Bytes& request, Bytes* reply)
{
    MUPParam in;
    writeBytes(in, request);
    MUPParam out;
    const int result = OXA_TVC_TransmitCommand(cmd, in, &out, 0);
    if (reply)
        *reply = bytesOf(out);
    return result;
}

int peerPid()
{
    MUPParam in;
    MUPParam out;
    if (OXA_TVC_TransmitCommand(kPid, in, &out, 0) != 0)
        return -1;
    return out.readInt32();
}

double millisecondsSince(SteadyClock::time_point start)
{
    return std::chrono::duration<double, std::milli>(SteadyClock::now() - start).count();
}

TEST(RoundTrip, RequestReachesThePeerAndItsReplyComesBack)
{
    TestRuntime runtime;
    Peer peer("oxa.kel.avs.client");
    ASSERT_TRUE(peer.connectClient());

    Bytes large(1048576);
    for (size_t i = 0; i < large.size(); ++i)
        large[i] = static_cast<unsigned char>(i % 251);
    const std::vector<Bytes> requests = {
        {},    {0x1E, 0x00, 0x00, 0x00}, {0x00, 0xFF, 0x10, 0x20, 0x30}, Bytes(70000, 0xA5),
        large, // the largest payload a frame may carry
    };
    for (const Bytes& request : requests) {
        SCOPED_TRACE(request.size());
        Bytes reply{0xEE};
        EXPECT_EQ(transmit(kEcho, request, &reply), 0);
        EXPECT_EQ(reply, request);
    }
    EXPECT_EQ(peerPid(), peer.pid());
}

TEST(RoundTrip, OneWayCommandRunsTheHandlerAndIsNotAnswered)
{
    TestRuntime runtime;
    Peer peer("svc.oneway");
    ASSERT_TRUE(peer.connectClient());

    MUPParam in;
    in.writeInt32(5);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(OXA_TVC_TransmitCommand(kNote, in, nullptr, 0), 0);
    MUPParam counts;
    MUPParam none;
    ASSERT_EQ(OXA_TVC_TransmitCommand(kCount, none, &counts, 0), 0);
    EXPECT_EQ(counts.readInt32(), 3) << "notes handled";
    EXPECT_EQ(counts.readInt32(), 3) << "notes handed to the handler without an out buffer";

    // On the wire: no reply may come for the kind-2 frame, so the first bytes
    // read back are the reply to the kind-1 frame that follows it.
    const int fd = connectRaw(runtime.socketPath("svc.oneway"));
    ASSERT_GE(fd, 0);
    const Bytes oneWay = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x02, 0x00, 0x05, 0x00,
                          0x00, 0x00, 0x03, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    const Bytes request = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x01, 0x00, 0x06, 0x00, 0x00,
                           0x00, 0x03, 0x00, 0x04, 0x18, 0x02, 0x00, 0x00, 0x00, 0x41, 0x42};
    ASSERT_TRUE(sendRaw(fd, oneWay));
    ASSERT_TRUE(sendRaw(fd, request));
    const Bytes expectedReply = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x03, 0x00, 0x06, 0x00, 0x00,
                                 0x00, 0x03, 0x00, 0x04, 0x18, 0x02, 0x00, 0x00, 0x00, 0x41, 0x42};
    EXPECT_EQ(receiveRaw(fd, expectedReply.size()), expectedReply);
    close(fd);

    ASSERT_EQ(OXA_TVC_TransmitCommand(kCount, none, &counts, 0), 0);
    EXPECT_EQ(counts.readInt32(), 4);
}

TEST(RoundTrip, ConcurrentCallersEachGetTheirOwnReply)
{
    TestRuntime runtime("5000");
    Peer peer("svc.concurrent");
    ASSERT_TRUE(peer.connectClient());

    const EchoTally tally = echoFromThreads(kEcho, 8, 1000, [](int t, int i) {
        MUPParam request;
        request.writeInt32(t);
        request.writeInt32(i);
        // Sizes differ per thread so that replies are not all alike.
        writeBytes(request,
                   Bytes(static_cast<size_t>(t * 16 + i % 7), static_cast<unsigned char>(t)));
        return bytesOf(request);
    });
    EXPECT_EQ(tally.failures, 0);
    EXPECT_EQ(tally.mismatches, 0);
}

TEST(RoundTrip, ReplyAfterTheCallerGaveUpIsNotTakenByTheNextCall)
{
    TestRuntime runtime("400");
    Peer peer("svc.late");
    ASSERT_TRUE(peer.connectClient());

    MUPParam slow;
    slow.writeInt32(800);
    writeBytes(slow, {'l', 'a', 't', 'e'});
    MUPParam out;
    const auto start = SteadyClock::now();
    EXPECT_EQ(OXA_TVC_TransmitCommand(kSleep, slow, &out, 0), -1);
    EXPECT_GE(millisecondsSince(start), 390.0);
    EXPECT_EQ(out.size(), 0u);
    EXPECT_EQ(out.readInt32(), -1);

    // Let the late reply reach this process's socket before the next call.
    usleep(700 * 1000);
    Bytes reply;
    EXPECT_EQ(transmit(kEcho, {'m', 'i', 'n', 'e'}, &reply), 0);
    EXPECT_EQ(reply, (Bytes{'m', 'i', 'n', 'e'}));

    // And a late reply still on its way while the next caller waits.
    MUPParam slower;
    slower.writeInt32(600);
    writeBytes(slower, {'o', 'l', 'd'});
    EXPECT_EQ(OXA_TVC_TransmitCommand(kSleep, slower, &out, 0), -1);
    MUPParam quick;
    quick.writeInt32(0);
    writeBytes(quick, {'n', 'e', 'w'});
    ASSERT_EQ(OXA_TVC_TransmitCommand(kSleep, quick, &out, 0), 0);
    EXPECT_EQ(bytesOf(out), (Bytes{'n', 'e', 'w'}));
}

TEST(RoundTrip, ReaderThatGivesUpHandsTheSocketToAWaitingCaller)
{
    // The first caller reads the socket and times out at 1000 ms; the second,
    // waiting since 700 ms, must take over the reading, skip the first one's
    // reply (sent at 1300 ms) and take its own, well before its 1700 ms.
    TestRuntime runtime("1000");
    Peer peer("svc.handover");
    ASSERT_TRUE(peer.connectClient());

    int firstResult = 0;
    Bytes firstReply{0xEE};
    std::thread first([&] {
        MUPParam in;
        in.writeInt32(1300);
        writeBytes(in, {'f', 'i', 'r', 's', 't'});
        MUPParam out;
        firstResult = OXA_TVC_TransmitCommand(kSleep, in, &out, 0);
        firstReply = bytesOf(out);
    });
    usleep(700 * 1000);
    Bytes secondReply;
    const int secondResult = transmit(kEcho, {'s', 'e', 'c', 'o', 'n', 'd'}, &secondReply);
    first.join();

    EXPECT_EQ(firstResult, -1);
    EXPECT_EQ(firstReply, Bytes{});
    EXPECT_EQ(secondResult, 0);
    EXPECT_EQ(secondReply, (Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
}

TEST(PeerFailure, UnreachableServiceFailsAtOnceWithAnEmptyReply)
{
    TestRuntime runtime("20000");
    ASSERT_EQ(OXA_TVC_NewClient("nobody.serves.this"), 0);
    MUPParam in;
    in.writeInt32(30);
    MUPParam out;
    out.writeInt32(12345); // whatever was there goes
    const auto start = SteadyClock::now();
    EXPECT_EQ(OXA_TVC_TransmitCommand(kEcho, in, &out, 0), -1);
    EXPECT_LT(millisecondsSince(start), 5000.0) << "no waiting for the timeout";
    EXPECT_EQ(out.size(), 0u);
    EXPECT_EQ(out.readInt32(), -1);
    EXPECT_EQ(OXA_TVC_TransmitCommand(kEcho, in, nullptr, 0), -1);
}

TEST(PeerFailure, PeerKilledDuringTheCallFailsItPromptly)
{
    TestRuntime runtime("20000");
    Peer peer("svc.dies");
    ASSERT_TRUE(peer.connectClient());
    ASSERT_EQ(peerPid(), peer.pid());

    MUPParam in;
    MUPParam out;
    const auto start = SteadyClock::now();
    EXPECT_EQ(OXA_TVC_TransmitCommand(kDie, in, &out, 0), -1);
    EXPECT_LT(millisecondsSince(start), 10000.0) << "the call must not wait for its 20 s timeout";
    EXPECT_EQ(out.readInt32(), -1);
}

TEST(PeerFailure, RestartedPeerIsReachedByTheNextCall)
{
    TestRuntime runtime;
    ASSERT_EQ(OXA_TVC_NewClient("svc.restart"), 0);
    std::unique_ptr<Peer> peer = std::make_unique<Peer>("svc.restart");
    ASSERT_TRUE(peer->serving());
    EXPECT_EQ(peerPid(), peer->pid());

    // Gone and back before the next call: that call goes through at once.
    peer->kill();
    peer = std::make_unique<Peer>("svc.restart");
    ASSERT_TRUE(peer->serving()) << "the socket left by the killed peer is replaced";
    EXPECT_EQ(peerPid(), peer->pid());

    // Gone during a pause: calls fail, then succeed once it is back.
    peer->kill();
    EXPECT_EQ(peerPid(), -1);
    EXPECT_EQ(peerPid(), -1);
    peer = std::make_unique<Peer>("svc.restart");
    ASSERT_TRUE(peer->serving());
    EXPECT_EQ(peerPid(), peer->pid());
}

struct Counts {
    unsigned long calls = 0;
    unsigned long unanswered = 0;
    bool operator==(const Counts& o) const
    {
        return calls == o.calls && unanswered == o.unanswered;
    }
};

Counts transmitCounts()
{
    Counts counts;
    OXA_TVC_TransmitCounts(&counts.calls, &counts.unanswered);
    return counts;
}

// The status word of an emptied reply reads -1, as does a service's own -1;
// the per-thread counts tell the two apart.
TEST(PeerFailure, TransmitCountsTellNoAnswerFromAnAnsweredFailure)
{
    TestRuntime runtime;
    Peer peer("svc.count");
    ASSERT_TRUE(peer.connectClient());

    const Counts before = transmitCounts();
    // The peer's handler writes nothing for an unknown command: answered.
    Bytes reply{1};
    EXPECT_EQ(transmit(0x00000999, {}, &reply), 0);
    EXPECT_EQ(reply, Bytes{});
    EXPECT_EQ(transmitCounts(), (Counts{before.calls + 1, before.unanswered}));

    // Another thread's calls are its own.
    std::thread([] {
        ASSERT_EQ(OXA_TVC_NewClient("nobody.serves.this"), 0);
        const Counts mine = transmitCounts();
        EXPECT_EQ(transmit(kEcho, {1}, nullptr), -1);
        EXPECT_EQ(transmitCounts(), (Counts{mine.calls + 1, mine.unanswered + 1}));
    }).join();
    EXPECT_EQ(transmitCounts(), (Counts{before.calls + 1, before.unanswered}));

    // The endpoint now points at nobody: no answer, with or without `out`.
    EXPECT_EQ(transmit(kEcho, {1}, &reply), -1);
    MUPParam in;
    EXPECT_EQ(OXA_TVC_TransmitCommand(kEcho, in, nullptr, 0), -1);
    EXPECT_EQ(transmitCounts(), (Counts{before.calls + 3, before.unanswered + 2}));
    OXA_TVC_TransmitCounts(nullptr, nullptr); // either may be left out
}

// A service that went away in an orderly way between two calls leaves a dead
// kept connection; the next call goes out on a new one without an error line.
TEST(PeerFailure, KeptConnectionClosedByTheServiceIsReplacedQuietly)
{
    TestRuntime runtime;
    ASSERT_EQ(OXA_TVC_NewClient("svc.quiet"), 0);
    auto peer = std::make_unique<Peer>("svc.quiet");
    ASSERT_TRUE(peer->serving());
    ASSERT_EQ(peerPid(), peer->pid());
    peer->kill(); // the kernel closes its end: the same FIN as an exit
    peer = std::make_unique<Peer>("svc.quiet");
    ASSERT_TRUE(peer->serving());

    const std::string log = runtime.file("stderr.log");
    fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    dup2(file, STDERR_FILENO);
    close(file);
    const int pid = peerPid();
    dup2(saved, STDERR_FILENO);
    close(saved);

    EXPECT_EQ(pid, peer->pid());
    EXPECT_EQ(readFile(log), "");
}

TEST(Client, SocketPathNamesWhereAServiceIsLookedFor)
{
    TestRuntime runtime;
    const std::string expected = runtime.socketPath("svc.where");
    char path[256];
    EXPECT_EQ(OXA_TVC_SocketPath("svc.where", path, sizeof(path)),
              static_cast<int>(expected.size()));
    EXPECT_EQ(std::string(path), expected);

    const struct {
        const char* label;
        const char* name;
        unsigned int size;
    } refused[] = {
        {"null name", nullptr, sizeof(path)},
        {"empty name", "", sizeof(path)},
        {"name with a slash", "a/b", sizeof(path)},
        {"no room for the terminator", "svc.where", static_cast<unsigned int>(expected.size())},
    };
    for (const auto& c : refused) {
        path[0] = 'x';
        EXPECT_EQ(OXA_TVC_SocketPath(c.name, path, c.size), -1) << c.label;
        EXPECT_EQ(path[0], '\0') << c.label;
    }
    EXPECT_EQ(OXA_TVC_SocketPath("svc.where", nullptr, 0), -1);
}

TEST(PeerFailure, ReplacedClientEndpointIsUsedByTheNextCall)
{
    TestRuntime runtime;
    Peer first("svc.first");
    Peer second("svc.second");
    ASSERT_TRUE(first.serving());
    ASSERT_TRUE(second.serving());
    ASSERT_EQ(OXA_TVC_NewClient("svc.first"), 0);
    EXPECT_EQ(peerPid(), first.pid());
    ASSERT_EQ(OXA_TVC_NewClient("svc.second"), 0);
    EXPECT_EQ(peerPid(), second.pid());
}

struct BadName {
    const char* label;
    const char* name;
};

TEST(Registration, InvalidNamesAreRefused)
{
    TestRuntime runtime;
    const std::string tooLong(200, 'x');
    const BadName names[] = {
        {"null", nullptr}, {"empty", ""}, {"slash", "oxa/kel"}, {"too long", tooLong.c_str()}};
    PeerHandler handler;
    for (const BadName& bad : names) {
        SCOPED_TRACE(bad.label);
        EXPECT_EQ(OXA_TVC_NewClient(bad.name), -1);
        EXPECT_EQ(initAVSServer(bad.name, &handler), -1);
    }
    EXPECT_EQ(initAVSServer("svc.nohandler", nullptr), -1);
}

enum class Occupant { Nothing, StaleSocket, LivePeer, RegularFile };

struct RegistrationCase {
    const char* name;
    Occupant occupant;
    int expected;
};

class RegistrationOverExistingFile : public testing::TestWithParam<RegistrationCase>
{
};

TEST_P(RegistrationOverExistingFile, ServesOnlyWhenNoLiveProcessDoes)
{
    const RegistrationCase& c = GetParam();
    TestRuntime runtime;
    const std::string service = "svc.taken";
    const std::string path = runtime.socketPath(service);

    std::unique_ptr<Peer> occupant;
    switch (c.occupant) {
    case Occupant::Nothing:
        break;
    case Occupant::StaleSocket: {
        // What a killed server leaves: a bound socket file nobody listens on.
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        close(fd);
        break;
    }
    case Occupant::LivePeer:
        occupant = std::make_unique<Peer>(service);
        ASSERT_TRUE(occupant->serving());
        break;
    case Occupant::RegularFile: {
        FILE* file = fopen(path.c_str(), "w");
        ASSERT_NE(file, nullptr);
        fclose(file);
        break;
    }
    }

    // initAVSServer runs in a child, which then answers one call: this
    // process keeps no server thread.
    Peer candidate(service);
    ASSERT_TRUE(candidate.ready());
    EXPECT_EQ(candidate.status(), c.expected);

    ASSERT_EQ(OXA_TVC_NewClient(service.c_str()), 0);
    if (c.expected == 0)
        EXPECT_EQ(peerPid(), candidate.pid());
    else if (occupant)
        EXPECT_EQ(peerPid(), occupant->pid()) << "the live peer is left serving";
    else
        EXPECT_EQ(peerPid(), -1);
}

INSTANTIATE_TEST_SUITE_P(
    Registration, RegistrationOverExistingFile,
    testing::Values(RegistrationCase{"NoFile", Occupant::Nothing, 0},
                    RegistrationCase{"StaleSocketIsReplaced", Occupant::StaleSocket, 0},
                    RegistrationCase{"LivePeerKeepsItsName", Occupant::LivePeer, -1},
                    RegistrationCase{"ForeignFileIsLeftAlone", Occupant::RegularFile, -1}),
    [](const testing::TestParamInfo<RegistrationCase>& testCase) { return testCase.param.name; });

TEST(Registration, ServedNameIsRefusedInThisProcessToo)
{
    TestRuntime runtime;
    Peer peer("svc.busy");
    ASSERT_TRUE(peer.serving());
    PeerHandler handler;
    EXPECT_EQ(initAVSServer("svc.busy", &handler), -1);
    ASSERT_EQ(OXA_TVC_NewClient("svc.busy"), 0);
    EXPECT_EQ(peerPid(), peer.pid());
}

struct MisbehavingCase {
    const char* name;
    Bytes bytes;
    const char* logged; // in the peer's log line about the dropped connection
};

class MisbehavingClient : public testing::TestWithParam<MisbehavingCase>
{
};

TEST_P(MisbehavingClient, IsDroppedWhileOthersAreServed)
{
    const MisbehavingCase& c = GetParam();
    TestRuntime runtime;
    const std::string log = runtime.file("peer.log");
    Peer peer("svc.guarded", log);
    ASSERT_TRUE(peer.serving());
    ASSERT_EQ(OXA_TVC_NewClient("svc.guarded"), 0);
    Bytes reply;
    ASSERT_EQ(transmit(kEcho, {1, 2, 3}, &reply), 0);

    const int bad = connectRaw(runtime.socketPath("svc.guarded"));
    ASSERT_GE(bad, 0);
    ASSERT_TRUE(sendRaw(bad, c.bytes));
    EXPECT_TRUE(closedByPeer(bad));
    close(bad);

    EXPECT_EQ(transmit(kEcho, {4, 5, 6}, &reply), 0);
    EXPECT_EQ(reply, (Bytes{4, 5, 6}));
    const std::string logged = readFile(log);
    EXPECT_NE(logged.find("libmup: svc.guarded: dropping the connection of pid"), std::string::npos)
        << logged;
    EXPECT_NE(logged.find(c.logged), std::string::npos) << logged;
}

INSTANTIATE_TEST_SUITE_P(
    Server, MisbehavingClient,
    testing::Values(MisbehavingCase{"Oversized",
                                    {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x01, 0x00, 0x07, 0x00,
                                     0x00, 0x00, 0x03, 0x00, 0x04, 0x18, 0x01, 0x00, 0x10, 0x00},
                                    "payload of 1048577 bytes is over the limit of 1048576"},
                    MisbehavingCase{"BadMagic",
                                    {'G', 'E', 'T', ' ', '/',  ' ',  'H',  'T',  'T',  'P',
                                     '/', '1', '.', '1', '\r', '\n', '\r', '\n', '\r', '\n'},
                                    "bad magic"},
                    MisbehavingCase{"BadVersion",
                                    {0x5A, 0x4D, 0x55, 0x50, 0x07, 0x00, 0x01, 0x00, 0x07, 0x00,
                                     0x00, 0x00, 0x03, 0x00, 0x04, 0x18, 0x00, 0x00, 0x00, 0x00},
                                    "unsupported version 7"},
                    MisbehavingCase{"BadKind",
                                    {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x09, 0x00, 0x07, 0x00,
                                     0x00, 0x00, 0x03, 0x00, 0x04, 0x18, 0x00, 0x00, 0x00, 0x00},
                                    "unknown frame kind 9"},
                    MisbehavingCase{"ReplySentToAServer",
                                    {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x03, 0x00, 0x07, 0x00,
                                     0x00, 0x00, 0x03, 0x00, 0x04, 0x18, 0x00, 0x00, 0x00, 0x00},
                                    "reply frame"}),
    [](const testing::TestParamInfo<MisbehavingCase>& testCase) { return testCase.param.name; });

TEST(Server, HalfSentFrameDoesNotHoldUpOtherClients)
{
    TestRuntime runtime;
    Peer peer("svc.patient");
    ASSERT_TRUE(peer.connectClient());

    const int slow = connectRaw(runtime.socketPath("svc.patient"));
    ASSERT_GE(slow, 0);
    // A header promising 8 bytes, then only 3 of them.
    const Bytes head = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00,
                        0x03, 0x00, 0x04, 0x18, 0x08, 0x00, 0x00, 0x00, 0x61, 0x62, 0x63};
    ASSERT_TRUE(sendRaw(slow, Bytes(head.begin(), head.begin() + 9)));
    Bytes reply;
    EXPECT_EQ(transmit(kEcho, {9}, &reply), 0);
    ASSERT_TRUE(sendRaw(slow, Bytes(head.begin() + 9, head.end())));
    EXPECT_EQ(transmit(kEcho, {8}, &reply), 0);
    EXPECT_EQ(reply, Bytes{8});

    // The rest of the frame completes it, and it is answered.
    ASSERT_TRUE(sendRaw(slow, {0x64, 0x65, 0x66, 0x67, 0x68}));
    const Bytes expected = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x03, 0x00, 0x01, 0x00,
                            0x00, 0x00, 0x03, 0x00, 0x04, 0x18, 0x08, 0x00, 0x00, 0x00,
                            0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68};
    EXPECT_EQ(receiveRaw(slow, expected.size()), expected);
    close(slow);
}

TEST(Server, ClientThatDoesNotReadItsReplyIsDropped)
{
    TestRuntime runtime;
    const std::string log = runtime.file("peer.log");
    Peer peer("svc.deaf", log);
    ASSERT_TRUE(peer.serving());
    ASSERT_EQ(OXA_TVC_NewClient("svc.deaf"), 0);

    // A request whose 1 MiB echo can't fit in the socket, and is never read.
    const int deaf = connectRaw(runtime.socketPath("svc.deaf"));
    ASSERT_GE(deaf, 0);
    Bytes frame = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00,
                   0x00, 0x00, 0x03, 0x00, 0x04, 0x18, 0x00, 0x00, 0x10, 0x00};
    frame.resize(frame.size() + 1048576, 0x77);
    ASSERT_TRUE(sendRaw(deaf, frame));

    // Others are served while that reply waits.
    Bytes reply;
    EXPECT_EQ(transmit(kEcho, {1}, &reply), 0);
    EXPECT_EQ(reply, Bytes{1});

    // Within about a second the deaf client is let go (the socket is not
    // read meanwhile: that would let the reply out).
    const auto deadline = SteadyClock::now() + std::chrono::seconds(10);
    while (readFile(log).find("did not take its reply in time") == std::string::npos &&
           SteadyClock::now() < deadline)
        usleep(20 * 1000);
    EXPECT_NE(readFile(log).find("libmup: svc.deaf: dropping the connection of pid"),
              std::string::npos)
        << readFile(log);
    EXPECT_TRUE(closedByPeer(deaf));
    close(deaf);
    EXPECT_EQ(transmit(kEcho, {2}, &reply), 0);
    EXPECT_EQ(reply, Bytes{2});
}

TEST(Client, SeveralEndpointsInOneProcess)
{
    TestRuntime runtime;
    Peer first("svc.one");
    Peer second("svc.two");
    ASSERT_TRUE(first.serving());
    ASSERT_TRUE(second.serving());

    mup::Client one("svc.one");
    mup::Client two("svc.two");
    EXPECT_EQ(one.serviceName(), "svc.one");
    for (int round = 0; round < 3; ++round) {
        MUPParam in;
        MUPParam out;
        ASSERT_EQ(one.transmit(kPid, in, &out), 0);
        EXPECT_EQ(out.readInt32(), first.pid());
        ASSERT_EQ(two.transmit(kPid, in, &out), 0);
        EXPECT_EQ(out.readInt32(), second.pid());
    }
}

TEST(Client, TimeoutComesFromTheEnvironmentWhenMade)
{
    TestRuntime runtime("1234");
    mup::Client first("svc.any");
    EXPECT_EQ(first.timeout(), std::chrono::milliseconds(1234));
    {
        ScopedEnv unset("ZOR_MUP_TIMEOUT_MS", nullptr);
        EXPECT_EQ(mup::Client("svc.any").timeout(), std::chrono::milliseconds(5000));
    }
    {
        ScopedEnv junk("ZOR_MUP_TIMEOUT_MS", "12ms");
        EXPECT_EQ(mup::Client("svc.any").timeout(), std::chrono::milliseconds(5000));
    }
    EXPECT_EQ(first.timeout(), std::chrono::milliseconds(1234));
}

TEST(Client, OversizedRequestIsNotSent)
{
    TestRuntime runtime;
    Peer peer("svc.big");
    ASSERT_TRUE(peer.serving());
    mup::Client client("svc.big");
    MUPParam in;
    writeBytes(in, Bytes(1048577, 0x11));
    MUPParam out;
    EXPECT_EQ(client.transmit(kEcho, in, &out), -1);
    EXPECT_EQ(out.size(), 0u);
    MUPParam fits;
    fits.writeInt32(3);
    EXPECT_EQ(client.transmit(kEcho, fits, &out), 0) << "the connection is still good";
}

} // namespace
