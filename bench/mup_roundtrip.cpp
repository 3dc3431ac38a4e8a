// SPDX-License-Identifier: MIT
// The cost of one command sent to the middleware and answered, measured
// against the floor that any IPC between two processes has: a bare 4-byte
// ping-pong over a Unix socket pair. Three figures, medians over repetitions:
//
//   BM_RawSocketPair   write 4 bytes, read 4 bytes back (the floor)
//   BM_MupTransmit     OXA_TVC_TransmitCommand with a 4-byte request
//   BM_ZorSetVolume    ZOR_App_SetVolume(30), the whole library path
//
// Each peer is a forked process whose answer is a 4-byte status word; with two
// CPUs or more this process runs on one and the peers on another, so both
// paths pay the same cross-CPU wake-ups.
//
// In builds with frame capture the figures above are those of capture
// compiled in but off; the program then runs itself once more with
// ZOR_MUP_CAPTURE set (this process capturing both frames of each round
// trip) and compares the two SetVolume medians.
#include "mup/mup.h"
#include "zor/zor_api.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace
{

constexpr const char* kService = "oxa.kel.avs.client";
constexpr unsigned int kSetVolume = 0x18040003;

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

int g_rawSocket = -1;

bool readFully(int fd, void* data, size_t size)
{
    auto* bytes = static_cast<unsigned char*>(data);
    while (size) {
        const ssize_t n = ::read(fd, bytes, size);
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            return false;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool writeFully(int fd, const void* data, size_t size)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (size) {
        const ssize_t n = ::write(fd, bytes, size);
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            return false;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// The CPUs this process may use; the first is for it, the second for peers.
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

pid_t startRawPeer(int peerCpu)
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(pair[0]);
        pinTo(peerCpu);
        uint32_t word = 0;
        while (readFully(pair[1], &word, sizeof(word))) {
            const uint32_t status = 0;
            if (!writeFully(pair[1], &status, sizeof(status)))
                break;
        }
        _exit(0);
    }
    close(pair[1]);
    g_rawSocket = pair[0];
    return pid;
}

pid_t startMupPeer(int peerCpu)
{
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ready[0]);
        pinTo(peerCpu); // the server thread inherits it
        static ReplyZero handler;
        const int result = initAVSServer(kService, &handler);
        if (write(ready[1], &result, sizeof(result)) != sizeof(result) || result != 0)
            _exit(1);
        for (;;)
            pause();
    }
    close(ready[1]);
    int result = -1;
    if (pid < 0 || !readFully(ready[0], &result, sizeof(result)) || result != 0) {
        fprintf(stderr, "bench_mup_roundtrip: the middleware peer did not start\n");
        close(ready[0]);
        return -1;
    }
    close(ready[0]);
    return pid;
}

void BM_RawSocketPair(benchmark::State& state)
{
    const uint32_t request = 30;
    uint32_t reply = 0;
    for (auto _ : state) {
        if (!writeFully(g_rawSocket, &request, sizeof(request)) ||
            !readFully(g_rawSocket, &reply, sizeof(reply))) {
            state.SkipWithError("the raw peer went away");
            break;
        }
        benchmark::DoNotOptimize(reply);
    }
}

void BM_MupTransmit(benchmark::State& state)
{
    for (auto _ : state) {
        MUPParam in;
        in.writeInt32(30);
        MUPParam out;
        if (OXA_TVC_TransmitCommand(kSetVolume, in, &out, 0) != 0 || out.readInt32() != 0) {
            state.SkipWithError("OXA_TVC_TransmitCommand failed");
            break;
        }
    }
}

void BM_ZorSetVolume(benchmark::State& state)
{
    for (auto _ : state) {
        if (ZOR_App_SetVolume(30) != 0) {
            state.SkipWithError("ZOR_App_SetVolume failed");
            break;
        }
    }
}

// Keeps the median of each benchmark while printing as usual.
class MedianReporter : public benchmark::ConsoleReporter
{
public:
    // Colours only on a terminal: the output is often kept in a log.
    MedianReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median" && !run.error_occurred)
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> medians;
};

#ifdef ZOR_MUP_CAPTURE
constexpr const char* kCaptureRun = "ZOR_BENCH_CAPTURE_RUN";

struct Medians {
    double raw = 0;
    double setVolume = 0;
};

// Runs this program again with capture on, on the CPUs this one started
// with, its output passed through; returns its medians (0 when it failed).
Medians runWithCapture(int argc, char** argv, const std::string& capturePath,
                       const std::vector<int>& cpus)
{
    int output[2];
    if (pipe(output) != 0)
        return {};
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // it ends with this process, however that ends
        dup2(output[1], STDOUT_FILENO);
        close(output[0]);
        close(output[1]);
        setenv("ZOR_MUP_CAPTURE", capturePath.c_str(), 1);
        setenv(kCaptureRun, "1", 1);
        cpu_set_t set;
        CPU_ZERO(&set);
        for (int cpu : cpus)
            CPU_SET(cpu, &set);
        sched_setaffinity(0, sizeof(set), &set);
        std::vector<char*> args(argv, argv + argc);
        args.push_back(nullptr);
        execve("/proc/self/exe", args.data(), environ);
        _exit(127);
    }
    close(output[1]);
    Medians medians;
    if (FILE* text = fdopen(output[0], "r")) {
        char line[512];
        while (fgets(line, sizeof(line), text)) {
            fputs(line, stdout);
            sscanf(line, "  ZOR_App_SetVolume(30) %lf", &medians.setVolume);
            sscanf(line, "  raw socketpair ping-pong %lf", &medians.raw);
        }
        fclose(text);
    } else {
        close(output[0]);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0)
        return {};
    return medians;
}
#endif

} // namespace

