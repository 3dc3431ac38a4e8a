// SPDX-License-Identifier: MIT
#include "mup/client.h"

#include "mup/capture.h"
#include "mup/frame.h"
#include "mup/log.h"
#include "mup/runtime_dir.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace mup
{

namespace
{

constexpr std::chrono::milliseconds kDefaultTimeout{5000};

// The socket's receive timeout is only changed when it is this far from the
// reading thread's own deadline, so that back-to-back calls from one thread
// cost no system call beyond the send and the receive.
constexpr std::chrono::milliseconds kReceiveTimeoutSlack{5};

std::chrono::milliseconds timeoutFromEnvironment()
{
    const char* value = getenv("ZOR_MUP_TIMEOUT_MS");
    if (!value || !*value)
        return kDefaultTimeout;
    char* end = nullptr;
    errno = 0;
    const long long ms = strtoll(value, &end, 10);
    if (errno || *end || ms <= 0) {
        logLine("ignoring ZOR_MUP_TIMEOUT_MS='%s' (not a positive number of milliseconds)", value);
        return kDefaultTimeout;
    }
    return std::chrono::milliseconds(std::min<long long>(ms, INT_MAX));
}

} // namespace

// One connected socket. Callers waiting for replies take turns reading it: the
// first one to wait takes the reader's role and reads until its own reply has
// come, storing the replies of the others in their waiting slots and waking
// them; then it hands the role to a caller still waiting. A lone caller thus
// reads its own reply straight from the socket, with no extra thread and no
// extra wake-up.
//
// The service reads no further request from a connection while a reply to it
// is not yet taken, so a reply left unread stalls every caller, senders too.
// Why none is left unread while its caller waits:
//  - The role (m_reading) is taken and given back only under m_lock.
//  - A caller parks (Waiter::parked, set and cleared under m_lock around its
//    condition wait) only after it saw the role taken.
//  - Whoever gives the role back, or leaves while not holding it, wakes under
//    the same hold of m_lock one parked caller still waiting (handOff()). A
//    parked caller is inside its wait, so that wake-up can't be lost: it takes
//    the role, or hands off in turn if it leaves instead (answered, timed
//    out). A caller whose request is still being written is never the one
//    woken, since it is not parked (waking it was the lost wake-up: it could
//    be stuck in send() behind a service that waited for a reply to be
//    taken); it takes the role itself in await() if it finds it free.
//  - A sender that finds the socket full reads as well while no one holds the
//    role (awaitRoom()), so that even a reply whose caller gave up can't keep
//    the service, and so the sender, stalled.
class Client::Connection
{
public:
    struct Waiter {
        enum class State { Waiting, Answered, Failed, TimedOut };

        Waiter(uint32_t sequence_, unsigned int command_, MUPParam* out_)
            : sequence(sequence_), command(command_), out(out_)
        {
        }

        const uint32_t sequence;
        const unsigned int command;
        MUPParam* const out;
        State state = State::Waiting;
        bool parked = false; // inside wake.wait_until(), for handOff()
        std::condition_variable wake;
    };

    Connection(UniqueFd fd, std::string serviceName)
        : m_fd(std::move(fd)), m_serviceName(std::move(serviceName)), m_generation(forkGeneration())
    {
    }

    unsigned int generation() const { return m_generation; }
    bool broken() const { return m_broken.load(std::memory_order_acquire); }

    // A caller is listed before its request goes out, so that a reply read by
    // another thread right away finds it.
    void enlist(Waiter* waiter)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_waiters.push_back(waiter);
    }

    void withdraw(Waiter* waiter)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        remove(waiter);
    }

    // Writes one frame. Returns 0 or an errno value; *untouched tells that no
    // byte of it left, so the stream is still aligned on frames.
    int send(const FrameHeader& header, const unsigned char* payload, Clock::time_point deadline,
             bool* untouched);

    // Waits for the waiter's reply until the deadline.
    Waiter::State await(Waiter* waiter, Clock::time_point deadline);

private:
    int awaitRoom(Clock::time_point deadline);
    void lead(Waiter* self, Clock::time_point deadline, std::unique_lock<std::mutex>& lock);
    void readUntilAnswered(Waiter* self, Clock::time_point deadline,
                           std::unique_lock<std::mutex>& lock);
    void receive(std::unique_lock<std::mutex>& lock, int flags);
    bool deliverBuffered();
    bool deliver(const FrameDecoder::Frame& frame);
    void breakLocked(const char* reason, const char* detail = "", bool quiet = false);
    void handOff();
    void remove(Waiter* waiter);
    void adjustReceiveTimeout(Clock::duration left);

    const UniqueFd m_fd;
    const std::string m_serviceName;
    const unsigned int m_generation;
    std::atomic<bool> m_broken{false};

    // Held for a whole frame, so that frames of concurrent callers don't mix.
    DeadlineMutex m_writeLock;

    std::mutex m_lock; // guards what follows
    // Few callers wait at once: a plain list, searched by sequence number,
    // costs no allocation per call.
    std::vector<Waiter*> m_waiters;
    bool m_reading = false; // the reader's role is taken

    // Used by the holder of the role only.
    FrameDecoder m_decoder;
    Clock::duration m_receiveTimeout = Clock::duration::zero();
};

