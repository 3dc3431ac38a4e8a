// SPDX-License-Identifier: MIT
#include "mup/server.h"

#include "base/no_destructor.h"
#include "mup/capture.h"
#include "mup/frame.h"
#include "mup/log.h"
#include "mup/runtime_dir.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace mup
{

namespace
{

// A reply that the client does not take within this time costs it its
// connection, rather than holding its buffer (and the client) forever.
constexpr std::chrono::milliseconds kReplyWriteLimit{1000};
// A frame begun must be finished within this time (counted while the server
// reads it, and only while no byte of it waits unread), so that no one holds a
// connection, or memory, with a frame that never ends.
constexpr std::chrono::milliseconds kFrameTimeLimit{2000};
// At most this many connections. Client endpoints live as long as their
// process, so an idle connection is closed only to make room for a new one.
constexpr size_t kMaxPeers = 128;
// What a connection may hold of a frame in progress without a share of the
// budget below: enough for the frames of every ordinary command.
constexpr size_t kPeerAllowance = 16 * 1024;
// The bytes held for larger frames in progress, across all connections. A
// frame that does not fit waits, its sender unread, until shares come back.
constexpr size_t kFrameBudget = 8 * 1024 * 1024;
// Connections accepted per turn of the loop, so that a flood of them does
// not keep the server from the connections it has.
constexpr int kAcceptBatch = 32;
// When descriptors run out, accepting is paused rather than spun on.
constexpr std::chrono::milliseconds kAcceptPause{100};
constexpr std::chrono::milliseconds kDirectoryLockLimit{2000};

// The servers of this process, for the fork handlers.
struct ServerList {
    std::mutex lock;
    std::vector<Server*> servers;
};

ServerList& serverList()
{
    static zor::NoDestructor<ServerList> list;
    return *list;
}

thread_local const Server* t_currentServer = nullptr;

// Serialises the check-replace-bind of a socket file (and its removal) among
// the processes that share the runtime directory, so that two servers that
// start together can't both take a file for stale and bind over each other.
// The lock dies with its descriptor, whatever happens to the process.
class DirectoryLock
{
public:
    explicit DirectoryLock(const std::string& directory)
        : m_fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (!m_fd.valid())
            return;
        const Clock::time_point deadline = Clock::now() + kDirectoryLockLimit;
        while (::flock(m_fd.get(), LOCK_EX | LOCK_NB) != 0) {
            if ((errno != EWOULDBLOCK && errno != EINTR) || Clock::now() >= deadline) {
                logLine("going on without the lock of %s: %s", directory.c_str(), errorText(errno));
                return;
            }
            usleep(1000);
        }
    }

private:
    UniqueFd m_fd;
};

std::string directoryOf(const std::string& path)
{
    return path.substr(0, path.find_last_of('/'));
}

// Makes way for a new socket at `path`: true when there is no file, or the
// file is a socket nobody listens on any more (removed here).
bool clearStaleSocket(const std::string& serviceName, const std::string& path)
{
    struct stat info = {};
    if (::lstat(path.c_str(), &info) != 0) {
        if (errno == ENOENT)
            return true;
        logLine("%s: cannot look at %s: %s", serviceName.c_str(), path.c_str(), errorText(errno));
        return false;
    }
    if (!S_ISSOCK(info.st_mode)) {
        logLine("%s: %s exists and is not a socket", serviceName.c_str(), path.c_str());
        return false;
    }

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!probe.valid()) {
        logLine("%s: socket: %s", serviceName.c_str(), errorText(errno));
        return false;
    }
    int result;
    do
        result =
            ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    while (result != 0 && errno == EINTR);

    // A full backlog (EAGAIN) is a live server too.
    if (result == 0 || errno == EAGAIN) {
        logLine("%s: already served by another process at %s", serviceName.c_str(), path.c_str());
        return false;
    }
    if (errno != ECONNREFUSED) {
        logLine("%s: cannot check %s: %s", serviceName.c_str(), path.c_str(), errorText(errno));
        return false;
    }
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        logLine("%s: cannot remove the stale socket %s: %s", serviceName.c_str(), path.c_str(),
                errorText(errno));
        return false;
    }
    logLine("%s: replaced the stale socket %s", serviceName.c_str(), path.c_str());
    return true;
}

} // namespace