int main(int argc, char** argv)
{
    char runtime[] = "/tmp/zor-bench-XXXXXX";
    if (!mkdtemp(runtime)) {
        perror("bench_mup_roundtrip: mkdtemp");
        return 1;
    }
    setenv("ZOR_RUNTIME_DIR", runtime, 1);

    const std::vector<int> cpus = allowedCpus();
    const int ownCpu = cpus.size() >= 2 ? cpus[0] : -1;
    const int peerCpu = cpus.size() >= 2 ? cpus[1] : -1;

    // Peers first, while this process has a single thread.
    const pid_t rawPeer = startRawPeer(peerCpu);
    const pid_t mupPeer = startMupPeer(peerCpu);
    pinTo(ownCpu);
    int status = 1;
    if (rawPeer > 0 && mupPeer > 0 && initClient(kService) == 0) {
        // Repetitions of the three are interleaved, so that a change of load
        // on the machine weighs on all of them alike; the command line may
        // still say otherwise.
        std::vector<char*> args(argv, argv + argc);
        char interleave[] = "--benchmark_enable_random_interleaving=true";
        args.insert(args.begin() + 1, interleave);
        int count = static_cast<int>(args.size());
        benchmark::Initialize(&count, args.data());
        for (auto* bench : {benchmark::RegisterBenchmark("BM_RawSocketPair", BM_RawSocketPair),
                            benchmark::RegisterBenchmark("BM_MupTransmit", BM_MupTransmit),
                            benchmark::RegisterBenchmark("BM_ZorSetVolume", BM_ZorSetVolume)})
            bench->Repetitions(10)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);

        MedianReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();

        const auto median = [&](const char* name) {
            auto found = reporter.medians.find(name);
            return found == reporter.medians.end() ? 0.0 : found->second;
        };
        const double raw = median("BM_RawSocketPair");
        const double mup = median("BM_MupTransmit");
        const double zor = median("BM_ZorSetVolume");
        printf("\nround trip medians (%s):\n",
               ownCpu >= 0 ? "caller and peers on two CPUs" : "one CPU");
        printf("  raw socketpair ping-pong  %8.2f us\n", raw);
        printf("  OXA_TVC_TransmitCommand   %8.2f us\n", mup);
        printf("  ZOR_App_SetVolume(30)     %8.2f us\n", zor);
        if (raw > 0) {
            printf("  ratio SetVolume / raw     %8.2f (target <= 1.3)\n", zor / raw);
            printf("  ratio Transmit / raw      %8.2f\n", mup / raw);
        }
        status = 0;
#ifdef ZOR_MUP_CAPTURE
        if (getenv(kCaptureRun)) {
            printf("  (capture on: both frames of every round trip written to a file)\n");
        } else {
            fflush(stdout);
            printf("\n== the same with ZOR_MUP_CAPTURE set\n");
            fflush(stdout);
            const std::string capturePath = std::string(runtime) + "/capture.pcapng";
            const Medians captured = runWithCapture(argc, argv, capturePath, cpus);
            unlink(capturePath.c_str());
            // Two processes measured one after the other on a shared machine:
            // the ratio to each run's own raw ping-pong takes out most of the
            // change of load between them.
            if (captured.setVolume > 0 && captured.raw > 0 && zor > 0 && raw > 0) {
                printf("\nZOR_App_SetVolume(30), capture compiled in:\n");
                printf("  off  %8.2f us  (%.2f x raw)\n", zor, zor / raw);
                printf("  on   %8.2f us  (%.2f x raw)\n", captured.setVolume,
                       captured.setVolume / captured.raw);
                printf("  on / off %.3f, against raw %.3f (target <= 1.10)\n",
                       captured.setVolume / zor, (captured.setVolume / captured.raw) / (zor / raw));
            } else {
                status = 1;
            }
        }
#endif
    } else {
        fprintf(stderr, "bench_mup_roundtrip: setting up the peers failed\n");
    }

    if (g_rawSocket >= 0)
        close(g_rawSocket); // the raw peer ends on EOF
    for (pid_t peer : {rawPeer, mupPeer}) {
        if (peer > 0) {
            kill(peer, SIGKILL);
            waitpid(peer, nullptr, 0);
        }
    }
    const std::string socket = std::string(runtime) + "/" + kService + ".sock";
    unlink(socket.c_str());
    rmdir(runtime);
    return status;
}
