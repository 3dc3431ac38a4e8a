// SPDX-License-Identifier: MIT
// Feeds the messaging layer's frame decoder with any byte stream, split at
// arbitrary points. Every frame it accepts must be within the limits and
// must come out again, byte for byte, from the encoder; once it reports an
// error it must stay failed.
#include "mup/frame.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace
{

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

bool validKind(mup::FrameKind kind)
{
    return kind == mup::FrameKind::Request || kind == mup::FrameKind::OneWay ||
           kind == mup::FrameKind::Reply;
}

} // namespace

// Input: the first byte chooses the chunk sizes the stream is fed in.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const size_t chunk = 1 + data[0] % 64;
    const uint8_t* stream = data + 1;
    const size_t length = size - 1;

    mup::FrameDecoder decoder;
    std::vector<uint8_t> rebuilt;
    size_t offset = 0;
    bool failed = false;
    while (offset < length && !failed) {
        const size_t count = std::min(chunk, length - offset);
        if (offset % 2 == 0) {
            decoder.feed(stream + offset, count);
        } else {
            size_t room = 0;
            unsigned char* target = decoder.prepare(count, &room);
            check(room >= count);
            memcpy(target, stream + offset, count);
            decoder.commit(count);
        }
        offset += count;

        for (;;) {
            mup::FrameDecoder::Frame frame;
            const auto result = decoder.next(&frame);
            if (result == mup::FrameDecoder::Result::NeedMore)
                break;
            if (result == mup::FrameDecoder::Result::Error) {
                failed = true;
                check(decoder.failed() && !decoder.error().empty());
                break;
            }
            check(frame.header.payloadSize <= mup::kMaxPayload);
            check(validKind(frame.header.kind));
            const std::vector<unsigned char> encoded =
                mup::encodeFrame(frame.header, frame.payload);
            check(encoded.size() == mup::kFrameHeaderSize + frame.header.payloadSize);
            rebuilt.insert(rebuilt.end(), encoded.begin(), encoded.end());
        }
    }

    if (failed) {
        mup::FrameDecoder::Frame frame;
        check(decoder.next(&frame) == mup::FrameDecoder::Result::Error);
    } else {
        // What was taken as frames is exactly the start of the stream.
        check(rebuilt.size() + decoder.buffered() == length);
        check(rebuilt.empty() || memcmp(rebuilt.data(), stream, rebuilt.size()) == 0);
    }
    return 0;
}
