// SPDX-License-Identifier: MIT
#include "sim/xmos_simulator.h"

#include "audio/xmos_sim_protocol.h"

#include <sndfile.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <map>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace zor::sim
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kRate = 16000;
constexpr unsigned kPeriodFrames = 320; // 20 ms, as the capture reads
constexpr unsigned kFrameBytes = 4;     // S16_LE stereo
constexpr auto kPeriod = milliseconds(20);
// Queries are answered this long after a period was written (the capture
// has taken it by then) and not later than this before the next one.
constexpr auto kAnswerAfterWrite = milliseconds(5);
constexpr auto kAnswerBeforeNext = milliseconds(3);
constexpr uint16_t kEvKey = 1;
constexpr uint16_t kKeyF23 = 193;
// The one control transfer the board answers: the wake-word engine's indexes
// (vendor request, device to host). It stalls every other.
constexpr uint8_t kIndexQueryType = 0xC0;
constexpr uint8_t kIndexQueryRequest = 0;
constexpr uint16_t kIndexQueryValue = 0xAF;
constexpr uint16_t kIndexQueryIndex = 0xE0;
constexpr uint16_t kIndexQueryLength = 25;
constexpr int32_t kLibusbErrorIo = -1;
constexpr int32_t kLibusbErrorPipe = -9;
// Requests kept for controlRequests().
constexpr size_t kKeptRequests = 64;

