// SPDX-License-Identifier: MIT
// A far-field test bench: the simulated XMOS board feeding "hw:1,0" of the
// project's ALSA file configuration, the pipeline pointed at a private
// directory, and an application that records what its callbacks get.
#ifndef ZOR_TESTS_AUDIO_FFM_HARNESS_H
#define ZOR_TESTS_AUDIO_FFM_HARNESS_H

#include "sim/xmos_simulator.h"
#include "tests/audio/alsa_sim.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zor::test
{

// What the application's callbacks saw. The PCM and wake-word callbacks run
// on the pipeline's threads; each call notifies `changed`.
struct FfmApplication {
    std::mutex mutex;
    std::condition_variable changed;
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
    // Waits until `condition` (called with `mutex` held) holds.
    bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 5000);
    static FfmApplication& instance();
};

// The application's counts, read under its lock.
FfmApplication& app();
int wakeWords();
int notifications();

// The far-field capture device served as fast as the capture reads it: the
// test writes whole periods into the FIFO that "hw:1,0" reads, never more
// than PIPE_BUF bytes at once so that every read gets whole periods, and the
// board's sample count follows what the capture has taken. The signal is a
// ramp over the device index on channel 0 and its complement on channel 1,
// so every sample tells where it came from.
class FastCard
{
public:
    FastCard(std::string fifoPath, sim::XmosSimulator& board, uint64_t firstIndex);
    ~FastCard();
    FastCard(const FastCard&) = delete;
    FastCard& operator=(const FastCard&) = delete;

    static int16_t sampleAt(uint64_t deviceIndex)
    {
        return static_cast<int16_t>(static_cast<uint16_t>(deviceIndex));
    }

    // Connects once the capture has opened the device; false after
    // `timeoutMs`. A new connection is a new capture run.
    bool plugIn(int timeoutMs = 5000);
    // Closes the FIFO: the capture reads end of file; what it left unread
    // is lost.
    void unplug();
    bool pluggedIn() const { return m_fd >= 0; }
    // Serves `frames` frames (whole periods, rounded up) as fast as the
    // capture takes them; false when it took nothing for `timeoutMs`.
    bool serve(uint64_t frames, int timeoutMs = 10000);
    // Waits until the capture has put everything served in its ring, then
    // sets the board's sample count; false after `timeoutMs`.
    bool waitTaken(int timeoutMs = 10000);
    // Device index of the next frame served.
    uint64_t deviceIndex() const { return m_next; }

private:
    uint64_t unread() const;

    std::string m_path;
    sim::XmosSimulator& m_board;
    int m_fd = -1;
    uint64_t m_next = 0;
    uint64_t m_runStart = 0; // device index of the run's first frame
    std::vector<int16_t> m_chunk;
};

// A stream of samples followed against the fast card's ramp.
struct StreamCheck {
    uint64_t lost = 0;     // expected samples that never came
    uint64_t repeated = 0; // samples that came again, or from outside the span
    int64_t drift = 0;     // where the stream began, against where it should
};
// `samples` should be the ramp from device index `first`, `count` samples.
StreamCheck checkStream(const std::vector<int16_t>& samples, uint64_t first, uint64_t count);

enum class BoardFeed {
    RealTime, // the board plays its utterances into the FIFO, 20 ms a period
    Fast,     // the board without audio, the test serves through card()
};

class FfmBench
{
public:
    explicit FfmBench(BoardFeed feed = BoardFeed::RealTime);
    ~FfmBench();

    // Application and DSP ready; true once both threads run, the capture
    // reads and the board is connected.
    bool startPipeline();
    // After a stop request: lets a capture that waits for the fast card see
    // end of file, then waits until both threads have ended.
    bool waitStopped(int timeoutMs = 5000);
    bool running();

    sim::XmosSimulator& board() { return m_board; }
    FastCard& card() { return *m_card; }
    AlsaSim& alsa() { return m_alsa; }
    std::string metadataFile() const { return m_alsa.dir() + "/keywords_metadata.txt"; }

    // Fast feed: serves `lead` frames and a keyword of `length` samples
    // after them, waits until the ring holds all of it and presses the wake
    // key. The keyword's device indexes go to `begin` and `end`.
    bool speakKeyword(uint64_t lead, uint64_t length, uint64_t* begin, uint64_t* end);

    struct WakeWord {
        uint64_t keywordBegin = 0; // device indexes
        uint64_t keywordEnd = 0;
        uint64_t queryIndex = 0; // the board's count when it was asked
        uint64_t endIndex = 0;   // the count when the application stopped
        unsigned begin = 0;      // the wake-word callback's arguments
        unsigned end = 0;
        std::vector<int16_t> samples; // what the PCM callback got
        // The samples against the ramp from `first` up to endIndex.
        StreamCheck check(uint64_t first) const
        {
            return checkStream(samples, first, endIndex - first);
        }
    };
    // Fast feed: a keyword as speakKeyword() places it, then `after` samples
    // of speech (at least one period: the capture delivers the period read
    // with the block in the catch-up of the next read). The card holds back
    // from the key press until the keyword block has been handed over (one
    // period after the notify-UI callback lets the capture's reader step
    // run), then serves on; the application streams from its wake-word
    // callback and stops once everything served has arrived. False when no
    // notify-UI callback came within `timeoutMs` or the audio stopped short.
    bool wakeWord(uint64_t lead, uint64_t length, uint64_t after, WakeWord* result,
                  int timeoutMs = 10000);

private:
    AlsaSim m_alsa;
    sim::XmosSimulator m_board;
    std::unique_ptr<FastCard> m_card;
};

// Samples whose values are their own positions (mod 2^16).
std::vector<int16_t> rampSamples(size_t count, uint16_t first = 0);
std::vector<int16_t> asSamples(const Bytes& bytes);

} // namespace zor::test

#endif
