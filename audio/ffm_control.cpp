// SPDX-License-Identifier: MIT
// Far-field control: the pipeline's two threads run once both the assistant
// application and the XMOS DSP are ready; the application raises and lowers
// its request for audio; the action button streams live audio without a
// keyword.
#include "audio/ffm_pipeline.h"
#include "base/log.h"
#include "zor/zor_audio.h"

#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

namespace zor::audio::ffm
{

namespace
{

std::atomic<Readiness> enInitComplete{Readiness::Idle};
std::atomic<ActionButton> enNotifyActionButtonPressed{ActionButton::Idle};

// A 32-bit little-endian 1 and 508 zero bytes, written into the dump files
// where a stream ends.
constexpr size_t kSeparatorBytes = 512;
const uint8_t kSeparator[kSeparatorBytes] = {1, 0, 0, 0};

class ThreadAttr
{
public:
    ThreadAttr() { m_ok = pthread_attr_init(&m_attr) == 0; }
    ~ThreadAttr()
    {
        if (m_ok)
            pthread_attr_destroy(&m_attr);
    }
    ThreadAttr(const ThreadAttr&) = delete;
    ThreadAttr& operator=(const ThreadAttr&) = delete;
    bool ok() const { return m_ok; }
    pthread_attr_t* get() { return &m_attr; }

private:
    pthread_attr_t m_attr;
    bool m_ok = false;
};

void setState(std::mutex& mutex, ThreadState& state, ThreadState value)
{
    std::lock_guard<std::mutex> lock(mutex);
    state = value;
}

void startForReadiness()
{
    ZOR_FFM_LOG("FFM is all ready, starting...!!!\n\n");
    kel_avs_ffm_start_thread();
    // Whatever the start's result: a later stop and DSP-ready retries.
    enInitComplete.store(Readiness::BothReady);
}

void writeSeparator(int fd)
{
    if (fd < 0)
        return;
    const ssize_t written = write(fd, kSeparator, sizeof(kSeparator));
    if (written < static_cast<ssize_t>(sizeof(kSeparator)))
        ZOR_FFM_LOG("alsa short write: wrote %d bytes\n\n", static_cast<int>(written));
}

void dspReady(Readiness state)
{
    switch (state) {
    case Readiness::Idle:
        enInitComplete.store(Readiness::DspReady);
        ZOR_FFM_LOG("FFM xmos is ready, starting thread when AVS is ready!!!\n\n");
        break;
    case Readiness::ApplicationReady:
        startForReadiness();
        break;
    case Readiness::DspReady:
    case Readiness::BothReady:
        ZOR_FFM_LOG("FFM xmos was ready, status isn't change(%d)!!!\n\n", toInt(state));
        break;
    default: // a corrupt word
        ZOR_FFM_LOG("enInitComplete error(%d)!!!\n\n", toInt(state));
        break;
    }
}

void dspNotReady(Readiness state)
{
    ZOR_FFM_LOG("old Status: enNotifyActionButtonPressed=%d, gSendFFMPCMDataDirectly=%d\n\n",
                toInt(enNotifyActionButtonPressed.load()),
                static_cast<int>(gSendFFMPCMDataDirectly.load()));
    switch (state) {
    case Readiness::BothReady:
        ZOR_FFM_LOG("FFM xmos was ready, stoping...!!!\n\n");
        kel_avs_ffm_stop_thread();
        break;
    case Readiness::Idle:
    case Readiness::ApplicationReady:
        ZOR_FFM_LOG("FFM xmos is not ready, status isn't change(%d)!!!\n\n", toInt(state));
        break;
    case Readiness::DspReady:
        enInitComplete.store(Readiness::Idle);
        ZOR_FFM_LOG("FFM xmos was ready, change status to idle!!!\n\n");
        break;
    default: // a corrupt word
        ZOR_FFM_LOG("enInitComplete error(%d)!!!\n\n", toInt(state));
        break;
    }
}

} // namespace

void kel_avs_ffm_init_thread_mutex()
{
    // The two locks are constant-initialised and live as long as the
    // process: a running thread may hold them, so they are never set up
    // again here.
}

int kel_avs_ffm_start_thread()
{
    ThreadAttr attr;
    if (!attr.ok()) {
        perror("attribute creation failed!");
        return 0;
    }
    pthread_attr_setdetachstate(attr.get(), PTHREAD_CREATE_DETACHED);

    // Each thread is marked running before it exists, so a second start or a
    // stop in between sees it.
    {
        std::unique_lock<std::mutex> lock(mutex_capture_exit);
        if (capture_exit != ThreadState::None) {
            const ThreadState state = capture_exit;
            lock.unlock();
            ZOR_FFM_LOG("Already a capture thread running. (%d) \n\n", toInt(state));
            return 0;
        }
        capture_exit = ThreadState::Running;
    }
    {
        std::unique_lock<std::mutex> lock(mutex_detection_exit);
        if (detection_exit != ThreadState::None) {
            const ThreadState state = detection_exit;
            lock.unlock();
            setState(mutex_capture_exit, capture_exit, ThreadState::None);
            ZOR_FFM_LOG("Already a detection thread running. (%d) \n\n", toInt(state));
            return 0;
        }
        detection_exit = ThreadState::Running;
    }

    {
        std::lock_guard<std::mutex> ring(pipeline().ringMutex);
        std::lock_guard<std::mutex> dump(pipeline().dumpMutex);
        captureBufCfg.reset();
        stRingBufCfg.reset();
    }

    pthread_t thread;
    if (pthread_create(&thread, attr.get(), kel_avs_ffm_alsa_capture_thread, nullptr) != 0) {
        setState(mutex_detection_exit, detection_exit, ThreadState::None);
        setState(mutex_capture_exit, capture_exit, ThreadState::None);
        ZOR_FFM_LOG("Create thread error!\n\n");
        return -1;
    }
    if (pthread_create(&thread, attr.get(), kel_avs_ffm_hid_detection_thread, nullptr) != 0) {
        setState(mutex_detection_exit, detection_exit, ThreadState::None);
        ZOR_FFM_LOG("Create thread error!\n\n");
        return -1;
    }
    return 0;
}

int kel_avs_ffm_stop_thread()
{
    {
        std::unique_lock<std::mutex> lock(mutex_detection_exit);
        if (detection_exit == ThreadState::Running) {
            detection_exit = ThreadState::StopRequested;
            lock.unlock();
            ZOR_FFM_LOG("Attempt to stop HID detection thread.\n\n");
        }
    }
    {
        std::unique_lock<std::mutex> lock(mutex_capture_exit);
        if (capture_exit == ThreadState::Running) {
            capture_exit = ThreadState::StopRequested;
            lock.unlock();
            ZOR_FFM_LOG("Attempt to stop ALSA capture thread.\n\n");
        }
    }
    enNotifyActionButtonPressed.store(ActionButton::Idle);
    {
        std::lock_guard<std::mutex> lock(pipeline().sendMutex);
        gSendFFMPCMDataDirectly.store(false);
        gSendFFMPCMData.store(false);
    }
    gSendFFMPCMDataLast.store(false);
    bKWflagLast.store(false);
    enInitComplete.store(Readiness::ApplicationReady);
    return 0;
}

int kel_avs_ffm_stop_thread_on_device_loss()
{
    std::lock_guard<std::mutex> control(pipeline().controlMutex);
    return kel_avs_ffm_stop_thread();
}

std::unique_lock<std::mutex> holdReadiness()
{
    return std::unique_lock<std::mutex>(pipeline().controlMutex);
}

bool sendingDirectly()
{
    return gSendFFMPCMDataDirectly.load();
}

void setThreadStates(ThreadState state)
{
    setState(mutex_capture_exit, capture_exit, state);
    setState(mutex_detection_exit, detection_exit, state);
}

Readiness readinessState()
{
    return enInitComplete.load();
}

ActionButton buttonState()
{
    return enNotifyActionButtonPressed.load();
}

} // namespace zor::audio::ffm