void closeFd(int& fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

void putBigEndian(uint8_t* out, uint64_t value)
{
    for (int k = 7; k >= 0; --k) {
        out[k] = static_cast<uint8_t>(value & 0xff);
        value >>= 8;
    }
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

struct XmosSimulator::Impl {
    struct Utterance {
        uint64_t id = 0;
        std::vector<int16_t> samples;
        int64_t keywordBegin = -1;
        int64_t keywordEnd = -1;
        size_t position = 0;
        bool started = false;
        Played played;
    };

    // Shared with callers, under `mutex`.
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Utterance> queue;
    std::optional<Utterance> finishing; // played, its key press still due
    std::map<uint64_t, Played> done;
    uint64_t nextId = 1;
    std::deque<QueryAnswer> script;
    std::vector<int32_t> wakeKeyValues{1, 0};
    // Events for the board's thread to send; `wake` ones are KEY_F23 for a
    // keyword heard at `begin`..`end`.
    struct Outgoing {
        bool wake = false;
        uint64_t begin = 0;
        uint64_t end = 0;
        xmos_sim::KeyEventMessage key;
    };
    std::deque<Outgoing> outgoing;
    bool wantVanish = false;
    bool wantReappear = false;
    bool running = false;
    std::function<void(const Played&)> playedObserver;
    std::function<void(const KeyPress&)> keyObserver;
    std::deque<ControlRequest> requests;

    std::atomic<uint64_t> current{0};
    std::atomic<bool> connected{false};
    std::atomic<bool> reading{false};
    std::atomic<unsigned> queries{0};
    std::atomic<bool> pluggedIn{true};
    // Set when the board runs without audio: the caller's sample count.
    bool withAudio = true;
    std::atomic<uint64_t> externalIndex{0};
    // Wakes the board's thread for outgoing events, plugging and stopping.
    int wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

    std::string socketPath;
    std::string fifoPath;
    std::thread thread;

    // The simulator thread's own.
    int listenFd = -1;
    int connFd = -1;
    int fifoFd = -1;
    bool vanished = false;
    uint64_t written = 0; // frames written into the FIFO and not lost
    int64_t heardBegin = -1;
    int64_t heardEnd = -1;
    bool pressDue = false;
    bool queryPending = false;
    Clock::time_point lastWrite;

    bool listen(std::string* error);
    bool begin(std::string* error);
    void run();
    bool serve(Clock::time_point until);
    void handleRequests();
    void unplug();
    void wakeUp();
    void tick();
    void pressWakeKey();
    bool nextPeriod(int16_t* chunk);
    bool writePeriod(const int16_t* chunk, size_t size);
    void placeKeyword(Utterance& utterance, uint64_t firstIndex);
    void advance(std::unique_lock<std::mutex>& lock, bool delivered, uint64_t firstIndex);
    void publishPlayed(std::unique_lock<std::mutex>& lock, const Utterance& finished);
    void answerQuery();
    void takeRequest(const uint8_t* packet, size_t size);
    uint64_t readIndex();
    void send(const void* message, size_t size);
    void sendWakeKey();
    uint64_t enqueue(std::vector<int16_t> mono, int64_t begin, int64_t end);
    bool playAndWait(std::vector<int16_t> mono, int64_t begin, int64_t end, const std::string& what,
                     FarFieldUtterance* played, std::string* error);
};

bool XmosSimulator::Impl::listen(std::string* error)
{
    unlink(socketPath.c_str());
    listenFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (listenFd < 0 || socketPath.size() >= sizeof(address.sun_path)) {
        if (error)
            *error = "cannot create the device socket " + socketPath;
        closeFd(listenFd);
        return false;
    }
    strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    if (bind(listenFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listenFd, 4) != 0) {
        if (error)
            *error = "cannot listen on " + socketPath + ": " + strerror(errno);
        closeFd(listenFd);
        return false;
    }
    return true;
}

uint64_t XmosSimulator::Impl::readIndex()
{
    if (!withAudio)
        return externalIndex.load();
    int unread = 0;
    if (fifoFd >= 0 && ioctl(fifoFd, FIONREAD, &unread) != 0)
        unread = 0;
    const uint64_t pending = static_cast<uint64_t>(unread) / kFrameBytes;
    return written >= pending ? written - pending : 0;
}

void XmosSimulator::Impl::send(const void* message, size_t size)
{
    if (connFd >= 0)
        ::send(connFd, message, size, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void XmosSimulator::Impl::sendWakeKey()
{
    std::vector<int32_t> values;
    {
        std::lock_guard<std::mutex> lock(mutex);
        values = wakeKeyValues;
    }
    for (const int32_t value : values) {
        xmos_sim::KeyEventMessage message;
        message.type = kEvKey;
        message.code = kKeyF23;
        message.value = value;
        send(&message, sizeof(message));
    }
}

void XmosSimulator::Impl::wakeUp()
{
    const uint64_t one = 1;
    if (wakeFd >= 0 && write(wakeFd, &one, sizeof(one)) < 0) {
        // Already pending: the counter only has to be nonzero.
    }
}

// Gone from the bus: the library's connection, the listening socket and the
// FIFO close; what the capture left unread is lost.
void XmosSimulator::Impl::unplug()
{
    if (vanished)
        return;
    vanished = true;
    pluggedIn.store(false);
    closeFd(connFd);
    closeFd(listenFd);
    unlink(socketPath.c_str());
    if (fifoFd >= 0)
        written = readIndex();
    closeFd(fifoFd);
    connected.store(false);
    reading.store(false);
    queryPending = false;
}

void XmosSimulator::Impl::answerQuery()
{
    queryPending = false;
    QueryAnswer answer = QueryAnswer::Indexes;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!script.empty()) {
            answer = script.front();
            script.pop_front();
        }
    }
    const uint64_t c = readIndex();
    uint64_t b = heardBegin >= 0 ? static_cast<uint64_t>(heardBegin) : c;
    uint64_t e = heardEnd >= 0 ? static_cast<uint64_t>(heardEnd) : c;
    xmos_sim::ControlReplyMessage reply;
    reply.result = kIndexQueryLength;
    uint8_t status = 0;
    switch (answer) {
    case QueryAnswer::Indexes:
        break;
    case QueryAnswer::NotReady:
        status = 1;
        break;
    case QueryAnswer::IoError:
        reply.result = kLibusbErrorIo;
        break;
    case QueryAnswer::Stall:
        reply.result = kLibusbErrorPipe;
        break;
    case QueryAnswer::NoAnswer:
        return;
    case QueryAnswer::Unplug:
        unplug();
        return;
    case QueryAnswer::BeginAfterCurrent:
        b = c + kRate;
        e = b + kRate / 2;
        break;
    case QueryAnswer::EndBeforeBegin:
        e = b - kRate;
        break;
    case QueryAnswer::BeginOverwritten:
        // Wraps below zero when the board has counted less than 15 s.
        b = c - 15 * kRate;
        e = b + kRate / 2;
        break;
    }
    if (reply.result > 0) {
        reply.data[0] = status;
        putBigEndian(reply.data + 1, c);
        putBigEndian(reply.data + 9, b);
        putBigEndian(reply.data + 17, e);
    }
    // Counted before the reply goes: the library may finish the whole
    // detection before this thread runs again, and a test that then reads
    // the count must see this answer in it.
    queries.fetch_add(1);
    send(&reply, sizeof(reply));
}

// A control transfer from the library: the index query waits for its moment
// between two periods, anything else is stalled at once.
void XmosSimulator::Impl::takeRequest(const uint8_t* packet, size_t size)
{
    xmos_sim::ControlRequestMessage message;
    const bool complete = size >= sizeof(message);
    if (complete)
        memcpy(static_cast<void*>(&message), packet, sizeof(message));
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (requests.size() == kKeptRequests)
            requests.pop_front();
        requests.push_back({complete, message.requestType, message.request, message.value,
                            message.index, message.length});
    }
    if (complete && message.requestType == kIndexQueryType &&
        message.request == kIndexQueryRequest && message.value == kIndexQueryValue &&
        message.index == kIndexQueryIndex && message.length == kIndexQueryLength) {
        queryPending = true;
        return;
    }
    xmos_sim::ControlReplyMessage stall;
    stall.result = kLibusbErrorPipe;
    send(&stall, sizeof(stall));
}

// Handles the device socket until `until`; true when woken before that by a
// request of the board's user (handleRequests() takes it).
bool XmosSimulator::Impl::serve(Clock::time_point until)
{
    for (;;) {
        const auto now = Clock::now();
        // Playing audio, the board answers between two periods; without, at once.
        if (queryPending && connFd >= 0 &&
            (!withAudio || (now >= lastWrite + kAnswerAfterWrite &&
                            now + kAnswerBeforeNext <= lastWrite + kPeriod)))
            answerQuery();
        if (now >= until)
            return false;
        auto wake = until;
        if (queryPending && now < lastWrite + kAnswerAfterWrite)
            wake = std::min(wake, lastWrite + kAnswerAfterWrite);

        pollfd fds[3];
        nfds_t count = 0;
        fds[count++] = {wakeFd, POLLIN, 0};
        if (listenFd >= 0)
            fds[count++] = {listenFd, POLLIN, 0};
        if (connFd >= 0)
            fds[count++] = {connFd, POLLIN, 0};
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(wake - now);
        timespec timeout = {static_cast<time_t>(left.count() / 1000000000),
                            static_cast<long>(left.count() % 1000000000)};
        if (ppoll(fds, count, &timeout, nullptr) <= 0)
            continue;
        for (nfds_t k = 0; k < count; ++k) {
            if (fds[k].revents == 0)
                continue;
            if (fds[k].fd == wakeFd) {
                uint64_t counter = 0;
                if (read(wakeFd, &counter, sizeof(counter)) < 0) {
                    // Nothing pending after all.
                }
                return true;
            }
            if (fds[k].fd == listenFd) {
                const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) {
                    // One library at a time: a new connection replaces the old.
                    closeFd(connFd);
                    connFd = fd;
                    queryPending = false;
                    connected.store(true);
                }
                continue;
            }
            uint8_t packet[sizeof(xmos_sim::ControlReplyMessage)];
            const ssize_t n = recv(connFd, packet, sizeof(packet), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
                closeFd(connFd);
                connected.store(false);
                queryPending = false;
            } else if (n > 0 && packet[0] == xmos_sim::kControlRequest) {
                takeRequest(packet, static_cast<size_t>(n));
            }
        }
    }
}