// Every frame of this endpoint leaves here.
int Client::Connection::send(const FrameHeader& header, const unsigned char* payload,
                             Clock::time_point deadline, bool* untouched)
{
    *untouched = true;
    std::unique_lock<DeadlineMutex> writing(m_writeLock, std::defer_lock);
    if (!writing.try_lock_until(deadline))
        return ETIMEDOUT;
    if (broken())
        return EPIPE;

    unsigned char head[kFrameHeaderSize];
    encodeHeader(header, head);
    const iovec parts[2] = {{head, sizeof(head)},
                            {const_cast<unsigned char*>(payload), header.payloadSize}};
    size_t sent = 0;
    const int error = sendAll(
        m_fd.get(), parts, 2, [this, deadline] { return awaitRoom(deadline); }, &sent);
    if (!error) {
        capture::frame(m_serviceName, capture::Direction::Sent, header, payload);
        return 0;
    }

    *untouched = sent == 0;
    // A frame cut short leaves the stream unusable; a full buffer that never
    // drained leaves it as it was. A request that never began tells nothing
    // yet: the service may have closed a kept connection in an orderly way,
    // and the caller first tries a new one (and says so if that fails too).
    if (sent != 0 || error != ETIMEDOUT) {
        std::lock_guard<std::mutex> guard(m_lock);
        breakLocked(error == ETIMEDOUT ? "request only partly written in time" : errorText(error),
                    "", sent == 0);
    }
    return error;
}

int Client::Connection::awaitRoom(Clock::time_point deadline)
{
    // While another thread holds the reader's role, its own wait may end
    // with no one taking over: look again after this long.
    constexpr int kRoleCheckMs = 20;

    const int left = millisecondsUntil(deadline);
    if (left == 0)
        return ETIMEDOUT;
    std::unique_lock<std::mutex> lock(m_lock);
    if (broken())
        return EPIPE;
    const bool reading = !m_reading;
    if (reading)
        m_reading = true;
    lock.unlock();

    pollfd wanted{m_fd.get(), static_cast<short>(reading ? POLLOUT | POLLIN : POLLOUT), 0};
    const int ready = ::poll(&wanted, 1, reading ? left : std::min(left, kRoleCheckMs));
    const int error = ready < 0 ? errno : 0;

    lock.lock();
    if (reading) {
        if (ready > 0 && (wanted.revents & (POLLIN | POLLHUP | POLLERR))) {
            try {
                receive(lock, MSG_DONTWAIT);
                deliverBuffered();
            } catch (const std::exception& failure) {
                breakLocked("", failure.what());
            }
        }
        m_reading = false;
        handOff();
    }
    return error == EINTR ? 0 : error;
}

Client::Connection::Waiter::State Client::Connection::await(Waiter* waiter,
                                                            Clock::time_point deadline)
{
    std::unique_lock<std::mutex> lock(m_lock);
    while (waiter->state == Waiter::State::Waiting) {
        if (!m_reading) {
            m_reading = true;
            lead(waiter, deadline, lock);
            m_reading = false;
            continue;
        }
        waiter->parked = true;
        const std::cv_status woken = waiter->wake.wait_until(lock, deadline);
        waiter->parked = false;
        if (woken == std::cv_status::timeout && waiter->state == Waiter::State::Waiting)
            waiter->state = Waiter::State::TimedOut;
    }
    remove(waiter);
    handOff();
    return waiter->state;
}

void Client::Connection::lead(Waiter* self, Clock::time_point deadline,
                              std::unique_lock<std::mutex>& lock)
{
    try {
        readUntilAnswered(self, deadline, lock);
    } catch (const std::exception& error) {
        // No room for a reply (the lock is held again: recv() can't throw).
        breakLocked("", error.what());
    }
    // The connection broke before this caller's reply came.
    if (self->state == Waiter::State::Waiting)
        self->state = Waiter::State::Failed;
}

void Client::Connection::readUntilAnswered(Waiter* self, Clock::time_point deadline,
                                           std::unique_lock<std::mutex>& lock)
{
    // Frames already buffered by an earlier greedy read come first.
    while (deliverBuffered() && self->state == Waiter::State::Waiting && !broken()) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            self->state = Waiter::State::TimedOut;
            return;
        }
        adjustReceiveTimeout(deadline - now);
        receive(lock, 0);
    }
}

