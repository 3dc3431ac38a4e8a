// SPDX-License-Identifier: MIT
// A simulated sound card: an ALSA external PCM plugin (ioplug) of type
// "zor_card" that the tests put behind "hw:CARD,DEV" through ALSA_CONFIG_PATH.
// Unlike ALSA's file plugin over a null device it has hardware constraints of
// its own, so the library's "near" set-up meets a card that grants something
// else than it asked for, and it fails on cue: overruns, suspends, unplugs,
// I/O errors and short reads at given frame counts.
//
// ALSA finds the plugin through a pcm_type entry (the tests point "lib" at
// the build tree's libasound_module_pcm_zor_card.so), and a PCM of the type
// is configured with these keys:
//
//   pcm.NAME {
//       type zor_card
//       capture PATH       # what a capture stream reads: a file or a FIFO of
//                          # raw interleaved frames, no header; opened (a FIFO
//                          # waits for its writer) when the PCM is opened
//       playback PATH      # what a playback stream writes: created and
//                          # truncated when the PCM is opened
//       at_end silence     # capture past the input's end: "silence" (zero
//                          # frames for ever, the default) or "unplug" (the
//                          # frames that were there, then as a fault "unplug")
//       formats [ S16_LE ] # sample formats by ALSA name (default S16_LE)
//       channels [ 1 2 ]   # each of these four: a list [ a b ... ], a single
//       rates { min 8000 max 48000 }         # number, or a range { min max
//       period_frames { min 32 max 4096 step 32 } # [step] }
//       buffer_frames { min 64 max 65536 }
//       periods { min 2 max 64 }             # a range only
//       faults [ { frame 3200 type overrun } { frame 6400 type short frames 100 } ]
//       trace PATH         # optional: appends a line per set-up, transfer,
//                          # prepare and resume
//   }
//
// Defaults: channels 1 to 8, rates 4000 to 192000, period 16 to 16384
// frames, buffer 32 to 262144 frames, 2 to 1024 periods; access is always
// interleaved read/write. ALSA constrains period and buffer sizes in bytes:
// with one format and one channel count the frame constraints hold exactly;
// with several, the byte sizes of every combination are allowed and a set-up
// whose sizes in frames fall outside is refused when it is applied.
//
// Capture serves frames as fast as they are read: a regular file is never
// waited for, a FIFO as long as its writer takes to fill the read (partial
// pipe reads are joined). The card reads its input only while a read is in
// progress and exactly the frames asked for, so a FIFO's writer can tell
// from the bytes still unread how far the reader has got. Playback consumes
// what it is given at once.
//
// Faults fire on the first transfer at or after `frame`, counted in frames
// the stream has transferred since the PCM was opened (a capture's dropped
// frames count too). Each fires once unless `count` says otherwise:
//
//   overrun   capture: drops `frames` input frames (default: the frames that
//             read asked for), the stream goes into XRUN and the read fails
//             with -EPIPE. "underrun" is the same type; on playback the
//             frames offered are not written, XRUN, -EPIPE. Prepare restarts
//             the stream.
//   suspend   the stream goes into SUSPENDED and fails with -ESTRPIPE until it
//             is resumed or prepared again (the card supports resume).
//   unplug    the stream goes into DISCONNECTED: -ENODEV from then on, for
//             every read, write, prepare and start.
//   io_error  the transfer fails with -EIO and the stream keeps running;
//             `count` N fails the next N transfers (0: every one from then on).
//   short     only `frames` frames (default half of the request) are
//             transferred: the read or write returns that short count.
//
// The trace lines are "hw_params RATE CHANNELS PERIOD_FRAMES BUFFER_FRAMES"
// (what was granted), "transfer POSITION FRAMES RESULT", "prepare POSITION"
// and "resume POSITION". A stream in SUSPENDED or DISCONNECTED fails in ALSA
// itself without reaching the card, so such attempts leave no line.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace
{

class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// A hardware parameter: a list of values, or a range min..max by step.
struct Allowed {
    std::vector<unsigned> list;
    unsigned min = 0;
    unsigned max = 0;
    unsigned step = 1;

    bool isList() const { return !list.empty(); }
    bool contains(unsigned value) const
    {
        if (isList())
            return std::find(list.begin(), list.end(), value) != list.end();
        return value >= min && value <= max && (value - min) % step == 0;
    }
    // Every allowed value, at most `limit` of them (ranges are sampled from
    // their start).
    std::vector<unsigned> values(size_t limit) const
    {
        if (isList())
            return list;
        std::vector<unsigned> out;
        for (unsigned long long v = min; v <= max && out.size() < limit; v += step)
            out.push_back(static_cast<unsigned>(v));
        return out;
    }
};

enum class FaultType { Overrun, Suspend, Unplug, IoError, Short };

struct Fault {
    unsigned long long frame = 0;
    FaultType type = FaultType::IoError;
    unsigned frames = 0; // overrun: dropped; short: transferred; 0 = default
    unsigned count = 1;  // io_error: transfers that fail, 0 = every one
    unsigned fired = 0;
};

struct Card {
    snd_pcm_ioplug_t io{};
    Fd data;  // capture input or playback output
    Fd ready; // always readable and writable: the card never makes ALSA wait
    Fd trace;
    bool endUnplugs = false;
    std::vector<snd_pcm_format_t> formats{SND_PCM_FORMAT_S16_LE};
    Allowed channels{{}, 1, 8, 1};
    Allowed rates{{}, 4000, 192000, 1};
    Allowed periodFrames{{}, 16, 16384, 1};
    Allowed bufferFrames{{}, 32, 262144, 1};
    Allowed periods{{}, 2, 1024, 1};
    std::vector<Fault> faults;          // by frame
    unsigned long long position = 0;    // frames transferred (or dropped) since open
    snd_pcm_uframes_t sincePrepare = 0; // frames transferred since the last prepare
    snd_pcm_uframes_t boundary = 0;     // where ALSA's positions wrap
    bool unplugged = false;
    bool cutShort = false;              // the read or write in progress ends here
    std::vector<unsigned char> scratch; // dropped input
};

Card* cardOf(snd_pcm_ioplug_t* io)
{
    return static_cast<Card*>(io->private_data);
}

void traceLine(Card& card, const char* format, ...) __attribute__((format(printf, 2, 3)));
void traceLine(Card& card, const char* format, ...)
{
    if (!card.trace.valid())
        return;
    char line[128];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    if (length > 0)
        (void)!write(card.trace.get(), line, std::min<size_t>(length, sizeof(line) - 1));
}

size_t frameBytes(const snd_pcm_ioplug_t* io)
{
    return static_cast<size_t>(snd_pcm_format_physical_width(io->format) / 8) * io->channels;
}

// Reads up to `bytes`, joining partial reads; the count read (short only at
// the input's end), or -errno.
ssize_t readFully(int fd, unsigned char* buffer, size_t bytes)
{
    size_t done = 0;
    while (done < bytes) {
        const ssize_t got = read(fd, buffer + done, bytes - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -errno;
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

ssize_t writeFully(int fd, const unsigned char* buffer, size_t bytes)
{
    size_t done = 0;
    while (done < bytes) {
        const ssize_t put = write(fd, buffer + done, bytes - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return put < 0 ? -errno : -EIO;
        done += static_cast<size_t>(put);
    }
    return static_cast<ssize_t>(done);
}

int fail(Card& card, snd_pcm_state_t state, int error)
{
    snd_pcm_ioplug_set_state(&card.io, state);
    return error;
}

int unplug(Card& card)
{
    card.unplugged = true;
    return fail(card, SND_PCM_STATE_DISCONNECTED, -ENODEV);
}

// The fault due at the current position, if any.
Fault* dueFault(Card& card)
{
    for (Fault& fault : card.faults) {
        if (fault.frame > card.position)
            break;
        const bool spent = fault.type == FaultType::IoError
                               ? fault.count != 0 && fault.fired >= fault.count
                               : fault.fired != 0;
        if (!spent)
            return &fault;
    }
    return nullptr;
}

// Moves `frames` frames between the stream and the card's file; the count
// moved or a negative error.
snd_pcm_sframes_t move(Card& card, unsigned char* frames, snd_pcm_uframes_t count)
{
    const size_t unit = frameBytes(&card.io);
    const size_t bytes = count * unit;
    if (card.io.stream == SND_PCM_STREAM_PLAYBACK) {
        const ssize_t put = writeFully(card.data.get(), frames, bytes);
        return put < 0 ? -EIO : static_cast<snd_pcm_sframes_t>(count);
    }
    const ssize_t got = readFully(card.data.get(), frames, bytes);
    if (got < 0)
        return -EIO;
    const size_t whole = static_cast<size_t>(got) / unit;
    if (whole == count)
        return static_cast<snd_pcm_sframes_t>(count);
    // The input has ended.
    if (!card.endUnplugs) {
        memset(frames + whole * unit, 0, bytes - whole * unit);
        return static_cast<snd_pcm_sframes_t>(count);
    }
    if (whole == 0)
        return unplug(card);
    card.unplugged = true; // the frames that were there, then the unplug
    return static_cast<snd_pcm_sframes_t>(whole);
}

snd_pcm_sframes_t transferFrames(Card& card, unsigned char* frames, snd_pcm_uframes_t size)
{
    if (card.cutShort) {
        // ALSA asks for the rest of a short read or write: refusing ends it
        // with the count so far.
        card.cutShort = false;
        return -EAGAIN;
    }
    if (card.unplugged)
        return unplug(card);

    if (Fault* fault = dueFault(card)) {
        ++fault->fired;
        switch (fault->type) {
        case FaultType::Overrun:
            if (card.io.stream == SND_PCM_STREAM_CAPTURE) {
                const snd_pcm_uframes_t drop = fault->frames != 0 ? fault->frames : size;
                const size_t unit = frameBytes(&card.io);
                try {
                    card.scratch.resize(drop * unit);
                } catch (const std::bad_alloc&) {
                    return -ENOMEM;
                }
                const ssize_t got = readFully(card.data.get(), card.scratch.data(), drop * unit);
                if (got > 0)
                    card.position += static_cast<size_t>(got) / unit;
            }
            return fail(card, SND_PCM_STATE_XRUN, -EPIPE);
        case FaultType::Suspend:
            return fail(card, SND_PCM_STATE_SUSPENDED, -ESTRPIPE);
        case FaultType::Unplug:
            return unplug(card);
        case FaultType::IoError:
            return -EIO;
        case FaultType::Short: {
            snd_pcm_uframes_t part = fault->frames != 0 ? fault->frames : size / 2;
            part = std::max<snd_pcm_uframes_t>(1, std::min(part, size));
            const snd_pcm_sframes_t moved = move(card, frames, part);
            if (moved > 0) {
                card.position += static_cast<unsigned long long>(moved);
                card.cutShort = static_cast<snd_pcm_uframes_t>(moved) < size;
            }
            return moved;
        }
        }
    }

    const snd_pcm_sframes_t moved = move(card, frames, size);
    if (moved > 0)
        card.position += static_cast<unsigned long long>(moved);
    return moved;
}

// ---- ioplug callbacks --------------------------------------------------------

int cardStart(snd_pcm_ioplug_t* io)
{
    Card& card = *cardOf(io);
    return card.unplugged ? unplug(card) : 0;
}

int cardStop(snd_pcm_ioplug_t*)
{
    return 0;
}

// Capture always has one period waiting, playback has played everything it
// was given: ALSA never waits for the card. The position runs up to ALSA's
// boundary, so a whole buffer played between two calls still counts.
snd_pcm_sframes_t cardPointer(snd_pcm_ioplug_t* io)
{
    const Card& card = *cardOf(io);
    snd_pcm_uframes_t hw = card.sincePrepare;
    if (io->stream == SND_PCM_STREAM_CAPTURE)
        hw += io->period_size;
    return static_cast<snd_pcm_sframes_t>(hw % card.boundary);
}

snd_pcm_sframes_t cardTransfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                               snd_pcm_uframes_t offset, snd_pcm_uframes_t size)
{
    Card& card = *cardOf(io);
    // Interleaved access: one area walks every frame.
    unsigned char* frames = static_cast<unsigned char*>(areas[0].addr) + areas[0].first / 8 +
                            offset * (areas[0].step / 8);
    const unsigned long long position = card.position;
    const snd_pcm_sframes_t result = transferFrames(card, frames, size);
    if (result > 0)
        card.sincePrepare += static_cast<snd_pcm_uframes_t>(result);
    traceLine(card, "transfer %llu %lu %ld\n", position, static_cast<unsigned long>(size),
              static_cast<long>(result));
    return result;
}

int cardClose(snd_pcm_ioplug_t* io)
{
    // The PCM owned the card since it was created; it ends here.
    std::unique_ptr<Card> owned(cardOf(io));
    return 0;
}

int cardHwParams(snd_pcm_ioplug_t* io, snd_pcm_hw_params_t*)
{
    Card& card = *cardOf(io);
    if (io->access != SND_PCM_ACCESS_RW_INTERLEAVED)
        return -EINVAL;
    if (!card.periodFrames.contains(static_cast<unsigned>(io->period_size)) ||
        !card.bufferFrames.contains(static_cast<unsigned>(io->buffer_size)))
        return -EINVAL;
    traceLine(card, "hw_params %u %u %lu %lu\n", io->rate, io->channels,
              static_cast<unsigned long>(io->period_size),
              static_cast<unsigned long>(io->buffer_size));
    // ALSA's own choice of boundary; the software parameters confirm it.
    card.boundary = io->buffer_size;
    while (card.boundary * 2 <= LONG_MAX - io->buffer_size)
        card.boundary *= 2;
    return 0;
}

int cardSwParams(snd_pcm_ioplug_t* io, snd_pcm_sw_params_t* params)
{
    snd_pcm_uframes_t boundary = 0;
    if (snd_pcm_sw_params_get_boundary(params, &boundary) == 0 && boundary != 0)
        cardOf(io)->boundary = boundary;
    return 0;
}

int cardPrepare(snd_pcm_ioplug_t* io)
{
    Card& card = *cardOf(io);
    traceLine(card, "prepare %llu\n", card.position);
    if (card.unplugged)
        return unplug(card);
    card.sincePrepare = 0;
    card.cutShort = false;
    return 0;
}

// A capture is stopped at once: nothing is left to read.
int cardDrain(snd_pcm_ioplug_t* io)
{
    snd_pcm_ioplug_set_state(io, SND_PCM_STATE_SETUP);
    return 0;
}

int cardResume(snd_pcm_ioplug_t* io)
{
    Card& card = *cardOf(io);
    traceLine(card, "resume %llu\n", card.position);
    if (card.unplugged)
        return unplug(card);
    // The stream goes on where it stopped, as a card that keeps its state
    // over a suspend does.
    snd_pcm_ioplug_set_state(io, SND_PCM_STATE_RUNNING);
    return 0;
}

const snd_pcm_ioplug_callback_t kCallbacks = [] {
    snd_pcm_ioplug_callback_t callbacks{};
    callbacks.start = cardStart;
    callbacks.stop = cardStop;
    callbacks.pointer = cardPointer;
    callbacks.transfer = cardTransfer;
    callbacks.close = cardClose;
    callbacks.hw_params = cardHwParams;
    callbacks.sw_params = cardSwParams;
    callbacks.prepare = cardPrepare;
    callbacks.drain = cardDrain;
    callbacks.resume = cardResume;
    return callbacks;
}();

// ---- Configuration -----------------------------------------------------------

int readUnsigned(snd_config_t* node, unsigned& out)
{
    long value = 0;
    if (snd_config_get_integer(node, &value) < 0 || value < 0 || value > 0x7fffffffL)
        return -EINVAL;
    out = static_cast<unsigned>(value);
    return 0;
}

// A number, a list [ a b ... ] or a range { min max [step] }.
int readAllowed(snd_config_t* node, const char* key, bool listAllowed, Allowed& out)
{
    Allowed allowed;
    if (snd_config_get_type(node) == SND_CONFIG_TYPE_INTEGER) {
        unsigned value = 0;
        if (!listAllowed || readUnsigned(node, value) < 0)
            goto invalid;
        allowed.list.push_back(value);
    } else if (snd_config_get_type(node) == SND_CONFIG_TYPE_COMPOUND) {
        bool range = false;
        bool haveMin = false, haveMax = false;
        snd_config_iterator_t i, next;
        snd_config_for_each(i, next, node)
        {
            snd_config_t* entry = snd_config_iterator_entry(i);
            const char* id = nullptr;
            snd_config_get_id(entry, &id);
            unsigned value = 0;
            if (readUnsigned(entry, value) < 0)
                goto invalid;
            if (strcmp(id, "min") == 0) {
                allowed.min = value;
                range = haveMin = true;
            } else if (strcmp(id, "max") == 0) {
                allowed.max = value;
                range = haveMax = true;
            } else if (strcmp(id, "step") == 0) {
                allowed.step = value;
                range = true;
            } else {
                allowed.list.push_back(value);
            }
        }
        if (range && (!allowed.list.empty() || !haveMin || !haveMax || allowed.step == 0 ||
                      allowed.min > allowed.max))
            goto invalid;
        if (!range && (allowed.list.empty() || !listAllowed))
            goto invalid;
    } else {
        goto invalid;
    }
    out = std::move(allowed);
    return 0;
invalid:
    SNDERR("zor_card: %s must be %s", key,
           listAllowed ? "a number, a list [ ... ] or { min max [step] }" : "{ min max }");
    return -EINVAL;
}

int readFault(snd_config_t* node, Fault& fault)
{
    bool haveFrame = false, haveType = false;
    snd_config_iterator_t i, next;
    snd_config_for_each(i, next, node)
    {
        snd_config_t* entry = snd_config_iterator_entry(i);
        const char* id = nullptr;
        snd_config_get_id(entry, &id);
        if (strcmp(id, "frame") == 0) {
            long long frame = -1;
            long value = -1;
            if (snd_config_get_type(entry) == SND_CONFIG_TYPE_INTEGER64)
                snd_config_get_integer64(entry, &frame);
            else if (snd_config_get_integer(entry, &value) == 0)
                frame = value;
            if (frame < 0) {
                SNDERR("zor_card: a fault's frame must be a number >= 0");
                return -EINVAL;
            }
            fault.frame = static_cast<unsigned long long>(frame);
            haveFrame = true;
        } else if (strcmp(id, "type") == 0) {
            const char* type = nullptr;
            static const struct {
                const char* name;
                FaultType type;
            } kTypes[] = {{"overrun", FaultType::Overrun},  {"underrun", FaultType::Overrun},
                          {"suspend", FaultType::Suspend},  {"unplug", FaultType::Unplug},
                          {"io_error", FaultType::IoError}, {"short", FaultType::Short}};
            if (snd_config_get_string(entry, &type) < 0)
                type = "";
            haveType = false;
            for (const auto& known : kTypes) {
                if (strcmp(type, known.name) == 0) {
                    fault.type = known.type;
                    haveType = true;
                }
            }
            if (!haveType) {
                SNDERR("zor_card: unknown fault type '%s' (overrun or underrun, suspend, "
                       "unplug, io_error, short)",
                       type);
                return -EINVAL;
            }
        } else if (strcmp(id, "frames") == 0 || strcmp(id, "count") == 0) {
            unsigned value = 0;
            if (readUnsigned(entry, value) < 0) {
                SNDERR("zor_card: a fault's %s must be a number >= 0", id);
                return -EINVAL;
            }
            (strcmp(id, "frames") == 0 ? fault.frames : fault.count) = value;
        } else {
            SNDERR("zor_card: unknown fault key '%s'", id);
            return -EINVAL;
        }
    }
    if (!haveFrame || !haveType) {
        SNDERR("zor_card: a fault needs a frame and a type");
        return -EINVAL;
    }
    return 0;
}

// The keys whose value is a string: the files' paths and at_end.
bool isTextKey(const char* id)
{
    return strcmp(id, "capture") == 0 || strcmp(id, "playback") == 0 || strcmp(id, "trace") == 0 ||
           strcmp(id, "at_end") == 0;
}

int readText(snd_config_t* entry, const char* id, Card& card, std::string& capture,
             std::string& playback, std::string& trace)
{
    const char* text = nullptr;
    if (snd_config_get_string(entry, &text) < 0) {
        SNDERR("zor_card: %s must be a string", id);
        return -EINVAL;
    }
    if (strcmp(id, "capture") == 0) {
        capture = text;
    } else if (strcmp(id, "playback") == 0) {
        playback = text;
    } else if (strcmp(id, "trace") == 0) {
        trace = text;
    } else if (strcmp(text, "silence") == 0 || strcmp(text, "unplug") == 0) {
        card.endUnplugs = strcmp(text, "unplug") == 0;
    } else {
        SNDERR("zor_card: at_end must be silence or unplug");
        return -EINVAL;
    }
    return 0;
}

// One format name or a list of them; only formats of whole bytes.
int readFormats(snd_config_t* entry, Card& card)
{
    std::vector<snd_pcm_format_t> formats;
    auto addFormat = [&formats](snd_config_t* node) {
        const char* name = nullptr;
        if (snd_config_get_string(node, &name) < 0)
            return -EINVAL;
        const snd_pcm_format_t format = snd_pcm_format_value(name);
        if (format == SND_PCM_FORMAT_UNKNOWN || snd_pcm_format_physical_width(format) <= 0 ||
            snd_pcm_format_physical_width(format) % 8 != 0)
            return -EINVAL;
        formats.push_back(format);
        return 0;
    };
    int err = 0;
    if (snd_config_get_type(entry) == SND_CONFIG_TYPE_COMPOUND) {
        snd_config_iterator_t j, jnext;
        snd_config_for_each(j, jnext, entry)
        {
            if (err == 0)
                err = addFormat(snd_config_iterator_entry(j));
        }
    } else {
        err = addFormat(entry);
    }
    if (err < 0 || formats.empty()) {
        SNDERR("zor_card: formats must name ALSA sample formats of whole bytes");
        return -EINVAL;
    }
    card.formats = formats;
    return 0;
}

// A list of { frame type ... }, kept in the order of their frames.
int readFaults(snd_config_t* entry, Card& card)
{
    if (snd_config_get_type(entry) != SND_CONFIG_TYPE_COMPOUND) {
        SNDERR("zor_card: faults must be a list of { frame type ... }");
        return -EINVAL;
    }
    snd_config_iterator_t j, jnext;
    snd_config_for_each(j, jnext, entry)
    {
        Fault fault;
        snd_config_t* node = snd_config_iterator_entry(j);
        if (snd_config_get_type(node) != SND_CONFIG_TYPE_COMPOUND) {
            SNDERR("zor_card: faults must be a list of { frame type ... }");
            return -EINVAL;
        }
        if (const int err = readFault(node, fault); err < 0)
            return err;
        card.faults.push_back(fault);
    }
    std::stable_sort(card.faults.begin(), card.faults.end(),
                     [](const Fault& a, const Fault& b) { return a.frame < b.frame; });
    return 0;
}

// The keys that limit a hardware parameter; periods takes no list.
struct AllowedKey {
    const char* id;
    bool listAllowed;
    Allowed Card::*member;
};
const AllowedKey kAllowedKeys[] = {
    {"channels", true, &Card::channels},          {"rates", true, &Card::rates},
    {"period_frames", true, &Card::periodFrames}, {"buffer_frames", true, &Card::bufferFrames},
    {"periods", false, &Card::periods},
};

int readKey(snd_config_t* entry, const char* id, Card& card, std::string& capture,
            std::string& playback, std::string& trace)
{
    if (isTextKey(id))
        return readText(entry, id, card, capture, playback, trace);
    if (strcmp(id, "formats") == 0)
        return readFormats(entry, card);
    if (strcmp(id, "faults") == 0)
        return readFaults(entry, card);
    for (const AllowedKey& key : kAllowedKeys) {
        if (strcmp(id, key.id) == 0)
            return readAllowed(entry, id, key.listAllowed, card.*key.member);
    }
    SNDERR("zor_card: unknown key '%s'", id);
    return -EINVAL;
}

int readConfig(snd_config_t* conf, Card& card, std::string& capture, std::string& playback,
               std::string& trace)
{
    snd_config_iterator_t i, next;
    snd_config_for_each(i, next, conf)
    {
        snd_config_t* entry = snd_config_iterator_entry(i);
        const char* id = nullptr;
        if (snd_config_get_id(entry, &id) < 0)
            continue;
        if (strcmp(id, "comment") == 0 || strcmp(id, "type") == 0 || strcmp(id, "hint") == 0)
            continue;
        if (const int err = readKey(entry, id, card, capture, playback, trace); err < 0)
            return err;
    }
    if (card.periods.min < 2) {
        SNDERR("zor_card: periods must allow at least 2"); // one period always waits
        return -EINVAL;
    }
    return 0;
}

int setAllowed(snd_pcm_ioplug_t* io, int type, const Allowed& allowed)
{
    if (allowed.isList())
        return snd_pcm_ioplug_set_param_list(io, type, static_cast<unsigned>(allowed.list.size()),
                                             allowed.list.data());
    if (allowed.step == 1)
        return snd_pcm_ioplug_set_param_minmax(io, type, allowed.min, allowed.max);
    const std::vector<unsigned> values = allowed.values(65536);
    return snd_pcm_ioplug_set_param_list(io, type, static_cast<unsigned>(values.size()),
                                         values.data());
}

// Period and buffer sizes in bytes for every frame size the card allows.
int setBytes(snd_pcm_ioplug_t* io, int type, const Allowed& frames,
             const std::vector<unsigned>& frameSizes)
{
    const unsigned smallest = *std::min_element(frameSizes.begin(), frameSizes.end());
    const unsigned largest = *std::max_element(frameSizes.begin(), frameSizes.end());
    if (!frames.isList() && frames.step == 1) {
        const unsigned long long max = static_cast<unsigned long long>(frames.max) * largest;
        return snd_pcm_ioplug_set_param_minmax(io, type, frames.min * smallest,
                                               static_cast<unsigned>(std::min(max, 0x7fffffffULL)));
    }
    std::vector<unsigned> bytes;
    for (unsigned count : frames.values(65536))
        for (unsigned size : frameSizes)
            if (static_cast<unsigned long long>(count) * size <= 0x7fffffffULL)
                bytes.push_back(count * size);
    std::sort(bytes.begin(), bytes.end());
    bytes.erase(std::unique(bytes.begin(), bytes.end()), bytes.end());
    if (bytes.empty())
        return -EINVAL;
    return snd_pcm_ioplug_set_param_list(io, type, static_cast<unsigned>(bytes.size()),
                                         bytes.data());
}

int setConstraints(Card& card)
{
    snd_pcm_ioplug_t* io = &card.io;
    const unsigned access[] = {SND_PCM_ACCESS_RW_INTERLEAVED};
    int err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_ACCESS, 1, access);
    std::vector<unsigned> formats;
    for (snd_pcm_format_t format : card.formats)
        formats.push_back(static_cast<unsigned>(format));
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_FORMAT,
                                            static_cast<unsigned>(formats.size()), formats.data());
    if (err >= 0)
        err = setAllowed(io, SND_PCM_IOPLUG_HW_CHANNELS, card.channels);
    if (err >= 0)
        err = setAllowed(io, SND_PCM_IOPLUG_HW_RATE, card.rates);

    std::vector<unsigned> frameSizes;
    for (snd_pcm_format_t format : card.formats)
        for (unsigned channels : card.channels.values(64))
            frameSizes.push_back(static_cast<unsigned>(snd_pcm_format_physical_width(format) / 8) *
                                 channels);
    if (frameSizes.empty())
        return -EINVAL;
    if (err >= 0)
        err = setBytes(io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, card.periodFrames, frameSizes);
    if (err >= 0)
        err = setBytes(io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, card.bufferFrames, frameSizes);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIODS, card.periods.min,
                                              card.periods.max);
    return err;
}

int openCard(snd_pcm_t** pcmp, const char* name, snd_config_t* conf, snd_pcm_stream_t stream,
             int mode)
{
    auto card = std::make_unique<Card>(); // a failed allocation throws, caught below
    std::string capture, playback, trace;
    int err = readConfig(conf, *card, capture, playback, trace);
    if (err < 0)
        return err;

    const bool isCapture = stream == SND_PCM_STREAM_CAPTURE;
    const std::string& path = isCapture ? capture : playback;
    if (path.empty()) {
        SNDERR("zor_card: %s needs a %s file", name, isCapture ? "capture" : "playback");
        return -ENOENT;
    }
    // A FIFO's open waits for its writer, as a device waits for its data.
    card->data = Fd(isCapture ? open(path.c_str(), O_RDONLY | O_CLOEXEC)
                              : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!card->data.valid())
        return -errno;
    if (!trace.empty()) {
        card->trace = Fd(open(trace.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
        if (!card->trace.valid())
            return -errno;
    }
    card->ready = Fd(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!card->ready.valid())
        return -errno;

    card->io.version = SND_PCM_IOPLUG_VERSION;
    card->io.name = "zor simulated sound card";
    card->io.callback = &kCallbacks;
    card->io.private_data = card.get();
    card->io.poll_fd = card->ready.get();
    card->io.poll_events = isCapture ? POLLIN : POLLOUT;
    card->io.mmap_rw = 0;
    card->io.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    err = snd_pcm_ioplug_create(&card->io, name, stream, mode);
    if (err < 0)
        return err;
    // From here the PCM owns the card: closing it runs cardClose.
    Card* owned = card.release();
    err = setConstraints(*owned);
    if (err < 0) {
        snd_pcm_ioplug_delete(&owned->io);
        return err;
    }
    *pcmp = owned->io.pcm;
    return 0;
}

} // namespace

extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(zor_card)
{
    (void)root;
    try {
        return openCard(pcmp, name, conf, stream, mode);
    } catch (...) {
        return -ENOMEM; // only allocations throw here
    }
}

SND_PCM_PLUGIN_SYMBOL(zor_card)

} // extern "C"