struct Server::Peer {
    Peer(UniqueFd fd_, pid_t pid_, Clock::time_point now)
        : fd(std::move(fd_)), pid(pid_), lastActive(now)
    {
    }

    UniqueFd fd;
    const pid_t pid;
    FrameDecoder decoder;
    // The part of a reply that the socket did not take at once.
    std::vector<unsigned char> output;
    size_t outputSent = 0;
    Clock::time_point outputDeadline{};
    bool closing = false;

    size_t share = 0;         // of the frame budget, for the frame in progress
    uint64_t shareTicket = 0; // non-zero: waiting for a share, in this order
    bool frameClock = false;  // a frame in progress is being read
    Clock::time_point frameDeadline{};
    Clock::time_point lastActive; // accepted, or last frame taken

    bool writing() const { return outputSent < output.size(); }
    bool waitingForShare() const { return shareTicket != 0; }
    bool reading() const { return !closing && !writing() && !waitingForShare(); }
    // No frame in progress, no reply pending: may be closed to make room.
    bool idle() const { return !closing && !writing() && decoder.buffered() == 0; }
};

std::unique_ptr<Server> Server::start(const std::string& serviceName,
                                      OXAPC::C_OXAAVSServerHandler& handler)
{
    try {
        if (!isValidServiceName(serviceName)) {
            logLine("invalid service name '%s'", serviceName.c_str());
            return nullptr;
        }
        // socketPathFor() says why it has none.
        std::string path = socketPathFor(serviceName);
        if (path.empty())
            return nullptr;

        UniqueFd listener;
        struct stat info = {};
        {
            DirectoryLock lock(directoryOf(path));
            if (!clearStaleSocket(serviceName, path))
                return nullptr;

            listener = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            if (!listener.valid()) {
                logLine("%s: socket: %s", serviceName.c_str(), errorText(errno));
                return nullptr;
            }
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            memcpy(address.sun_path, path.c_str(), path.size() + 1);
            // Root serves every user (see acceptPeers()); anyone else only
            // itself and root. The mode is set before bind() too, so that the
            // file never has a wider one, and again after it, whatever the
            // umask took away.
            const mode_t mode = ::geteuid() == 0 ? 0666 : 0600;
            if (::fchmod(listener.get(), mode) != 0 ||
                ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address),
                       sizeof(address)) != 0) {
                logLine("%s: cannot bind %s: %s", serviceName.c_str(), path.c_str(),
                        errorText(errno));
                return nullptr;
            }
            if (::chmod(path.c_str(), mode) != 0 || ::listen(listener.get(), SOMAXCONN) != 0 ||
                ::lstat(path.c_str(), &info) != 0) {
                logLine("%s: cannot listen on %s: %s", serviceName.c_str(), path.c_str(),
                        errorText(errno));
                ::unlink(path.c_str());
                return nullptr;
            }
        }

        auto server = std::make_unique<Server>(Private{}, serviceName, std::move(path), handler,
                                               std::move(listener), info.st_dev, info.st_ino);
        if (!server->launch())
            return nullptr;
        return server;
    } catch (const std::exception& error) {
        logLine("%s: cannot start serving: %s", serviceName.c_str(), error.what());
        return nullptr;
    }
}

Server::Server(Private, const std::string& serviceName, std::string socketPath,
               OXAPC::C_OXAAVSServerHandler& handler, UniqueFd listener, dev_t device, ino_t inode)
    : m_serviceName(serviceName), m_socketPath(std::move(socketPath)), m_handler(handler),
      m_device(device), m_inode(inode), m_listener(std::move(listener))
{
    registerForkHandlers();
    ServerList& list = serverList();
    std::lock_guard<std::mutex> guard(list.lock);
    list.servers.push_back(this);
}

