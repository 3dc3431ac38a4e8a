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
#include "bench_support.h"
#include "mup/mup.h"
#include "zor/zor_api.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

using namespace zor::bench;

constexpr const char* kService = "oxa.kel.avs.client";
constexpr unsigned int kSetVolume = 0x18040003;

int g_rawSocket = -1;

// Calls read() or write() until all `size` bytes have gone through, again
// after a signal; false on end of file or an error.
template <typename Byte, typename Io> bool transferFully(Io io, int fd, Byte* bytes, size_t size)
{
    while (size) {
        const ssize_t n = io(fd, bytes, size);
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

bool readFully(int fd, void* data, size_t size)
{
    return transferFully(::read, fd, static_cast<unsigned char*>(data), size);
}

bool writeFully(int fd, const void* data, size_t size)
{
    return transferFully(::write, fd, static_cast<const unsigned char*>(data), size);
}

pid_t startRawPeer(int peerCpu)
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        return -1;
    const pid_t pid = forkPeer(peerCpu);
    if (pid == 0) {
        close(pair[0]);
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
    const std::string runtime = makeRuntimeDir("/tmp/zor-bench-XXXXXX", "bench_mup_roundtrip");
    if (runtime.empty())
        return 1;

    const std::vector<int> cpus = allowedCpus();
    const int ownCpu = cpus.size() >= 2 ? cpus[0] : -1;
    const int peerCpu = cpus.size() >= 2 ? cpus[1] : -1;

    // Peers first, while this process has a single thread.
    const pid_t rawPeer = startRawPeer(peerCpu);
    const pid_t mupPeer = startServerPeer(peerCpu, [] {
        static ReplyZero handler;
        return initAVSServer(kService, &handler) == 0;
    });
    if (mupPeer < 0)
        fprintf(stderr, "bench_mup_roundtrip: the middleware peer did not start\n");
    pinTo(ownCpu);
    int status = 1;
    if (rawPeer > 0 && mupPeer > 0 && initClient(kService) == 0) {
        initializeInterleaved(argc, argv);
        for (auto* bench : {benchmark::RegisterBenchmark("BM_RawSocketPair", BM_RawSocketPair),
                            benchmark::RegisterBenchmark("BM_MupTransmit", BM_MupTransmit),
                            benchmark::RegisterBenchmark("BM_ZorSetVolume", BM_ZorSetVolume)})
            bench->Repetitions(10)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);

        MedianReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();

        const double raw = reporter.median("BM_RawSocketPair");
        const double mup = reporter.median("BM_MupTransmit");
        const double zor = reporter.median("BM_ZorSetVolume");
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
            const std::string capturePath = runtime + "/capture.pcapng";
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
    stopPeer(rawPeer);
    stopPeer(mupPeer);
    removeRuntimeDir(runtime, kService);
    return status;
}
