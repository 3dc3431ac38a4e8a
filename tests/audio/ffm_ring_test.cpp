// SPDX-License-Identifier: MIT
// Ring arithmetic of the far-field pipeline: where periods land, how the
// byte counter follows the sample index, and which ring bytes make up a
// keyword block or a catch-up.
#include "audio/ffm_ring.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace zor::audio::ffm;

namespace
{

struct Rig {
    _ST_FFM_CAPTURE_BUF_CFG cap;
    _ST_FFM_RING_BUF_CFG ring;

    explicit Rig(unsigned frames)
    {
        cap.frames = frames;
        cap.u32StereoBufSize = frames * 4;
        cap.u32MonoBufSize = frames * 2;
        cap.pStereoBuf = allocateBuffer(cap.u32StereoBufSize);
        cap.pMonoBuf = allocateBuffer(cap.u32MonoBufSize);
        ring.u32BufSize = 480000;
        ring.u32SampleCount = 240000;
        ring.pu8RingBuf = allocateBuffer(480000);
        memset(ring.pu8RingBuf.get(), 0xEE, 480000);
    }
    // A period whose every mono byte is `value`.
    void write(uint8_t value)
    {
        memset(cap.pMonoBuf.get(), value, cap.u32MonoBufSize);
        kel_avs_ffm_dataWriteInRingBuf(cap, ring);
    }
    uint8_t at(size_t byte) const { return ring.pu8RingBuf[byte]; }
};

TEST(FfmRingTest, DownMixKeepsTheFirstChannelOnly)
{
    Rig rig(2);
    const uint8_t stereo[] = {0x11, 0x22, 0xAA, 0xBB, 0x33, 0x44, 0xCC, 0xDD};
    memcpy(rig.cap.pStereoBuf.get(), stereo, sizeof(stereo));
    kel_avs_ffm_dataDownMixto1ch(rig.cap);
    EXPECT_EQ(rig.cap.pMonoBuf[0], 0x11);
    EXPECT_EQ(rig.cap.pMonoBuf[1], 0x22);
    EXPECT_EQ(rig.cap.pMonoBuf[2], 0x33);
    EXPECT_EQ(rig.cap.pMonoBuf[3], 0x44);
}

TEST(FfmRingTest, SevenHundredFiftyPeriodsOf320FillTheRingExactly)
{
    Rig rig(320);
    for (int k = 0; k < 749; ++k)
        rig.write(1);
    EXPECT_EQ(rig.ring.u32CurrentIndex, 239680u);
    rig.write(2);
    EXPECT_EQ(rig.ring.u32CurrentIndex, 0u);
    EXPECT_EQ(rig.ring.u64CurrentIndex, 240000u);
    EXPECT_EQ(rig.ring.u32WriteBytes, 480000u);
    EXPECT_EQ(rig.at(479359), 1);
    EXPECT_EQ(rig.at(479360), 2);
    EXPECT_EQ(rig.at(479999), 2);
    rig.write(3); // the oldest period goes first
    EXPECT_EQ(rig.at(0), 3);
    EXPECT_EQ(rig.at(639), 3);
    EXPECT_EQ(rig.at(640), 1);
}

TEST(FfmRingTest, PeriodOf441FramesStraddlesTheRingEnd)
{
    Rig rig(441);
    for (int k = 0; k < 544; ++k)
        rig.write(1);
    EXPECT_EQ(rig.ring.u32WriteBytes, 479808u);
    EXPECT_EQ(rig.ring.u32CurrentIndex, 239904u);
    rig.write(7);
    EXPECT_EQ(rig.ring.u32CurrentIndex, 345u);
    // 192 bytes at the end, 690 at the start.
    EXPECT_EQ(rig.at(479807), 1);
    EXPECT_EQ(rig.at(479808), 7);
    EXPECT_EQ(rig.at(479999), 7);
    EXPECT_EQ(rig.at(0), 7);
    EXPECT_EQ(rig.at(689), 7);
    EXPECT_EQ(rig.at(690), 1); // the first period, not yet overwritten
}

TEST(FfmRingTest, ByteCounterStaysInStepWithTheIndexPast4GiB)
{
    for (unsigned frames : {320u, 441u}) {
        SCOPED_TRACE(frames);
        Rig rig(frames);
        // A counter a few periods short of 2^32, with the index it implies.
        const uint64_t start = (uint64_t{1} << 32) - 3 * 2 * frames;
        rig.ring.u32WriteBytes = static_cast<uint32_t>(start);
        rig.ring.u32CurrentIndex = static_cast<uint32_t>((start % 480000) / 2);
        for (int k = 0; k < 10; ++k) {
            rig.write(static_cast<uint8_t>(k));
            EXPECT_EQ(rig.ring.u32WriteBytes % 480000, 2 * rig.ring.u32CurrentIndex);
        }
        // The last period lies just before the write position.
        const uint32_t end = 2 * rig.ring.u32CurrentIndex;
        EXPECT_EQ(rig.at((end + 480000 - 1) % 480000), 9);
        EXPECT_EQ(rig.at((end + 480000 - 2 * frames) % 480000), 9);
        EXPECT_EQ(rig.at((end + 480000 - 2 * frames - 1) % 480000), 8);
    }
}

TEST(FfmRingTest, ReadIndexIsBigEndian)
{
    const uint8_t payload[25] = {0,    0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x86, 0xA0,
                                 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    EXPECT_EQ(kel_avs_ffm_readIndex(payload, 1), 100000u);
    EXPECT_EQ(kel_avs_ffm_readIndex(payload, 9), 0x0102030405060708u);
}

TEST(FfmRingTest, KeywordBlockCopyCases)
{
    struct Piece {
        uint32_t from;
        uint32_t bytes;
    };
    struct Case {
        const char* what;
        uint64_t c, b, e;
        uint32_t i;
        int64_t s;
        uint64_t x;
        uint32_t k;
        uint64_t t;
        std::vector<Piece> pieces;
    };
    const Case cases[] = {
        {"one piece", 100000, 90000, 98000, 50000, 40000, 48000, 8000, 36000, {{32000, 36000}}},
        {"pre-roll over the wrap",
         100000,
         98000,
         99000,
         5000,
         3000,
         4000,
         1000,
         20000,
         {{235000, 10000}, {0, 10000}}},
        {"keyword over the wrap",
         100000,
         97000,
         99000,
         1000,
         238000,
         0,
         2000,
         22000,
         {{230000, 20000}, {0, 2000}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const KeywordPlan plan = planKeyword(c.c, c.b, c.e, c.i, 240000, 8000);
        ASSERT_TRUE(plan.valid);
        EXPECT_EQ(plan.beginServer, c.s);
        EXPECT_EQ(plan.endServer, c.x);
        EXPECT_EQ(plan.keywordSamples, c.k);
        EXPECT_EQ(plan.totalBytes, c.t);
        ASSERT_EQ(plan.copy.count, c.pieces.size());
        for (size_t p = 0; p < c.pieces.size(); ++p) {
            EXPECT_EQ(plan.copy.pieces[p].fromSample, c.pieces[p].from);
            EXPECT_EQ(plan.copy.pieces[p].bytes, c.pieces[p].bytes);
        }
        EXPECT_EQ(plan.copy.totalBytes(), c.t);
    }
}

TEST(FfmRingTest, KeywordBlockCopiesTheRightRingBytes)
{
    // Every ring sample holds its own index (mod 2^16): the block must be
    // the samples from 230,000 to the end, then 0 to 999.
    Rig rig(320);
    for (uint32_t s = 0; s < 240000; ++s) {
        rig.ring.pu8RingBuf[2 * s] = static_cast<uint8_t>(s & 0xff);
        rig.ring.pu8RingBuf[2 * s + 1] = static_cast<uint8_t>((s >> 8) & 0xff);
    }
    const KeywordPlan plan = planKeyword(100000, 97000, 99000, 1000, 240000, 8000);
    std::vector<uint8_t> block(480000, 0);
    ASSERT_EQ(copyPieces(plan.copy, rig.ring.pu8RingBuf.get(), block.data()), 22000u);
    for (uint32_t k = 0; k < 11000; ++k) {
        const uint32_t sample = (230000 + k) % 240000;
        ASSERT_EQ(block[2 * k] | (block[2 * k + 1] << 8), sample & 0xffff) << k;
    }
}

TEST(FfmRingTest, IndexesOutsideTheRingAreRefused)
{
    struct Case {
        const char* what;
        uint64_t c, b, e;
        uint32_t i;
        const char* refusal;
    };
    const Case cases[] = {
        {"begin after current", 1000, 2000, 3000, 500, "begin after the current index"},
        {"end before begin", 100000, 90000, 80000, 500, "end before begin"},
        {"older than the ring can hold", 300000, 67999, 70000, 500, "begin no longer in the ring"},
        {"write index outside the ring", 100000, 90000, 98000, 240000,
         "write index outside the ring"},
        {"huge device indexes", std::numeric_limits<uint64_t>::max(), 0, 10, 500,
         "begin no longer in the ring"},
        {"keyword of 2^31 samples", 1000, 500, 500 + (uint64_t{1} << 31), 500, "keyword too long"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const KeywordPlan plan = planKeyword(c.c, c.b, c.e, c.i, 240000, 8000);
        EXPECT_FALSE(plan.valid);
        ASSERT_NE(plan.refusal, nullptr);
        EXPECT_STREQ(plan.refusal, c.refusal);
    }
    // The largest block that still fits: 14.5 s before the query.
    EXPECT_TRUE(planKeyword(300000, 68000, 70000, 500, 240000, 8000).valid);
}

TEST(FfmRingTest, CatchUpSpans)
{
    struct Case {
        const char* what;
        uint32_t w, r;
        uint64_t pending;
        unsigned count;
        uint32_t bytes0, from1, bytes1;
    };
    const Case cases[] = {
        {"ahead", 5000, 1000, 4000, 1, 8000, 0, 0},
        {"wrapped", 1000, 239000, 2000, 2, 2000, 0, 2000},
        {"nothing new", 700, 700, 0, 0, 0, 0, 0},
        {"a whole ring behind", 700, 700, 240000, 2, 2 * 239300, 0, 1400},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const CopyPlan plan = planCatchUp(c.w, c.r, c.pending, 240000);
        ASSERT_EQ(plan.count, c.count);
        if (c.count > 0) {
            EXPECT_EQ(plan.pieces[0].fromSample, c.r);
            EXPECT_EQ(plan.pieces[0].bytes, c.bytes0);
        }
        if (c.count > 1) {
            EXPECT_EQ(plan.pieces[1].fromSample, c.from1);
            EXPECT_EQ(plan.pieces[1].bytes, c.bytes1);
        }
    }
    EXPECT_EQ(planCatchUp(700, 700, 240000, 240000).totalBytes(), 480000u);
}

} // namespace
