// SPDX-License-Identifier: MIT
// The wire format of every message. A frame is a 20-byte header followed by
// its payload; all header fields are little-endian whatever the host:
//
//   offset 0  u32 magic 0x50554D5A, "ZMUP" as bytes
//          4  u16 version (1)
//          6  u16 kind (FrameKind)
//          8  u32 sequence number, chosen by the requester, echoed in the reply
//         12  u32 command id, echoed in the reply
//         16  u32 payload length (at most kMaxPayload)
//
// The decoder is a pure state machine over bytes, with no descriptors or
// clocks, so that it can be driven by a fuzzer or by any reading loop.
#ifndef MUP_FRAME_H
#define MUP_FRAME_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mup
{

constexpr uint32_t kFrameMagic = 0x50554D5A;
constexpr uint16_t kFrameVersion = 1;
constexpr size_t kFrameHeaderSize = 20;
constexpr uint32_t kMaxPayload = 1024 * 1024;

enum class FrameKind : uint16_t {
    Request = 1, // the sender waits for a reply
    OneWay = 2,  // the sender does not want a reply
    Reply = 3,
};

struct FrameHeader {
    FrameKind kind = FrameKind::Request;
    uint32_t sequence = 0;
    uint32_t command = 0;
    uint32_t payloadSize = 0;
};

// Writes the header's 20 bytes.
void encodeHeader(const FrameHeader& header, unsigned char* out);

// A whole frame in one buffer; header.payloadSize bytes are taken from payload.
std::vector<unsigned char> encodeFrame(const FrameHeader& header, const unsigned char* payload);

class FrameDecoder
{
public:
    enum class Result {
        NeedMore, // no complete frame buffered yet
        Frame,    // a frame was taken
        Error,    // the stream is unusable; error() says why
    };

    struct Frame {
        FrameHeader header;
        // Valid until the next call of feed(), prepare() or next().
        const unsigned char* payload = nullptr;
    };

    FrameDecoder() = default;

    // Appends received bytes.
    void feed(const void* data, size_t size);

    // Lets a reader receive straight into the decoder: returns room for at
    // least `minimum` bytes (how much in *room), to be followed by commit()
    // with the count actually stored there. May throw std::bad_alloc.
    unsigned char* prepare(size_t minimum, size_t* room);
    void commit(size_t count);

    // Takes the next frame. A header is checked as soon as its 20 bytes are
    // in, so an oversized frame is refused before its payload is awaited.
    // Once Error is returned, every later call returns Error too.
    Result next(Frame* frame);

    // Bytes still needed to complete the header or frame in progress.
    size_t missing() const;
    // Header and payload of the frame in progress once its header is in, else 0.
    size_t frameSize() const;
    // Gives back a buffer grown for a large frame once nothing is buffered,
    // so that an idle connection does not keep a megabyte.
    void trim();
    // Bytes received and not yet taken as frames.
    size_t buffered() const { return m_end - m_begin; }
    bool failed() const { return !m_error.empty(); }
    const std::string& error() const { return m_error; }

private:
    bool checkHeader(FrameHeader* header);

    std::vector<unsigned char> m_buffer;
    size_t m_begin = 0;
    size_t m_end = 0;
    std::string m_error;
};

} // namespace mup

#endif
