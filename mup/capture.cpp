// SPDX-License-Identifier: MIT
#include "mup/capture.h"

#include "base/no_destructor.h"
#include "mup/log.h"
#include "mup/socket.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <signal.h>
#include <sys/utsname.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace mup::capture
{

namespace
{

// What the call path may have queued at once; past it frames are dropped.
// The buffer is allocated once at this size, so appending never allocates.
constexpr size_t kQueueLimit = 4 * 1024 * 1024;
// The last part of it is kept for interface descriptions, so that a new
// service is described even when packets fill the buffer (and its drops
// are counted on it).
constexpr size_t kInterfaceRoom = 64 * 1024;
// The writer takes the queue this often, or at once when half of it is used.
constexpr std::chrono::milliseconds kWriteInterval{20};

constexpr uint32_t kSectionHeaderBlock = 0x0A0D0D0A;
constexpr uint32_t kInterfaceBlock = 1;
constexpr uint32_t kStatisticsBlock = 5;
constexpr uint32_t kPacketBlock = 6;
constexpr uint16_t kLinkTypeUser0 = 147;

constexpr uint16_t kOptionEnd = 0;
constexpr uint16_t kOptionComment = 1;
constexpr uint16_t kSectionOs = 3;
constexpr uint16_t kSectionApplication = 4;
constexpr uint16_t kInterfaceName = 2;
constexpr uint16_t kInterfaceDescription = 3;
constexpr uint16_t kInterfaceTimeResolution = 9;
constexpr uint16_t kPacketFlags = 2;
constexpr uint16_t kPacketDropCount = 4;
constexpr uint16_t kStatisticsReceived = 4;
constexpr uint16_t kStatisticsDropped = 5;

uint64_t nowMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

// Appends pcapng blocks to a byte buffer, little-endian whatever the host.
class BlockWriter
{
public:
    explicit BlockWriter(std::vector<unsigned char>& out) : m_out(out) {}

    void begin(uint32_t type)
    {
        m_start = m_out.size();
        u32(type);
        u32(0); // total length, set by end()
    }

    void end()
    {
        u32(0); // trailing total length
        const uint32_t length = static_cast<uint32_t>(m_out.size() - m_start);
        put32(m_start + 4, length);
        put32(m_out.size() - 4, length);
    }

    void u16(uint16_t value)
    {
        m_out.push_back(static_cast<unsigned char>(value));
        m_out.push_back(static_cast<unsigned char>(value >> 8));
    }

    void u32(uint32_t value)
    {
        for (int shift = 0; shift < 32; shift += 8)
            m_out.push_back(static_cast<unsigned char>(value >> shift));
    }

    void u64(uint64_t value)
    {
        u32(static_cast<uint32_t>(value));
        u32(static_cast<uint32_t>(value >> 32));
    }

    // Bytes padded with zeros to a multiple of 4.
    void bytes(const void* data, size_t size)
    {
        const auto* p = static_cast<const unsigned char*>(data);
        m_out.insert(m_out.end(), p, p + size);
        m_out.insert(m_out.end(), (4 - size % 4) % 4, 0);
    }

    void option(uint16_t code, const void* data, size_t size)
    {
        u16(code);
        u16(static_cast<uint16_t>(size));
        bytes(data, size);
    }

    void option(uint16_t code, const std::string& text) { option(code, text.data(), text.size()); }

    void option64(uint16_t code, uint64_t value)
    {
        u16(code);
        u16(8);
        u64(value);
    }

    void endOptions() { u32(kOptionEnd); }

private:
    void put32(size_t at, uint32_t value)
    {
        for (int i = 0; i < 4; ++i)
            m_out[at + i] = static_cast<unsigned char>(value >> (8 * i));
    }

    std::vector<unsigned char>& m_out;
    size_t m_start = 0;
};

class Capture
{
public:
    bool start(const std::string& path, std::string* error);
    void stop();
    void record(const std::string& service, Direction direction, const FrameHeader& header,
                const unsigned char* payload);
    uint64_t dropped() const { return m_dropped.load(std::memory_order_relaxed); }

    void hold(bool held)
    {
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_held = held;
        }
        m_wake.notify_one();
    }

    // A child process has no writer thread and shares the parent's file: it
    // captures nothing.
    void forkedAway() { m_forked = true; }

    std::atomic<bool> active{false};

private:
    struct Interface {
        std::string service;
        uint64_t frames = 0;          // seen, dropped ones included
        uint64_t dropped = 0;         // in all
        uint64_t droppedPending = 0;  // since its last packet
        uint64_t droppedReported = 0; // in the last statistics block
    };

    // The id of the service's interface, described in the file first when it
    // is new; kNoInterface when there is no room left to describe it.
    size_t interfaceFor(const std::string& service);
    static constexpr size_t kNoInterface = ~size_t{0};
    // Refuses a second capture, and any in a forked child.
    bool mayStart(std::string* error);
    // Takes the new file, writes its header and starts the writer; false with
    // the file removed when the header cannot be written, throws (file
    // closed) when the writer cannot start.
    bool beginFile(UniqueFd fd, const std::string& path, const std::vector<unsigned char>& header,
                   std::string* error);
    void startWriter();
    void appendStatistics(std::vector<unsigned char>& out, bool all);
    void run();
    bool writeOut(const std::vector<unsigned char>& bytes);

    UniqueFd m_fd;
    std::string m_path;
    bool m_forked = false;
    std::atomic<uint64_t> m_dropped{0};

    std::mutex m_lock; // guards what follows
    std::condition_variable m_wake;
    bool m_open = false;
    bool m_stopping = false;
    bool m_writerWaiting = false;
    bool m_held = false;
    std::vector<Interface> m_interfaces;
    std::vector<unsigned char> m_queue;
    std::unique_ptr<std::thread> m_writer;
    std::mutex m_stopLock; // one stop() at a time
};

Capture& processCapture()
{
    static zor::NoDestructor<Capture> capture;
    return *capture;
}

// A capture holds secrets: a new file only the owner reads, never an
// existing file and never through a link. Invalid, with *error set, when it
// cannot be made.
UniqueFd createCaptureFile(const std::string& path, std::string* error)
{
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.valid()) {
        const int code = errno;
        *error = path + ": " +
                 (code == EEXIST  ? "exists (a capture is only written to a new file)"
                  : code == ELOOP ? "is a symbolic link"
                                  : errorText(code));
    }
    return fd;
}

