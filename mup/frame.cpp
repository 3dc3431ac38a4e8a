// SPDX-License-Identifier: MIT
#include "mup/frame.h"

#include <cstdio>
#include <cstring>

namespace mup
{

namespace
{

void put16(unsigned char* out, uint16_t value)
{
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
}

void put32(unsigned char* out, uint32_t value)
{
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
    out[2] = static_cast<unsigned char>(value >> 16);
    out[3] = static_cast<unsigned char>(value >> 24);
}

uint16_t get16(const unsigned char* in)
{
    return static_cast<uint16_t>(in[0] | in[1] << 8);
}

uint32_t get32(const unsigned char* in)
{
    return static_cast<uint32_t>(in[0]) | static_cast<uint32_t>(in[1]) << 8 |
           static_cast<uint32_t>(in[2]) << 16 | static_cast<uint32_t>(in[3]) << 24;
}

// Reads are at least this large, so that several small frames that arrived
// together are taken with one system call.
constexpr size_t kMinimumRoom = 16 * 1024;
// After a large frame the buffer goes back to this size once it is empty, so
// that an idle connection does not keep a megabyte.
constexpr size_t kKeptRoom = 64 * 1024;

} // namespace

void encodeHeader(const FrameHeader& header, unsigned char* out)
{
    put32(out, kFrameMagic);
    put16(out + 4, kFrameVersion);
    put16(out + 6, static_cast<uint16_t>(header.kind));
    put32(out + 8, header.sequence);
    put32(out + 12, header.command);
    put32(out + 16, header.payloadSize);
}

std::vector<unsigned char> encodeFrame(const FrameHeader& header, const unsigned char* payload)
{
    std::vector<unsigned char> frame(kFrameHeaderSize + header.payloadSize);
    encodeHeader(header, frame.data());
    if (header.payloadSize)
        memcpy(frame.data() + kFrameHeaderSize, payload, header.payloadSize);
    return frame;
}

void FrameDecoder::feed(const void* data, size_t size)
{
    if (!size)
        return;
    size_t room = 0;
    unsigned char* space = prepare(size, &room);
    memcpy(space, data, size);
    commit(size);
}

unsigned char* FrameDecoder::prepare(size_t minimum, size_t* room)
{
    if (minimum < kMinimumRoom)
        minimum = kMinimumRoom;
    if (m_begin == m_end) {
        if (minimum <= kKeptRoom)
            trim();
        m_begin = m_end = 0;
    }

    if (m_buffer.size() - m_end < minimum) {
        // Move what is left of a partly taken stream to the front first; grow
        // only when that is not enough.
        if (m_begin) {
            memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
            m_end -= m_begin;
            m_begin = 0;
        }
        if (m_buffer.size() - m_end < minimum)
            m_buffer.resize(m_end + minimum);
    }
    *room = m_buffer.size() - m_end;
    return m_buffer.data() + m_end;
}

void FrameDecoder::trim()
{
    if (m_begin != m_end)
        return;
    m_begin = m_end = 0;
    if (m_buffer.size() > kKeptRoom) {
        m_buffer.resize(kKeptRoom);
        m_buffer.shrink_to_fit();
    }
}

void FrameDecoder::commit(size_t count)
{
    m_end += count;
}

bool FrameDecoder::checkHeader(FrameHeader* header)
{
    const unsigned char* in = m_buffer.data() + m_begin;
    char reason[128];

    const uint32_t magic = get32(in);
    const uint16_t version = get16(in + 4);
    const uint16_t kind = get16(in + 6);
    const uint32_t size = get32(in + 16);
    if (magic != kFrameMagic)
        snprintf(reason, sizeof(reason), "bad magic 0x%08x", magic);
    else if (version != kFrameVersion)
        snprintf(reason, sizeof(reason), "unsupported version %u", version);
    else if (kind < static_cast<uint16_t>(FrameKind::Request) ||
             kind > static_cast<uint16_t>(FrameKind::Reply))
        snprintf(reason, sizeof(reason), "unknown frame kind %u", kind);
    else if (size > kMaxPayload)
        snprintf(reason, sizeof(reason), "payload of %u bytes is over the limit of %u", size,
                 kMaxPayload);
    else {
        header->kind = static_cast<FrameKind>(kind);
        header->sequence = get32(in + 8);
        header->command = get32(in + 12);
        header->payloadSize = size;
        return true;
    }
    m_error = reason;
    return false;
}

FrameDecoder::Result FrameDecoder::next(Frame* frame)
{
    if (failed())
        return Result::Error;
    if (buffered() < kFrameHeaderSize)
        return Result::NeedMore;
    if (!checkHeader(&frame->header))
        return Result::Error;
    const size_t total = kFrameHeaderSize + frame->header.payloadSize;
    if (buffered() < total)
        return Result::NeedMore;

    frame->payload = m_buffer.data() + m_begin + kFrameHeaderSize;
    m_begin += total;
    return Result::Frame;
}

size_t FrameDecoder::missing() const
{
    if (failed())
        return 0;
    const size_t have = buffered();
    if (have < kFrameHeaderSize)
        return kFrameHeaderSize - have;
    const unsigned char* in = m_buffer.data() + m_begin;
    const uint32_t size = get32(in + 16);
    // An oversized header is reported by next(); don't ask for its payload.
    if (size > kMaxPayload)
        return 0;
    const size_t total = kFrameHeaderSize + size;
    return have < total ? total - have : 0;
}

size_t FrameDecoder::frameSize() const
{
    if (failed() || buffered() < kFrameHeaderSize)
        return 0;
    return kFrameHeaderSize + get32(m_buffer.data() + m_begin + 16);
}

} // namespace mup