// Plugging, unplugging and the events that the board's user asked for.
void XmosSimulator::Impl::handleRequests()
{
    bool vanish = false;
    bool reappear = false;
    std::deque<Outgoing> events;
    std::function<void(const KeyPress&)> observer;
    {
        std::lock_guard<std::mutex> lock(mutex);
        std::swap(vanish, wantVanish);
        std::swap(reappear, wantReappear);
        events.swap(outgoing);
        observer = keyObserver;
    }
    if (vanish)
        unplug();
    if (reappear && vanished) {
        vanished = false;
        pluggedIn.store(listen(nullptr));
    }
    for (const Outgoing& event : events) {
        if (!event.wake) {
            send(&event.key, sizeof(event.key));
            continue;
        }
        heardBegin = static_cast<int64_t>(event.begin);
        heardEnd = static_cast<int64_t>(event.end);
        sendWakeKey();
        if (observer)
            observer(KeyPress{event.begin, event.end, Clock::now()});
    }
}

// Records a played utterance and tells its waiters and the observer; called
// with `lock` held, returns with it released.
void XmosSimulator::Impl::publishPlayed(std::unique_lock<std::mutex>& lock,
                                        const Utterance& finished)
{
    done[finished.id] = finished.played;
    auto played = playedObserver;
    lock.unlock();
    changed.notify_all();
    if (played)
        played(finished.played);
}

