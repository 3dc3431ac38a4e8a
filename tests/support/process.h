// SPDX-License-Identifier: MIT
// Starting the project's own programs (the simulator, the tool) from a test,
// under the build's emulator when the tests run on another architecture.
#ifndef ZOR_TESTS_SUPPORT_PROCESS_H
#define ZOR_TESTS_SUPPORT_PROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace zor::test
{

// Path of a program built by the project, e.g. "sim/tvsim".
std::string builtProgram(const std::string& relativePath);

class ChildProcess
{
public:
    // Starts argv[0] with the given arguments; stdout goes to `outputFile`
    // when it is not empty.
    ChildProcess(const std::vector<std::string>& argv, const std::string& outputFile = {});
    ~ChildProcess(); // SIGTERM, then waits
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return m_pid; }
    bool running() const { return m_pid > 0; }
    // Sends a signal and waits (at most timeoutMs) for the exit; returns the
    // wait status, or -1 when it did not end in time (it is then killed).
    int stop(int signal, int timeoutMs = 5000);

private:
    pid_t m_pid = -1;
};

// Polls until the service in $ZOR_RUNTIME_DIR accepts a connection (bounded).
bool waitForService(const std::string& serviceName, int timeoutMs = 10000);

} // namespace zor::test

#endif
