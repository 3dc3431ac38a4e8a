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
#include "base/no_destructor.h"

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
std::mutex ringMutex;
std::mutex dumpMutex;

std::atomic<bool> gSendFFMPCMData{false};
std::atomic<bool> gSendFFMPCMDataDirectly{false};
std::atomic<bool> gbBufferReadDone{false};
std::atomic<bool> gSendFFMPCMDataLast{false};
std::atomic<bool> bKWflagLast{false};

std::atomic<ZOR_PFN_PCM> g_fptrffmSendAudioPCMDataCallback{nullptr};

std::mutex mutex_capture_exit;
int capture_exit = -1;
char FFM_CAP_DEVICE[kDeviceNameSize] = "hw:0,0";

namespace
{

std::mutex paramsMutex;
// Never destroyed: detached pipeline threads may still read it while the
// process exits.
zor::NoDestructor<Params> currentParams;

int readCaptureState()
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

// Both records stay untouched by other threads until bInitFlag is raised:
// the detection thread does nothing before that.
int kel_avs_ffm_alsa_capture_init(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                  const char* device, const Params& settings)
{
    if (cap == nullptr || ring == nullptr) {
        ZOR_FFM_LOG("data or RingBufcfg is null\n \n");
        return -1;
    }

    cap->s32PcmFd = -1;
    char stamp[32] = "";
    const time_t now = time(nullptr);
    struct tm utc;
    if (gmtime_r(&now, &utc) != nullptr)
        strftime(stamp, sizeof(stamp), "%Y%m%d%H%M%S", &utc);
    const char* dumpDir = settings.dumpDir.c_str();
    snprintf(cap->szPcmFile, sizeof(cap->szPcmFile), "%s%s%s%s", dumpDir, "PCM_rec", stamp, ".pcm");
    snprintf(cap->szWWFile, sizeof(cap->szWWFile), "%s%s%s%s", dumpDir, "WW_rec", stamp, ".pcm");
    snprintf(cap->szLogFile, sizeof(cap->szLogFile), "%s%s%s%s", dumpDir, "FFM_read_", stamp,
             ".log");

    {
        std::lock_guard<std::mutex> lock(dumpMutex);
        cap->s32PcmFd = openDump(cap->szPcmFile);
        const int pcmErrno = errno;
        cap->s32WWFd = openDump(cap->szWWFile);
        const int wwErrno = errno;
        cap->s32LogFd = openDump(cap->szLogFile);
        const int logErrno = errno;
        const struct {
            int fd;
            const char* path;
            int error;
            const char* tag;
        } files[] = {{cap->s32PcmFd, cap->szPcmFile, pcmErrno, "PCM Play"},
                     {cap->s32WWFd, cap->szWWFile, wwErrno, "PCM Play"},
                     {cap->s32LogFd, cap->szLogFile, logErrno, "FFM Log"}};
        for (const auto& file : files) {
            if (file.fd < 0) {
                ZOR_FFM_LOG("[PCM Play]==>file [%s] open fail!!!---[%s]\n\n", file.path,
                            strerror(file.error));
                return -1;
            }
            ZOR_FFM_LOG("[%s]==>file [%s] open success!!!---[%s]\n\n", file.tag, file.path,
                        strerror(file.error));
        }
    }

    ZOR_FFM_LOG("open \"%s\"  PCM device\n\n", device);
    int failed = 0;
    snd_pcm_t* pcm = nullptr;
    cap->s32Ret = snd_pcm_open(&pcm, device, SND_PCM_STREAM_CAPTURE, 0);
    while (cap->s32Ret < 0) {
        if (++failed >= settings.captureOpenAttempts) {
            ZOR_FFM_LOG("unable to open \"%s\"  PCM device: %s(%d)\n\n", device,
                        snd_strerror(cap->s32Ret), failed);
            return -1;
        }
        usleep(settings.captureOpenDelayMs * 1000);
        cap->s32Ret = snd_pcm_open(&pcm, device, SND_PCM_STREAM_CAPTURE, 0);
    }
    cap->handle.reset(pcm);
    ZOR_FFM_LOG("open \"%s\" PCM device success (%d).\n\n", device, failed);

    snd_pcm_hw_params_t* hw = nullptr;
    cap->s32Ret = snd_pcm_hw_params_malloc(&hw);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not allocate alsa hardware parameter structure:%s\n",
                    snd_strerror(cap->s32Ret));
        return -1;
    }
    cap->params.reset(hw);
    cap->s32Ret = snd_pcm_hw_params_any(pcm, hw);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not initialize alsa parameter structure:%s\n",
                    snd_strerror(cap->s32Ret));
        return -1;
    }
    cap->s32Ret = snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not set access mode as INTERLEAVED.\n");
        return -1;
    }
    cap->s32Ret = snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not set alsa sample format:%s\n", snd_strerror(cap->s32Ret));
        return -1;
    }
    cap->s32Ret = snd_pcm_hw_params_set_channels(pcm, hw, kCaptureChannels);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not set alsa channels:%s\n", snd_strerror(cap->s32Ret));
        return -1;
    }

    unsigned int rate = HID_COMPATIBLE_SAMPLE_RATE;
    cap->s32Dir = 0;
    cap->s32Ret = snd_pcm_hw_params_set_rate_near(pcm, hw, &rate, &cap->s32Dir);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not set alsa sample rate:%s\n", snd_strerror(cap->s32Ret));
        return -1;
    }
    // Drivers mostly report a whole-value change with direction 0: a value
    // other than the one asked for is an adjustment too.
    if (cap->s32Dir != 0 || rate != HID_COMPATIBLE_SAMPLE_RATE) {
        ZOR_FFM_LOG("%s: hardware could not support sampling rate %d Hz, set %d Hz\n", __func__,
                    static_cast<int>(rate), static_cast<int>(rate));
        cap->s32Dir = 0;
    }

    unsigned int bufferTime = 0;
    snd_pcm_hw_params_get_buffer_time_max(hw, &bufferTime, nullptr);
    ZOR_FFM_LOG("buffer_time %u\n\n", bufferTime);

    cap->frames = kPeriodFrames;
    ZOR_FFM_LOG("%s: set period size %d frames\n", __func__, static_cast<int>(cap->frames));
    cap->s32Ret = snd_pcm_hw_params_set_period_size_near(pcm, hw, &cap->frames, &cap->s32Dir);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not set alsa period size:%s\n", snd_strerror(cap->s32Ret));
        return -1;
    }
    if (cap->s32Dir != 0 || cap->frames != kPeriodFrames) {
        ZOR_FFM_LOG("%s: hardware could not support period size %d, set %d\n", __func__,
                    static_cast<int>(cap->frames), static_cast<int>(cap->frames));
        cap->s32Dir = 0;
    }

    cap->u32BufferFrames = static_cast<uint32_t>(kPeriodsPerBuffer * cap->frames);
    snd_pcm_uframes_t bufferFrames = cap->u32BufferFrames;
    cap->s32Ret = snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &bufferFrames);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("could not set alsa buffer size:%s\n", snd_strerror(cap->s32Ret));
        return -1;
    }
    cap->s32Ret = snd_pcm_hw_params(pcm, hw);
    if (cap->s32Ret < 0) {
        ZOR_FFM_LOG("unable to set hw parameters: %s\n\n", snd_strerror(cap->s32Ret));
        return -1;
    }

    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
    unsigned int channels = 0;
    int dir = 0;
    snd_pcm_uframes_t period = 0;
    snd_pcm_uframes_t buffer = 0;
    snd_pcm_hw_params_get_access(hw, &access);
    snd_pcm_hw_params_get_format(hw, &format);
    snd_pcm_hw_params_get_channels(hw, &channels);
    ZOR_FFM_LOG("***********%s************\n\n", __func__);
    ZOR_FFM_LOG("%d access_mode=%d\n\n", SND_PCM_ACCESS_RW_INTERLEAVED, static_cast<int>(access));
    ZOR_FFM_LOG("%d sample_format=%d\n\n", SND_PCM_FORMAT_S16_LE, static_cast<int>(format));
    ZOR_FFM_LOG("%d channels=%d\n\n", kCaptureChannels, static_cast<int>(channels));
    snd_pcm_hw_params_get_rate(hw, &rate, &dir);
    ZOR_FFM_LOG("%d sampling_rate=%d, dir=%d\n\n", HID_COMPATIBLE_SAMPLE_RATE,
                static_cast<int>(rate), dir);
    snd_pcm_hw_params_get_period_size(hw, &period, &dir);
    ZOR_FFM_LOG("%d period=%d, dir=%d\n\n", static_cast<int>(cap->frames), static_cast<int>(period),
                dir);
    snd_pcm_hw_params_get_buffer_size(hw, &buffer);
    ZOR_FFM_LOG("%d buffer=%d, dir=%d\n\n", static_cast<int>(cap->frames), static_cast<int>(buffer),
                dir);
    ZOR_FFM_LOG("************************\n\n");

    snd_pcm_hw_params_get_period_size(hw, &cap->frames, &cap->s32Dir);
    ZOR_FFM_LOG("get_period_size,  data->frames = %d\n\n", static_cast<int>(cap->frames));
    if (cap->frames == 0)
        cap->frames = kPeriodFrames;
    cap->readFailures.setPeriod(cap->frames, rate);

    cap->u32StereoBufSize = static_cast<uint32_t>(cap->frames * 4);
    cap->u32MonoBufSize = static_cast<uint32_t>(cap->frames * 2);
    cap->pStereoBuf = allocateBuffer(cap->u32StereoBufSize);
    cap->pMonoBuf = allocateBuffer(cap->u32MonoBufSize);
    if (!cap->pStereoBuf || !cap->pMonoBuf) {
        ZOR_FFM_LOG("malloc buffer error, %p %p\n\n", static_cast<void*>(cap->pStereoBuf.get()),
                    static_cast<void*>(cap->pMonoBuf.get()));
        return -1;
    }
    memset(cap->pStereoBuf.get(), 0, cap->u32StereoBufSize);

    snd_pcm_hw_params_get_period_time(hw, &cap->u32PeriodTime, &cap->s32Dir);

    std::lock_guard<std::mutex> lock(ringMutex);
    ring->u32BufSize = kRingBytes;
    ring->u32SampleCount = kRingSamples;
    ring->pu8RingBuf = allocateBuffer(kRingBytes);
    if (!ring->pu8RingBuf) {
        ZOR_FFM_LOG("malloc ring buffer error\n\n");
        return -1;
    }
    ring->pu8CopyBuf = allocateBuffer(kCopyBufBytes);
    if (!ring->pu8CopyBuf) {
        ZOR_FFM_LOG("malloc ring buffer error\n\n");
        return -1;
    }
    ring->pu8Metadata = allocateBuffer(METADATA_BLOB_LEN);
    if (!ring->pu8Metadata) {
        ZOR_FFM_LOG("malloc MB buffer error\n\n");
        return -1;
    }
    // A block cut before the first wrap may reach into the unwritten part.
    memset(ring->pu8RingBuf.get(), 0, kRingBytes);
    ring->u32MetadataLen = 0;
    ring->bKWflag.store(0, std::memory_order_relaxed);
    ring->u64CurDeviceIndex = 0;
    ring->u64BgKWDeviceIndex = 0;
    ring->u64EndKWDeviceIndex = 0;
    ring->u32CurIdx = 0;
    ring->s64BgKWServerIndex = 0;
    ring->u64EndKWServerIndex = 0;
    ring->u64TotalCopySize = 0;
    ring->bInitFlag = 1;
    ZOR_FFM_LOG("ffmalsaCaptureInit success\n\n");
    return 0;
}

