// SPDX-License-Identifier: MIT
// The simulated far-field board: key events and control transfers travel as
// packets over a Unix socket that the simulator listens on.
#include "audio/xmos_device.h"

#include "audio/xmos_sim_protocol.h"
#include "base/log.h"
#include "base/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <deque>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zor::audio
{

namespace
{

// Key events that arrive while a transfer waits for its reply; the board
// sends one press and one release per detection, so a few are plenty.
constexpr size_t kMaxQueuedEvents = 64;

UniqueFd connectTo(const char* path)
{
    UniqueFd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (!fd.valid() || strlen(path) >= sizeof(address.sun_path))
        return UniqueFd();
    strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        return UniqueFd();
    return fd;
}

class SimulatedXmosDevice : public XmosDevice
{
public:
    explicit SimulatedXmosDevice(UniqueFd fd) : m_fd(std::move(fd)) {}

    int nextEvent(XmosKeyEvent& event) override
    {
        if (m_events.empty() && !m_lost)
            receive(0);
        if (!m_events.empty()) {
            event = m_events.front();
            m_events.pop_front();
            return 1;
        }
        return m_lost ? -ENODEV : 0;
    }

    void waitForEvent(unsigned timeoutMs) override
    {
        if (!m_events.empty() || m_lost)
            return;
        pollfd fd = {m_fd.get(), POLLIN, 0};
        poll(&fd, 1, static_cast<int>(timeoutMs));
    }

    int controlTransfer(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index,
                        uint8_t* data, uint16_t length, unsigned timeoutMs) override
    {
        if (m_lost)
            return kXmosErrorNoDevice;
        xmos_sim::ControlRequestMessage message;
        message.requestType = requestType;
        message.request = request;
        message.value = value;
        message.index = index;
        message.length = length;
        message.timeoutMs = static_cast<uint16_t>(timeoutMs);
        if (send(m_fd.get(), &message, sizeof(message), MSG_NOSIGNAL) != sizeof(message)) {
            m_lost = true;
            return kXmosErrorNoDevice;
        }
        m_reply.reset();
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!m_reply && !m_lost) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return kXmosErrorTimeout;
            receive(static_cast<int>(left.count()));
        }
        if (!m_reply)
            return kXmosErrorNoDevice;
        const xmos_sim::ControlReplyMessage& reply = *m_reply;
        if (reply.result > 0) {
            const size_t bytes = std::min<size_t>(
                {static_cast<size_t>(reply.result), length, xmos_sim::kMaxControlData});
            memcpy(data, reply.data, bytes);
        }
        return reply.result;
    }

    const void* eventHandle() const override { return this; }
    const void* controlHandle() const override { return this; }
    int descriptor() const override { return m_fd.get(); }

private:
    // Takes what the board sent within `timeoutMs` (0: only what is there).
    void receive(int timeoutMs)
    {
        pollfd fd = {m_fd.get(), POLLIN, 0};
        if (poll(&fd, 1, timeoutMs) <= 0)
            return;
        for (;;) {
            uint8_t packet[sizeof(xmos_sim::ControlReplyMessage)]; // the largest message
            const ssize_t n = recv(m_fd.get(), packet, sizeof(packet), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
                m_lost = true;
                return;
            }
            if (n < 0)
                return;
            const uint8_t kind = packet[0];
            if (kind == xmos_sim::kKeyEvent &&
                static_cast<size_t>(n) >= sizeof(xmos_sim::KeyEventMessage)) {
                xmos_sim::KeyEventMessage key;
                memcpy(static_cast<void*>(&key), packet, sizeof(key));
                if (m_events.size() < kMaxQueuedEvents)
                    m_events.push_back({key.type, key.code, key.value});
            } else if (kind == xmos_sim::kControlReply &&
                       static_cast<size_t>(n) >= offsetof(xmos_sim::ControlReplyMessage, data)) {
                m_reply = std::make_unique<xmos_sim::ControlReplyMessage>();
                memcpy(static_cast<void*>(m_reply.get()), packet, static_cast<size_t>(n));
            }
        }
    }

    UniqueFd m_fd;
    std::deque<XmosKeyEvent> m_events;
    std::unique_ptr<xmos_sim::ControlReplyMessage> m_reply;
    bool m_lost = false;
};

} // namespace

std::unique_ptr<XmosDevice> openSimulatedXmosDevice(const char* socketPath,
                                                    const XmosOpenParams& params)
{
    ZOR_FFM_LOG("Get HID_DEVICE(%s) Start... \n\n", socketPath);
    int failed = 0;
    UniqueFd fd = connectTo(socketPath);
    while (!fd.valid() && ++failed < params.openAttempts) {
        usleep(params.openDelayMs * 1000);
        fd = connectTo(socketPath);
    }
    ZOR_FFM_LOG("iOpenevdevCnt(%d),s32FFMHandle %d, %p \n\n", failed, fd.get(),
                static_cast<void*>(nullptr));
    if (!fd.valid()) {
        ZOR_FFM_LOG("Get HID_DEVICE failed (%d)\n\n", fd.get());
        return nullptr;
    }
    ZOR_FFM_LOG("Get HID_DEVICE Success (%d)\n\n", fd.get());
    return std::make_unique<SimulatedXmosDevice>(std::move(fd));
}

} // namespace zor::audio
