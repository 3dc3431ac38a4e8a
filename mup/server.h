// SPDX-License-Identifier: MIT
// One thread serving one service name: it accepts the connections of its
// clients, reads their requests without ever blocking on one of them, calls
// the handler for each request in arrival order and writes the replies.
#ifndef MUP_SERVER_H
#define MUP_SERVER_H

#include "mup/log.h"
#include "mup/mup.h"
#include "mup/socket.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace mup
{

class Server
{
    struct Private {
    };

public:
    // Binds "<runtime dir>/<serviceName>.sock" (replacing a socket left by a
    // process that ended) and starts the thread. nullptr, with a log line,
    // when the name is invalid, another live process serves it or the socket
    // can't be made. The handler is borrowed and must outlive the server.
    static std::unique_ptr<Server> start(const std::string& serviceName,
                                         OXAPC::C_OXAAVSServerHandler& handler);

    // Stops and joins the thread, closes the connections, removes the socket
    // file. A server must not be destroyed by its own handler.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Ends the thread after the command in progress, then closes the
    // connections and removes the socket file. Called from the server's own
    // thread (its handler), it only asks for that and returns.
    void stop();

    const std::string& serviceName() const { return m_serviceName; }
    const std::string& socketPath() const { return m_socketPath; }

    // For start() only.
    Server(Private, const std::string& serviceName, std::string socketPath,
           OXAPC::C_OXAAVSServerHandler& handler, UniqueFd listener, dev_t device, ino_t inode);

private:
    struct Peer;

    // A child process gets a copy of each server without its thread: the
    // copy lets go of the descriptors, which belong to the parent's server.
    static void registerForkHandlers();
    static void beforeFork();
    static void afterForkInParent();
    static void afterForkInChild();

    bool launch();
    void run();
    void serveOnce(std::vector<pollfd>& polled);
    void acceptPeers();
    bool makeRoom();
    void readFrom(Peer& peer);
    void processFrames(Peer& peer);
    void claimShare(Peer& peer);
    void grantShares();
    void returnShare(Peer& peer);
    void serve(Peer& peer, unsigned int kind, uint32_t sequence, unsigned int command);
    void reply(Peer& peer, uint32_t sequence, unsigned int command);
    void flush(Peer& peer);
    void drop(Peer& peer, const char* reason);
    void sweep();
    void shutdown();
    void removeSocketFile();
    void abandonAfterFork();

    const std::string m_serviceName;
    const std::string m_socketPath;
    OXAPC::C_OXAAVSServerHandler& m_handler;
    const dev_t m_device; // of the socket file we made, so that only that file
    const ino_t m_inode;  // is removed, never one of a server that came after

    UniqueFd m_wake; // an eventfd that wakes the thread up for stop()
    std::atomic<bool> m_stopping{false};
    bool m_forked = false; // this is a child process's copy of the server

    std::mutex m_joinLock;
    std::unique_ptr<std::thread> m_thread;

    // Guards the descriptors (the listener and the peers' list) against the
    // fork handler; the thread holds it only while changing them.
    std::mutex m_fdLock;
    UniqueFd m_listener;
    std::vector<std::unique_ptr<Peer>> m_peers;
    Clock::time_point m_acceptPausedUntil{};
    size_t m_budgetUsed = 0; // shares of the frame budget given out
    uint64_t m_lastShareTicket = 0;
    // Refusals and drops are logged at most once a second each.
    ThrottledLog m_refusals{"refusals"};
    ThrottledLog m_drops{"drops"};

    // Reused from one command to the next.
    MUPParam m_in;
    MUPParam m_out;
};

} // namespace mup

#endif