void kel_avs_ffm_alsa_capture_stop(_ST_FFM_CAPTURE_BUF_CFG* cap, _ST_FFM_RING_BUF_CFG* ring,
                                   const char* device)
{
    {
        std::lock_guard<std::mutex> lock(ringMutex);
        ZOR_FFM_LOG("record Done.RingBufcfg->bInitFlag = %d\n\n", ring->bInitFlag);
        ring->bInitFlag = 0;
    }
    cap->handle.reset();
    cap->pStereoBuf.reset();
    cap->pMonoBuf.reset();
    {
        // The detection thread checks bInitFlag under this lock before it
        // touches the buffers, so they can go now.
        std::lock_guard<std::mutex> lock(ringMutex);
        if (ring->pu8RingBuf) {
            ZOR_FFM_LOG("stop currentIndex = %u\n\n", ring->u32CurrentIndex);
            ring->pu8RingBuf.reset();
        }
        ring->pu8CopyBuf.reset();
        ring->pu8Metadata.reset();
    }
    {
        std::lock_guard<std::mutex> lock(dumpMutex);
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
        std::lock_guard<std::mutex> lock(ringMutex);
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
        std::lock_guard<std::mutex> lock(ringMutex);
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
            gSendFFMPCMDataDirectly.store(true);
            gbBufferReadDone.store(true);
        }
        if (ZOR_PFN_PCM callback = g_fptrffmSendAudioPCMDataCallback.load()) {
            callback(ring->pu8CopyBuf.get(), bytes);
            ZOR_FFM_LOG("first data \n\n");
        }
        if (bytes != 0 && bDbgDumpPCM)
            writeDump(cap->s32PcmFd, ring->pu8CopyBuf.get(), bytes);
    } else if (send && gbBufferReadDone.load()) {
        gSendFFMPCMDataDirectly.store(true);
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
        while (readCaptureState() == 0) {
            kel_avs_ffm_alsa_capture_write(&captureBufCfg, &stRingBufCfg);
            kel_avs_ffm_alsa_pcm_read(&captureBufCfg, &stRingBufCfg);
        }
    }
    kel_avs_ffm_alsa_capture_stop(&captureBufCfg, &stRingBufCfg, device);

    std::lock_guard<std::mutex> lock(mutex_capture_exit);
    capture_exit = -1;
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

void setParams(const Params& settings)
{
    std::lock_guard<std::mutex> lock(paramsMutex);
    *currentParams = settings;
}

Params params()
{
    std::lock_guard<std::mutex> lock(paramsMutex);
    return *currentParams;
}

int captureState()
{
    return readCaptureState();
}

} // namespace zor::audio::ffm
