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

ZOR_EXPORT int startAlsaCaptureThread(void);
ZOR_EXPORT int stopAlsaCaptureThread(void);
ZOR_EXPORT int initCaptureThreadMutex(void);
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

typedef struct {
    uint32_t u32Access;
    uint32_t u32Format;
    uint32_t u32Channels;
    uint32_t u32Rate;
    uint32_t u32PeriodSize;
} _ST_ALSA_WRITE_PARAMS;

ZOR_EXPORT extern _ST_ALSA_WRITE_PARAMS g_alsa_write_handle;

ZOR_EXPORT int youtube_softmic_alsa_write_init(void);
ZOR_EXPORT void youtube_softmic_alsa_write_start(void);
ZOR_EXPORT void youtube_softmic_alsa_write_stop(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
