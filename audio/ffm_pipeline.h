// SPDX-License-Identifier: MIT
// State shared by the far-field capture thread, the detection thread and the
// control functions, and the internal parameters that tests and tools set.
#ifndef ZOR_AUDIO_FFM_PIPELINE_H
#define ZOR_AUDIO_FFM_PIPELINE_H

#include "audio/ffm_records.h"
#include "audio/thread_state.h"
#include "audio/xmos_device.h"
#include "zor/zor_callbacks.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace zor::audio::ffm
{

extern _ST_FFM_CAPTURE_BUF_CFG captureBufCfg;
extern _ST_FFM_RING_BUF_CFG stRingBufCfg;

extern std::atomic<bool> gSendFFMPCMData;
extern std::atomic<bool> gSendFFMPCMDataDirectly;
// The capture thread's switch to direct sending, made only while the
// application still wants the stream (under the pipeline's sendMutex).
void switchToDirectSending();
extern std::atomic<bool> gbBufferReadDone;
extern std::atomic<bool> gSendFFMPCMDataLast;
extern std::atomic<bool> bKWflagLast;
constexpr bool bDbgDumpPCM = true;

extern std::atomic<ZOR_PFN_PCM> g_fptrffmSendAudioPCMDataCallback;
extern std::atomic<ZOR_PFN_WAKEWORD> g_fptrSendWakeWordDetectionSignalallback;
extern std::atomic<ZOR_PFN_VOID> gfptrNotifyUIWakeWordDectcallback;

// Thread state words. Read and written only under their locks, which live as
// long as the process.
extern std::mutex mutex_capture_exit;
extern ThreadState capture_exit;
extern std::mutex mutex_detection_exit;
extern ThreadState detection_exit;

// Readiness of the two parties; both ready starts the pipeline's threads.
enum class Readiness : int32_t {
    Idle = 0,
    ApplicationReady = 1, // the DSP is not ready yet
    DspReady = 2,         // the application is not ready yet
    BothReady = 3,        // the threads have been started
};

// The assistant's action button: live audio without a keyword.
enum class ActionButton : int32_t {
    Idle = 0,
    Pressed = 1,     // waits for the application's request for audio
    Streaming = 2,   // live periods go to the application directly
    StreamEnded = 3, // idle again
};

// "hw:C,D", written under mutex_capture_exit.
constexpr size_t kDeviceNameSize = 16;
extern char FFM_CAP_DEVICE[kDeviceNameSize];

// What the set fixes; tests and tools move files and shorten waits.
struct Params {
    std::string dumpDir = "/tmp/";
    int captureOpenAttempts = 100;
    unsigned captureOpenDelayMs = 1000;
    int hidOpenAttempts = 100;
    unsigned hidOpenDelayMs = 100;
    std::string metadataScript = "/mtd_apexe/board/firmware/xmos/spi_matedata.txt";
    std::string metadataFile = "/mtd_rwarea/keywords_metadata.txt";
};
void setParams(const Params& params);
Params params();

// The parameters as tests and tools last set them, with their lock.
class ParamsStore
{
public:
    void set(const Params& settings)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_params = settings;
    }
    Params get() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_params;
    }

private:
    mutable std::mutex m_mutex;
    Params m_params;
};

// The pipeline's own locks and state, one for the process. pipeline() builds
// it on first use and never destroys it: the detached threads may still use
// it while the process exits.
//
// Lock order: controlMutex first, then ringMutex, then sendMutex or dumpMutex
// (never both at once, and nothing is taken while either is held). The
// thread-state locks (mutex_capture_exit, mutex_detection_exit) and the
// parameter lock are taken alone, or under controlMutex only. A thread that
// holds any of them never takes controlMutex: the stop on device loss is
// made with no lock of the pipeline held.
struct FarFieldPipeline {
    // Readiness events come from the application's and the server's threads,
    // device loss from the pipeline's own; each transition and its start or
    // stop runs alone under this lock.
    std::mutex controlMutex;
    // Guards the ring storage and indexes, the copy buffer, the metadata, the
    // keyword fields and bInitFlag, and the buffers' lifetime: the capture
    // thread takes it for each ring write and for handing a block over, the
    // detection thread for reading the write index and filling the block.
    std::mutex ringMutex;
    // Held while the application's start or stop of sending changes
    // gSendFFMPCMData and gSendFFMPCMDataDirectly, and while the capture
    // thread switches to direct sending: a switch decided on what the capture
    // thread saw before a stop must not undo it.
    std::mutex sendMutex;
    // Guards the dump descriptors against the stop step closing them.
    std::mutex dumpMutex;

    ParamsStore params;

    // What the wake-word callback receives as metadata, in storage that
    // outlives the call, until the next detection rewrites it. Only the
    // detection thread writes it (one runs at a time), just before the
    // callback.
    uint8_t wakeWordMetadata[METADATA_BLOB_LEN] = {};

    // The board: opened, used and closed by the detection thread only.
    std::unique_ptr<XmosDevice> device;
};

// The one pipeline of the process (see above). Callable from any thread.
FarFieldPipeline& pipeline();

// Every readiness transition, and every start and stop of the two threads
// with it, runs alone under the pipeline's control lock. This holds it until
// the returned lock goes: a test can keep a transition waiting.
std::unique_lock<std::mutex> holdReadiness();

// The set-up of the two thread-state locks, called once by the pipeline's
// initialisation; they are constant-initialised, so there is nothing to do.
void kel_avs_ffm_init_thread_mutex();
// Start and stop; the caller holds the control lock.
int kel_avs_ffm_start_thread();
int kel_avs_ffm_stop_thread();
// The stop that the pipeline's own threads make when the board or its
// capture device has gone: takes the control lock itself (the thread holds no
// other lock of the pipeline when it calls this). Always 0.
int kel_avs_ffm_stop_thread_on_device_loss();
void* kel_avs_ffm_alsa_capture_thread(void*);
void* kel_avs_ffm_hid_detection_thread(void*);
uint32_t kel_avs_ffm_ClockGetInMS();

// Runs `script` through the shell, then reads the count and that many
// numbers of `file` into `blob` (one byte each, at most METADATA_BLOB_LEN).
// 1 when the file was read, 0 when it could not be opened (length 0).
int kel_avs_ffm_getMetadataBlob(const char* script, const char* file, uint32_t* length,
                                uint8_t* blob);

// Observers for tests and tools; each reads under its lock or atomically.
ThreadState captureState();
ThreadState detectionState();
Readiness readinessState();
ActionButton buttonState();
// Whether live periods go to the application from the capture step.
bool sendingDirectly();
// Whether the ring is set up (bInitFlag), and how many samples have been
// written into it since the capture started; both read under ringMutex.
bool ringReady();
uint64_t ringSamplesWritten();
// Sets both thread state words at once, each under its lock, with no thread
// behind them: lets a test put the control functions in the state of a
// running (or ended) pipeline.
void setThreadStates(ThreadState state);
// The number a log line prints for a state.
constexpr int toInt(Readiness state)
{
    return static_cast<int>(state);
}
constexpr int toInt(ActionButton state)
{
    return static_cast<int>(state);
}

} // namespace zor::audio::ffm

#endif
