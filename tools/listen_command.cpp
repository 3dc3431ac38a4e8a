// SPDX-License-Identifier: MIT
// `zorctl listen`: behaves as an assistant application that waits for the
// television. It registers every callback and prints each call, saves the
// PCM it receives as a WAV file, completes its initialisation, and on a wake
// word (or a microphone-button tap or hold) streams from the microphone for a
// few seconds.
#include "tools/zorctl.h"

#include "api/streaming_state.h"
#include "zor/zor.h"

#include <sndfile.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace zorctl
{

namespace
{

struct ListenOptions {
    std::string wavPath = "zorctl-listen.wav";
    double seconds = 0; // 0: until SIGINT or SIGTERM
    double streamSeconds = 3;
    std::string source = "ffm";
    double initDelay = 0; // seconds before ZOR_App_initCompleted
};

constexpr double kBytesPerSecond = 16000 * 2; // 16 kHz mono, 16 bits

std::mutex gOutputLock;
std::atomic<bool> gStop{false};
std::atomic<bool> gStreamRequested{false};
std::atomic<bool> gEveryPcm{false}; // -v: a line per PCM callback

// The WAV file that every PCM callback appends to, and the PCM received
// since the last summary line.
std::mutex gWavLock;
SNDFILE* gWav = nullptr;
size_t gPcmBytes = 0;
size_t gPcmCallbacks = 0;
size_t gPcmBytesSummarised = 0;
size_t gPcmCallbacksSummarised = 0;

void event(const char* format, ...) __attribute__((format(printf, 1, 2)));
void event(const char* format, ...)
{
    std::lock_guard<std::mutex> guard(gOutputLock);
    FILE* out = answerStream();
    fputs("event: ", out);
    va_list args;
    va_start(args, format);
    vfprintf(out, format, args);
    va_end(args);
    fputc('\n', out);
    fflush(out);
}

int onPcm(void* data, unsigned int bytes)
{
    size_t total = 0;
    {
        std::lock_guard<std::mutex> guard(gWavLock);
        if (gWav && data && bytes >= 2)
            sf_write_short(gWav, static_cast<const short*>(data), bytes / 2);
        gPcmBytes += bytes;
        ++gPcmCallbacks;
        total = gPcmBytes;
    }
    if (gEveryPcm)
        event("pcm %u bytes (%zu in all)", bytes, total);
    return 0;
}

// One line for the PCM that came since the last one, if any.
void summarisePcm()
{
    size_t callbacks = 0;
    size_t bytes = 0;
    {
        std::lock_guard<std::mutex> guard(gWavLock);
        callbacks = gPcmCallbacks - gPcmCallbacksSummarised;
        bytes = gPcmBytes - gPcmBytesSummarised;
        gPcmCallbacksSummarised = gPcmCallbacks;
        gPcmBytesSummarised = gPcmBytes;
    }
    if (callbacks > 0)
        event("pcm %zu callbacks, %zu bytes, %.2f s", callbacks, bytes,
              static_cast<double>(bytes) / kBytesPerSecond);
}

// The far-field pipeline starts at ZOR_App_initCompleted, and only when the
// television has reported the microphone array (ffm-sup) by then.
class FarFieldOrder
{
public:
    explicit FarFieldOrder(bool wanted) : m_wanted(wanted) {}

    void atInitCompleted()
    {
        if (!m_wanted)
            return;
        m_reportedAtInit = zor::options::farFieldInfo().u8Sup == 1;
        if (!m_reportedAtInit)
            complain("listen: no far-field microphone reported (ffm-sup) before the "
                     "initialisation completed: the far-field pipeline does not start and wake "
                     "words never fire; report it first (or give --init-delay time for it)");
    }

    // Polled: a report that comes too late is said once.
    void poll()
    {
        if (!m_wanted || m_reportedAtInit || m_toldLate)
            return;
        if (zor::options::farFieldInfo().u8Sup == 1) {
            complain("listen: the far-field microphone was reported (ffm-sup) after the "
                     "initialisation completed: the pipeline starts only at the next start of "
                     "zorctl listen");
            m_toldLate = true;
        }
    }

private:
    const bool m_wanted;
    bool m_reportedAtInit = false;
    bool m_toldLate = false;
};

int onWakeWord(unsigned int begin, unsigned int end, char* keyword, unsigned int metadataLength,
               char*)
{
    event("wake-word begin=%u end=%u keyword=%s metadata=%u bytes", begin, end,
          keyword ? keyword : "(none)", metadataLength);
    gStreamRequested = true;
    return 0;
}

void registerCallbacks()
{
    ZOR_MicButtonTapped_register_callback(+[]() {
        event("mic-button-tapped");
        gStreamRequested = true;
        return 0;
    });
    ZOR_MicButtonHold_register_callback(+[](bool hold) {
        event("mic-button-hold %d", hold ? 1 : 0);
        if (hold)
            gStreamRequested = true;
        return 0;
    });
    ZOR_SetPowerMode_register_callback(+[](int mode) {
        event("power-mode %d", mode);
        return 0;
    });
    ZOR_SetTimeZone_register_callback(+[]() {
        event("time-zone");
        return 0;
    });
    ZOR_ActivateApp_register_callback(+[]() {
        event("activate");
        return 0;
    });
    ZOR_EnableDisableApp_register_callback(+[](EN_AVS_COMMAND_TYPE type) {
        event("enable-disable %d", type);
        return 0;
    });
    ZOR_ReportUIStatus_register_callback(+[](EN_AVS_UI_STATUS status, unsigned int value) {
        event("ui-status %d %u", status, value);
        return 0;
    });
    ZOR_UserChangedLanguage_register_callback(+[](char* code) {
        event("language %s", code);
        return 0;
    });
    ZOR_UserChangedCountry_register_callback(+[](char* code) {
        event("country %s", code);
        return 0;
    });
    ZOR_ResetApp_register_callback(+[](EN_AVS_RESET_STATE state) {
        event("reset %d", state);
        return 0;
    });
    ZOR_InformControlChanged_register_callback(+[](EN_VOICECTRL_NOTIFY_TYPE type) {
        event("control-changed %d", type);
        return 0;
    });
    ZOR_QueryForIOTCertificate_register_callback(+[]() {
        event("query-iot-certificate");
        return 1;
    });
    ZOR_InformTevoraCertificate_register_callback(+[](char* text) {
        event("certificate-changed %s", text);
        return 0;
    });
    ZOR_SendAudioPCMData_register_callback(onPcm);
    ZOR_FF_SendWakeWordDetectionSignal_register_callback(onWakeWord);
    ZOR_NotifyActionButtonPressed_register_callback(+[]() {
        event("action-button");
        return 0;
    });
    ZOR_SetFFmicStatus_register_callback(+[](bool on) {
        event("ff-mic-status %d", on ? 1 : 0);
        return 0;
    });
    ZOR_FF_NotifyFWUpdateStatus_register_callback(+[](bool updating) {
        event("fw-update-status %d", updating ? 1 : 0);
        return 0;
    });
}

void onStopSignal(int)
{
    gStop = true;
}

_EN_AVS_AUDIO_SOURCE_TYPE sourceOf(const std::string& name)
{
    if (name == "rc")
        return EN_AVS_AUDIO_SOURCE_RC_MIC;
    if (name == "middleware")
        return EN_AVS_AUDIO_SOURCE_MIDDLEWARE;
    return EN_AVS_AUDIO_SOURCE_FFM;
}

// Sleeps until `until` or a stop request.
void waitUntil(std::chrono::steady_clock::time_point until)
{
    while (!gStop && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

int listen(const ListenOptions& options, EN_ZOR_COMMON_APP_TYPE_T type, bool verbose)
{
    gEveryPcm = verbose;
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = onStopSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    SF_INFO format;
    memset(&format, 0, sizeof(format));
    format.samplerate = 16000;
    format.channels = 1;
    format.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    {
        std::lock_guard<std::mutex> guard(gWavLock);
        gWav = sf_open(options.wavPath.c_str(), SFM_WRITE, &format);
        if (!gWav) {
            complain("listen: cannot write %s: %s", options.wavPath.c_str(), sf_strerror(nullptr));
            return kExitRefused;
        }
    }

    registerCallbacks();
    using Clock = std::chrono::steady_clock;
    event("callbacks registered");
    // A real application finishes its own start-up first; meanwhile the
    // television may already tell it about the set.
    waitUntil(Clock::now() +
              std::chrono::milliseconds(static_cast<long long>(options.initDelay * 1000)));
    FarFieldOrder farField(type == EN_ZOR_COMMON_APP_TYPE_AVS && options.source == "ffm");
    const Exchange exchange;
    const int status = ZOR_App_initCompleted(type);
    event("init-completed status %d", status);
    const int verdict = exchange.verdict("listen: init-completed", status);
    if (verdict != 0) {
        std::lock_guard<std::mutex> guard(gWavLock);
        sf_close(gWav);
        gWav = nullptr;
        return verdict;
    }
    farField.atInitCompleted();

    const auto end = options.seconds > 0
                         ? Clock::now() + std::chrono::milliseconds(
                                              static_cast<long long>(options.seconds * 1000))
                         : Clock::time_point::max();
    while (!gStop && Clock::now() < end) {
        if (gStreamRequested.exchange(false)) {
            const _EN_AVS_AUDIO_SOURCE_TYPE source = sourceOf(options.source);
            event("streaming from %s for %.1f s: start result %d", options.source.c_str(),
                  options.streamSeconds, ZOR_App_startStreamingMicrophoneData(source));
            waitUntil(std::min(end, Clock::now() + std::chrono::milliseconds(static_cast<long long>(
                                                       options.streamSeconds * 1000))));
            event("streaming stopped: result %d", ZOR_App_stopStreamingMicrophoneData());
            summarisePcm();
            continue;
        }
        farField.poll();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    summarisePcm();
    std::lock_guard<std::mutex> guard(gWavLock);
    sf_close(gWav);
    gWav = nullptr;
    event("done: %zu PCM bytes saved to %s", gPcmBytes, options.wavPath.c_str());
    return 0;
}

} // namespace

void addListenCommand(CLI::App& app, Invocation& invocation)
{
    auto options = std::make_shared<ListenOptions>();
    CLI::App* command = app.add_subcommand(
        "listen", "Act as an application waiting for the television: print each callback, "
                  "save received PCM, stream after a wake word or a microphone button");
    command->add_option("-w,--wav", options->wavPath, "WAV file for the PCM received")
        ->capture_default_str();
    command->add_option("-s,--seconds", options->seconds, "Stop after this long (0: on a signal)")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--stream-seconds", options->streamSeconds, "How long each stream lasts")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command
        ->add_option("--source", options->source,
                     "Microphone to stream from: ffm, rc or "
                     "middleware")
        ->check(CLI::IsMember({"ffm", "rc", "middleware"}))
        ->capture_default_str();
    command
        ->add_option("--init-delay", options->initDelay,
                     "Seconds to wait before completing the initialisation")
        ->check(CLI::NonNegativeNumber);
    command->callback([&invocation, options] {
        invocation.needs = Needs::Callbacks;
        invocation.action = [&invocation, options] {
            return listen(*options, invocation.appType, invocation.verbose);
        };
    });
}

} // namespace zorctl
