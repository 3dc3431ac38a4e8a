/*
 * Application callbacks: the middleware's commands reach the application
 * through these. Each register function stores its pointer (null unregisters)
 * and returns 1. Registration may happen at any time; the next command uses
 * the pointer registered last.
 *
 * Which thread calls what:
 *  - mic button tapped, mic button hold, control changed: a library worker
 *    thread, within about 200 ms of the command;
 *  - PCM data: the server thread for PCM sent by the middleware, the capture
 *    thread for remote-control and far-field audio; the buffer is only valid
 *    during the call;
 *  - wake word: the far-field detection thread;
 *  - every other callback: the server thread, before the middleware gets its
 *    reply (so a callback that blocks delays the middleware).
 *
 * Strings handed to callbacks are always terminated (a field the middleware
 * filled to its last byte included) and valid only during the call. A PCM
 * command announcing more samples than one message can carry (1 MiB) is
 * dropped without a callback. Fields missing from a short command read as 0.
 */
#ifndef ZOR_ZOR_CALLBACKS_H
#define ZOR_ZOR_CALLBACKS_H

#include "zor/zor_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t EN_AVS_COMMAND_TYPE;
typedef int32_t EN_AVS_UI_STATUS;
typedef int32_t EN_AVS_RESET_STATE;
typedef int32_t EN_VOICECTRL_NOTIFY_TYPE;

typedef int (*ZOR_PFN_VOID)(void);
typedef int (*ZOR_PFN_BOOL)(bool);
typedef int (*ZOR_PFN_INT)(int);
typedef int (*ZOR_PFN_COMMAND_TYPE)(EN_AVS_COMMAND_TYPE);
typedef int (*ZOR_PFN_UI_STATUS)(EN_AVS_UI_STATUS, unsigned int);
typedef int (*ZOR_PFN_STRING)(char*);
typedef int (*ZOR_PFN_RESET_STATE)(EN_AVS_RESET_STATE);
typedef int (*ZOR_PFN_NOTIFY_TYPE)(EN_VOICECTRL_NOTIFY_TYPE);
/* data, length in bytes: 16 kHz signed 16-bit little-endian mono */
typedef int (*ZOR_PFN_PCM)(void* data, unsigned int bytes);
/* keyword begin and end (sample positions in the audio that follows), keyword
 * name, metadata length and bytes */
typedef int (*ZOR_PFN_WAKEWORD)(unsigned int begin, unsigned int end, char* keyword,
                                unsigned int metadataLen, char* metadata);

typedef struct {
    ZOR_PFN_VOID fptrMicButtonTappedCallback;
    ZOR_PFN_BOOL fptrMicButtonHoldCallback;
    ZOR_PFN_INT fptrSetPowerModeCallback;
    ZOR_PFN_VOID fptrSetTimeZoneCallback;
    ZOR_PFN_VOID fptrActivateAVSCallback;
    ZOR_PFN_COMMAND_TYPE fptrEnableDisableAVSCallback;
    ZOR_PFN_UI_STATUS fptrReportUIStatusCallback;
    ZOR_PFN_STRING fptrUserChangedLanguageCallback;
    ZOR_PFN_STRING fptrUserChangedCountryCallback;
    ZOR_PFN_RESET_STATE fptrRestAVSCallback;
    ZOR_PFN_NOTIFY_TYPE fptrInformControlChangedCallback;
    ZOR_PFN_VOID fptrQueryForIOTCertificateCallback;
    ZOR_PFN_STRING fptrInformTevoraCertificateChangedCallback;
    ZOR_PFN_PCM fptrsendAudioPCMDataCallback;
    ZOR_PFN_WAKEWORD fptrSendWakeWordDetectionSignalCallback;
    ZOR_PFN_VOID fptrNotifyActionButtonPressedCallback;
    ZOR_PFN_BOOL fptrSetFFmicStatusCallback;
    ZOR_PFN_BOOL fptrNotifyFWUpdateStatusCallback;
} ST_AVSP_CALLBACK_FUN;

ZOR_EXPORT int ZOR_MicButtonTapped_register_callback(ZOR_PFN_VOID fn);
ZOR_EXPORT int ZOR_MicButtonHold_register_callback(ZOR_PFN_BOOL fn);
ZOR_EXPORT int ZOR_SetPowerMode_register_callback(ZOR_PFN_INT fn);
ZOR_EXPORT int ZOR_SetTimeZone_register_callback(ZOR_PFN_VOID fn);
ZOR_EXPORT int ZOR_ActivateApp_register_callback(ZOR_PFN_VOID fn);
ZOR_EXPORT int ZOR_EnableDisableApp_register_callback(ZOR_PFN_COMMAND_TYPE fn);
ZOR_EXPORT int ZOR_ReportUIStatus_register_callback(ZOR_PFN_UI_STATUS fn);
ZOR_EXPORT int ZOR_UserChangedLanguage_register_callback(ZOR_PFN_STRING fn);
ZOR_EXPORT int ZOR_UserChangedCountry_register_callback(ZOR_PFN_STRING fn);
ZOR_EXPORT int ZOR_ResetApp_register_callback(ZOR_PFN_RESET_STATE fn);
ZOR_EXPORT int ZOR_InformControlChanged_register_callback(ZOR_PFN_NOTIFY_TYPE fn);
ZOR_EXPORT int ZOR_QueryForIOTCertificate_register_callback(ZOR_PFN_VOID fn);
ZOR_EXPORT int ZOR_InformTevoraCertificate_register_callback(ZOR_PFN_STRING fn);
/* Also the PCM target of the remote-control and far-field captures. */
ZOR_EXPORT int ZOR_SendAudioPCMData_register_callback(ZOR_PFN_PCM fn);
/* Also handed to the far-field pipeline. */
ZOR_EXPORT int ZOR_FF_SendWakeWordDetectionSignal_register_callback(ZOR_PFN_WAKEWORD fn);
ZOR_EXPORT int ZOR_NotifyActionButtonPressed_register_callback(ZOR_PFN_VOID fn);
ZOR_EXPORT int ZOR_SetFFmicStatus_register_callback(ZOR_PFN_BOOL fn);
ZOR_EXPORT int ZOR_FF_NotifyFWUpdateStatus_register_callback(ZOR_PFN_BOOL fn);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
