// SPDX-License-Identifier: MIT
#include "audio/ffm_ring.h"

#include <cstring>
#include <limits>

namespace zor::audio::ffm
{

void _ST_FFM_CAPTURE_BUF_CFG::reset()
{
    s32Ret = 0;
    u32StereoBufSize = 0;
    u32MonoBufSize = 0;
    handle.reset();
    u32PeriodTime = 0;
    s32Dir = 0;
    frames = 0;
    u32BufferFrames = 0;
    pStereoBuf.reset();
    pMonoBuf.reset();
    s32PcmFd = -1;
    s32WWFd = -1;
    s32LogFd = -1;
    szPcmFile[0] = '\0';
    szWWFile[0] = '\0';
    szLogFile[0] = '\0';
    readFailures = FailureRun();
}

void _ST_FFM_RING_BUF_CFG::reset()
{
    bInitFlag = 0;
    u32BufSize = 0;
    u32WriteBytes = 0;
    u32ReadSize = 0;
    u32CurrentIndex = 0;
    u32ReadIndex = 0;
    u32SampleCount = 0;
    u64CurrentIndex = 0;
    pu8RingBuf.reset();
    pu8CopyBuf.reset();
    u32MetadataLen = 0;
    pu8Metadata.reset();
    bKWflag.store(0, std::memory_order_relaxed);
    u64CurDeviceIndex = 0;
    u64BgKWDeviceIndex = 0;
    u64EndKWDeviceIndex = 0;
    u32CurIdx = 0;
    s64BgKWServerIndex = 0;
    u64EndKWServerIndex = 0;
    u64TotalCopySize = 0;
    u64ReadIndex = 0;
}

void kel_avs_ffm_dataDownMixto1ch(_ST_FFM_CAPTURE_BUF_CFG& cap)
{
    const uint8_t* in = cap.pStereoBuf.get();
    uint8_t* out = cap.pMonoBuf.get();
    if (in == nullptr || out == nullptr)
        return;
    for (snd_pcm_uframes_t frame = 0; frame < cap.frames; ++frame) {
        out[2 * frame] = in[4 * frame];
        out[2 * frame + 1] = in[4 * frame + 1];
    }
}

void kel_avs_ffm_dataWriteInRingBuf(const _ST_FFM_CAPTURE_BUF_CFG& cap, _ST_FFM_RING_BUF_CFG& ring)
{
    const uint32_t length = static_cast<uint32_t>(2 * cap.frames);
    if (length == 0 || cap.u32MonoBufSize == 0 || !ring.pu8RingBuf || ring.u32BufSize == 0)
        return;

    const uint8_t* mono = cap.pMonoBuf.get();
    uint8_t* base = ring.pu8RingBuf.get();
    const uint32_t position = ring.u32WriteBytes % ring.u32BufSize;
    if (position + length <= ring.u32BufSize) {
        memcpy(base + position, mono, length);
    } else {
        const uint32_t head = ring.u32BufSize - position;
        memcpy(base + position, mono, head);
        memcpy(base, mono + head, length - head);
    }

    ring.u32CurrentIndex =
        static_cast<uint32_t>((ring.u32CurrentIndex + cap.frames) % ring.u32SampleCount);
    ring.u64CurrentIndex += cap.frames;
    // 2^32 is no multiple of the ring: fold back by whole rings before the
    // counter would wrap, so the write position keeps following the index.
    if (ring.u32WriteBytes > std::numeric_limits<uint32_t>::max() - length)
        ring.u32WriteBytes %= ring.u32BufSize;
    ring.u32WriteBytes += length;
}

uint64_t kel_avs_ffm_readIndex(const uint8_t* payload, unsigned offset)
{
    uint64_t value = 0;
    for (unsigned i = 0; i < 8; ++i)
        value = (value << 8) | payload[offset + i];
    return value;
}

CopyPlan planCatchUp(uint32_t w, uint32_t r, uint64_t pendingSamples, uint32_t sampleCount)
{
    CopyPlan plan;
    if (w == r && pendingSamples == 0)
        return plan;
    if (w > r) {
        plan.pieces[0] = {r, 2 * (w - r)};
        plan.count = 1;
        return plan;
    }
    plan.pieces[0] = {r, 2 * (sampleCount - r)};
    plan.pieces[1] = {0, 2 * w};
    plan.count = w > 0 ? 2 : 1;
    return plan;
}

KeywordPlan planKeyword(uint64_t c, uint64_t b, uint64_t e, uint32_t i, uint32_t sampleCount,
                        uint32_t preroll)
{
    KeywordPlan plan;
    if (b > c)
        plan.refusal = "begin after the current index";
    else if (e < b)
        plan.refusal = "end before begin";
    else if (e - b > std::numeric_limits<int32_t>::max())
        plan.refusal = "keyword too long";
    else if (i >= sampleCount)
        plan.refusal = "write index outside the ring";
    else if (c - b > sampleCount || c - b + preroll > sampleCount)
        plan.refusal = "begin no longer in the ring";
    if (plan.refusal != nullptr)
        return plan;

    const int64_t n = sampleCount;
    const int64_t p = preroll;
    const int64_t length = static_cast<int64_t>(e - b);
    int64_t s = static_cast<int64_t>(i) - static_cast<int64_t>(c - b);
    CopyPlan& copy = plan.copy;
    if (s < 0) {
        // The keyword began before the ring's last wrap.
        s += n;
        copy.pieces[0] = {static_cast<uint32_t>(s - p), static_cast<uint32_t>(2 * (n - (s - p)))};
        copy.pieces[1] = {0, 2 * i};
        copy.count = 2;
    } else if (s >= p) {
        copy.pieces[0] = {static_cast<uint32_t>(s - p), static_cast<uint32_t>(2 * (i - s + p))};
        copy.count = 1;
    } else {
        // Only the pre-roll reaches back over the wrap point.
        copy.pieces[0] = {static_cast<uint32_t>(n - (p - s)), static_cast<uint32_t>(2 * (p - s))};
        copy.pieces[1] = {0, 2 * i};
        copy.count = 2;
    }
    if (copy.count == 2 && copy.pieces[1].bytes == 0)
        copy.count = 1;

    int64_t x = s + length;
    if (x >= n)
        x = length - (n - s);
    plan.valid = true;
    plan.beginServer = s;
    plan.endServer = static_cast<uint64_t>(x);
    plan.keywordSamples = static_cast<uint32_t>(e) - static_cast<uint32_t>(b);
    plan.totalBytes = 2 * (c - b + preroll);
    return plan;
}

uint32_t copyPieces(const CopyPlan& plan, const uint8_t* ring, uint8_t* dest)
{
    uint32_t done = 0;
    for (unsigned k = 0; k < plan.count; ++k) {
        memcpy(dest + done, ring + 2 * static_cast<size_t>(plan.pieces[k].fromSample),
               plan.pieces[k].bytes);
        done += plan.pieces[k].bytes;
    }
    return done;
}

} // namespace zor::audio::ffm