Server::~Server()
{
    if (m_forked) {
        // The thread ran in the parent; this process has nothing to join, and
        // dropping a joinable std::thread would end the process.
        static_cast<void>(m_thread.release());
    } else {
        stop();
        // In case the thread never ran.
        shutdown();
    }
    ServerList& list = serverList();
    std::lock_guard<std::mutex> guard(list.lock);
    list.servers.erase(std::find(list.servers.begin(), list.servers.end(), this));
}

bool Server::launch()
{
    m_wake = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_wake.valid()) {
        logLine("%s: eventfd: %s", m_serviceName.c_str(), errorText(errno));
        return false;
    }

    // The thread takes no asynchronous signal: those are the application's,
    // for its own threads to handle.
    sigset_t blocked;
    sigset_t previous;
    sigfillset(&blocked);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    try {
        m_thread = std::make_unique<std::thread>([this] { run(); });
    } catch (const std::exception& error) {
        logLine("%s: cannot start the server thread: %s", m_serviceName.c_str(), error.what());
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return m_thread != nullptr;
}

void Server::stop()
{
    if (m_forked)
        return;
    m_stopping.store(true, std::memory_order_release);
    const uint64_t one = 1;
    if (m_wake.valid())
        static_cast<void>(::write(m_wake.get(), &one, sizeof(one)));
    // The handler itself asked: the loop ends once it returns.
    if (t_currentServer == this)
        return;

    std::lock_guard<std::mutex> guard(m_joinLock);
    if (m_thread && m_thread->joinable())
        m_thread->join();
}

void Server::run()
{
    t_currentServer = this;
    std::vector<pollfd> polled;

    while (!m_stopping.load(std::memory_order_acquire)) {
        try {
            serveOnce(polled);
        } catch (const std::exception& error) {
            // Memory ran out somewhere in the loop; the peer concerned, if
            // any, was dropped already. Let the pressure pass.
            logLine("%s: %s", m_serviceName.c_str(), error.what());
            usleep(10000);
        }
    }
    shutdown();
}

void Server::serveOnce(std::vector<pollfd>& polled)
{
    sweep();
    grantShares();
    const Clock::time_point now = Clock::now();
    Clock::time_point wakeUp = std::min(m_refusals.due(), m_drops.due());
    polled.clear();
    polled.push_back({m_wake.get(), POLLIN, 0});
    // A negative descriptor is skipped by poll(): accepting paused.
    polled.push_back({now < m_acceptPausedUntil ? -1 : m_listener.get(), POLLIN, 0});
    if (now < m_acceptPausedUntil)
        wakeUp = std::min(wakeUp, m_acceptPausedUntil);
    // A peer with a reply still to write is not read from until the reply is
    // out, nor one whose frame waits for a share of the budget: their
    // requests wait in the socket.
    for (const auto& peer : m_peers) {
        short events = 0;
        if (peer->writing()) {
            events = POLLOUT;
            wakeUp = std::min(wakeUp, peer->outputDeadline);
        } else if (peer->reading()) {
            events = POLLIN;
            if (peer->frameClock)
                wakeUp = std::min(wakeUp, peer->frameDeadline);
        }
        polled.push_back({events ? peer->fd.get() : -1, events, 0});
    }

    const int timeout = wakeUp == Clock::time_point::max() ? -1 : millisecondsUntil(wakeUp);
    const int ready = ::poll(polled.data(), polled.size(), timeout);
    if (ready < 0) {
        if (errno != EINTR) {
            logLine("%s: poll: %s", m_serviceName.c_str(), errorText(errno));
            usleep(10000);
        }
        return;
    }

    if (polled[0].revents) {
        uint64_t count = 0;
        static_cast<void>(::read(m_wake.get(), &count, sizeof(count)));
    }
    // The peers first, so that those that hung up are known before anyone
    // new is let in.
    const size_t polledPeers = polled.size() - 2;
    for (size_t i = 0; i < polledPeers && !m_stopping.load(std::memory_order_acquire); ++i) {
        Peer& peer = *m_peers[i];
        const short events = polled[i + 2].revents;
        try {
            // A time limit runs out only in a round where the peer is the one
            // holding things up: its socket had no room for the reply, or no
            // byte of its frame waiting. A server slowed by its other peers
            // finds their data waiting, and costs no one a connection.
            if (peer.writing()) {
                if (events)
                    flush(peer);
                if (peer.writing() && !peer.closing && !(events & POLLOUT) &&
                    Clock::now() >= peer.outputDeadline)
                    drop(peer, "did not take its reply in time");
            } else if (events) {
                readFrom(peer);
            }
            if (peer.frameClock && !peer.closing && !(events & POLLIN) &&
                Clock::now() >= peer.frameDeadline)
                drop(peer, "did not finish its frame in time");
        } catch (const std::exception& error) {
            // Out of memory for this peer's frames: it goes, the others stay.
            drop(peer, error.what());
        }
    }
    if (polled[1].revents && !m_stopping.load(std::memory_order_acquire))
        acceptPeers();

    m_refusals.flush(m_serviceName.c_str());
    m_drops.flush(m_serviceName.c_str());
}

