// A far-field test bench: the simulated XMOS board feeding "hw:1,0" of the
// project's ALSA file configuration, the pipeline pointed at a private
// directory, and an application that records what its callbacks get.
#ifndef ZOR_TESTS_AUDIO_FFM_HARNESS_H
#define ZOR_TESTS_AUDIO_FFM_HARNESS_H

#include "sim/xmos_simulator.h"
#include "tests/audio/alsa_sim.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace zor::test
{

// What the application's callbacks saw. The PCM and wake-word callbacks run
// on the pipeline's threads.
struct FfmApplication {
    std::mutex mutex;
    Bytes received;
    std::vector<unsigned> callSizes;
    int wakeWords = 0;
    unsigned begin = 0;
    unsigned end = 0;
    std::string keyword;
    Bytes metadata;
    int notifications = 0;
    bool streamOnWakeWord = true; // asks for the audio from the callback
    std::chrono::steady_clock::time_point wakeWordAt;

    void clear();
    static FfmApplication& instance();
};

class FfmBench
{
public:
    FfmBench();
    ~FfmBench();

    // Application and DSP ready; true once both threads run, the capture
    // reads and the board is connected.
    bool startPipeline();
    // Both threads ended.
    bool waitStopped(int timeoutMs = 5000);
    bool running();

    sim::XmosSimulator& board() { return m_board; }
    AlsaSim& alsa() { return m_alsa; }
    std::string metadataFile() const { return m_alsa.dir() + "/keywords_metadata.txt"; }

private:
    AlsaSim m_alsa;
    sim::XmosSimulator m_board;
};

// Samples whose values are their own positions (mod 2^16).
std::vector<int16_t> rampSamples(size_t count, uint16_t first = 0);
std::vector<int16_t> asSamples(const Bytes& bytes);

} // namespace zor::test

#endif
