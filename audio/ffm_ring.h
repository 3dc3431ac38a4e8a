// SPDX-License-Identifier: MIT
// Ring arithmetic of the far-field pipeline: down-mix, ring write, the
// catch-up span and the keyword block's place in the ring. No locks, no
// threads, no devices: the capture and detection threads call these under
// their own locking.
#ifndef ZOR_AUDIO_FFM_RING_H
#define ZOR_AUDIO_FFM_RING_H

#include "audio/ffm_records.h"

#include <cstdint>

namespace zor::audio::ffm
{

// First channel of each 4-byte stereo frame into the mono buffer; the second
// channel is dropped, not averaged.
void kel_avs_ffm_dataDownMixto1ch(_ST_FFM_CAPTURE_BUF_CFG& cap);

// Appends the mono period to the ring, splitting it at the ring's end. The
// byte counter is folded back by whole rings before it would pass 2^32, so
// its position in the ring always equals twice the sample index.
void kel_avs_ffm_dataWriteInRingBuf(const _ST_FFM_CAPTURE_BUF_CFG& cap, _ST_FFM_RING_BUF_CFG& ring);

// The 8 bytes at `offset` as a big-endian unsigned integer.
uint64_t kel_avs_ffm_readIndex(const uint8_t* payload, unsigned offset);

// One contiguous run of ring samples.
struct RingPiece {
    uint32_t fromSample = 0;
    uint32_t bytes = 0;
};

struct CopyPlan {
    RingPiece pieces[2];
    unsigned count = 0;
    uint32_t totalBytes() const { return pieces[0].bytes + pieces[1].bytes; }
};

// Span from the reader's index `r` to the write index `w`. Equal indexes mean
// nothing new when `pendingSamples` is 0 and a whole ring otherwise.
CopyPlan planCatchUp(uint32_t w, uint32_t r, uint64_t pendingSamples, uint32_t sampleCount);

// Where a keyword reported by the device lies in the ring.
struct KeywordPlan {
    bool valid = false;
    // Why the indexes were refused when not valid, for the log line.
    const char* refusal = nullptr;
    int64_t beginServer = 0; // S: keyword begin as a ring index
    uint64_t endServer = 0;  // X: keyword end as a ring index
    uint32_t keywordSamples = 0;
    uint64_t totalBytes = 0; // T
    CopyPlan copy;
};

// Maps device indexes `c` (current), `b` (begin), `e` (end) onto the ring
// whose write index was `i` when the device answered; `preroll` samples are
// kept before the begin. Invalid (nothing may be copied) when b > c, e < b,
// i >= sampleCount or the block would not fit in one ring
// (c - b + preroll > sampleCount: the begin has been overwritten).
KeywordPlan planKeyword(uint64_t c, uint64_t b, uint64_t e, uint32_t i, uint32_t sampleCount,
                        uint32_t preroll);

// Copies the plan's pieces from `ring` to `dest` back to back; returns the
// bytes copied.
uint32_t copyPieces(const CopyPlan& plan, const uint8_t* ring, uint8_t* dest);

} // namespace zor::audio::ffm

#endif
