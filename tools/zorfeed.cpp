// SPDX-License-Identifier: MIT
// zorfeed: plays a WAV file into a file or FIFO as raw S16_LE at wall-clock
// pace, the way the television's audio driver delivers the remote-control
// microphone. With sim/alsa/asound.conf in ALSA_CONFIG_PATH, the FIFO
// $ZOR_ALSA_DIR/pcm0,6.in is what "hw:0,6" captures.
#include <CLI/CLI.hpp>
#include <sndfile.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

struct SndFileClose {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndFile = std::unique_ptr<SNDFILE, SndFileClose>;

class Fd
{
public:
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

enum class WriteResult { Ok, ReaderGone, Error };

WriteResult writeAll(int fd, const std::vector<unsigned char>& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EPIPE)
            return WriteResult::ReaderGone;
        if (n < 0)
            return WriteResult::Error;
        done += static_cast<size_t>(n);
    }
    return WriteResult::Ok;
}

void addNanoseconds(timespec& time, long nanoseconds)
{
    time.tv_nsec += nanoseconds;
    while (time.tv_nsec >= 1000000000L) {
        time.tv_nsec -= 1000000000L;
        ++time.tv_sec;
    }
}

// One period of `frames` frames in the output layout: input channels are
// averaged down to mono, or mono is copied to every output channel.
void convert(const std::vector<short>& in, int inChannels, sf_count_t frames, int outChannels,
             std::vector<unsigned char>& out)
{
    out.clear();
    for (sf_count_t frame = 0; frame < frames; ++frame) {
        const short* samples = &in[static_cast<size_t>(frame * inChannels)];
        for (int channel = 0; channel < outChannels; ++channel) {
            int value;
            if (inChannels == outChannels) {
                value = samples[channel];
            } else if (outChannels == 1) {
                long sum = 0;
                for (int c = 0; c < inChannels; ++c)
                    sum += samples[c];
                value = static_cast<int>(sum / inChannels);
            } else {
                value = samples[channel % inChannels];
            }
            out.push_back(static_cast<unsigned char>(value & 0xff));
            out.push_back(static_cast<unsigned char>((value >> 8) & 0xff));
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Feeds a WAV file into a file or FIFO as raw S16_LE, in real time"};
    std::string input;
    std::string output;
    bool makeFifo = false;
    int rate = 16000;
    int channels = 1;
    int periodMs = 20;
    double tail = 0;
    app.add_option("input", input, "WAV (or any file libsndfile reads)")->required();
    app.add_option("output", output, "File or FIFO to write")->required();
    app.add_flag("--mkfifo", makeFifo, "Create the output as a FIFO when it does not exist");
    app.add_option("--rate", rate, "Sample rate the reader expects; the input must have it")
        ->check(CLI::PositiveNumber);
    app.add_option("--channels", channels, "Channels to write (input is mixed or copied)")
        ->check(CLI::Range(1, 8));
    app.add_option("--period-ms", periodMs, "Audio written per write, in ms")
        ->check(CLI::Range(1, 1000));
    app.add_option("--tail", tail,
                   "Seconds of silence after the input; -1 keeps writing silence until the "
                   "reader goes away or a signal ends zorfeed");
    CLI11_PARSE(app, argc, argv);

    SF_INFO info{};
    SndFile in(sf_open(input.c_str(), SFM_READ, &info));
    if (!in) {
        fprintf(stderr, "zorfeed: %s: %s\n", input.c_str(), sf_strerror(nullptr));
        return 1;
    }
    if (info.samplerate != rate) {
        fprintf(stderr, "zorfeed: %s is %d Hz, %d Hz wanted (convert it with sox first)\n",
                input.c_str(), info.samplerate, rate);
        return 1;
    }

    if (makeFifo && mkfifo(output.c_str(), 0644) != 0 && errno != EEXIST) {
        fprintf(stderr, "zorfeed: mkfifo %s: %s\n", output.c_str(), strerror(errno));
        return 1;
    }
    // A reader that goes away ends the feed: EPIPE instead of the signal.
    signal(SIGPIPE, SIG_IGN);
    struct stat status {
    };
    if (stat(output.c_str(), &status) == 0 && S_ISFIFO(status.st_mode))
        fprintf(stderr, "zorfeed: waiting for a reader on %s\n", output.c_str());
    Fd out(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (out.get() < 0) {
        fprintf(stderr, "zorfeed: %s: %s\n", output.c_str(), strerror(errno));
        return 1;
    }

    const sf_count_t periodFrames = std::max<sf_count_t>(1, sf_count_t(rate) * periodMs / 1000);
    std::vector<short> samples(static_cast<size_t>(periodFrames * info.channels));
    std::vector<unsigned char> bytes;
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    sf_count_t fed = 0;
    sf_count_t silence = 0;
    const sf_count_t tailFrames = tail < 0 ? -1 : static_cast<sf_count_t>(tail * rate);

    for (;;) {
        sf_count_t frames = sf_readf_short(in.get(), samples.data(), periodFrames);
        if (frames > 0) {
            convert(samples, info.channels, frames, channels, bytes);
            fed += frames;
        } else if (tailFrames < 0 || silence < tailFrames) {
            frames = tailFrames < 0 ? periodFrames : std::min(periodFrames, tailFrames - silence);
            bytes.assign(static_cast<size_t>(frames * channels * 2), 0);
            silence += frames;
        } else {
            break;
        }
        switch (writeAll(out.get(), bytes)) {
        case WriteResult::Ok:
            break;
        case WriteResult::ReaderGone:
            fprintf(stderr, "zorfeed: the reader went away after %.2f s\n",
                    double(fed + silence) / rate);
            return 0;
        case WriteResult::Error:
            fprintf(stderr, "zorfeed: write %s: %s\n", output.c_str(), strerror(errno));
            return 1;
        }
        // Absolute deadlines: the pace does not drift with the write time.
        addNanoseconds(next, static_cast<long>(frames * 1000000000LL / rate));
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) == EINTR) {
        }
    }
    fprintf(stderr, "zorfeed: fed %.2f s of audio and %.2f s of silence\n", double(fed) / rate,
            double(silence) / rate);
    return 0;
}
