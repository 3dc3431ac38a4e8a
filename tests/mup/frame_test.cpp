// SPDX-License-Identifier: MIT
// The frame codec: exact header bytes, the header checks, and decoding that
// does not depend on how the stream was cut into reads.
#include "mup/frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using mup::FrameDecoder;
using mup::FrameHeader;
using mup::FrameKind;
using Bytes = std::vector<unsigned char>;

struct Decoded {
    FrameKind kind;
    uint32_t sequence;
    uint32_t command;
    Bytes payload;

    bool operator==(const Decoded& other) const
    {
        return kind == other.kind && sequence == other.sequence && command == other.command &&
               payload == other.payload;
    }
};

// Takes every complete frame; stops at NeedMore or Error.
FrameDecoder::Result drain(FrameDecoder& decoder, std::vector<Decoded>& frames)
{
    for (;;) {
        FrameDecoder::Frame frame;
        const FrameDecoder::Result result = decoder.next(&frame);
        if (result != FrameDecoder::Result::Frame)
            return result;
        frames.push_back({frame.header.kind, frame.header.sequence, frame.header.command,
                          Bytes(frame.payload, frame.payload + frame.header.payloadSize)});
    }
}

Bytes encode(FrameKind kind, uint32_t sequence, uint32_t command, const Bytes& payload)
{
    FrameHeader header;
    header.kind = kind;
    header.sequence = sequence;
    header.command = command;
    header.payloadSize = static_cast<uint32_t>(payload.size());
    return mup::encodeFrame(header, payload.data());
}

TEST(FrameEncoding, HeaderBytesAreLittleEndian)
{
    const Bytes frame =
        encode(FrameKind::Request, 0x01020304, 0x18040003, Bytes{0x1E, 0x00, 0x00, 0x00});
    const Bytes expected = {
        0x5A, 0x4D, 0x55, 0x50, // "ZMUP"
        0x01, 0x00,             // version 1
        0x01, 0x00,             // kind 1: request wanting a reply
        0x04, 0x03, 0x02, 0x01, // sequence
        0x03, 0x00, 0x04, 0x18, // command
        0x04, 0x00, 0x00, 0x00, // payload length
        0x1E, 0x00, 0x00, 0x00, // payload
    };
    EXPECT_EQ(frame, expected);
}

TEST(FrameEncoding, KindsOnTheWire)
{
    const Bytes oneWay = encode(FrameKind::OneWay, 9, 0x10, {});
    const Bytes reply = encode(FrameKind::Reply, 9, 0x10, {0xAB});
    EXPECT_EQ(oneWay, (Bytes{0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x02, 0x00, 0x09, 0x00,
                             0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(reply, (Bytes{0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x03, 0x00, 0x09, 0x00, 0x00,
                            0x00, 0x10, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xAB}));
}

TEST(FrameDecoding, LiteralFrameDecodes)
{
    const Bytes wire = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x03, 0x00, 0x2A, 0x00, 0x00,
                        0x00, 0x03, 0x00, 0x04, 0x18, 0x02, 0x00, 0x00, 0x00, 0x00, 0x7F};
    FrameDecoder decoder;
    decoder.feed(wire.data(), wire.size());
    std::vector<Decoded> frames;
    EXPECT_EQ(drain(decoder, frames), FrameDecoder::Result::NeedMore);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0], (Decoded{FrameKind::Reply, 42, 0x18040003, {0x00, 0x7F}}));
    EXPECT_EQ(decoder.buffered(), 0u);
}

TEST(FrameDecoding, MissingCountsTowardsTheFrameInProgress)
{
    const Bytes wire = encode(FrameKind::Request, 1, 2, Bytes(10, 0x55));
    FrameDecoder decoder;
    EXPECT_EQ(decoder.missing(), 20u);
    decoder.feed(wire.data(), 7);
    EXPECT_EQ(decoder.missing(), 13u);
    decoder.feed(wire.data() + 7, 16);
    EXPECT_EQ(decoder.missing(), 7u);
    decoder.feed(wire.data() + 23, 7);
    EXPECT_EQ(decoder.missing(), 0u);
}

struct BadHeaderCase {
    const char* name;
    Bytes header;
    const char* reason; // part of the error text
};

class BadHeader : public testing::TestWithParam<BadHeaderCase>
{
};

TEST_P(BadHeader, IsRefusedAsSoonAsTheHeaderIsIn)
{
    const BadHeaderCase& c = GetParam();
    FrameDecoder decoder;
    decoder.feed(c.header.data(), c.header.size());
    FrameDecoder::Frame frame;
    EXPECT_EQ(decoder.next(&frame), FrameDecoder::Result::Error);
    EXPECT_NE(decoder.error().find(c.reason), std::string::npos) << decoder.error();
    EXPECT_EQ(decoder.missing(), 0u) << "no payload may be awaited for a refused header";

    // The stream stays refused whatever follows.
    const Bytes good = encode(FrameKind::Request, 1, 1, {});
    decoder.feed(good.data(), good.size());
    EXPECT_EQ(decoder.next(&frame), FrameDecoder::Result::Error);
}