// One recv() into the decoder, with m_lock let go meanwhile; by the holder of
// the reader's role.
void Client::Connection::receive(std::unique_lock<std::mutex>& lock, int flags)
{
    size_t room = 0;
    unsigned char* space = m_decoder.prepare(m_decoder.missing(), &room);
    lock.unlock();
    const ssize_t received = ::recv(m_fd.get(), space, room, flags);
    const int error = errno;
    lock.lock();

    if (received > 0)
        m_decoder.commit(static_cast<size_t>(received));
    else if (received == 0)
        breakLocked("closed by the service");
    else if (error != EINTR && error != EAGAIN && error != EWOULDBLOCK)
        breakLocked(errorText(error));
}

// Hands out every complete frame buffered; false once the stream is unusable.
bool Client::Connection::deliverBuffered()
{
    for (;;) {
        FrameDecoder::Frame frame;
        const FrameDecoder::Result result = m_decoder.next(&frame);
        if (result == FrameDecoder::Result::NeedMore)
            return true;
        if (result == FrameDecoder::Result::Error) {
            breakLocked("unreadable reply: ", m_decoder.error().c_str());
            return false;
        }
        if (!deliver(frame))
            return false;
    }
}

// Every frame this endpoint receives comes through here.
bool Client::Connection::deliver(const FrameDecoder::Frame& frame)
{
    capture::frame(m_serviceName, capture::Direction::Received, frame.header, frame.payload);
    if (frame.header.kind != FrameKind::Reply) {
        breakLocked("the service sent a request where a reply was expected");
        return false;
    }
    auto found = std::find_if(m_waiters.begin(), m_waiters.end(), [&](const Waiter* waiter) {
        return waiter->sequence == frame.header.sequence;
    });
    // Nobody waits for it any more: its caller gave up. It must not be taken
    // for the reply of a later call.
    if (found == m_waiters.end() || (*found)->state != Waiter::State::Waiting)
        return true;

    Waiter* waiter = *found;
    if (waiter->command != frame.header.command) {
        logLine("%s: reply %u carries command 0x%08x instead of 0x%08x", m_serviceName.c_str(),
                frame.header.sequence, frame.header.command, waiter->command);
        waiter->state = Waiter::State::Failed;
    } else {
        waiter->out->assign(frame.payload, frame.header.payloadSize);
        // assign() leaves the buffer empty when memory ran out.
        waiter->state = waiter->out->size() == frame.header.payloadSize ? Waiter::State::Answered
                                                                        : Waiter::State::Failed;
    }
    waiter->wake.notify_one();
    return true;
}

void Client::Connection::breakLocked(const char* reason, const char* detail, bool quiet)
{
    if (!m_broken.exchange(true, std::memory_order_acq_rel)) {
        if (!quiet)
            logLine("%s: connection lost: %s%s", m_serviceName.c_str(), reason, detail);
        // Wakes a reader blocked in recv(); the descriptor itself stays open
        // until the last user lets go of the connection.
        ::shutdown(m_fd.get(), SHUT_RDWR);
    }
    for (Waiter* waiter : m_waiters) {
        if (waiter->state == Waiter::State::Waiting) {
            waiter->state = Waiter::State::Failed;
            waiter->wake.notify_one();
        }
    }
}

// With the role free, wakes one parked caller still waiting to take it.
void Client::Connection::handOff()
{
    if (m_reading)
        return;
    for (Waiter* waiter : m_waiters) {
        if (waiter->parked && waiter->state == Waiter::State::Waiting) {
            waiter->wake.notify_one();
            return;
        }
    }
}

void Client::Connection::remove(Waiter* waiter)
{
    auto found = std::find(m_waiters.begin(), m_waiters.end(), waiter);
    if (found != m_waiters.end())
        m_waiters.erase(found);
}

void Client::Connection::adjustReceiveTimeout(Clock::duration left)
{
    const Clock::duration difference =
        m_receiveTimeout > left ? m_receiveTimeout - left : left - m_receiveTimeout;
    if (m_receiveTimeout != Clock::duration::zero() && difference <= kReceiveTimeoutSlack)
        return;

    // Never zero: a zero timeval means "wait forever".
    const auto us =
        std::max<long long>(std::chrono::ceil<std::chrono::microseconds>(left).count(), 1);
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(us / 1000000);
    limit.tv_usec = static_cast<suseconds_t>(us % 1000000);
    if (setsockopt(m_fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0)
        m_receiveTimeout = left;
}

// Requests may carry secrets (the assistant's token): they go only to a
// service of this user or root. Anyone may have bound the socket when the
// runtime directory is shared; what the kernel recorded when the service
// started listening tells who did. Root, which serves every user, may talk
// to any of them.
bool Client::servedByTrustedPeer(int fd) const
{
    ucred peer{};
    socklen_t length = sizeof(peer);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
        logLine("%s: not sending: cannot tell who serves %s: %s", m_serviceName.c_str(),
                m_socketPath.c_str(), errorText(errno));
        return false;
    }
    const uid_t self = ::geteuid();
    if (self == 0 || peer.uid == self || peer.uid == 0)
        return true;
    logLine("%s: not sending: %s is served by pid %d of uid %u, not by this user or root",
            m_serviceName.c_str(), m_socketPath.c_str(), static_cast<int>(peer.pid),
            static_cast<unsigned>(peer.uid));
    return false;
}