// The key press of a keyword that the previous period completed: the
// capture has read it by now.
void XmosSimulator::Impl::pressWakeKey()
{
    pressDue = false;
    sendWakeKey();
    KeyPress press{static_cast<uint64_t>(heardBegin), static_cast<uint64_t>(heardEnd),
                   Clock::now()};
    std::function<void(const KeyPress&)> observer;
    std::optional<Utterance> finished;
    {
        std::lock_guard<std::mutex> lock(mutex);
        observer = keyObserver;
        if (finishing) {
            finishing->played.keyPress = static_cast<int64_t>(readIndex());
            finished.swap(finishing);
        } else if (!queue.empty()) {
            queue.front().played.keyPress = static_cast<int64_t>(readIndex());
        }
    }
    if (observer)
        observer(press);
    if (finished) {
        std::unique_lock<std::mutex> lock(mutex);
        publishPlayed(lock, *finished);
    }
}

// The next period of the utterance at the head of the queue into `chunk`
// (left silent when nothing plays), the second microphone carrying the
// inverse. False when nothing plays.
bool XmosSimulator::Impl::nextPeriod(int16_t* chunk)
{
    std::lock_guard<std::mutex> lock(mutex);
    if (queue.empty())
        return false;
    const Utterance& utterance = queue.front();
    for (unsigned k = 0; k < kPeriodFrames; ++k) {
        const size_t at = utterance.position + k;
        const int16_t value = at < utterance.samples.size() ? utterance.samples[at] : 0;
        chunk[2 * k] = value;
        chunk[2 * k + 1] = static_cast<int16_t>(~value); // the other microphone
    }
    return true;
}

// Writes one period into the FIFO; true when all of it went in.
bool XmosSimulator::Impl::writePeriod(const int16_t* chunk, size_t size)
{
    if (fifoFd < 0)
        return false;
    const ssize_t n = write(fifoFd, chunk, size);
    if (n == static_cast<ssize_t>(size)) {
        written += kPeriodFrames;
        return true;
    }
    if (n < 0 && errno == EPIPE) {
        // The capture went away; what it left unread is lost.
        written = readIndex();
        closeFd(fifoFd);
        reading.store(false);
    }
    return false;
}

// Where the keyword of the utterance landed in the stream, given the index
// of the period just delivered; a completed keyword makes its key press due.
void XmosSimulator::Impl::placeKeyword(Utterance& utterance, uint64_t firstIndex)
{
    const size_t from = utterance.position;
    const size_t to = from + kPeriodFrames;
    if (!utterance.started) {
        utterance.started = true;
        utterance.played.firstIndex = firstIndex;
    }
    utterance.played.samples += kPeriodFrames;
    const auto inChunk = [&](int64_t at) {
        return at >= static_cast<int64_t>(from) && at < static_cast<int64_t>(to);
    };
    if (inChunk(utterance.keywordBegin))
        utterance.played.keywordBegin =
            static_cast<int64_t>(firstIndex) + utterance.keywordBegin - static_cast<int64_t>(from);
    if (inChunk(utterance.keywordEnd) && utterance.played.keywordBegin >= 0) {
        utterance.played.keywordEnd =
            static_cast<int64_t>(firstIndex) + utterance.keywordEnd - static_cast<int64_t>(from);
        heardBegin = utterance.played.keywordBegin;
        heardEnd = utterance.played.keywordEnd;
        pressDue = true;
    }
}

// Moves the utterance at the head of the queue on by one period; one played
// to its end leaves the queue (waiting for its key press when that is due).
// Called with `lock` held; it may release it.
void XmosSimulator::Impl::advance(std::unique_lock<std::mutex>& lock, bool delivered,
                                  uint64_t firstIndex)
{
    Utterance& utterance = queue.front();
    if (delivered)
        placeKeyword(utterance, firstIndex);
    utterance.position += kPeriodFrames;
    if (utterance.position < utterance.samples.size())
        return;
    Utterance finished = std::move(queue.front());
    queue.pop_front();
    finished.played.samples = std::min<uint64_t>(finished.played.samples, finished.samples.size());
    if (pressDue) {
        finishing = std::move(finished);
        return;
    }
    publishPlayed(lock, finished);
}

