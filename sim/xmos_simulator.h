// SPDX-License-Identifier: MIT
// A simulated XMOS far-field board. It plays audio into the far-field
// capture FIFO of sim/alsa/asound.conf in real time (16 kHz stereo, the
// signal on channel 0, silence between utterances so the capture never
// starves), presses KEY_F23 once a keyword has been played, and answers the
// library's index query over its device socket (protocol in
// audio/xmos_sim_protocol.h; development builds of libzor find it through
// ZOR_XMOS_DEVICE, the tests through setXmosDeviceOpener()). Like the real
// board it answers only that vendor request (type 0xC0, request 0, value
// 0xAF, index 0xE0, 25 bytes) and stalls every other control transfer
// (LIBUSB_ERROR_PIPE).
//
// Device indexes count the samples the library has actually read: samples
// written into the FIFO minus those still unread in it. The index query is
// answered between two periods, never while one is being read, so the
// library's ring index and the device index correspond exactly.
//
// startWithoutAudio() runs the board without its audio: the caller serves
// the capture (as fast as it reads, for one), tells the board its sample
// count and which keyword it heard, and queries are answered at once.
//
// Faults of a real board are scripted: answers to the index query
// (scriptQueries()), what KEY_F23 does when a keyword is heard
// (setWakeKeyValues()), other key events (sendKeyEvent()) and the board
// disappearing (vanish(), or an Unplug answer in the middle of a query).
//
// All member functions may be called from any thread; observers run on the
// simulator's own thread and must not call back into it.
#ifndef ZOR_SIM_XMOS_SIMULATOR_H
#define ZOR_SIM_XMOS_SIMULATOR_H

#include "sim/far_field_voice.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zor::sim
{

class XmosSimulator : public FarFieldVoice
{
public:
    // An utterance as it went into the FIFO. Indexes are device indexes;
    // keyword indexes are -1 when it had no keyword (or it was not heard
    // because no capture was reading).
    struct Played {
        uint64_t firstIndex = 0;
        uint64_t samples = 0;
        int64_t keywordBegin = -1;
        int64_t keywordEnd = -1; // the keyword's last sample
        int64_t keyPress = -1;   // device index when KEY_F23 was pressed
    };
    struct KeyPress {
        uint64_t keywordBegin = 0;
        uint64_t keywordEnd = 0;
        std::chrono::steady_clock::time_point when;
    };
    // A control transfer as the library sent it (complete is false for a
    // packet too short to carry one).
    struct ControlRequest {
        bool complete = false;
        uint8_t requestType = 0;
        uint8_t request = 0;
        uint16_t value = 0;
        uint16_t index = 0;
        uint16_t length = 0;
    };

    // What the board does with one index query.
    enum class QueryAnswer {
        Indexes,           // status 0 and the indexes of the keyword heard
        NotReady,          // status byte 1: the engine has no indexes yet
        IoError,           // the transfer fails (LIBUSB_ERROR_IO)
        Stall,             // the endpoint stalls the request (LIBUSB_ERROR_PIPE)
        NoAnswer,          // nothing comes back: the transfer times out
        Unplug,            // the board is unplugged with the query outstanding
        BeginAfterCurrent, // keyword begin 1 s after the current index
        EndBeforeBegin,    // keyword end 1 s before its begin
        BeginOverwritten,  // keyword begin 15 s (a whole ring) before the current index
    };

    XmosSimulator();
    ~XmosSimulator() override;
    XmosSimulator(const XmosSimulator&) = delete;
    XmosSimulator& operator=(const XmosSimulator&) = delete;

    // Listens on `deviceSocketPath` (replacing a stale socket file) and
    // feeds `alsaFifoPath` (created as a FIFO when missing) from a thread of
    // its own. False with `error` set when either cannot be set up.
    bool start(const std::string& deviceSocketPath, const std::string& alsaFifoPath,
               std::string* error = nullptr);
    void stop();
    // The board alone, for a capture that the caller feeds: no FIFO, the
    // sample count is set with setCurrentIndex() and keywords are announced
    // with pressWakeKey(); queries are answered as soon as they arrive.
    bool startWithoutAudio(const std::string& deviceSocketPath, std::string* error = nullptr);
    void setCurrentIndex(uint64_t index);
    // The engine heard a keyword at device indexes `keywordBegin` to
    // `keywordEnd`: the next index queries report them, and KEY_F23 goes out.
    void pressWakeKey(uint64_t keywordBegin, uint64_t keywordEnd);

    // Queues mono 16 kHz samples; `keywordBegin`..`keywordEnd` (inclusive
    // sample positions in `mono`) is the keyword the board hears, -1 for
    // none. Returns at once; utterances play one after another.
    void say(std::vector<int16_t> mono, int64_t keywordBegin = -1, int64_t keywordEnd = -1);
    // A WAV file (any rate and channel count libsndfile reads; mixed to mono
    // and resampled to 16 kHz). Keyword positions are in 16 kHz samples.
    bool sayWav(const std::string& path, int64_t keywordBegin, int64_t keywordEnd,
                std::string* error = nullptr);
    // Speaks `text` with espeak-ng; a leading "alexa" is the keyword.
    bool sayText(const std::string& text, std::string* error = nullptr);
    // True once everything queued has been played.
    bool waitUntilIdle(int timeoutMs);

    // FarFieldVoice: the same, blocking until the utterance has been played.
    bool sayText(const std::string& sentence, FarFieldUtterance* played,
                 std::string* error) override;
    bool sayWav(const std::string& path, FarFieldUtterance* played, std::string* error) override;

    // The next index queries get these answers, one each, in order; then
    // the board answers with its indexes again. Replaces an earlier script.
    void scriptQueries(std::vector<QueryAnswer> answers);
    // The values KEY_F23 takes, one event each, when a keyword has been
    // heard: {1, 0} (press, release) unless set; {1, 2, 2, 0} holds the key
    // long enough to repeat.
    void setWakeKeyValues(std::vector<int32_t> values);
    // Any event of the board's HID interface, sent at once.
    void sendKeyEvent(uint16_t type, uint16_t code, int32_t value);
    // Unplugs the board: the device socket and the FIFO are closed, nothing
    // is played. reappear() plugs it in again.
    void vanish();
    void reappear();
    bool plugged() const;

    // Observers and state.
    void onPlayed(std::function<void(const Played&)> observer);
    void onKeyPress(std::function<void(const KeyPress&)> observer);
    uint64_t currentIndex() const; // samples the library has read
    bool libraryConnected() const;
    bool captureReading() const;      // a capture has the FIFO open
    unsigned queriesAnswered() const; // index queries answered (a stall included)
    // The last 64 control transfers received, oldest first.
    std::vector<ControlRequest> controlRequests() const;

    // Synthesises `text` into 16 kHz mono; false with `error` set.
    static bool synthesize(const std::string& text, std::vector<int16_t>& mono, std::string* error);
    static bool readWav(const std::string& path, std::vector<int16_t>& mono, std::string* error);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace zor::sim

#endif
