// SPDX-License-Identifier: MIT
// What the benchmark programs share: a stand-in middleware that answers
// every command with status 0, the forked peer processes that serve it on a
// CPU of their own, a private runtime directory, and a console reporter that
// keeps each benchmark's median.
//
// Everything here is for a program's main thread; peers are forked while the
// process still has a single thread.
#ifndef ZOR_BENCH_BENCH_SUPPORT_H
#define ZOR_BENCH_BENCH_SUPPORT_H

#include "mup/mup.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace zor::bench
{

// Answers every command with a 4-byte status word 0. Called on the server
// thread of the peer process that owns it.
class ReplyZero : public OXAPC::C_OXAAVSServerHandler
{
public:
    int handleCommand(unsigned int, MUPParam&, MUPParam* out, unsigned int) override
    {
        if (out)
            out->writeInt32(0);
        return 0;
    }
};

// The CPUs this process may use, in ascending order; the first is for the
// process itself, the second for its peers. Empty when they cannot be read.
std::vector<int> allowedCpus();

// Binds the calling thread (and the threads it starts later) to one CPU;
// nothing for cpu < 0. A failure leaves the thread unbound.
void pinTo(int cpu);

// Forks a peer that is killed when this process ends, bound to `cpu` (-1:
// any). Returns as fork() does: 0 in the peer, its pid in the caller, -1 on
// failure.
pid_t forkPeer(int cpu);

// Forks a peer that calls `serve` (which starts a server that must outlive
// the call, e.g. with static storage) and, when it returns true, waits there
// until it is killed. Returns the peer's pid once `serve` has returned true;
// -1, the peer reaped, when the fork failed or `serve` returned false.
pid_t startServerPeer(int cpu, const std::function<bool()>& serve);

// Kills a peer with SIGKILL and reaps it; nothing for pid <= 0.
void stopPeer(pid_t pid);

// Makes a fresh directory from `pattern` (ending in "XXXXXX") and points
// ZOR_RUNTIME_DIR at it. Returns its path, or an empty string after a line
// "<program>: mkdtemp: <reason>" on stderr.
std::string makeRuntimeDir(const char* pattern, const char* program);

// Removes the socket of `service` and then the directory, which must then be
// empty.
void removeRuntimeDir(const std::string& directory, const char* service);

// benchmark::Initialize() with the repetitions of all benchmarks interleaved,
// so that a change of load on the machine weighs on each of them alike; the
// command line may still say otherwise.
void initializeInterleaved(int argc, char** argv);

// Prints as the console reporter does and keeps the median of each benchmark
// that ran with repetitions and without error.
class MedianReporter : public benchmark::ConsoleReporter
{
public:
    MedianReporter();
    void ReportRuns(const std::vector<Run>& runs) override;

    // The median real time of `name` in its display unit; 0 when it has none.
    double median(const std::string& name) const;

private:
    std::map<std::string, double> m_medians;
};

} // namespace zor::bench

#endif
