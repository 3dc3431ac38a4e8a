// SPDX-License-Identifier: MIT
// Far-field pipeline costs: one capture period (ALSA read, down-mix, ring
// write), the keyword block's assembly, and the time from the board's key
// press to the application's wake-word callback.
#include "audio/ffm_capture.h"
#include "audio/ffm_pipeline.h"
#include "audio/ffm_ring.h"
#include "audio/xmos_device.h"
#include "sim/xmos_simulator.h"
#include "zor/zor_audio.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ffm = zor::audio::ffm;

namespace
{

using Clock = std::chrono::steady_clock;

// A private directory for the ALSA file devices and dumps.
std::string benchDir()
{
    static const std::string dir = [] {
        char pattern[] = "/tmp/zor-ffm-bench-XXXXXX";
        std::string made = mkdtemp(pattern);
        setenv("ZOR_ALSA_DIR", made.c_str(), 1);
        setenv("ALSA_CONFIG_PATH", ZOR_SOURCE_DIR "/sim/alsa/asound.conf", 1);
        return made;
    }();
    return dir;
}

ffm::Params benchParams()
{
    ffm::Params params;
    params.dumpDir = benchDir() + "/";
    params.captureOpenAttempts = 1;
    params.hidOpenAttempts = 50;
    params.hidOpenDelayMs = 20;
    params.metadataScript = "";
    params.metadataFile = benchDir() + "/no-metadata";
    return params;
}

// One capture period from a regular file (read as fast as asked): the
// ALSA read through the file plugin, the down-mix and the ring write.
void BM_CapturePeriod(benchmark::State& state)
{
    const std::string in = benchDir() + "/pcm2,0.in";
    std::ofstream(in, std::ios::binary).write(std::string(64 << 20, '\x11').data(), 64 << 20);
    ffm::_ST_FFM_CAPTURE_BUF_CFG cap;
    ffm::_ST_FFM_RING_BUF_CFG ring;
    if (ffm::kel_avs_ffm_alsa_capture_init(&cap, &ring, "hw:2,0", benchParams()) != 0) {
        state.SkipWithError("capture init failed");
        return;
    }
    for (auto _ : state)
        ffm::kel_avs_ffm_alsa_capture_write(&cap, &ring);
    state.SetItemsProcessed(state.iterations());
    ffm::kel_avs_ffm_alsa_capture_stop(&cap, &ring, "hw:2,0");
    unlink(in.c_str());
}
BENCHMARK(BM_CapturePeriod);

// The same without the device: down-mix and ring write of one period.
void BM_DownMixAndRingWrite(benchmark::State& state)
{
    ffm::_ST_FFM_CAPTURE_BUF_CFG cap;
    ffm::_ST_FFM_RING_BUF_CFG ring;
    cap.frames = 320;
    cap.u32StereoBufSize = 1280;
    cap.u32MonoBufSize = 640;
    cap.pStereoBuf = ffm::allocateBuffer(1280);
    cap.pMonoBuf = ffm::allocateBuffer(640);
    memset(cap.pStereoBuf.get(), 3, 1280);
    ring.u32BufSize = ffm::kRingBytes;
    ring.u32SampleCount = ffm::kRingSamples;
    ring.pu8RingBuf = ffm::allocateBuffer(ffm::kRingBytes);
    for (auto _ : state) {
        ffm::kel_avs_ffm_dataDownMixto1ch(cap);
        ffm::kel_avs_ffm_dataWriteInRingBuf(cap, ring);
        benchmark::DoNotOptimize(ring.u32CurrentIndex);
    }
}
BENCHMARK(BM_DownMixAndRingWrite);

// Mapping the device indexes, clearing the copy buffer and copying the
// block: a 1.5 s utterance (the usual) and the largest block (15 s).
void BM_KeywordBlockAssembly(benchmark::State& state)
{
    const uint64_t samplesBack = static_cast<uint64_t>(state.range(0));
    std::vector<uint8_t> ringBuf(ffm::kRingBytes, 5);
    std::vector<uint8_t> copy(ffm::kCopyBufBytes);
    const uint64_t c = 1000000;
    for (auto _ : state) {
        const ffm::KeywordPlan plan =
            ffm::planKeyword(c, c - samplesBack, c - samplesBack + 8000, 1000, ffm::kRingSamples,
                             ffm::FFM_PREROLL_SAMPLES);
        memset(copy.data(), 0, copy.size());
        benchmark::DoNotOptimize(ffm::copyPieces(plan.copy, ringBuf.data(), copy.data()));
    }
}
BENCHMARK(BM_KeywordBlockAssembly)->Arg(16000)->Arg(232000);

std::mutex wakeMutex;
std::condition_variable wakeChanged;
int wakeCount = 0;
Clock::time_point wakeAt;

int onWakeWord(unsigned int, unsigned int, char*, unsigned int, char*)
{
    std::lock_guard<std::mutex> lock(wakeMutex);
    wakeAt = Clock::now();
    ++wakeCount;
    wakeChanged.notify_all();
    return 0;
}

// From the board's KEY_F23 to the wake-word callback, through the event
// socket, the index query, the metadata step and the block copy.
void BM_KeyPressToWakeWordCallback(benchmark::State& state)
{
    const std::string dir = benchDir();
    const std::string socket = dir + "/xmos.sock";
    zor::audio::setXmosDeviceOpener([socket](const zor::audio::XmosOpenParams& params) {
        return zor::audio::openSimulatedXmosDevice(socket.c_str(), params);
    });
    ffm::setParams(benchParams());
    zor::sim::XmosSimulator board;
    std::string error;
    if (!board.start(socket, dir + "/pcm3,0.in", &error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    Clock::time_point pressAt;
    board.onKeyPress([&](const zor::sim::XmosSimulator::KeyPress& press) {
        std::lock_guard<std::mutex> lock(wakeMutex);
        pressAt = press.when;
    });
    KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(onWakeWord);
    KEL_AVS_FFM_Init({1, 3, 0});
    KEL_AVS_FFM_NotifyAudDSPStatus(1);
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!board.libraryConnected() || !board.captureReading()) {
        if (Clock::now() > deadline) {
            state.SkipWithError("pipeline did not start");
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    std::vector<double> latencies;
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock(wakeMutex);
        const int before = wakeCount;
        lock.unlock();
        board.say(std::vector<int16_t>(960, 1000), 0, 959);
        lock.lock();
        if (!wakeChanged.wait_for(lock, std::chrono::seconds(3),
                                  [&] { return wakeCount > before; })) {
            state.SkipWithError("no wake word");
            break;
        }
        const double ms = std::chrono::duration<double, std::milli>(wakeAt - pressAt).count();
        latencies.push_back(ms);
        state.SetIterationTime(ms / 1000.0);
        lock.unlock();
        board.waitUntilIdle(1000);
    }
    KEL_AVS_FFM_TriggerCaptureData(0);
    while (ffm::captureState() != zor::audio::ThreadState::None ||
           ffm::detectionState() != zor::audio::ThreadState::None)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    board.stop();
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        const auto at = [&](double q) {
            return latencies[std::min(
                latencies.size() - 1,
                static_cast<size_t>(q * static_cast<double>(latencies.size())))];
        };
        state.counters["p50_ms"] = at(0.50);
        state.counters["p99_ms"] = at(0.99);
        state.counters["max_ms"] = latencies.back();
    }
}
BENCHMARK(BM_KeyPressToWakeWordCallback)
    ->Iterations(100)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
