// SPDX-License-Identifier: MIT
// Far-field capture: the "ffm_avs_cap" thread reads 20 ms stereo periods
// from the XMOS capture device, keeps the first channel in a 15-second ring
// and hands the application the keyword block, the backlog and then every
// live period.
#include "audio/ffm_capture.h"

#include "audio/ffm_pipeline.h"
#include "audio/ffm_ring.h"
#include "audio/softmic_output.h"
#include "base/log.h"
#include "base/unique_fd.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace zor::audio::ffm
{

_ST_FFM_CAPTURE_BUF_CFG captureBufCfg;
_ST_FFM_RING_BUF_CFG stRingBufCfg;

void switchToDirectSending()
{
    std::lock_guard<std::mutex> lock(pipeline().sendMutex);
    if (gSendFFMPCMData.load())
        gSendFFMPCMDataDirectly.store(true);
}

std::atomic<bool> gSendFFMPCMData{false};
std::atomic<bool> gSendFFMPCMDataDirectly{false};
std::atomic<bool> gbBufferReadDone{false};
std::atomic<bool> gSendFFMPCMDataLast{false};
std::atomic<bool> bKWflagLast{false};

std::atomic<ZOR_PFN_PCM> g_fptrffmSendAudioPCMDataCallback{nullptr};

std::mutex mutex_capture_exit;
ThreadState capture_exit = ThreadState::None;
char FFM_CAP_DEVICE[kDeviceNameSize] = "hw:0,0";

namespace
{

ThreadState readCaptureState()
{
    std::lock_guard<std::mutex> lock(mutex_capture_exit);
    return capture_exit;
}

void writeDump(int fd, const void* data, size_t bytes)
{
    if (fd < 0)
        return;
    const ssize_t written = write(fd, data, bytes);
    if (written < static_cast<ssize_t>(bytes))
        ZOR_FFM_LOG("alsa short write: wrote %d bytes\n\n", static_cast<int>(written));
}

int openDump(const char* path)
{
    return open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

} // namespace

namespace
{

// The set-up's steps print under its name, as the set-up's own lines.
constexpr const char* kInitName = "kel_avs_ffm_alsa_capture_init";
#define ZOR_FFM_INIT_LOG(...)                                                                      \
    ::zor::log::line(::zor::log::Family::FarField, kInitName, __LINE__, __VA_ARGS__)

// What a set-up acquires before it hands it to the records; released here
// when a step fails, so a failed set-up leaves nothing for the stop step.
struct Acquired {
    UniqueFd pcmFd;
    UniqueFd wwFd;
    UniqueFd logFd;
    PcmHandle pcm;
    PcmGranted granted;
    Buffer stereo;
    Buffer mono;
    Buffer ring;
    Buffer copy;
    Buffer metadata;
};

void nameDumpFiles(_ST_FFM_CAPTURE_BUF_CFG& cap, const char* dumpDir)
{
    char stamp[32] = "";
    const time_t now = time(nullptr);
    struct tm utc;
    if (gmtime_r(&now, &utc) != nullptr)
        strftime(stamp, sizeof(stamp), "%Y%m%d%H%M%S", &utc);
    snprintf(cap.szPcmFile, sizeof(cap.szPcmFile), "%s%s%s%s", dumpDir, "PCM_rec", stamp, ".pcm");
    snprintf(cap.szWWFile, sizeof(cap.szWWFile), "%s%s%s%s", dumpDir, "WW_rec", stamp, ".pcm");
    snprintf(cap.szLogFile, sizeof(cap.szLogFile), "%s%s%s%s", dumpDir, "FFM_read_", stamp, ".log");
}

// All three are created before the first is checked, as the lines show.
bool openDumpFiles(const _ST_FFM_CAPTURE_BUF_CFG& cap, Acquired& got)
{
    got.pcmFd.reset(openDump(cap.szPcmFile));
    const int pcmErrno = errno;
    got.wwFd.reset(openDump(cap.szWWFile));
    const int wwErrno = errno;
    got.logFd.reset(openDump(cap.szLogFile));
    const int logErrno = errno;
    const struct {
        const UniqueFd& fd;
        const char* path;
        int error;
        const char* tag;
    } files[] = {{got.pcmFd, cap.szPcmFile, pcmErrno, "PCM Play"},
                 {got.wwFd, cap.szWWFile, wwErrno, "PCM Play"},
                 {got.logFd, cap.szLogFile, logErrno, "FFM Log"}};
    for (const auto& file : files) {
        if (!file.fd.valid()) {
            ZOR_FFM_INIT_LOG("[PCM Play]==>file [%s] open fail!!!---[%s]\n\n", file.path,
                             strerror(file.error));
            return false;
        }
        ZOR_FFM_INIT_LOG("[%s]==>file [%s] open success!!!---[%s]\n\n", file.tag, file.path,
                         strerror(file.error));
    }
    return true;
}

// The board's capture device may appear late: it is tried again, a delay
// apart, up to the configured number of attempts.
int openCaptureDevice(const char* device, const Params& settings, PcmHandle& pcm)
{
    ZOR_FFM_INIT_LOG("open \"%s\"  PCM device\n\n", device);
    int failed = 0;
    int result = openPcm(pcm, device, SND_PCM_STREAM_CAPTURE);
    while (result < 0) {
        if (++failed >= settings.captureOpenAttempts) {
            ZOR_FFM_INIT_LOG("unable to open \"%s\"  PCM device: %s(%d)\n\n", device,
                             snd_strerror(result), failed);
            return result;
        }
        usleep(settings.captureOpenDelayMs * 1000);
        result = openPcm(pcm, device, SND_PCM_STREAM_CAPTURE);
    }
    ZOR_FFM_INIT_LOG("open \"%s\" PCM device success (%d).\n\n", device, failed);
    return result;
}

int configureCaptureDevice(Acquired& got)
{
    PcmRequest request;
    request.channels = kCaptureChannels;
    request.rate = HID_COMPATIBLE_SAMPLE_RATE;
    request.periodFrames = kPeriodFrames;
    request.periodsPerBuffer = kPeriodsPerBuffer;
    PcmSetupLines lines;
    lines.function = kInitName;
    const int result = setUpPcmHardware(got.pcm.get(), request, lines, got.granted);
    if (result < 0)
        return result;
    ZOR_FFM_INIT_LOG("get_period_size,  data->frames = %d\n\n",
                     static_cast<int>(got.granted.appliedPeriodFrames));
    if (got.granted.appliedPeriodFrames == 0)
        got.granted.appliedPeriodFrames = kPeriodFrames;
    return 0;
}

bool allocateBuffers(Acquired& got)
{
    const snd_pcm_uframes_t frames = got.granted.appliedPeriodFrames;
    got.stereo = allocateBuffer(frames * 4);
    got.mono = allocateBuffer(frames * 2);
    if (!got.stereo || !got.mono) {
        ZOR_FFM_INIT_LOG("malloc buffer error, %p %p\n\n", static_cast<void*>(got.stereo.get()),
                         static_cast<void*>(got.mono.get()));
        return false;
    }
    memset(got.stereo.get(), 0, frames * 4);
    got.ring = allocateBuffer(kRingBytes);
    got.copy = got.ring ? allocateBuffer(kCopyBufBytes) : nullptr;
    if (!got.ring || !got.copy) {
        ZOR_FFM_INIT_LOG("malloc ring buffer error\n\n");
        return false;
    }
    got.metadata = allocateBuffer(METADATA_BLOB_LEN);
    if (!got.metadata) {
        ZOR_FFM_INIT_LOG("malloc MB buffer error\n\n");
        return false;
    }
    // A block cut before the first wrap may reach into the unwritten part.
    memset(got.ring.get(), 0, kRingBytes);
    return true;
}

// Hands everything over to the two records. The dump descriptors go under
// their lock (the control functions write separators into them); the ring
// under its own, bInitFlag last, since the detection thread starts cutting
// blocks once it sees it.
void commit(Acquired& got, _ST_FFM_CAPTURE_BUF_CFG& cap, _ST_FFM_RING_BUF_CFG& ring)
{
    const snd_pcm_uframes_t frames = got.granted.appliedPeriodFrames;
    {
        std::lock_guard<std::mutex> lock(pipeline().dumpMutex);
        cap.s32PcmFd = got.pcmFd.release();
        cap.s32WWFd = got.wwFd.release();
        cap.s32LogFd = got.logFd.release();
    }
    cap.handle = std::move(got.pcm);
    cap.s32Ret = 0;
    cap.s32Dir = 0;
    cap.frames = frames;
    cap.u32BufferFrames = static_cast<uint32_t>(got.granted.bufferFrames);
    cap.u32PeriodTime = got.granted.periodTimeUs;
    cap.u32StereoBufSize = static_cast<uint32_t>(frames * 4);
    cap.u32MonoBufSize = static_cast<uint32_t>(frames * 2);
    cap.pStereoBuf = std::move(got.stereo);
    cap.pMonoBuf = std::move(got.mono);
    cap.readFailures.setPeriod(frames, got.granted.appliedRate);

    std::lock_guard<std::mutex> lock(pipeline().ringMutex);
    ring.u32BufSize = kRingBytes;
    ring.u32SampleCount = kRingSamples;
    ring.pu8RingBuf = std::move(got.ring);
    ring.pu8CopyBuf = std::move(got.copy);
    ring.pu8Metadata = std::move(got.metadata);
    ring.u32MetadataLen = 0;
    ring.bKWflag.store(0, std::memory_order_relaxed);
    ring.u64CurDeviceIndex = 0;
    ring.u64BgKWDeviceIndex = 0;
    ring.u64EndKWDeviceIndex = 0;
    ring.u32CurIdx = 0;
    ring.s64BgKWServerIndex = 0;
    ring.u64EndKWServerIndex = 0;
    ring.u64TotalCopySize = 0;
    ring.bInitFlag = 1;
}

} // namespace

// Both records stay untouched by other threads until bInitFlag is raised:
// the detection thread does nothing before that. Nothing reaches the records
// before every step has succeeded.
int kel_avs_ffm_alsa_capture_init(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                  const char* device, const Params& settings)
{
    if (cap == nullptr || ring == nullptr) {
        ZOR_FFM_LOG("data or RingBufcfg is null\n \n");
        return -1;
    }
    nameDumpFiles(*cap, settings.dumpDir.c_str());
    Acquired got;
    if (!openDumpFiles(*cap, got))
        return -1;
    cap->s32Ret = openCaptureDevice(device, settings, got.pcm);
    if (cap->s32Ret < 0)
        return -1;
    cap->s32Ret = configureCaptureDevice(got);
    if (cap->s32Ret < 0 || !allocateBuffers(got))
        return -1;
    commit(got, *cap, *ring);
    ZOR_FFM_LOG("ffmalsaCaptureInit success\n\n");
    return 0;
}

void kel_avs_ffm_alsa_capture_stop(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                   const char* device)
{
    {
        std::lock_guard<std::mutex> lock(pipeline().ringMutex);
        ZOR_FFM_LOG("record Done.RingBufcfg->bInitFlag = %d\n\n", ring->bInitFlag);
        ring->bInitFlag = 0;
    }
    cap->handle.reset();
    cap->pStereoBuf.reset();
    cap->pMonoBuf.reset();
    {
        // The detection thread checks bInitFlag under this lock before it
        // touches the buffers, so they can go now.
        std::lock_guard<std::mutex> lock(pipeline().ringMutex);
        if (ring->pu8RingBuf) {
            ZOR_FFM_LOG("stop currentIndex = %u\n\n", ring->u32CurrentIndex);
            ring->pu8RingBuf.reset();
        }
        ring->pu8CopyBuf.reset();
        ring->pu8Metadata.reset();
    }
    {
        std::lock_guard<std::mutex> lock(pipeline().dumpMutex);
        for (int32_t* fd : {&cap->s32PcmFd, &cap->s32WWFd, &cap->s32LogFd}) {
            if (*fd != -1) {
                close(*fd);
                *fd = -1;
            }
        }
    }
    ZOR_FFM_LOG("close \"%s\" PCM device success. [file:%s][%s] \n\n", device, cap->szPcmFile,
                cap->szWWFile);
}

bool kel_avs_ffm_device_gone(int error)
{
    return error == -ENODEV || error == -ENXIO;
}

void kel_avs_ffm_capture_read_failed(int error)
{
    ZOR_FFM_LOG("error from read: %s\n\n", snd_strerror(error));
    if (kel_avs_ffm_device_gone(error))
        kel_avs_ffm_stop_thread_on_device_loss(); // unplugged: both threads end
}

int kel_avs_ffm_alsa_capture_write(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring)
{
    snd_pcm_t* pcm = cap->handle.get();
    const snd_pcm_sframes_t got = snd_pcm_readi(pcm, cap->pStereoBuf.get(), cap->frames);
    cap->s32Ret = static_cast<int32_t>(got);
    if (got < 0) {
        // The period is lost and the ring's indexes stay. A device that has
        // gone stops both threads (its first failure is not paced, so the
        // loop ends at once); from other failures the stream is brought back
        // (an overrun, a suspend) and read again, once a period while it
        // keeps failing.
        const int error = static_cast<int>(got);
        if (cap->readFailures.lineDue(error)) {
            if (error == -EPIPE)
                ZOR_FFM_LOG("overrun occurred %s\n\n", snd_strerror(error));
            else
                kel_avs_ffm_capture_read_failed(error);
        }
        recoverPcm(pcm, error);
        cap->readFailures.pace();
        return 0;
    }
    if (const unsigned failed = cap->readFailures.succeeded())
        ZOR_FFM_LOG("read recovered after %u failed reads\n\n", failed);
    if (got < static_cast<snd_pcm_sframes_t>(cap->frames))
        ZOR_FFM_LOG("short read, read %d frames\n\n", static_cast<int>(got));

    kel_avs_ffm_dataDownMixto1ch(*cap);
    {
        std::lock_guard<std::mutex> lock(pipeline().ringMutex);
        kel_avs_ffm_dataWriteInRingBuf(*cap, *ring);
    }

    if (gSendFFMPCMData.load()) {
        if (gSendFFMPCMDataDirectly.load()) {
            if (ZOR_PFN_PCM callback = g_fptrffmSendAudioPCMDataCallback.load())
                callback(cap->pMonoBuf.get(), cap->u32MonoBufSize);
            if (bDbgDumpPCM && cap->s32PcmFd >= 0) {
                const ssize_t written =
                    write(cap->s32PcmFd, cap->pMonoBuf.get(), cap->u32MonoBufSize);
                if (written < static_cast<ssize_t>(cap->u32MonoBufSize))
                    ZOR_FFM_LOG("avs short write: wrote %d bytes\n\n", static_cast<int>(written));
            }
        }
    } else if (bYTSoftMicstart.load()) {
        // Underruns and short writes are handled and logged by the output.
        softmicWritePeriod(cap->pMonoBuf.get(), cap->u32MonoBufSize / 2);
    }
    return 0;
}

int kel_avs_ffm_alsa_pcm_read(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring)
{
    const bool keyword = ring->bKWflag.load(std::memory_order_acquire) != 0;
    const bool send = gSendFFMPCMData.load();
    if (keyword != bKWflagLast.load() || send != gSendFFMPCMDataLast.load()) {
        ZOR_FFM_LOG("read %d--%d--%d--%d --%d\n\n", 1, keyword, send,
                    gSendFFMPCMDataDirectly.load(), gbBufferReadDone.load());
        bKWflagLast.store(keyword);
        gSendFFMPCMDataLast.store(send);
    }
    if (gSendFFMPCMDataDirectly.load())
        return 0;

    if (send && !gbBufferReadDone.load()) {
        // Held across the hand-over: the detection thread must not refill the
        // copy buffer while it is copied into or read by the application.
        std::lock_guard<std::mutex> lock(pipeline().ringMutex);
        uint32_t bytes = 0;
        if (ring->bKWflag.load(std::memory_order_acquire) != 0) {
            bytes = static_cast<uint32_t>(ring->u64TotalCopySize);
            // The block ends at the write index of the query: streaming goes
            // on from there, so no sample is handed over twice.
            const uint32_t n = ring->u32SampleCount;
            const uint32_t since = (ring->u32CurrentIndex + n - ring->u32CurIdx) % n;
            ring->u32ReadIndex = ring->u32CurIdx;
            ring->u64ReadIndex = ring->u64CurrentIndex - since;
            ring->u32ReadSize = bytes;
            ring->bKWflag.store(0, std::memory_order_relaxed);
            ZOR_FFM_LOG("[KW] RS(%d) curRFIdx(%d) CPS(%lld/%lld) \n\n",
                        static_cast<int>(ring->u32ReadSize), static_cast<int>(ring->u32ReadIndex),
                        static_cast<long long>(ring->u64TotalCopySize), 0LL);
        } else {
            memset(ring->pu8CopyBuf.get(), 0, ring->u32BufSize);
            const CopyPlan plan =
                planCatchUp(ring->u32CurrentIndex, ring->u32ReadIndex,
                            ring->u64CurrentIndex - ring->u64ReadIndex, ring->u32SampleCount);
            bytes = copyPieces(plan, ring->pu8RingBuf.get(), ring->pu8CopyBuf.get());
            ring->u32ReadIndex = ring->u32CurrentIndex;
            ring->u64ReadIndex = ring->u64CurrentIndex;
            ring->u32ReadSize += bytes;
            switchToDirectSending();
            gbBufferReadDone.store(true);
        }
        if (ZOR_PFN_PCM callback = g_fptrffmSendAudioPCMDataCallback.load()) {
            callback(ring->pu8CopyBuf.get(), bytes);
            ZOR_FFM_LOG("first data \n\n");
        }
        if (bytes != 0 && bDbgDumpPCM)
            writeDump(cap->s32PcmFd, ring->pu8CopyBuf.get(), bytes);
    } else if (send && gbBufferReadDone.load()) {
        switchToDirectSending();
    }
    return 0;
}

void* kel_avs_ffm_alsa_capture_thread(void*)
{
    ZOR_FFM_LOG("Start ALSA capture thread!  \n\n");
    prctl(PR_SET_NAME, "ffm_avs_cap", 0, 0, 0);

    // The running mark was taken by the starter, under the lock; the name is
    // copied because Init may rename the device for the next run.
    char device[kDeviceNameSize];
    {
        std::lock_guard<std::mutex> lock(mutex_capture_exit);
        memcpy(device, FFM_CAP_DEVICE, sizeof(device));
    }
    const Params settings = params();

    if (kel_avs_ffm_alsa_capture_init(&captureBufCfg, &stRingBufCfg, device, settings) != 0) {
        ZOR_FFM_LOG("Error: alsa capture initialize failed!\n\n");
    } else {
        while (readCaptureState() == ThreadState::Running) {
            kel_avs_ffm_alsa_capture_write(&captureBufCfg, &stRingBufCfg);
            kel_avs_ffm_alsa_pcm_read(&captureBufCfg, &stRingBufCfg);
        }
    }
    kel_avs_ffm_alsa_capture_stop(&captureBufCfg, &stRingBufCfg, device);

    std::lock_guard<std::mutex> lock(mutex_capture_exit);
    capture_exit = ThreadState::None;
    ZOR_FFM_LOG("Exit ALSA capture thread.\n\n");
    return nullptr;
}

uint32_t kel_avs_ffm_ClockGetInMS()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000 +
                                 static_cast<uint64_t>(now.tv_nsec) / 1000000);
}

ThreadState captureState()
{
    return readCaptureState();
}

} // namespace zor::audio::ffm