void Server::acceptPeers()
{
    for (int accepted = 0; accepted < kAcceptBatch; ++accepted) {
        UniqueFd fd(::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!fd.valid()) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                m_refusals.line(m_serviceName.c_str(), "accept: %s", errorText(errno));
                m_acceptPausedUntil = Clock::now() + kAcceptPause;
            }
            return;
        }

        ucred credentials{};
        socklen_t length = sizeof(credentials);
        if (::getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
            m_refusals.line(m_serviceName.c_str(),
                            "refusing a connection whose credentials can't be read: %s",
                            errorText(errno));
            continue;
        }
        // Root serves every user: it is the middleware that the applications
        // call. Anyone else serves only itself and root.
        const uid_t self = ::geteuid();
        if (self != 0 && credentials.uid != self && credentials.uid != 0) {
            m_refusals.line(m_serviceName.c_str(), "refusing a connection from pid %d of uid %u",
                            static_cast<int>(credentials.pid),
                            static_cast<unsigned>(credentials.uid));
            continue;
        }
        if (m_peers.size() >= kMaxPeers && !makeRoom()) {
            m_refusals.line(m_serviceName.c_str(),
                            "refusing a connection from pid %d: %zu connections, none idle",
                            static_cast<int>(credentials.pid), m_peers.size());
            continue;
        }

        auto peer = std::make_unique<Peer>(std::move(fd), credentials.pid, Clock::now());
        std::lock_guard<std::mutex> guard(m_fdLock);
        m_peers.push_back(std::move(peer));
    }
}

bool Server::makeRoom()
{
    // Peers that hung up since the last poll go first: what they sent
    // before is read (and served) on the way.
    std::vector<pollfd> polled;
    for (const auto& peer : m_peers)
        polled.push_back({peer->reading() ? peer->fd.get() : -1, POLLIN, 0});
    if (::poll(polled.data(), polled.size(), 0) > 0) {
        for (size_t i = 0; i < polled.size(); ++i) {
            if (!polled[i].revents)
                continue;
            try {
                readFrom(*m_peers[i]);
            } catch (const std::exception& error) {
                drop(*m_peers[i], error.what());
            }
        }
    }
    sweep();
    if (m_peers.size() < kMaxPeers)
        return true;

    // Then the one idle the longest.
    Peer* oldest = nullptr;
    for (const auto& peer : m_peers) {
        if (peer->idle() && (!oldest || peer->lastActive < oldest->lastActive))
            oldest = peer.get();
    }
    if (!oldest)
        return false;
    drop(*oldest, "idle the longest, closed to make room for a new connection");
    sweep();
    return true;
}