// The section header block that opens the file.
std::vector<unsigned char> sectionHeader()
{
    std::vector<unsigned char> header;
    BlockWriter block(header);
    block.begin(kSectionHeaderBlock);
    block.u32(0x1A2B3C4D); // byte-order magic
    block.u16(1);
    block.u16(0);
    block.u64(~uint64_t{0}); // section length not given
    block.option(kOptionComment, "pid " + std::to_string(getpid()));
    utsname system{};
    if (uname(&system) == 0)
        block.option(kSectionOs,
                     std::string(system.sysname) + " " + system.release + " " + system.machine);
    block.option(kSectionApplication, std::string("libmup frame capture"));
    block.endOptions();
    block.end();
    return header;
}

// Blocks every asynchronous signal of the calling thread for its lifetime
// (a thread started meanwhile inherits the mask); faults stay deliverable.
class AsyncSignalsBlocked
{
public:
    AsyncSignalsBlocked()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &m_previous);
    }
    ~AsyncSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }
    AsyncSignalsBlocked(const AsyncSignalsBlocked&) = delete;
    AsyncSignalsBlocked& operator=(const AsyncSignalsBlocked&) = delete;

private:
    sigset_t m_previous;
};

// A forked child has no writer thread: it stops capturing.
void stopCapturesInForkedChildren()
{
    static std::once_flag forkHandler;
    std::call_once(forkHandler, [] {
        pthread_atfork(nullptr, nullptr, [] {
            processCapture().active.store(false, std::memory_order_relaxed);
            processCapture().forkedAway();
        });
    });
}

bool Capture::mayStart(std::string* error)
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_open || m_forked) {
        *error = m_forked ? "not in a forked child" : "a capture runs already (" + m_path + ")";
        return false;
    }
    return true;
}

void Capture::startWriter()
{
    // The writer takes no asynchronous signal: those are the application's.
    AsyncSignalsBlocked blocked;
    m_writer = std::make_unique<std::thread>([this] { run(); });
}

