// SPDX-License-Identifier: MIT
// What capture costs the round trip, measured in one process so that the
// load of a shared machine weighs on both cases alike: a command sent through
// the messaging layer's client to a middleware peer (a forked process on
// another CPU) and answered, with capture off and with capture on (this
// process recording both frames of each round trip into a file). The
// repetitions of the two are interleaved; the medians and their ratio are
// printed. Beside them, the hook alone: one mup::capture::frame() call for a
// SetVolume-sized frame (20-byte header, 4-byte payload), off and on.
#include "bench_support.h"
#include "mup/capture.h"
#include "mup/client.h"
#include "mup/server.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using namespace zor::bench;

constexpr const char* kService = "oxa.kel.avs.client";
constexpr unsigned int kSetVolume = 0x18040003;

std::string g_directory;
std::unique_ptr<mup::Client> g_client;
int g_captureRun = 0;

void roundTrips(benchmark::State& state)
{
    for (auto _ : state) {
        MUPParam in;
        in.writeInt32(30);
        MUPParam out;
        if (g_client->transmit(kSetVolume, in, &out) != 0 || out.readInt32() != 0) {
            state.SkipWithError("transmit failed");
            break;
        }
    }
}

// Capture is started before and stopped after the timed loop of each
// repetition: the writer's last flush is not timed, its work during the
// loop is.
bool startCapture(benchmark::State& state)
{
    const std::string path = g_directory + "/run" + std::to_string(++g_captureRun) + ".pcapng";
    std::string error;
    if (!mup::capture::start(path, &error)) {
        state.SkipWithError(error.c_str());
        return false;
    }
    return true;
}

void stopCapture()
{
    mup::capture::stop();
    const std::string path = g_directory + "/run" + std::to_string(g_captureRun) + ".pcapng";
    unlink(path.c_str());
}

void BM_RoundTripCaptureOff(benchmark::State& state)
{
    roundTrips(state);
}

void BM_RoundTripCaptureOn(benchmark::State& state)
{
    if (!startCapture(state))
        return;
    roundTrips(state);
    stopCapture();
}

void hookCalls(benchmark::State& state)
{
    const unsigned char payload[4] = {30, 0, 0, 0};
    mup::FrameHeader header;
    header.command = kSetVolume;
    header.payloadSize = sizeof(payload);
    const std::string service = kService;
    for (auto _ : state) {
        ++header.sequence;
        mup::capture::frame(service, mup::capture::Direction::Sent, header, payload);
    }
}

void BM_HookCaptureOff(benchmark::State& state)
{
    hookCalls(state);
}

void BM_HookCaptureOn(benchmark::State& state)
{
    if (!startCapture(state))
        return;
    const uint64_t dropped = mup::capture::dropped();
    hookCalls(state);
    state.counters["dropped"] = static_cast<double>(mup::capture::dropped() - dropped);
    stopCapture();
}

} // namespace

int main(int argc, char** argv)
{
    g_directory = makeRuntimeDir("/tmp/zor-capture-bench-XXXXXX", "bench_capture");
    if (g_directory.empty())
        return 1;

    const std::vector<int> cpus = allowedCpus();
    const bool twoCpus = cpus.size() >= 2;
    const pid_t peer = startServerPeer(twoCpus ? cpus[1] : -1, [] {
        static ReplyZero handler;
        static std::unique_ptr<mup::Server> server = mup::Server::start(kService, handler);
        return server != nullptr;
    });
    pinTo(twoCpus ? cpus[0] : -1);
    int status = 1;
    if (peer > 0) {
        g_client = std::make_unique<mup::Client>(kService);
        initializeInterleaved(argc, argv);
        for (auto* bench :
             {benchmark::RegisterBenchmark("BM_RoundTripCaptureOff", BM_RoundTripCaptureOff),
              benchmark::RegisterBenchmark("BM_RoundTripCaptureOn", BM_RoundTripCaptureOn)})
            bench->Repetitions(12)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
        for (auto* bench : {benchmark::RegisterBenchmark("BM_HookCaptureOff", BM_HookCaptureOff),
                            benchmark::RegisterBenchmark("BM_HookCaptureOn", BM_HookCaptureOn)})
            bench->Repetitions(5)->ReportAggregatesOnly(true);

        MedianReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();

        const double off = reporter.median("BM_RoundTripCaptureOff");
        const double on = reporter.median("BM_RoundTripCaptureOn");
        printf("\nround trip medians (%s):\n", twoCpus ? "caller and peer on two CPUs" : "one CPU");
        printf("  capture off   %8.2f us\n", off);
        printf("  capture on    %8.2f us\n", on);
        if (off > 0)
            printf("  ratio on / off %7.3f (target <= 1.10)\n", on / off);
        status = off > 0 && on > 0 ? 0 : 1;
    } else {
        fprintf(stderr, "bench_capture: the middleware peer did not start\n");
    }

    g_client.reset();
    stopPeer(peer);
    removeRuntimeDir(g_directory, kService);
    return status;
}
