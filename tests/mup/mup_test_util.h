// SPDX-License-Identifier: MIT
// Helpers shared by the messaging layer's tests: a private runtime directory
// per test, peer processes that serve a service, calls from many threads, raw
// sockets.
#ifndef ZOR_TESTS_MUP_MUP_TEST_UTIL_H
#define ZOR_TESTS_MUP_MUP_TEST_UTIL_H

#include "mup/mup.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace mup_test
{

using Bytes = std::vector<unsigned char>;
using SteadyClock = std::chrono::steady_clock;

inline Bytes bytesOf(const MUPParam& param)
{
    return Bytes(param.data(), param.data() + param.size());
}

inline void writeBytes(MUPParam& param, const Bytes& bytes)
{
    param.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

inline std::string readFile(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

inline void removeTree(const std::string& path)
{
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0)
        return;
    if (S_ISDIR(info.st_mode)) {
        if (DIR* dir = opendir(path.c_str())) {
            std::vector<std::string> names;
            while (dirent* entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..")
                    names.push_back(name);
            }
            closedir(dir);
            for (const std::string& name : names)
                removeTree(path + "/" + name);
        }
        rmdir(path.c_str());
    } else {
        unlink(path.c_str());
    }
}

// Sets an environment variable for the life of the object.
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const char* value) : m_name(name)
    {
        if (const char* old = getenv(name)) {
            m_hadValue = true;
            m_oldValue = old;
        }
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~ScopedEnv()
    {
        if (m_hadValue)
            setenv(m_name.c_str(), m_oldValue.c_str(), 1);
        else
            unsetenv(m_name.c_str());
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name;
    bool m_hadValue = false;
    std::string m_oldValue;
};

// A fresh directory under /tmp, removed with everything in it.
class TempDir
{
public:
    TempDir()
    {
        char pattern[] = "/tmp/mup-test-XXXXXX";
        if (mkdtemp(pattern))
            m_path = pattern;
    }
    ~TempDir() { removeTree(m_path); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

// A fresh directory that ZOR_RUNTIME_DIR names for the life of the object.
class RuntimeDir
{
public:
    RuntimeDir() : m_dir(), m_runtime("ZOR_RUNTIME_DIR", m_dir.path().c_str()) {}

    const std::string& dir() const { return m_dir.path(); }
    std::string socketPath(const std::string& service) const
    {
        return m_dir.path() + "/" + service + ".sock";
    }
    std::string file(const std::string& name) const { return m_dir.path() + "/" + name; }

private:
    TempDir m_dir;
    ScopedEnv m_runtime;
};

// The private runtime directory and the short timeout that every test of the
// messaging layer runs with; set before any client is made.
class TestRuntime : public RuntimeDir
{
public:
    explicit TestRuntime(const char* timeoutMs = "1000")
        : m_timeout("ZOR_MUP_TIMEOUT_MS", timeoutMs)
    {
    }

private:
    ScopedEnv m_timeout;
};

// A child process that runs `body` (which must not return) after signalling
// readiness with a status word through a pipe. Killed and reaped on
// destruction.
class ChildProcess
{
public:
    // body(readyFd): write one int to readyFd once ready (0 = fine).
    explicit ChildProcess(const std::function<void(int readyFd)>& body,
                          const std::string& stderrPath = {})
    {
        int pipeFds[2];
        if (pipe2(pipeFds, O_CLOEXEC) != 0)
            return;
        m_pid = fork();
        if (m_pid == 0) {
            // Never outlive the test, whatever happens to it.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(pipeFds[0]);
            if (!stderrPath.empty()) {
                const int fd = open(stderrPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
                if (fd >= 0) {
                    dup2(fd, STDERR_FILENO);
                    close(fd);
                }
            }
            body(pipeFds[1]);
            _exit(0);
        }
        close(pipeFds[1]);
        pollfd ready{pipeFds[0], POLLIN, 0};
        if (m_pid > 0 && poll(&ready, 1, 20000) == 1 &&
            read(pipeFds[0], &m_status, sizeof(m_status)) == sizeof(m_status))
            m_ready = true;
        close(pipeFds[0]);
    }
    ~ChildProcess() { kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool ready() const { return m_ready; }
    int status() const { return m_status; }
    pid_t pid() const { return m_pid; }

    // SIGKILL, then reaps the process.
    void kill()
    {
        if (m_pid <= 0)
            return;
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

    // Waits for the process to end by itself; its exit code, or -1.
    int wait()
    {
        int status = 0;
        if (m_pid <= 0 || waitpid(m_pid, &status, 0) != m_pid)
            return -1;
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
    bool m_ready = false;
    int m_status = -1;
};

// The body of a process that serves `service` with a Handler through
// initAVSServer. `setUp`, when given, runs first in that process; a result
// other than 0 is reported as the process's status instead of serving.
template <typename Handler>
std::function<void(int)> servingBody(const std::string& service,
                                     const std::function<int()>& setUp = {})
{
    return [service, setUp](int readyFd) {
        int result = setUp ? setUp() : 0;
        static Handler handler;
        if (result == 0)
            result = initAVSServer(service.c_str(), &handler);
        if (write(readyFd, &result, sizeof(result)) != sizeof(result) || result != 0)
            _exit(1);
        for (;;)
            pause();
    };
}

// A child process running a servingBody() for `service`.
class ServingProcess : public ChildProcess
{
public:
    ServingProcess(const std::string& service, const std::function<void(int)>& body,
                   const std::string& stderrPath)
        : ChildProcess(body, stderrPath), m_service(service)
    {
    }

    bool serving() const { return ready() && status() == 0; }

    // The process serves, and this process's endpoint (OXA_TVC_NewClient)
    // is opened to its service.
    testing::AssertionResult connectClient() const
    {
        if (!serving())
            return testing::AssertionFailure() << "nothing serves " << m_service;
        if (OXA_TVC_NewClient(m_service.c_str()) != 0)
            return testing::AssertionFailure() << "OXA_TVC_NewClient(" << m_service << ") failed";
        return testing::AssertionSuccess();
    }

private:
    std::string m_service;
};

// What concurrent echo calls saw: calls that failed, replies that were not
// their request.
struct EchoTally {
    int failures = 0;
    int mismatches = 0;
};

// `threads` threads each send `calls` requests, requestFor(thread, call), as
// `echoCommand` through this process's endpoint (OXA_TVC_TransmitCommand),
// and check that each reply is its own request. Returns once all have ended.
inline EchoTally echoFromThreads(unsigned int echoCommand, int threads, int calls,
                                 const std::function<Bytes(int thread, int call)>& requestFor)
{
    std::atomic<int> failures{0};
    std::atomic<int> mismatches{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < calls; ++i) {
                const Bytes request = requestFor(t, i);
                MUPParam in;
                writeBytes(in, request);
                MUPParam out;
                if (OXA_TVC_TransmitCommand(echoCommand, in, &out, 0) != 0)
                    ++failures;
                else if (bytesOf(out) != request)
                    ++mismatches;
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    return {failures.load(), mismatches.load()};
}

// A plain stream socket connected to `path`, for speaking the wire format by
// hand; -1 on failure.
inline int connectRaw(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

inline bool sendRaw(int fd, const Bytes& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Reads exactly `count` bytes within timeoutMs; fewer when the peer closed.
inline Bytes receiveRaw(int fd, size_t count, int timeoutMs = 5000)
{
    Bytes bytes;
    const auto deadline = SteadyClock::now() + std::chrono::milliseconds(timeoutMs);
    while (bytes.size() < count) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
        pollfd readable{fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) != 1)
            break;
        unsigned char buffer[4096];
        const ssize_t n = recv(fd, buffer, std::min(sizeof(buffer), count - bytes.size()), 0);
        if (n <= 0)
            break;
        bytes.insert(bytes.end(), buffer, buffer + n);
    }
    return bytes;
}

// True once the peer closed the socket (within timeoutMs); data still queued
// before the close is skipped.
inline bool closedByPeer(int fd, int timeoutMs = 5000)
{
    const auto deadline = SteadyClock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
        pollfd readable{fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) != 1)
            return false;
        unsigned char buffer[65536];
        const ssize_t n = recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno == ECONNRESET))
            return true;
    }
}

} // namespace mup_test

#endif