bool Capture::beginFile(UniqueFd fd, const std::string& path,
                        const std::vector<unsigned char>& header, std::string* error)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_fd = std::move(fd);
    m_path = path;
    if (!writeOut(header)) {
        *error = path + ": " + errorText(errno);
        m_fd.reset();
        ::unlink(path.c_str());
        return false;
    }
    m_interfaces.clear();
    m_queue.clear();
    m_queue.reserve(kQueueLimit);
    m_stopping = false;
    try {
        startWriter();
    } catch (...) {
        m_fd.reset();
        throw;
    }
    m_open = true;
    return true;
}

bool Capture::start(const std::string& path, std::string* error)
{
    std::lock_guard<std::mutex> stopping(m_stopLock);
    if (!mayStart(error))
        return false;
    UniqueFd fd = createCaptureFile(path, error);
    if (!fd.valid())
        return false;
    try {
        if (!beginFile(std::move(fd), path, sectionHeader(), error))
            return false;
    } catch (const std::exception& failure) {
        *error = path + ": " + failure.what();
        ::unlink(path.c_str()); // made by this call, and still empty
        return false;
    }
    stopCapturesInForkedChildren();
    active.store(true, std::memory_order_release);
    logLine("capturing every frame of pid %d to %s", static_cast<int>(getpid()), path.c_str());
    return true;
}

void Capture::stop()
{
    if (m_forked)
        return;
    std::lock_guard<std::mutex> stopping(m_stopLock);
    std::unique_ptr<std::thread> writer;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (!m_open)
            return;
        active.store(false, std::memory_order_relaxed);
        m_open = false;
        m_stopping = true;
        writer = std::move(m_writer);
    }
    m_wake.notify_one();
    writer->join();
    m_fd.reset();
}

size_t Capture::interfaceFor(const std::string& service)
{
    for (size_t i = 0; i < m_interfaces.size(); ++i) {
        if (m_interfaces[i].service == service)
            return i;
    }
    // A new interface: its description block goes ahead of its first packet.
    // Without room even for that, the frame is only counted (kNoInterface).
    const std::string description =
        "libmup frames of " + service + " in pid " + std::to_string(getpid());
    const size_t size = 48 + service.size() + description.size();
    if (m_queue.size() + size > m_queue.capacity())
        return kNoInterface;
    m_interfaces.push_back(Interface{service});
    BlockWriter block(m_queue);
    block.begin(kInterfaceBlock);
    block.u16(kLinkTypeUser0);
    block.u16(0);
    block.u32(kSnapLength);
    block.option(kInterfaceName, service);
    block.option(kInterfaceDescription, description);
    const unsigned char microseconds = 6;
    block.option(kInterfaceTimeResolution, &microseconds, 1);
    block.endOptions();
    block.end();
    return m_interfaces.size() - 1;
}

