/*
 * Microphone audio: remote-control capture, the far-field pipeline's control
 * surface and the soft-microphone output. All audio is 16 kHz signed 16-bit
 * little-endian; towards the application it is mono.
 */
#ifndef ZOR_ZOR_AUDIO_H
#define ZOR_ZOR_AUDIO_H

#include "zor/zor_callbacks.h"
#include "zor/zor_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Remote-control microphone capture ("hw:0,6") -------------------------- */

/*
 * At most one capture thread reads 16 kHz mono S16_LE periods of 32 frames
 * (64 bytes) from "hw:0,6", hands each period to the PCM callback and appends
 * it to a raw dump file "/tmp/rec<UTC %Y%m%d%H%M%S>.pcm" (mode 0644; a second
 * capture in the same second truncates the file). The thread is detached and
 * owns the device, the period buffer and the dump file; it releases all three
 * before the capture state returns to "none". Device, dump-file and parameter
 * failures are reported on stdout only: the thread ends at once.
 * All four functions may be called from any thread.
 */

/* Starts a capture when none exists and returns 0, or -1 when the thread
 * could not be created. When a capture exists (running or stopping) it is
 * asked to stop, nothing new starts and the result is 0: call again once it
 * has ended. */
ZOR_EXPORT int startAlsaCaptureThread(void);

/* Asks a running capture to stop; it ends after the period being read (a
 * blocking read). Returns 0; does nothing (and prints nothing) when no capture
 * runs or one is already stopping. */
ZOR_EXPORT int stopAlsaCaptureThread(void);

/* The capture lock is initialised statically and may be held by a running
 * capture, so initialising it again is not done: always returns 0. */
ZOR_EXPORT int initCaptureThreadMutex(void);

/* Stores the PCM callback (NULL removes it); takes effect from the next
 * period. The capture thread calls it once per period with the period buffer,
 * which the library owns and reuses after the return, and its length in
 * bytes; it must return quickly, the next read waits for it. It may call
 * stopAlsaCaptureThread(). Without a callback capture and dump go on. */
ZOR_EXPORT void alsaCaptureRegisterCallback(ZOR_PFN_PCM fn);

/* ---- Far-field control ----------------------------------------------------- */

ZOR_EXPORT void KEL_AVS_FFM_Init(_ST_FFM_INFO info);
ZOR_EXPORT void KEL_AVS_FFM_NotifyAudDSPStatus(int status);
ZOR_EXPORT int KEL_AVS_FFM_TriggerCaptureData(int start);
ZOR_EXPORT void KEL_AVS_FFM_TrigSendPCMData(bool send);
ZOR_EXPORT void KEL_AVS_FFM_NotifyActionButtonPressed(void);
ZOR_EXPORT void KEL_AVS_FFM_NotifyYTSoftMicStatus(int status);
ZOR_EXPORT void KEL_AVS_FFM_NotifyPowerStatus(int mode);
ZOR_EXPORT void KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(ZOR_PFN_WAKEWORD fn);
ZOR_EXPORT void KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(ZOR_PFN_VOID fn);
ZOR_EXPORT void KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(ZOR_PFN_PCM fn);

/* ---- Soft-microphone output ("hw:0,3") ------------------------------------- */

/*
 * While the middleware reports the YouTube soft microphone active, the
 * far-field capture thread plays its mono periods into "hw:0,3". Set-up, start
 * and stop come from the server thread; they may be called from any thread and
 * are serialised against each other and against the capture thread's writes
 * (a stop or set-up waits for the period being written, at most one period).
 */

/* Parameters of the output, ALSA enumeration values. */
typedef struct {
    uint32_t u32Access;     /* 3: interleaved read/write */
    uint32_t u32Format;     /* 2: S16_LE */
    uint32_t u32Channels;   /* 1 */
    uint32_t u32Rate;       /* 16000; replaced by the rate the device gives */
    uint32_t u32PeriodSize; /* 896 at load; every set-up sets 320 or what the device gives */
} _ST_ALSA_WRITE_PARAMS;

/* Read by each set-up and updated by it; change it only while no set-up runs. */
ZOR_EXPORT extern _ST_ALSA_WRITE_PARAMS g_alsa_write_handle;

/* Opens and configures "hw:0,3" for playback (period 320 frames, buffer 8
 * periods). An output that is already open is drained and closed first, then
 * opened afresh, so two set-ups in a row leave one open device. Returns 0, or
 * -1 after printing the failing step; a device that failed to configure is
 * closed again, so no audio is written until a later set-up succeeds. */
ZOR_EXPORT int youtube_softmic_alsa_write_init(void);

/* Routes far-field audio to the output (when it is open) and holds back
 * wake-word reports. Does not open anything. */
ZOR_EXPORT void youtube_softmic_alsa_write_start(void);

/* Stops the routing; an open output is drained (what is queued plays out) and
 * closed. With the output closed it only clears the routing. */
ZOR_EXPORT void youtube_softmic_alsa_write_stop(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