// A frame larger than the allowance is read only with a share of the budget
// for the whole of it. What is read without one stays within the allowance.
void Server::readFrom(Peer& peer)
{
    const size_t wanted =
        peer.share ? peer.decoder.missing() : kPeerAllowance - peer.decoder.buffered();
    size_t room = 0;
    unsigned char* space = peer.decoder.prepare(wanted, &room);
    const ssize_t received = ::recv(peer.fd.get(), space, std::min(room, wanted), MSG_DONTWAIT);
    if (received > 0) {
        peer.decoder.commit(static_cast<size_t>(received));
        processFrames(peer);
    } else if (received == 0) {
        peer.closing = true;
    } else if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
        peer.closing = true;
    }
}

// Every frame the server receives is taken here.
void Server::processFrames(Peer& peer)
{
    while (!peer.closing && !peer.writing() && !m_stopping.load(std::memory_order_acquire)) {
        FrameDecoder::Frame frame;
        const FrameDecoder::Result result = peer.decoder.next(&frame);
        if (result == FrameDecoder::Result::NeedMore) {
            if (peer.decoder.frameSize() > kPeerAllowance && !peer.share)
                claimShare(peer);
            break;
        }
        if (result == FrameDecoder::Result::Error) {
            drop(peer, peer.decoder.error().c_str());
            return;
        }
        capture::frame(m_serviceName, capture::Direction::Received, frame.header, frame.payload);
        if (frame.header.kind == FrameKind::Reply) {
            drop(peer, "sent a reply frame to a server");
            return;
        }
        // The payload lives in the decoder until its next call: copied now.
        m_in.assign(frame.payload, frame.header.payloadSize);
        returnShare(peer);
        peer.frameClock = false;
        peer.lastActive = Clock::now();
        serve(peer, static_cast<unsigned int>(frame.header.kind), frame.header.sequence,
              frame.header.command);
    }
    peer.decoder.trim();
    // The clock of a frame runs while it is being read.
    const bool inProgress = peer.reading() && peer.decoder.buffered() > 0;
    if (inProgress && !peer.frameClock)
        peer.frameDeadline = Clock::now() + kFrameTimeLimit;
    peer.frameClock = inProgress;
}

// Shares go out in the order they were asked for, so that a large frame is
// not passed over forever by smaller ones.
void Server::claimShare(Peer& peer)
{
    peer.shareTicket = ++m_lastShareTicket;
    grantShares();
}

void Server::grantShares()
{
    for (;;) {
        Peer* first = nullptr;
        for (const auto& peer : m_peers) {
            if (peer->waitingForShare() && !peer->closing &&
                (!first || peer->shareTicket < first->shareTicket))
                first = peer.get();
        }
        if (!first || m_budgetUsed + first->decoder.frameSize() > kFrameBudget)
            return;
        first->share = first->decoder.frameSize();
        first->shareTicket = 0;
        m_budgetUsed += first->share;
        // Its clock starts now, not while it waited, and runs even if no
        // byte follows: a share is never held for nothing.
        first->frameClock = true;
        first->frameDeadline = Clock::now() + kFrameTimeLimit;
    }
}

void Server::returnShare(Peer& peer)
{
    m_budgetUsed -= peer.share;
    peer.share = 0;
    peer.shareTicket = 0;
}

void Server::serve(Peer& peer, unsigned int kind, uint32_t sequence, unsigned int command)
{
    const bool wantsReply = kind == static_cast<unsigned int>(FrameKind::Request);
    m_out.clear();
    try {
        m_handler.handleCommand(command, m_in, wantsReply ? &m_out : nullptr, 0);
    } catch (const std::exception& error) {
        logLine("%s: handler failed on command 0x%08x: %s", m_serviceName.c_str(), command,
                error.what());
        m_out.clear();
    } catch (...) {
        logLine("%s: handler failed on command 0x%08x", m_serviceName.c_str(), command);
        m_out.clear();
    }
    if (!wantsReply)
        return;
    if (m_out.size() > kMaxPayload) {
        logLine("%s: reply to command 0x%08x is %u bytes, over the limit of %u; sending it empty",
                m_serviceName.c_str(), command, m_out.size(), kMaxPayload);
        m_out.clear();
    }
    reply(peer, sequence, command);
}

