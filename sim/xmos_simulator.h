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

    // Failure injection, each for the following queries.
    void setNotReadyAnswers(unsigned count); // status byte 1
    void setFailedTransfers(unsigned count); // transfer error (LIBUSB_ERROR_IO)
    void setIndexesOutOfRange(bool on);      // keyword begin after the current index
    // Unplugs the board: the device socket and the FIFO are closed, nothing
    // is played. reappear() plugs it in again.
    void vanish();
    void reappear();

    // Observers and state.
    void onPlayed(std::function<void(const Played&)> observer);
    void onKeyPress(std::function<void(const KeyPress&)> observer);
    uint64_t currentIndex() const; // samples the library has read
    bool libraryConnected() const;
    bool captureReading() const; // a capture has the FIFO open
    unsigned queriesAnswered() const;
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
