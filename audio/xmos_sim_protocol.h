// SPDX-License-Identifier: MIT
// Messages between libzor and the simulated XMOS board over one Unix
// SOCK_SEQPACKET connection (the simulator listens, the library connects).
// One message per packet, native byte order: both ends run on one host.
//
//   board -> library  KeyEvent        a key event of the board's HID interface
//   library -> board  ControlRequest  a vendor control transfer, device to host
//   board -> library  ControlReply    its result and the bytes read
//
// A closed connection is an unplugged board.
#ifndef ZOR_AUDIO_XMOS_SIM_PROTOCOL_H
#define ZOR_AUDIO_XMOS_SIM_PROTOCOL_H

#include <cstdint>

namespace zor::xmos_sim
{

enum Kind : uint8_t {
    kKeyEvent = 1,
    kControlRequest = 2,
    kControlReply = 3,
};

struct KeyEventMessage {
    uint8_t kind = kKeyEvent;
    uint8_t reserved = 0;
    uint16_t type = 0;
    uint16_t code = 0;
    uint16_t reserved2 = 0;
    int32_t value = 0;
};

struct ControlRequestMessage {
    uint8_t kind = kControlRequest;
    uint8_t requestType = 0;
    uint8_t request = 0;
    uint8_t reserved = 0;
    uint16_t value = 0;
    uint16_t index = 0;
    uint16_t length = 0;
    uint16_t timeoutMs = 0;
};

constexpr unsigned kMaxControlData = 64;

struct ControlReplyMessage {
    uint8_t kind = kControlReply;
    uint8_t reserved[3] = {};
    int32_t result = 0; // bytes transferred, or a negative libusb error
    uint8_t data[kMaxControlData] = {};
};

} // namespace zor::xmos_sim

#endif
