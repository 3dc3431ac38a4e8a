// SPDX-License-Identifier: MIT
#include "bench_support.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zor::bench
{

std::vector<int> allowedCpus()
{
    std::vector<int> cpus;
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) == 0) {
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            if (CPU_ISSET(cpu, &set))
                cpus.push_back(cpu);
        }
    }
    return cpus;
}

void pinTo(int cpu)
{
    if (cpu < 0)
        return;
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof(set), &set);
}

pid_t forkPeer(int cpu)
{
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pinTo(cpu); // the peer's server thread inherits it
    }
    return pid;
}

pid_t startServerPeer(int cpu, const std::function<bool()>& serve)
{
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    const pid_t pid = forkPeer(cpu);
    if (pid == 0) {
        close(ready[0]);
        const char result = serve() ? 1 : 0;
        if (write(ready[1], &result, 1) != 1 || !result)
            _exit(1);
        for (;;)
            pause();
    }
    close(ready[1]);
    char result = 0;
    ssize_t n;
    do {
        n = read(ready[0], &result, 1);
    } while (n < 0 && errno == EINTR);
    close(ready[0]);
    if (pid > 0 && (n != 1 || result != 1)) {
        stopPeer(pid);
        return -1;
    }
    return pid;
}

void stopPeer(pid_t pid)
{
    if (pid <= 0)
        return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

std::string makeRuntimeDir(const char* pattern, const char* program)
{
    std::string directory = pattern;
    if (!mkdtemp(directory.data())) {
        fprintf(stderr, "%s: mkdtemp: %s\n", program, strerror(errno));
        return {};
    }
    setenv("ZOR_RUNTIME_DIR", directory.c_str(), 1);
    return directory;
}

void removeRuntimeDir(const std::string& directory, const char* service)
{
    unlink((directory + "/" + service + ".sock").c_str());
    rmdir(directory.c_str());
}

void initializeInterleaved(int argc, char** argv)
{
    std::vector<char*> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
}

// Colours only on a terminal: the output is often kept in a log.
MedianReporter::MedianReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular)
{
}

void MedianReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        if (run.aggregate_name == "median" && !run.error_occurred)
            m_medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
}

double MedianReporter::median(const std::string& name) const
{
    const auto found = m_medians.find(name);
    return found == m_medians.end() ? 0.0 : found->second;
}

} // namespace zor::bench