INSTANTIATE_TEST_SUITE_P(
    FrameDecoding, BadHeader,
    testing::Values(BadHeaderCase{"BadMagic",
                                  {0x5A, 0x4D, 0x55, 0x51, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                                  "magic"},
                    BadHeaderCase{"ByteSwappedMagic",
                                  {0x50, 0x55, 0x4D, 0x5A, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                                  "magic"},
                    BadHeaderCase{"VersionTwo",
                                  {0x5A, 0x4D, 0x55, 0x50, 0x02, 0x00, 0x01, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                                  "version"},
                    BadHeaderCase{"VersionZero",
                                  {0x5A, 0x4D, 0x55, 0x50, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                                  "version"},
                    BadHeaderCase{"KindZero",
                                  {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                                  "kind"},
                    BadHeaderCase{"KindFour",
                                  {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x04, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                                  "kind"},
                    BadHeaderCase{"OneMebibytePlusOne",
                                  {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x10, 0x00},
                                  "1048577"},
                    BadHeaderCase{"HugeLength",
                                  {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x03, 0x00, 0x01, 0x00,
                                   0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF},
                                  "4294967295"}),
    [](const testing::TestParamInfo<BadHeaderCase>& testCase) { return testCase.param.name; });

TEST(FrameDecoding, ExactlyOneMebibyteIsAccepted)
{
    const Bytes header = {0x5A, 0x4D, 0x55, 0x50, 0x01, 0x00, 0x01, 0x00, 0x07, 0x00,
                          0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00};
    Bytes payload(1048576);
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<unsigned char>(i * 7);

    FrameDecoder decoder;
    decoder.feed(header.data(), header.size());
    FrameDecoder::Frame frame;
    EXPECT_EQ(decoder.next(&frame), FrameDecoder::Result::NeedMore);
    EXPECT_EQ(decoder.missing(), 1048576u);

    decoder.feed(payload.data(), payload.size());
    ASSERT_EQ(decoder.next(&frame), FrameDecoder::Result::Frame);
    EXPECT_EQ(frame.header.payloadSize, 1048576u);
    EXPECT_EQ(frame.header.sequence, 7u);
    EXPECT_EQ(frame.header.command, 8u);
    EXPECT_EQ(memcmp(frame.payload, payload.data(), payload.size()), 0);
}

// A stream of frames of assorted sizes, some larger than one read.
Bytes sampleStream(std::vector<Decoded>* expected)
{
    const std::vector<size_t> sizes = {0, 1, 4, 19, 20, 21, 300, 16384, 70000, 3, 0};
    Bytes stream;
    uint32_t sequence = 100;
    for (size_t size : sizes) {
        Bytes payload(size);
        for (size_t i = 0; i < size; ++i)
            payload[i] = static_cast<unsigned char>(sequence + i);
        const FrameKind kind = sequence % 3 == 0 ? FrameKind::Reply : FrameKind::Request;
        const Bytes frame = encode(kind, sequence, sequence * 3, payload);
        stream.insert(stream.end(), frame.begin(), frame.end());
        expected->push_back({kind, sequence, sequence * 3, payload});
        ++sequence;
    }
    return stream;
}

class ChunkedStream : public testing::TestWithParam<std::vector<size_t>>
{
};

// The chunk sizes are used in turn, over and over, until the stream is fed.
TEST_P(ChunkedStream, DecodesTheSameWhereverItIsCut)
{
    std::vector<Decoded> expected;
    const Bytes stream = sampleStream(&expected);
    const std::vector<size_t>& chunks = GetParam();

    FrameDecoder fed;
    FrameDecoder received; // filled in place, as the socket readers do
    std::vector<Decoded> viaFeed;
    std::vector<Decoded> viaPrepare;
    size_t offset = 0;
    for (size_t turn = 0; offset < stream.size(); ++turn) {
        const size_t count = std::min(chunks[turn % chunks.size()], stream.size() - offset);
        fed.feed(stream.data() + offset, count);
        ASSERT_EQ(drain(fed, viaFeed), FrameDecoder::Result::NeedMore);

        for (size_t stored = 0; stored < count;) {
            size_t room = 0;
            unsigned char* space = received.prepare(received.missing(), &room);
            ASSERT_GE(room, std::max<size_t>(received.missing(), 1));
            const size_t part = std::min(count - stored, room);
            memcpy(space, stream.data() + offset + stored, part);
            received.commit(part);
            stored += part;
            ASSERT_EQ(drain(received, viaPrepare), FrameDecoder::Result::NeedMore);
        }
        offset += count;
    }
    EXPECT_EQ(viaFeed, expected);
    EXPECT_EQ(viaPrepare, expected);
    EXPECT_EQ(fed.buffered(), 0u);
}

INSTANTIATE_TEST_SUITE_P(FrameDecoding, ChunkedStream,
                         testing::Values(std::vector<size_t>{1}, std::vector<size_t>{2},
                                         std::vector<size_t>{3}, std::vector<size_t>{19},
                                         std::vector<size_t>{20}, std::vector<size_t>{21},
                                         std::vector<size_t>{4096}, std::vector<size_t>{65537},
                                         std::vector<size_t>{1 << 20},
                                         std::vector<size_t>{1, 19, 2, 7, 300, 5, 16384, 11},
                                         std::vector<size_t>{23, 1, 1, 40000, 17}));

} // namespace