void XmosSimulator::Impl::tick()
{
    if (pressDue)
        pressWakeKey();
    if (vanished)
        return;

    if (fifoFd < 0) {
        fifoFd = open(fifoPath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        reading.store(fifoFd >= 0);
    }
    int16_t chunk[kPeriodFrames * 2] = {};
    const bool playing = nextPeriod(chunk);
    const uint64_t firstIndex = written;
    const bool delivered = writePeriod(chunk, sizeof(chunk));
    lastWrite = Clock::now();
    current.store(readIndex());

    std::unique_lock<std::mutex> lock(mutex);
    if (playing && !queue.empty())
        advance(lock, delivered, firstIndex);
}

void XmosSimulator::Impl::run()
{
    // A capture that closes the FIFO must not kill the process.
    sigset_t block;
    sigemptyset(&block);
    sigaddset(&block, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &block, nullptr);

    auto next = Clock::now();
    lastWrite = next;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (!running)
                break;
        }
        handleRequests();
        if (!withAudio) {
            serve(Clock::now() + std::chrono::seconds(1));
            continue;
        }
        if (serve(next))
            continue;
        tick();
        next += kPeriod;
        const auto now = Clock::now();
        if (now > next + 10 * kPeriod)
            next = now + kPeriod; // stalled: play on from now
    }
    closeFd(connFd);
    closeFd(listenFd);
    closeFd(fifoFd);
    unlink(socketPath.c_str());
    connected.store(false);
    reading.store(false);
}

bool XmosSimulator::Impl::begin(std::string* error)
{
    if (wakeFd < 0) {
        if (error)
            *error = std::string("cannot create an eventfd: ") + strerror(errno);
        return false;
    }
    if (!listen(error))
        return false;
    vanished = false;
    pluggedIn.store(true);
    running = true;
    thread = std::thread([this] { run(); });
    return true;
}

XmosSimulator::XmosSimulator() : m_impl(std::make_unique<Impl>()) {}

XmosSimulator::~XmosSimulator()
{
    stop();
    closeFd(m_impl->wakeFd);
}

bool XmosSimulator::start(const std::string& deviceSocketPath, const std::string& alsaFifoPath,
                          std::string* error)
{
    stop();
    Impl& impl = *m_impl;
    impl.socketPath = deviceSocketPath;
    impl.fifoPath = alsaFifoPath;
    impl.withAudio = true;
    struct stat info;
    if (stat(alsaFifoPath.c_str(), &info) != 0 && mkfifo(alsaFifoPath.c_str(), 0644) != 0) {
        if (error)
            *error = "cannot create the FIFO " + alsaFifoPath + ": " + strerror(errno);
        return false;
    }
    return impl.begin(error);
}

bool XmosSimulator::startWithoutAudio(const std::string& deviceSocketPath, std::string* error)
{
    stop();
    Impl& impl = *m_impl;
    impl.socketPath = deviceSocketPath;
    impl.fifoPath.clear();
    impl.withAudio = false;
    return impl.begin(error);
}

void XmosSimulator::stop()
{
    Impl& impl = *m_impl;
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.running = false;
    }
    impl.wakeUp();
    if (impl.thread.joinable())
        impl.thread.join();
    closeFd(impl.listenFd);
}

void XmosSimulator::setCurrentIndex(uint64_t index)
{
    m_impl->externalIndex.store(index);
    m_impl->current.store(index);
}

void XmosSimulator::pressWakeKey(uint64_t keywordBegin, uint64_t keywordEnd)
{
    {
        std::lock_guard<std::mutex> lock(m_impl->mutex);
        Impl::Outgoing event;
        event.wake = true;
        event.begin = keywordBegin;
        event.end = keywordEnd;
        m_impl->outgoing.push_back(event);
    }
    m_impl->wakeUp();
}

void XmosSimulator::sendKeyEvent(uint16_t type, uint16_t code, int32_t value)
{
    {
        std::lock_guard<std::mutex> lock(m_impl->mutex);
        Impl::Outgoing event;
        event.key.type = type;
        event.key.code = code;
        event.key.value = value;
        m_impl->outgoing.push_back(event);
    }
    m_impl->wakeUp();
}

void XmosSimulator::scriptQueries(std::vector<QueryAnswer> answers)
{
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    m_impl->script.assign(answers.begin(), answers.end());
}