Client::Client(std::string serviceName)
    : m_serviceName(std::move(serviceName)), m_timeout(timeoutFromEnvironment())
{
    // Resolved now, so that a later change of the environment (or a thread
    // changing it) does not move the endpoint; retried on connect if needed.
    m_socketPath = socketPathFor(m_serviceName);
}

Client::~Client() = default;

std::shared_ptr<Client::Connection> Client::connection(Clock::time_point deadline, bool* reused)
{
    std::unique_lock<DeadlineMutex> lock(m_lock, std::defer_lock);
    if (!lock.try_lock_until(deadline))
        return nullptr;

    if (m_connection && !m_connection->broken() && m_connection->generation() == forkGeneration()) {
        *reused = true;
        return m_connection;
    }
    m_connection.reset();
    *reused = false;

    // socketPathFor() says why it has none.
    if (m_socketPath.empty())
        m_socketPath = socketPathFor(m_serviceName);
    if (m_socketPath.empty())
        return nullptr;

    int error = 0;
    UniqueFd fd = connectStream(m_socketPath, deadline, &error);
    if (!fd.valid()) {
        if (m_reachable)
            logLine("%s: cannot connect to %s: %s", m_serviceName.c_str(), m_socketPath.c_str(),
                    errorText(error));
        m_reachable = false;
        return nullptr;
    }
    if (!servedByTrustedPeer(fd.get()))
        return nullptr;
    m_reachable = true;
    m_connection = std::make_shared<Connection>(std::move(fd), m_serviceName);
    return m_connection;
}

int Client::transmit(unsigned int cmd, const MUPParam& in, MUPParam* out)
{
    try {
        const unsigned int size = in.size();
        if (size > kMaxPayload) {
            logLine("%s: command 0x%08x not sent: %u bytes is over the limit of %u",
                    m_serviceName.c_str(), cmd, size, kMaxPayload);
            if (out)
                out->clear();
            return -1;
        }

        const Clock::time_point deadline = Clock::now() + m_timeout;
        for (int attempt = 0; attempt < 2; ++attempt) {
            bool reused = false;
            std::shared_ptr<Connection> link = connection(deadline, &reused);
            if (!link)
                break;

            FrameHeader header;
            header.kind = out ? FrameKind::Request : FrameKind::OneWay;
            header.sequence = m_nextSequence.fetch_add(1, std::memory_order_relaxed);
            header.command = cmd;
            header.payloadSize = size;

            Connection::Waiter waiter(header.sequence, cmd, out);
            if (out)
                link->enlist(&waiter);
            bool untouched = false;
            const int error = link->send(header, in.data(), deadline, &untouched);
            if (error) {
                if (out)
                    link->withdraw(&waiter);
                // A connection kept from earlier calls may have been closed
                // since by a service that went away; this request never left,
                // so it may go again on a new connection.
                if (untouched && reused && error != ETIMEDOUT)
                    continue;
                if (error == ETIMEDOUT)
                    logLine("%s: command 0x%08x not sent within %lld ms", m_serviceName.c_str(),
                            cmd, static_cast<long long>(m_timeout.count()));
                else if (untouched)
                    logLine("%s: command 0x%08x not sent: %s", m_serviceName.c_str(), cmd,
                            errorText(error));
                break;
            }
            if (!out)
                return 0;

            const Connection::Waiter::State state = link->await(&waiter, deadline);
            if (state == Connection::Waiter::State::Answered)
                return 0;
            if (state == Connection::Waiter::State::TimedOut)
                logLine("%s: no reply to command 0x%08x within %lld ms", m_serviceName.c_str(), cmd,
                        static_cast<long long>(m_timeout.count()));
            break;
        }
    } catch (const std::exception& error) {
        logLine("%s: command 0x%08x failed: %s", m_serviceName.c_str(), cmd, error.what());
    } catch (...) {
        logLine("%s: command 0x%08x failed", m_serviceName.c_str(), cmd);
    }
    if (out)
        out->clear();
    return -1;
}

} // namespace mup
