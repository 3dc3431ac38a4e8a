// SPDX-License-Identifier: MIT
// One endpoint towards one service. Several may exist in a process (the
// simulator and the tests use more than one); the exported functions use a
// single process-wide one.
#ifndef MUP_CLIENT_H
#define MUP_CLIENT_H

#include "mup/deadline_mutex.h"
#include "mup/mup.h"
#include "mup/socket.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

namespace mup
{

class Client
{
public:
    // Reads ZOR_MUP_TIMEOUT_MS now; does not connect yet.
    explicit Client(std::string serviceName);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends `cmd` with the bytes of `in`. With `out`, waits for the matching
    // reply and stores it there (0), or returns -1 with `out` empty when the
    // service can't be reached, goes away or does not answer in time. Without
    // `out`, returns 0 once the request is written. Connects on first use and
    // again after the connection broke. Any number of threads may call this
    // at once.
    int transmit(unsigned int cmd, const MUPParam& in, MUPParam* out);

    const std::string& serviceName() const { return m_serviceName; }
    std::chrono::milliseconds timeout() const { return m_timeout; }

    class Connection;

private:
    std::shared_ptr<Connection> connection(Clock::time_point deadline, bool* reused);
    bool servedByTrustedPeer(int fd) const;

    const std::string m_serviceName;
    const std::chrono::milliseconds m_timeout;
    std::atomic<uint32_t> m_nextSequence{1};

    DeadlineMutex m_lock; // guards what follows; held while connecting
    std::string m_socketPath;
    std::shared_ptr<Connection> m_connection;
    bool m_reachable = true; // to log a failure to connect once, not per call
};

} // namespace mup

#endif