void XmosSimulator::setWakeKeyValues(std::vector<int32_t> values)
{
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    m_impl->wakeKeyValues = std::move(values);
}

bool XmosSimulator::plugged() const
{
    return m_impl->pluggedIn.load();
}

void XmosSimulator::say(std::vector<int16_t> mono, int64_t keywordBegin, int64_t keywordEnd)
{
    m_impl->enqueue(std::move(mono), keywordBegin, keywordEnd);
}

bool XmosSimulator::sayWav(const std::string& path, int64_t keywordBegin, int64_t keywordEnd,
                           std::string* error)
{
    std::vector<int16_t> mono;
    if (!readWav(path, mono, error))
        return false;
    say(std::move(mono), keywordBegin, keywordEnd);
    return true;
}

namespace
{

// The first and last sample above the noise floor; -1 when all is quiet.
std::pair<int64_t, int64_t> audibleSpan(const std::vector<int16_t>& mono)
{
    constexpr int kFloor = 300;
    int64_t first = -1;
    int64_t last = -1;
    for (size_t k = 0; k < mono.size(); ++k) {
        if (std::abs(mono[k]) > kFloor) {
            if (first < 0)
                first = static_cast<int64_t>(k);
            last = static_cast<int64_t>(k);
        }
    }
    return {first, last};
}

// The sentence as audio, with the keyword span when it begins with one.
bool speak(const std::string& text, std::vector<int16_t>& mono, int64_t& begin, int64_t& end,
           std::string* error)
{
    begin = end = -1;
    const std::string folded = lower(text);
    const bool keyword =
        folded.rfind("alexa", 0) == 0 &&
        (folded.size() == 5 || !std::isalnum(static_cast<unsigned char>(folded[5])));
    if (!keyword)
        return XmosSimulator::synthesize(text, mono, error);
    if (!XmosSimulator::synthesize("alexa", mono, error))
        return false;
    std::tie(begin, end) = audibleSpan(mono);
    size_t rest = 5;
    while (rest < text.size() && !std::isalnum(static_cast<unsigned char>(text[rest])))
        ++rest;
    if (rest < text.size()) {
        std::vector<int16_t> more;
        if (!XmosSimulator::synthesize(text.substr(rest), more, error))
            return false;
        mono.insert(mono.end(), more.begin(), more.end());
    }
    return true;
}

} // namespace

bool XmosSimulator::sayText(const std::string& text, std::string* error)
{
    std::vector<int16_t> mono;
    int64_t begin = -1;
    int64_t end = -1;
    if (!speak(text, mono, begin, end, error))
        return false;
    say(std::move(mono), begin, end);
    return true;
}

bool XmosSimulator::waitUntilIdle(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    return m_impl->changed.wait_for(lock, milliseconds(timeoutMs),
                                    [this] { return m_impl->queue.empty() && !m_impl->finishing; });
}

bool XmosSimulator::sayText(const std::string& sentence, FarFieldUtterance* played,
                            std::string* error)
{
    std::vector<int16_t> mono;
    int64_t begin = -1;
    int64_t end = -1;
    if (!speak(sentence, mono, begin, end, error))
        return false;
    return m_impl->playAndWait(std::move(mono), begin, end, sentence, played, error);
}

bool XmosSimulator::sayWav(const std::string& path, FarFieldUtterance* played, std::string* error)
{
    std::vector<int16_t> mono;
    if (!readWav(path, mono, error))
        return false;
    const std::string name = path.substr(path.find_last_of('/') + 1);
    return m_impl->playAndWait(std::move(mono), -1, -1, name, played, error);
}

bool XmosSimulator::Impl::playAndWait(std::vector<int16_t> mono, int64_t begin, int64_t end,
                                      const std::string& what, FarFieldUtterance* played,
                                      std::string* error)
{
    const auto duration = milliseconds(mono.size() * 1000 / kRate);
    if (played != nullptr) {
        played->what = what;
        played->rate = kRate;
        played->samples = mono;
        played->keywordBegin = begin;
        played->keywordEnd = end;
        played->keyPress = -1;
    }
    const uint64_t id = enqueue(std::move(mono), begin, end);
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_for(lock, duration + milliseconds(5000),
                          [&] { return done.count(id) != 0; })) {
        if (error)
            *error = "the device did not finish playing";
        return false;
    }
    const Played result = done[id];
    done.erase(id);
    if (played != nullptr && result.keyPress >= 0)
        played->keyPress = result.keyPress - static_cast<int64_t>(result.firstIndex);
    return true;
}

