// TEMPORARY (removed when the audio units land): weak stand-ins so that libzor
// links while the capture and far-field units are written. Real definitions
// in other units take precedence over these.
#include "zor/zor_audio.h"

#define WEAK __attribute__((weak))

extern "C" {
WEAK int startAlsaCaptureThread(void)
{
    return -1;
}
WEAK int stopAlsaCaptureThread(void)
{
    return 0;
}
WEAK int initCaptureThreadMutex(void)
{
    return 0;
}
WEAK void alsaCaptureRegisterCallback(ZOR_PFN_PCM) {}
WEAK void KEL_AVS_FFM_Init(_ST_FFM_INFO) {}
WEAK void KEL_AVS_FFM_NotifyAudDSPStatus(int) {}
WEAK int KEL_AVS_FFM_TriggerCaptureData(int)
{
    return 0;
}
WEAK void KEL_AVS_FFM_TrigSendPCMData(bool) {}
WEAK void KEL_AVS_FFM_NotifyActionButtonPressed(void) {}
WEAK void KEL_AVS_FFM_NotifyYTSoftMicStatus(int) {}
WEAK void KEL_AVS_FFM_NotifyPowerStatus(int) {}
WEAK void KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(ZOR_PFN_WAKEWORD) {}
WEAK void KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(ZOR_PFN_VOID) {}
WEAK void KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(ZOR_PFN_PCM) {}
WEAK int youtube_softmic_alsa_write_init(void)
{
    return -1;
}
WEAK void youtube_softmic_alsa_write_start(void) {}
WEAK void youtube_softmic_alsa_write_stop(void) {}
}
