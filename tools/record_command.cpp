// SPDX-License-Identifier: MIT
// record: captures the remote-control microphone ("hw:0,6") into a WAV file
// through the library's PCM callback. Needs no television.
#include "tools/zorctl.h"

#include "audio/rc_capture.h"
#include "zor/zor.h"

#include <sndfile.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace zorctl
{

namespace
{

constexpr int kRate = 16000;
constexpr int kCaptureEndTimeoutMs = 5000;

// The capture thread writes here; the main thread opens and closes it while
// no capture runs.
std::atomic<SNDFILE*> recordFile{nullptr};
std::atomic<long long> recordedFrames{0};

int writePeriod(void* data, unsigned int bytes)
{
    SNDFILE* file = recordFile.load();
    if (file == nullptr)
        return 0;
    // The capture delivers S16_LE whatever the host.
    static thread_local std::vector<short> samples;
    const auto* raw = static_cast<const unsigned char*>(data);
    samples.resize(bytes / 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<short>(raw[2 * i] | (raw[2 * i + 1] << 8));
    recordedFrames +=
        sf_writef_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    return 0;
}

bool exists(const std::string& path)
{
    return access(path.c_str(), R_OK) == 0;
}

// The project's ALSA configuration that turns hw:0,6 into files: installed
// beside this program, or in the source tree it was built from.
std::string alsaConfiguration()
{
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length > 0) {
        std::string dir(self, static_cast<size_t>(length));
        dir.erase(dir.find_last_of('/'));
        const std::string installed = dir + "/../share/zor/asound.conf";
        if (exists(installed))
            return installed;
    }
    if (exists(ZOR_SOURCE_ALSA_CONF))
        return ZOR_SOURCE_ALSA_CONF;
    return "sim/alsa/asound.conf";
}

// Why the capture device could not be read, in words of what to set.
void explainCaptureFailure()
{
    const char* config = getenv("ALSA_CONFIG_PATH");
    if (!config || !*config) {
        complain("record: the capture device hw:0,6 could not be read. Without the television's "
                 "sound devices, set ALSA_CONFIG_PATH=%s and ZOR_ALSA_DIR to a directory "
                 "holding pcm0,6.in (zorfeed writes it); zorctl -v shows ALSA's messages",
                 alsaConfiguration().c_str());
        return;
    }
    const char* dir = getenv("ZOR_ALSA_DIR");
    const std::string input = std::string(dir && *dir ? dir : "/tmp/zor-alsa") + "/pcm0,6.in";
    if (!exists(input)) {
        complain("record: %s is missing: the capture device hw:0,6 reads it (zorfeed --mkfifo "
                 "writes it)",
                 input.c_str());
        return;
    }
    complain("record: the capture ended early (zorctl -v shows the library's and ALSA's "
             "messages)");
}

int record(const std::string& path, double seconds)
{
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        complain("record: %s: %s", path.c_str(), sf_strerror(nullptr));
        return kExitRefused;
    }
    recordFile = file;
    recordedFrames = 0;

    alsaCaptureRegisterCallback(writePeriod);
    if (startAlsaCaptureThread() != 0) {
        alsaCaptureRegisterCallback(nullptr);
        recordFile = nullptr;
        sf_close(file);
        complain("record: the capture thread did not start (zorctl -v shows why)");
        return kExitRefused;
    }

    // A capture that cannot open its device ends at once.
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    bool ended = false;
    while (!ended && std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ended = zor::audio::captureState() == zor::audio::ThreadState::None;
    }
    stopAlsaCaptureThread();
    if (!zor::audio::waitForCaptureEnd(kCaptureEndTimeoutMs)) {
        // The thread is stuck in a read (a FIFO nobody writes); it still
        // owns the file, so it is left open.
        complain("record: the capture did not end within %d ms", kCaptureEndTimeoutMs);
        return kExitRefused;
    }
    alsaCaptureRegisterCallback(nullptr);
    recordFile = nullptr;
    sf_close(file);

    const long long frames = recordedFrames.load();
    if (ended) {
        explainCaptureFailure();
        return kExitRefused;
    }
    answer("record: %lld frames (%.2f s) to %s", frames, double(frames) / kRate, path.c_str());
    return 0;
}

} // namespace

void addRecordCommand(CLI::App& app, Invocation& invocation)
{
    CLI::App* command = app.add_subcommand(
        "record", "Record the remote-control microphone (hw:0,6) to a 16 kHz mono WAV file");
    auto path = std::make_shared<std::string>();
    auto seconds = std::make_shared<double>(5.0);
    command->add_option("output", *path, "WAV file to write")->required();
    command->add_option("-d,--duration", *seconds, "Seconds to record")
        ->check(CLI::Range(0.0, 3600.0));
    command->callback([&invocation, path, seconds] {
        invocation.needs = Needs::Nothing;
        invocation.action = [path, seconds] { return record(*path, *seconds); };
    });
}

} // namespace zorctl
