// SPDX-License-Identifier: MIT
// The far-field device as the detection thread sees it: a source of key
// events and a vendor control endpoint. On the television this is the
// XMOS board's input event node and its USB device. Development builds
// (ZOR_SIM_BOARD) also carry the simulated board, which the environment
// variable ZOR_XMOS_DEVICE selects; the television's build has neither.
#ifndef ZOR_AUDIO_XMOS_DEVICE_H
#define ZOR_AUDIO_XMOS_DEVICE_H

#include <cstdint>
#include <functional>
#include <memory>

namespace zor::audio
{

struct XmosKeyEvent {
    uint16_t type = 0;
    uint16_t code = 0;
    int32_t value = 0;
};

// libusb's error numbers, which both implementations report.
constexpr int kXmosErrorIo = -1;
constexpr int kXmosErrorNoDevice = -4;
constexpr int kXmosErrorTimeout = -7;

class XmosDevice
{
public:
    virtual ~XmosDevice() = default;

    // 1 with `event` filled, 0 when no event is pending, -ENODEV once the
    // device has gone, another negative errno on a read error. Never blocks.
    virtual int nextEvent(XmosKeyEvent& event) = 0;

    // Waits at most `timeoutMs` for an event to become pending.
    virtual void waitForEvent(unsigned timeoutMs) = 0;

    // Vendor control transfer into `data`: the bytes transferred or a
    // negative libusb error.
    virtual int controlTransfer(uint8_t requestType, uint8_t request, uint16_t value,
                                uint16_t index, uint8_t* data, uint16_t length,
                                unsigned timeoutMs) = 0;

    // For the log lines: the event handle, the control handle, the node's
    // descriptor.
    virtual const void* eventHandle() const = 0;
    virtual const void* controlHandle() const = 0;
    virtual int descriptor() const = 0;
};

struct XmosOpenParams {
    int openAttempts = 100; // event node (or simulator socket)
    unsigned openDelayMs = 100;
};

// Opens the board: the one that setXmosDeviceOpener() installed, else (in
// development builds only) the simulator when ZOR_XMOS_DEVICE names its
// socket, else the television's event node and USB device. Null on failure,
// after the failure's log line. Called on the detection thread.
std::unique_ptr<XmosDevice> openXmosDevice(const XmosOpenParams& params);

// The seam for the project's tests and benchmarks: the detection thread
// opens its board through `opener` from its next start on (an empty one
// restores the default). Any thread.
using XmosDeviceOpener = std::function<std::unique_ptr<XmosDevice>(const XmosOpenParams&)>;
void setXmosDeviceOpener(XmosDeviceOpener opener);

std::unique_ptr<XmosDevice> openUsbXmosDevice(const XmosOpenParams& params);
// The simulated board listening on the Unix socket `socketPath`
// (audio/xmos_sim_protocol.h). Part of libzor in development builds only; the
// tests link it themselves.
std::unique_ptr<XmosDevice> openSimulatedXmosDevice(const char* socketPath,
                                                    const XmosOpenParams& params);

} // namespace zor::audio

#endif
