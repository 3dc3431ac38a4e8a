// SPDX-License-Identifier: MIT
// Wake-word detection: the "ffm_hid_det" thread watches the far-field
// board's key events; on KEY_F23 it asks the board where the keyword lies,
// cuts it with half a second of pre-roll out of the ring and tells the
// application.
#include "audio/ffm_detection.h"

#include "audio/ffm_pipeline.h"
#include "audio/ffm_ring.h"
#include "audio/softmic_output.h"
#include "audio/xmos_device.h"
#include "base/log.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libevdev/libevdev.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace zor::audio::ffm
{

std::atomic<ZOR_PFN_WAKEWORD> g_fptrSendWakeWordDetectionSignalallback{nullptr};
std::atomic<ZOR_PFN_VOID> gfptrNotifyUIWakeWordDectcallback{nullptr};
std::mutex mutex_detection_exit;
ThreadState detection_exit = ThreadState::None;

namespace
{

constexpr uint8_t kRequestTypeVendorIn = 0xC0; // device to host, vendor, device
constexpr unsigned USB_TIMEOUT_MS = 500;
constexpr uint16_t CONTROL_RESOURCE_ID = 0xE0;
constexpr uint16_t CONTROL_CMD_ID_GET_WWE_INDEXES = 0xAF;
constexpr uint16_t CONTROL_CMD_PAYLOAD_LEN = 25;
constexpr const char* HID_KEY_CODE = "KEY_F23";
// The keyword that the wake-word callback receives, for the life of the
// process (its metadata is the pipeline's wakeWordMetadata).
char KEYWORD_STRING[] = "alexa";
constexpr unsigned kPollIntervalMs = 20;
// A board that keeps answering "not ready" gets this many queries, a short
// pause apart, before the detection is given up.
constexpr int kIndexQueryAttempts = 50;
constexpr unsigned kIndexQueryPauseUs = 2000;

ThreadState readDetectionState()
{
    std::lock_guard<std::mutex> lock(mutex_detection_exit);
    return detection_exit;
}

bool isKeywordPress(const XmosKeyEvent& event)
{
    const char* type = libevdev_event_type_get_name(event.type);
    const char* code = libevdev_event_code_get_name(event.type, event.code);
    return type != nullptr && code != nullptr && strcmp(type, "EV_KEY") == 0 &&
           strcmp(code, HID_KEY_CODE) == 0 && event.value == 1;
}

} // namespace

int kel_avs_ffm_hid_init()
{
    const Params settings = params();
    std::unique_ptr<XmosDevice>& device = pipeline().device;
    device = openXmosDevice({settings.hidOpenAttempts, settings.hidOpenDelayMs});
    return device ? 1 : 0;
}

int kel_avs_ffm_hid_deinit()
{
    std::unique_ptr<XmosDevice>& device = pipeline().device;
    ZOR_FFM_LOG("%p, %d\n\n", device ? device->controlHandle() : nullptr,
                device ? device->descriptor() : -1);
    device.reset();
    return 1;
}

int kel_avs_ffm_getMetadataBlob(const char* script, const char* file, uint32_t* length,
                                uint8_t* blob)
{
    if (script != nullptr && script[0] != '\0') {
        char command[600];
        snprintf(command, sizeof(command), "%s %s", "sh ", script);
        // The script's result is not looked at: the file says what it made.
        if (system(command) == -1)
            ZOR_FFM_LOG("[ERR]run %s fail\n\n", command);
    }
    FILE* in = fopen(file, "r");
    if (in == nullptr) {
        ZOR_FFM_LOG("[ERR]open fail\n\n");
        return 0;
    }
    int count = 0;
    if (fscanf(in, "%d%*c\n", &count) != 1 || count < 0)
        count = 0;
    if (count > static_cast<int>(METADATA_BLOB_LEN))
        count = static_cast<int>(METADATA_BLOB_LEN);
    // A short list repeats the last number read (all 0xFF when none was).
    int value = -1;
    for (int k = 0; k < count; ++k) {
        if (fscanf(in, "%d", &value) != 1) {
            // Keep the last value for the rest of the blob.
        }
        blob[k] = static_cast<uint8_t>(value & 0xff);
    }
    fclose(in);
    *length = static_cast<uint32_t>(count);
    return 1;
}

namespace
{

// The poll's steps print under the poll's name, as its own lines.
constexpr const char* kPollName = "kel_avs_ffm_hid_detectionLoop";
#define ZOR_FFM_POLL_LOG(...)                                                                      \
    ::zor::log::line(::zor::log::Family::FarField, kPollName, __LINE__, __VA_ARGS__)

// One detection as it goes from the device's answer to the application.
struct Detection {
    uint64_t c = 0; // the device's current index
    uint64_t b = 0; // keyword begin
    uint64_t e = 0; // keyword end
    uint32_t i = 0; // the ring's write index at the query
    uint64_t writtenAtQuery = 0;
    uint64_t writtenNow = 0;
    KeywordPlan plan;
    uint8_t metadata[METADATA_BLOB_LEN] = {};
    uint32_t metadataLen = 0;
};

bool ringInitialised(const _ST_FFM_RING_BUF_CFG& ring)
{
    std::lock_guard<std::mutex> lock(pipeline().ringMutex);
    if (ring.bInitFlag == 0) {
        ZOR_FFM_POLL_LOG("data or RingBufcfg is null or not init(%d)\n\n", ring.bInitFlag);
        return false;
    }
    return true;
}

// True for a key-down of the wake key. A board that is gone ends both
// threads, as a capture read that reports the device missing does.
bool nextKeywordPress()
{
    XmosDevice* device = pipeline().device.get();
    if (device == nullptr)
        return false;
    XmosKeyEvent event;
    const int got = device->nextEvent(event);
    if (got == -ENODEV) {
        ZOR_FFM_POLL_LOG("HID device lost: %s\n\n", strerror(ENODEV));
        kel_avs_ffm_stop_thread_on_device_loss();
        return false;
    }
    return got == 1 && isKeywordPress(event);
}

// Asks the board for the keyword's indexes until it says they are valid, a
// bounded number of times, a short pause apart; a stop request ends it too.
bool queryIndexes(uint8_t (&payload)[CONTROL_CMD_PAYLOAD_LEN])
{
    XmosDevice& device = *pipeline().device;
    int transferred = 0;
    int attempt = 0;
    for (;;) {
        transferred = device.controlTransfer(kRequestTypeVendorIn, 0,
                                             CONTROL_CMD_ID_GET_WWE_INDEXES, CONTROL_RESOURCE_ID,
                                             payload, CONTROL_CMD_PAYLOAD_LEN, USB_TIMEOUT_MS);
        if (transferred == kXmosErrorNoDevice) {
            // Unplugged under the query: no indexes will come, nor audio.
            ZOR_FFM_POLL_LOG("HID device lost during the index query: %s, detection dropped\n\n",
                             strerror(ENODEV));
            kel_avs_ffm_stop_thread_on_device_loss();
            return false;
        }
        if (payload[0] == 0)
            break;
        if (++attempt >= kIndexQueryAttempts) {
            ZOR_FFM_POLL_LOG("device indexes not ready after %d queries, detection dropped\n\n",
                             attempt);
            return false;
        }
        if (readDetectionState() != ThreadState::Running)
            return false;
        usleep(kIndexQueryPauseUs);
    }
    if (transferred != CONTROL_CMD_PAYLOAD_LEN)
        ZOR_FFM_POLL_LOG("get paload error\n\n");
    return true;
}

// Places the keyword in the ring as it stands now; false (with its line)
// for indexes that cannot be.
bool planDetection(const uint8_t* payload, const _ST_FFM_RING_BUF_CFG& ring, Detection& d)
{
    d.c = kel_avs_ffm_readIndex(payload, 1);
    d.b = kel_avs_ffm_readIndex(payload, 9);
    d.e = kel_avs_ffm_readIndex(payload, 17);
    uint32_t n = 0;
    {
        std::lock_guard<std::mutex> lock(pipeline().ringMutex);
        d.i = ring.u32CurrentIndex;
        n = ring.u32SampleCount;
        d.writtenAtQuery = ring.u64CurrentIndex;
    }
    d.plan = planKeyword(d.c, d.b, d.e, d.i, n, FFM_PREROLL_SAMPLES);
    if (!d.plan.valid) {
        ZOR_FFM_POLL_LOG("keyword indexes refused (%s): cuDeIndex %llu, bgKWDeviceIndex %llu, "
                         "endKWDeviceIndex %llu, detection dropped\n\n",
                         d.plan.refusal, static_cast<unsigned long long>(d.c),
                         static_cast<unsigned long long>(d.b),
                         static_cast<unsigned long long>(d.e));
    }
    return d.plan.valid;
}

void dumpBlock(const _ST_FFM_CAPTURE_BUF_CFG& cap, const uint8_t* block, uint64_t bytes)
{
    std::lock_guard<std::mutex> dumpLock(pipeline().dumpMutex);
    if (cap.s32WWFd < 0)
        return;
    const ssize_t written = write(cap.s32WWFd, block, static_cast<size_t>(bytes));
    if (written < static_cast<ssize_t>(bytes))
        ZOR_FFM_POLL_LOG("alsa short write: wrote %d bytes\n\n", static_cast<int>(written));
}

// Cuts the block, publishes it with its indexes and the metadata, and raises
// bKWflag last. False when capture stopped meanwhile or the block has been
// overwritten since the query.
bool publishBlock(const _ST_FFM_CAPTURE_BUF_CFG& cap, _ST_FFM_RING_BUF_CFG& ring, Detection& d)
{
    std::lock_guard<std::mutex> lock(pipeline().ringMutex);
    if (ring.bInitFlag == 0) {
        ZOR_FFM_POLL_LOG("[ERR] Ring Buffer don't init done!!!!( Don't  send "
                         "g_fptrSendWakeWordDetectionSignalallback )\n");
        return false;
    }
    d.writtenNow = ring.u64CurrentIndex;
    if (d.plan.totalBytes / 2 + (d.writtenNow - d.writtenAtQuery) > ring.u32SampleCount) {
        ZOR_FFM_POLL_LOG("keyword block overwritten before it was copied, dropped\n\n");
        return false;
    }
    memset(ring.pu8CopyBuf.get(), 0, ring.u32BufSize);
    copyPieces(d.plan.copy, ring.pu8RingBuf.get(), ring.pu8CopyBuf.get());
    memcpy(ring.pu8Metadata.get(), d.metadata, d.metadataLen);
    ring.u32MetadataLen = d.metadataLen;
    ring.u64CurDeviceIndex = d.c;
    ring.u64BgKWDeviceIndex = d.b;
    ring.u64EndKWDeviceIndex = d.e;
    ring.u32CurIdx = d.i;
    ring.s64BgKWServerIndex = d.plan.beginServer;
    ring.u64EndKWServerIndex = d.plan.endServer;
    ring.u64TotalCopySize = d.plan.totalBytes;
    ring.bKWflag.store(1, std::memory_order_release);
    gbBufferReadDone.store(false);
    // Written while the block is still ours: the reader reuses the copy
    // buffer once it has handed the block over.
    if (bDbgDumpPCM)
        dumpBlock(cap, ring.pu8CopyBuf.get(), d.plan.totalBytes);
    return true;
}

// The application's wake-word callback (held back while the soft microphone
// runs), then the notify-UI callback.
void tellApplication(const Detection& d)
{
    ZOR_PFN_WAKEWORD wakeWord = g_fptrSendWakeWordDetectionSignalallback.load();
    if (wakeWord == nullptr) {
        ZOR_FFM_POLL_LOG("g_fptrSendWakeWordDetectionSignalallback is null\n \n");
    } else if (bYTSoftMicstart.load()) {
        ZOR_FFM_POLL_LOG("youtube soft mic flow ,not call WakeWordDetectionSignalallback \n");
    } else {
        uint8_t* metadata = pipeline().wakeWordMetadata;
        memcpy(metadata, d.metadata, d.metadataLen);
        wakeWord(FFM_PREROLL_SAMPLES, d.plan.keywordSamples + FFM_PREROLL_SAMPLES, KEYWORD_STRING,
                 d.metadataLen, reinterpret_cast<char*>(metadata));
    }
    if (ZOR_PFN_VOID notify = gfptrNotifyUIWakeWordDectcallback.load())
        notify();
    else
        ZOR_FFM_POLL_LOG("gfptrNotifyUIWakeWordDectcallback is null\n \n");
}

void logDetection(const Detection& d, uint32_t elapsedMs)
{
    ZOR_FFM_POLL_LOG(" cuDeIndex %llu, bgKWDeviceIndex %llu, endKWDeviceIndex %llu, offset: "
                     "%u\n\n",
                     static_cast<unsigned long long>(d.c), static_cast<unsigned long long>(d.b),
                     static_cast<unsigned long long>(d.e), elapsedMs);
    ZOR_FFM_POLL_LOG(" curIdx    %u, u64currentIndex %llu,   bgKWServerIndex %lld, "
                     "endKWServerIndex %llu, TotalCopySize %llu\n\n",
                     d.i, static_cast<unsigned long long>(d.writtenNow),
                     static_cast<long long>(d.plan.beginServer),
                     static_cast<unsigned long long>(d.plan.endServer),
                     static_cast<unsigned long long>(d.plan.totalBytes));
}

} // namespace

void kel_avs_ffm_hid_detectionLoop(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring)
{
    if (!ringInitialised(*ring) || !nextKeywordPress())
        return;

    const uint32_t startMs = kel_avs_ffm_ClockGetInMS();
    const XmosDevice* device = pipeline().device.get();
    if (device->eventHandle() == nullptr || device->controlHandle() == nullptr) {
        ZOR_FFM_LOG("m_evdev or m_devh is NULL %p %p\n\n", device->eventHandle(),
                    device->controlHandle());
        return;
    }
    uint8_t payload[CONTROL_CMD_PAYLOAD_LEN] = {};
    Detection d;
    if (!queryIndexes(payload) || !planDetection(payload, *ring, d))
        return;

    const Params settings = params();
    kel_avs_ffm_getMetadataBlob(settings.metadataScript.c_str(), settings.metadataFile.c_str(),
                                &d.metadataLen, d.metadata);
    if (!publishBlock(*cap, *ring, d))
        return;
    tellApplication(d);
    logDetection(d, kel_avs_ffm_ClockGetInMS() - startMs);
}

void* kel_avs_ffm_hid_detection_thread(void*)
{
    ZOR_FFM_LOG("Start ALSA capture thread!  \n\n");
    // The running mark was taken by the starter, under the lock.
    prctl(PR_SET_NAME, "ffm_hid_det", 0, 0, 0);

    if (kel_avs_ffm_hid_init()) {
        while (readDetectionState() == ThreadState::Running) {
            kel_avs_ffm_hid_detectionLoop(&captureBufCfg, &stRingBufCfg);
            bool ready = false;
            {
                std::lock_guard<std::mutex> lock(pipeline().ringMutex);
                ready = stRingBufCfg.bInitFlag != 0;
            }
            // Waiting on the node instead of sleeping answers a key press at
            // once; a stop request is still seen within one interval.
            XmosDevice* device = pipeline().device.get();
            if (ready && device != nullptr)
                device->waitForEvent(kPollIntervalMs);
            else
                usleep(kPollIntervalMs * 1000);
        }
    }
    kel_avs_ffm_hid_deinit();

    std::lock_guard<std::mutex> lock(mutex_detection_exit);
    detection_exit = ThreadState::None;
    ZOR_FFM_LOG("Exit ffm_hid_det thread.\n\n");
    return nullptr;
}

ThreadState detectionState()
{
    return readDetectionState();
}

} // namespace zor::audio::ffm