using namespace zor::audio::ffm;

void KEL_AVS_FFM_Init(_ST_FFM_INFO info)
{
    kel_avs_ffm_init_thread_mutex();
    std::lock_guard<std::mutex> control(pipeline().controlMutex);
    char name[kDeviceNameSize];
    {
        std::lock_guard<std::mutex> lock(mutex_capture_exit);
        memcpy(name, FFM_CAP_DEVICE, sizeof(name));
    }
    ZOR_FFM_LOG("c8CardID = %d c8CardID = %d FFM_CAP_DEVICE = %s\n", info.c8CardID, info.c8DevID,
                name);
    {
        // One digit each gives the familiar "hw:1,2"; other numbers are
        // written out in full, the array has room for "hw:-128,-128".
        std::lock_guard<std::mutex> lock(mutex_capture_exit);
        snprintf(FFM_CAP_DEVICE, sizeof(FFM_CAP_DEVICE), "hw:%d,%d", info.c8CardID, info.c8DevID);
        memcpy(name, FFM_CAP_DEVICE, sizeof(name));
    }
    ZOR_FFM_LOG("FFM_CAP_DEVICE = %s\n", name);

    const Readiness state = enInitComplete.load();
    switch (state) {
    case Readiness::Idle:
        enInitComplete.store(Readiness::ApplicationReady);
        ZOR_FFM_LOG("FFM avs is ready, starting thread when xmos is ready!!!\n\n");
        break;
    case Readiness::ApplicationReady:
    case Readiness::BothReady:
        ZOR_FFM_LOG("FFM avs is ready, status isn't change(%d)!!!\n\n", toInt(state));
        break;
    case Readiness::DspReady:
        startForReadiness();
        break;
    default: // a corrupt word
        ZOR_FFM_LOG("enInitComplete error(%d)!!!\n\n", toInt(state));
        break;
    }
}

