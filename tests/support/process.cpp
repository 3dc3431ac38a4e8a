// SPDX-License-Identifier: MIT
#include "tests/support/process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace zor::test
{

std::string builtProgram(const std::string& relativePath)
{
    const char* dir = getenv("ZOR_TEST_BIN_DIR");
    return std::string(dir ? dir : ".") + "/" + relativePath;
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::string& outputFile)
{
    std::vector<std::string> command;
    if (const char* emulator = getenv("ZOR_TEST_EMULATOR")) {
        std::istringstream words(emulator);
        for (std::string word; words >> word;)
            command.push_back(word);
    }
    command.insert(command.end(), argv.begin(), argv.end());

    std::vector<char*> args;
    for (std::string& word : command)
        args.push_back(word.data());
    args.push_back(nullptr);

    m_pid = fork();
    if (m_pid == 0) {
        if (!outputFile.empty()) {
            int fd = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (fd >= 0) {
                dup2(fd, STDOUT_FILENO);
                close(fd);
            }
        }
        execvp(args[0], args.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess()
{
    if (m_pid > 0)
        stop(SIGTERM);
}

int ChildProcess::stop(int signal, int timeoutMs)
{
    if (m_pid <= 0)
        return -1;
    kill(m_pid, signal);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        pid_t done = waitpid(m_pid, &status, WNOHANG);
        if (done == m_pid || (done < 0 && errno == ECHILD)) {
            m_pid = -1;
            return status;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return -1;
}

bool waitForService(const std::string& serviceName, int timeoutMs)
{
    const char* dir = getenv("ZOR_RUNTIME_DIR");
    if (!dir)
        return false;
    const std::string path = std::string(dir) + "/" + serviceName + ".sock";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    // A socket file may be left over from a killed server: only a successful
    // connection says that the service is up.
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return false;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    while (std::chrono::steady_clock::now() < deadline) {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd >= 0) {
            const bool up =
                connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
            close(fd);
            if (up)
                return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

} // namespace zor::test
