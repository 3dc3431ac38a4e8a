// SPDX-License-Identifier: MIT
// The far-field pipeline's two records: the capture record of the
// "ffm_avs_cap" thread and the 15-second ring of mono samples that the
// detection thread cuts keyword blocks from.
#ifndef ZOR_AUDIO_FFM_RECORDS_H
#define ZOR_AUDIO_FFM_RECORDS_H

#include "audio/alsa_pcm.h"
#include "audio/pcm_failures.h"

#include <alsa/asoundlib.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace zor::audio::ffm
{

constexpr unsigned HID_COMPATIBLE_SAMPLE_RATE = 16000;
constexpr unsigned HID_COMPATIBLE_SAMPLE_SIZE_IN_BITS = 16;
constexpr unsigned HID_COMPATIBLE_NUM_CHANNELS = 1;
constexpr unsigned kCaptureChannels = 2;
constexpr snd_pcm_uframes_t kPeriodFrames = 320; // 20 ms
constexpr unsigned kPeriodsPerBuffer = 8;
constexpr uint32_t kRingBytes = 480000; // 15 s of mono audio
constexpr uint32_t kRingSamples = kRingBytes / 2;
constexpr uint32_t kCopyBufBytes = 480000;
constexpr uint32_t METADATA_BLOB_LEN = 500;
constexpr uint32_t FFM_PREROLL_SAMPLES = 8000; // 500 ms before the keyword

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
// Heap buffers of the capture path; allocated once per start, freed at stop.
using Buffer = std::unique_ptr<uint8_t[], FreeDeleter>;

inline Buffer allocateBuffer(size_t bytes)
{
    return Buffer(static_cast<uint8_t*>(std::malloc(bytes)));
}

struct _ST_FFM_CAPTURE_BUF_CFG {
    int32_t s32Ret = 0;
    uint32_t u32StereoBufSize = 0;
    uint32_t u32MonoBufSize = 0;
    PcmHandle handle;
    uint32_t u32PeriodTime = 0;
    int32_t s32Dir = 0;
    snd_pcm_uframes_t frames = 0;
    uint32_t u32BufferFrames = 0;
    Buffer pStereoBuf;
    Buffer pMonoBuf;
    int32_t s32PcmFd = -1;
    int32_t s32WWFd = -1;
    int32_t s32LogFd = -1;
    char szPcmFile[256] = {};
    char szWWFile[256] = {};
    char szLogFile[256] = {};
    // Failed reads in a row: their pace and their lines.
    FailureRun readFailures;

    // Back to the state of a record that never ran (descriptors are not
    // closed here: the stop step owns them).
    void reset();
};

struct _ST_FFM_RING_BUF_CFG {
    uint8_t bInitFlag = 0;
    uint32_t u32BufSize = 0;
    uint32_t u32WriteBytes = 0;
    uint32_t u32ReadSize = 0;
    uint32_t u32CurrentIndex = 0;
    uint32_t u32ReadIndex = 0;
    uint32_t u32SampleCount = 0;
    uint64_t u64CurrentIndex = 0;
    Buffer pu8RingBuf;
    Buffer pu8CopyBuf;
    uint32_t u32MetadataLen = 0;
    Buffer pu8Metadata;
    // Raised (release) by the detection thread once the block, its indexes
    // and the metadata are in place; taken (acquire) by the capture thread.
    std::atomic<uint8_t> bKWflag{0};
    uint64_t u64CurDeviceIndex = 0;
    uint64_t u64BgKWDeviceIndex = 0;
    uint64_t u64EndKWDeviceIndex = 0;
    uint32_t u32CurIdx = 0;
    int64_t s64BgKWServerIndex = 0;
    uint64_t u64EndKWServerIndex = 0;
    uint64_t u64TotalCopySize = 0;
    // Running sample count at which the reader continues: tells "nothing new"
    // from "a whole ring behind" when the two ring indexes are equal.
    uint64_t u64ReadIndex = 0;

    void reset();
};

} // namespace zor::audio::ffm

#endif
