#include "mup/server.h"

#include "mup/frame.h"
#include "mup/log.h"
#include "mup/no_destructor.h"
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
// Beyond this many connections new ones are closed at once: each may hold a
// frame buffer of up to kMaxPayload.
constexpr size_t kMaxPeers = 128;
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
    static NoDestructor<ServerList> list;
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
        if (!m_fd.isValid())
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
    if (!probe.isValid()) {
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
    Peer(UniqueFd fd_, pid_t pid_) : fd(std::move(fd_)), pid(pid_) {}

    UniqueFd fd;
    const pid_t pid;
    FrameDecoder decoder;
    // The part of a reply that the socket did not take at once.
    std::vector<unsigned char> output;
    size_t outputSent = 0;
    Clock::time_point outputDeadline{};
    bool closing = false;

    bool writing() const { return outputSent < output.size(); }
};

std::unique_ptr<Server> Server::start(const std::string& serviceName,
                                      OXAPC::C_OXAAVSServerHandler& handler)
{
    try {
        if (!isValidServiceName(serviceName)) {
            logLine("invalid service name '%s'", serviceName.c_str());
            return nullptr;
        }
        std::string path = socketPathFor(serviceName);
        if (path.empty()) {
            logLine("%s: no usable socket path for this service", serviceName.c_str());
            return nullptr;
        }

        UniqueFd listener;
        struct stat info = {};
        {
            DirectoryLock lock(directoryOf(path));
            if (!clearStaleSocket(serviceName, path))
                return nullptr;

            listener = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            if (!listener.isValid()) {
                logLine("%s: socket: %s", serviceName.c_str(), errorText(errno));
                return nullptr;
            }
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            memcpy(address.sun_path, path.c_str(), path.size() + 1);
            if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address),
                       sizeof(address)) != 0) {
                logLine("%s: cannot bind %s: %s", serviceName.c_str(), path.c_str(),
                        errorText(errno));
                return nullptr;
            }
            // The directory is private already; the socket is made so too,
            // whatever the umask.
            if (::chmod(path.c_str(), 0600) != 0 || ::listen(listener.get(), SOMAXCONN) != 0 ||
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
    if (!m_wake.isValid()) {
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
    if (m_wake.isValid())
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
    const Clock::time_point now = Clock::now();
    int timeout = -1;
    polled.clear();
    polled.push_back({m_wake.get(), POLLIN, 0});
    // A negative descriptor is skipped by poll(): accepting paused.
    polled.push_back({now < m_acceptPausedUntil ? -1 : m_listener.get(), POLLIN, 0});
    if (now < m_acceptPausedUntil)
        timeout = millisecondsUntil(m_acceptPausedUntil);
    // A peer with a reply still to write is not read from until the
    // reply is out: its requests wait in the socket.
    for (const auto& peer : m_peers) {
        polled.push_back(
            {peer->fd.get(), static_cast<short>(peer->writing() ? POLLOUT : POLLIN), 0});
        if (peer->writing()) {
            const int left = millisecondsUntil(peer->outputDeadline);
            timeout = timeout < 0 ? left : std::min(timeout, left);
        }
    }

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
    // Peers accepted below are appended after those polled.
    const size_t polledPeers = polled.size() - 2;
    if (polled[1].revents)
        acceptPeers();

    for (size_t i = 0; i < polledPeers && !m_stopping.load(std::memory_order_acquire); ++i) {
        Peer& peer = *m_peers[i];
        const short events = polled[i + 2].revents;
        try {
            if (peer.writing()) {
                if (events)
                    flush(peer);
                if (peer.writing() && !peer.closing && Clock::now() >= peer.outputDeadline)
                    drop(peer, "did not take its reply in time");
            } else if (events) {
                readFrom(peer);
            }
        } catch (const std::exception& error) {
            // Out of memory for this peer's frames: it goes, the others stay.
            drop(peer, error.what());
        }
    }
}

void Server::acceptPeers()
{
    for (;;) {
        UniqueFd fd(::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!fd.isValid()) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                logLine("%s: accept: %s", m_serviceName.c_str(), errorText(errno));
                m_acceptPausedUntil = Clock::now() + kAcceptPause;
            }
            return;
        }

        ucred credentials{};
        socklen_t length = sizeof(credentials);
        if (::getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
            logLine("%s: refusing a connection whose credentials can't be read: %s",
                    m_serviceName.c_str(), errorText(errno));
            continue;
        }
        if (credentials.uid != ::geteuid() && credentials.uid != 0) {
            logLine("%s: refusing a connection from pid %d of uid %u", m_serviceName.c_str(),
                    static_cast<int>(credentials.pid), static_cast<unsigned>(credentials.uid));
            continue;
        }
        if (m_peers.size() >= kMaxPeers) {
            logLine("%s: refusing a connection from pid %d: %zu connections already",
                    m_serviceName.c_str(), static_cast<int>(credentials.pid), m_peers.size());
            continue;
        }

        auto peer = std::make_unique<Peer>(std::move(fd), credentials.pid);
        std::lock_guard<std::mutex> guard(m_fdLock);
        m_peers.push_back(std::move(peer));
    }
}

void Server::readFrom(Peer& peer)
{
    size_t room = 0;
    unsigned char* space = peer.decoder.prepare(peer.decoder.missing(), &room);
    const ssize_t received = ::recv(peer.fd.get(), space, room, MSG_DONTWAIT);
    if (received > 0) {
        peer.decoder.commit(static_cast<size_t>(received));
        processFrames(peer);
    } else if (received == 0) {
        peer.closing = true;
    } else if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
        peer.closing = true;
    }
}

void Server::processFrames(Peer& peer)
{
    while (!peer.closing && !peer.writing() && !m_stopping.load(std::memory_order_acquire)) {
        FrameDecoder::Frame frame;
        const FrameDecoder::Result result = peer.decoder.next(&frame);
        if (result == FrameDecoder::Result::NeedMore)
            return;
        if (result == FrameDecoder::Result::Error) {
            drop(peer, peer.decoder.error().c_str());
            return;
        }
        if (frame.header.kind == FrameKind::Reply) {
            drop(peer, "sent a reply frame to a server");
            return;
        }
        // The payload lives in the decoder until its next call: copied now.
        m_in.assign(frame.payload, frame.header.payloadSize);
        serve(peer, static_cast<unsigned int>(frame.header.kind), frame.header.sequence,
              frame.header.command);
    }
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

void Server::reply(Peer& peer, uint32_t sequence, unsigned int command)
{
    FrameHeader header;
    header.kind = FrameKind::Reply;
    header.sequence = sequence;
    header.command = command;
    header.payloadSize = m_out.size();
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
    peer.outputSent = 0;
    // Requests that came in meanwhile are already buffered; poll() would not
    // report them again.
    processFrames(peer);
}

void Server::drop(Peer& peer, const char* reason)
{
    logLine("%s: dropping the connection of pid %d: %s", m_serviceName.c_str(),
            static_cast<int>(peer.pid), reason);
    peer.closing = true;
}

void Server::sweep()
{
    const auto closing = [](const std::unique_ptr<Peer>& peer) { return peer->closing; };
    if (std::none_of(m_peers.begin(), m_peers.end(), closing))
        return;
    std::lock_guard<std::mutex> guard(m_fdLock);
    m_peers.erase(std::remove_if(m_peers.begin(), m_peers.end(), closing), m_peers.end());
}

void Server::shutdown()
{
    std::lock_guard<std::mutex> guard(m_fdLock);
    m_peers.clear();
    if (m_listener.isValid()) {
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