uint64_t XmosSimulator::Impl::enqueue(std::vector<int16_t> mono, int64_t begin, int64_t end)
{
    Utterance utterance;
    utterance.samples = std::move(mono);
    utterance.keywordBegin = begin;
    utterance.keywordEnd = end;
    std::lock_guard<std::mutex> lock(mutex);
    utterance.id = nextId++;
    const uint64_t id = utterance.id;
    queue.push_back(std::move(utterance));
    return id;
}

void XmosSimulator::vanish()
{
    {
        std::lock_guard<std::mutex> lock(m_impl->mutex);
        m_impl->wantVanish = true;
        m_impl->wantReappear = false;
    }
    m_impl->wakeUp();
}

void XmosSimulator::reappear()
{
    {
        std::lock_guard<std::mutex> lock(m_impl->mutex);
        m_impl->wantReappear = true;
        m_impl->wantVanish = false;
    }
    m_impl->wakeUp();
}

void XmosSimulator::onPlayed(std::function<void(const Played&)> observer)
{
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    m_impl->playedObserver = std::move(observer);
}

void XmosSimulator::onKeyPress(std::function<void(const KeyPress&)> observer)
{
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    m_impl->keyObserver = std::move(observer);
}

uint64_t XmosSimulator::currentIndex() const
{
    return m_impl->current.load();
}

bool XmosSimulator::libraryConnected() const
{
    return m_impl->connected.load();
}

bool XmosSimulator::captureReading() const
{
    return m_impl->reading.load();
}

unsigned XmosSimulator::queriesAnswered() const
{
    return m_impl->queries.load();
}

std::vector<XmosSimulator::ControlRequest> XmosSimulator::controlRequests() const
{
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    return {m_impl->requests.begin(), m_impl->requests.end()};
}

bool XmosSimulator::readWav(const std::string& path, std::vector<int16_t>& mono, std::string* error)
{
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        if (error)
            *error = "cannot read " + path + ": " + sf_strerror(nullptr);
        return false;
    }
    std::vector<short> frames(static_cast<size_t>(info.frames) *
                              static_cast<size_t>(info.channels));
    const sf_count_t got = sf_readf_short(file, frames.data(), info.frames);
    sf_close(file);
    std::vector<double> input(static_cast<size_t>(got));
    for (sf_count_t f = 0; f < got; ++f) {
        long sum = 0;
        for (int c = 0; c < info.channels; ++c)
            sum += frames[static_cast<size_t>(f * info.channels + c)];
        input[static_cast<size_t>(f)] = static_cast<double>(sum) / info.channels;
    }
    // Linear interpolation is plenty for speech into a 16 kHz keyword engine.
    const double step = static_cast<double>(info.samplerate) / kRate;
    const size_t count = info.samplerate > 0 ? static_cast<size_t>(input.size() / step) : 0;
    mono.assign(count, 0);
    for (size_t k = 0; k < count; ++k) {
        const double at = k * step;
        const size_t i = static_cast<size_t>(at);
        const double frac = at - static_cast<double>(i);
        const double a = input[i];
        const double b = i + 1 < input.size() ? input[i + 1] : a;
        mono[k] = static_cast<int16_t>(std::clamp(a + (b - a) * frac, -32768.0, 32767.0));
    }
    return true;
}

bool XmosSimulator::synthesize(const std::string& text, std::vector<int16_t>& mono,
                               std::string* error)
{
    char path[] = "/tmp/zor-xmos-say-XXXXXX.wav";
    const int fd = mkstemps(path, 4);
    if (fd < 0) {
        if (error)
            *error = std::string("cannot create a temporary file: ") + strerror(errno);
        return false;
    }
    close(fd);
    const std::string& textArg = text;
    const char* argv[] = {"espeak-ng", "-w", path, textArg.c_str(), nullptr};
    pid_t pid = 0;
    int status = 0;
    const int spawned =
        posix_spawnp(&pid, "espeak-ng", nullptr, nullptr, const_cast<char**>(argv), environ);
    if (spawned != 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        unlink(path);
        if (error)
            *error = "espeak-ng failed (is it installed?)";
        return false;
    }
    const bool ok = readWav(path, mono, error);
    unlink(path);
    return ok;
}

} // namespace zor::sim