void Capture::record(const std::string& service, Direction direction, const FrameHeader& header,
                     const unsigned char* payload)
{
    const uint64_t stamp = nowMicroseconds();
    const uint32_t length = static_cast<uint32_t>(kFrameHeaderSize) + header.payloadSize;
    const uint32_t kept = length < kSnapLength ? length : kSnapLength;
    // The packet block: header, padded data, flags, drop count, end of options.
    const size_t room = 28 + (kept + 3) / 4 * 4 + 8 + 12 + 4;
    bool wake = false;
    try {
        std::lock_guard<std::mutex> guard(m_lock);
        if (!m_open)
            return;
        const size_t index = interfaceFor(service);
        if (index == kNoInterface) {
            m_dropped.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        Interface& interface = m_interfaces[index];
        ++interface.frames;
        if (m_queue.size() + room > kQueueLimit - kInterfaceRoom) {
            ++interface.dropped;
            ++interface.droppedPending;
            m_dropped.fetch_add(1, std::memory_order_relaxed);
            return;
        }

        const bool wasEmpty = m_queue.empty();
        BlockWriter block(m_queue);
        block.begin(kPacketBlock);
        block.u32(static_cast<uint32_t>(index));
        block.u32(static_cast<uint32_t>(stamp >> 32));
        block.u32(static_cast<uint32_t>(stamp));
        block.u32(kept);
        block.u32(length);
        unsigned char head[kFrameHeaderSize];
        encodeHeader(header, head);
        const uint32_t payloadKept = kept - static_cast<uint32_t>(kFrameHeaderSize);
        m_queue.insert(m_queue.end(), head, head + sizeof(head));
        if (payloadKept)
            m_queue.insert(m_queue.end(), payload, payload + payloadKept);
        m_queue.insert(m_queue.end(), (4 - kept % 4) % 4, 0);
        const uint32_t flags = static_cast<uint32_t>(direction);
        block.option(kPacketFlags, &flags, 4); // the host is little-endian, as the flags
        if (interface.droppedPending) {
            block.option64(kPacketDropCount, interface.droppedPending);
            interface.droppedPending = 0;
        }
        block.endOptions();
        block.end();
        // The writer sleeps between batches; it is woken for the first frame
        // after an idle spell and when the queue fills up.
        wake = (wasEmpty && m_writerWaiting) || m_queue.size() > kQueueLimit / 2;
    } catch (const std::exception&) {
        // No memory for the interface's name: the frame is lost, and counted.
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (wake)
        m_wake.notify_one();
}

void Capture::appendStatistics(std::vector<unsigned char>& out, bool all)
{
    const uint64_t stamp = nowMicroseconds();
    for (size_t i = 0; i < m_interfaces.size(); ++i) {
        Interface& interface = m_interfaces[i];
        if (!all && interface.dropped == interface.droppedReported)
            continue;
        BlockWriter block(out);
        block.begin(kStatisticsBlock);
        block.u32(static_cast<uint32_t>(i));
        block.u32(static_cast<uint32_t>(stamp >> 32));
        block.u32(static_cast<uint32_t>(stamp));
        block.option64(kStatisticsReceived, interface.frames);
        block.option64(kStatisticsDropped, interface.dropped);
        block.option(kOptionComment, std::to_string(interface.dropped) +
                                         " frames dropped: the capture queue was full");
        block.endOptions();
        block.end();
        interface.droppedReported = interface.dropped;
    }
}

void Capture::run()
{
    std::vector<unsigned char> batch;
    batch.reserve(kQueueLimit);
    bool failed = false;
    std::unique_lock<std::mutex> lock(m_lock);
    for (;;) {
        m_writerWaiting = true;
        m_wake.wait(lock, [this] { return m_stopping || (!m_held && !m_queue.empty()); });
        m_writerWaiting = false;
        // Frames close together go out in one write.
        m_wake.wait_for(lock, kWriteInterval,
                        [this] { return m_stopping || m_queue.size() > kQueueLimit / 2; });
        if (m_held && !m_stopping)
            continue;
        batch.swap(m_queue);
        const bool last = m_stopping;
        appendStatistics(batch, last);
        lock.unlock();

        if (!failed && !batch.empty() && !writeOut(batch)) {
            logLine("capture to %s stopped: %s", m_path.c_str(), errorText(errno));
            failed = true;
        }
        batch.clear();
        lock.lock();
        if (last && m_queue.empty())
            return;
    }
}

bool Capture::writeOut(const std::vector<unsigned char>& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(m_fd.get(), bytes.data() + done, bytes.size() - done);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        done += static_cast<size_t>(written);
    }
    return true;
}

// ZOR_MUP_CAPTURE=FILE: the process captures from the moment libmup is
// loaded until it exits.
struct EnvironmentCapture {
    EnvironmentCapture()
    {
        const char* path = getenv(kEnvironmentVariable);
        if (!path || !*path)
            return;
        std::string error;
        if (!start(path, &error)) {
            logLine("%s: no capture: %s", kEnvironmentVariable, error.c_str());
            return;
        }
        atexit([] { stop(); });
    }
};

const EnvironmentCapture g_environmentCapture;

} // namespace

void frame(const std::string& service, Direction direction, const FrameHeader& header,
           const unsigned char* payload)
{
    Capture& capture = processCapture();
    if (capture.active.load(std::memory_order_acquire))
        capture.record(service, direction, header, payload);
}

bool start(const std::string& path, std::string* error)
{
    return processCapture().start(path, error);
}

void stop()
{
    processCapture().stop();
}

uint64_t dropped()
{
    return processCapture().dropped();
}

void holdWriter(bool held)
{
    processCapture().hold(held);
}

} // namespace mup::capture