// Every frame the server sends leaves here (flush() only writes the rest of
// one that the socket did not take at once).
void Server::reply(Peer& peer, uint32_t sequence, unsigned int command)
{
    FrameHeader header;
    header.kind = FrameKind::Reply;
    header.sequence = sequence;
    header.command = command;
    header.payloadSize = m_out.size();
    capture::frame(m_serviceName, capture::Direction::Sent, header, m_out.data());
    unsigned char head[kFrameHeaderSize];
    encodeHeader(header, head);

    iovec parts[2] = {{head, sizeof(head)},
                      {const_cast<unsigned char*>(m_out.data()), m_out.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent;
    do
        sent = ::sendmsg(peer.fd.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (sent < 0 && errno == EINTR);

    const size_t total = sizeof(head) + m_out.size();
    if (sent == static_cast<ssize_t>(total))
        return;
    if (sent < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            peer.closing = true; // the client went away
            return;
        }
        sent = 0;
    }

    // Keep the rest for when the socket has room again.
    peer.output.resize(total);
    memcpy(peer.output.data(), head, sizeof(head));
    if (m_out.size())
        memcpy(peer.output.data() + sizeof(head), m_out.data(), m_out.size());
    peer.outputSent = static_cast<size_t>(sent);
    peer.outputDeadline = Clock::now() + kReplyWriteLimit;
}

void Server::flush(Peer& peer)
{
    const ssize_t sent = ::send(peer.fd.get(), peer.output.data() + peer.outputSent,
                                peer.output.size() - peer.outputSent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
        if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)
            peer.closing = true;
        return;
    }
    peer.outputSent += static_cast<size_t>(sent);
    if (peer.writing())
        return;
    peer.output.clear();
    peer.output.shrink_to_fit();
    peer.outputSent = 0;
    // Requests that came in meanwhile are already buffered; poll() would not
    // report them again.
    processFrames(peer);
}

void Server::drop(Peer& peer, const char* reason)
{
    if (peer.closing)
        return;
    m_drops.line(m_serviceName.c_str(), "dropping the connection of pid %d: %s",
                 static_cast<int>(peer.pid), reason);
    peer.closing = true;
}

void Server::sweep()
{
    const auto closing = [](const std::unique_ptr<Peer>& peer) { return peer->closing; };
    if (std::none_of(m_peers.begin(), m_peers.end(), closing))
        return;
    for (const auto& peer : m_peers) {
        if (peer->closing)
            returnShare(*peer);
    }
    std::lock_guard<std::mutex> guard(m_fdLock);
    m_peers.erase(std::remove_if(m_peers.begin(), m_peers.end(), closing), m_peers.end());
}

void Server::shutdown()
{
    std::lock_guard<std::mutex> guard(m_fdLock);
    m_peers.clear();
    if (m_listener.valid()) {
        m_listener.reset();
        removeSocketFile();
    }
}

void Server::removeSocketFile()
{
    DirectoryLock lock(directoryOf(m_socketPath));
    struct stat info = {};
    if (::lstat(m_socketPath.c_str(), &info) == 0 && info.st_dev == m_device &&
        info.st_ino == m_inode)
        ::unlink(m_socketPath.c_str());
}

void Server::abandonAfterFork()
{
    m_forked = true;
    for (auto& peer : m_peers)
        peer->fd.reset();
    m_listener.reset();
    m_wake.reset();
}

void Server::registerForkHandlers()
{
    static std::once_flag registered;
    std::call_once(registered,
                   [] { pthread_atfork(beforeFork, afterForkInParent, afterForkInChild); });
}

void Server::beforeFork()
{
    ServerList& list = serverList();
    list.lock.lock();
    for (Server* server : list.servers)
        server->m_fdLock.lock();
}

void Server::afterForkInParent()
{
    ServerList& list = serverList();
    for (Server* server : list.servers)
        server->m_fdLock.unlock();
    list.lock.unlock();
}

void Server::afterForkInChild()
{
    ServerList& list = serverList();
    for (Server* server : list.servers) {
        server->abandonAfterFork();
        server->m_fdLock.unlock();
    }
    list.lock.unlock();
}

} // namespace mup