void KEL_AVS_FFM_NotifyAudDSPStatus(int status)
{
    std::lock_guard<std::mutex> control(pipeline().controlMutex);
    const Readiness state = enInitComplete.load();
    ZOR_FFM_LOG("Status = %d, enInitComplete = %d\n\n", status, toInt(state));
    if (status == 1)
        dspReady(state);
    else if (status == 0)
        dspNotReady(state);
    else
        ZOR_FFM_LOG("not define Status value\n\n");
}

int KEL_AVS_FFM_TriggerCaptureData(int start)
{
    ZOR_FFM_LOG("_dbgFunAPITriggerCaptureData\n");
    std::lock_guard<std::mutex> control(pipeline().controlMutex);
    return start == 1 ? kel_avs_ffm_start_thread() : kel_avs_ffm_stop_thread();
}

void KEL_AVS_FFM_TrigSendPCMData(bool send)
{
    ZOR_FFM_LOG("TrigSendPCMData %d, enNotifyActionButtonPressed = %d, "
                "gSendFFMPCMDataDirectly = %d\n\n",
                static_cast<int>(send), toInt(enNotifyActionButtonPressed.load()),
                static_cast<int>(gSendFFMPCMDataDirectly.load()));
    std::unique_lock<std::mutex> sending(pipeline().sendMutex);
    gSendFFMPCMData.store(send);
    if (send) {
        ActionButton pressed = ActionButton::Pressed;
        if (enNotifyActionButtonPressed.compare_exchange_strong(pressed, ActionButton::Streaming))
            gSendFFMPCMDataDirectly.store(true);
        return;
    }
    gSendFFMPCMDataDirectly.store(false);
    sending.unlock();
    if (bDbgDumpPCM) {
        std::lock_guard<std::mutex> lock(pipeline().dumpMutex);
        writeSeparator(captureBufCfg.s32PcmFd);
        writeSeparator(captureBufCfg.s32WWFd);
    }
    ActionButton streaming = ActionButton::Streaming;
    enNotifyActionButtonPressed.compare_exchange_strong(streaming, ActionButton::StreamEnded);
}

void KEL_AVS_FFM_NotifyActionButtonPressed(void)
{
    ActionButton state = enNotifyActionButtonPressed.load();
    ZOR_FFM_LOG("Alexa Action was Pressed, enNotifyActionButtonPressed = %d\n\n", toInt(state));
    while (state == ActionButton::Idle || state == ActionButton::StreamEnded) {
        if (enNotifyActionButtonPressed.compare_exchange_weak(state, ActionButton::Pressed))
            return;
    }
    ZOR_FFM_LOG("Alexa Action isn't idle\n\n");
}

void KEL_AVS_FFM_NotifyYTSoftMicStatus(int status)
{
    if (status == 1) {
        youtube_softmic_alsa_write_init();
        youtube_softmic_alsa_write_start();
    } else {
        youtube_softmic_alsa_write_stop();
    }
}

void KEL_AVS_FFM_NotifyPowerStatus(int mode)
{
    ZOR_FFM_LOG("power mode %d\n\n", mode);
    if (mode == 1) {
        std::lock_guard<std::mutex> control(pipeline().controlMutex);
        kel_avs_ffm_stop_thread();
    }
}

void KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(ZOR_PFN_WAKEWORD fn)
{
    g_fptrSendWakeWordDetectionSignalallback.store(fn);
}

void KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(ZOR_PFN_VOID fn)
{
    gfptrNotifyUIWakeWordDectcallback.store(fn);
}

void KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(ZOR_PFN_PCM fn)
{
    g_fptrffmSendAudioPCMDataCallback.store(fn);
}
