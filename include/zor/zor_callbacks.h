/* SPDX-License-Identifier: MIT */
/**
 * @file
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

/** Enable (or disable) command value (the middleware's values). */
typedef int32_t EN_AVS_COMMAND_TYPE;
/** UI status reported by the middleware (the middleware's values). */
typedef int32_t EN_AVS_UI_STATUS;
/** Reset kind (the middleware's values). */
typedef int32_t EN_AVS_RESET_STATE;
/** Control-changed notification (the middleware's values). */
typedef int32_t EN_VOICECTRL_NOTIFY_TYPE;

/** @name Callback types
 * Each returns an int that the library ignores (the middleware's reply is
 * written before or regardless of it).
 * @{ */
/** A notification without arguments. */
typedef int (*ZOR_PFN_VOID)(void);
/** A notification with a flag. */
typedef int (*ZOR_PFN_BOOL)(bool);
/** A notification with an integer (the power mode). */
typedef int (*ZOR_PFN_INT)(int);
/** Enable or disable the application. */
typedef int (*ZOR_PFN_COMMAND_TYPE)(EN_AVS_COMMAND_TYPE);
/** UI status and its parameter. */
typedef int (*ZOR_PFN_UI_STATUS)(EN_AVS_UI_STATUS, unsigned int);
/** A text: terminated, the library's, valid during the call only. */
typedef int (*ZOR_PFN_STRING)(char*);
/** Reset the application. */
typedef int (*ZOR_PFN_RESET_STATE)(EN_AVS_RESET_STATE);
/** Control changed. */
typedef int (*ZOR_PFN_NOTIFY_TYPE)(EN_VOICECTRL_NOTIFY_TYPE);
/** data, length in bytes: 16 kHz signed 16-bit little-endian mono */
typedef int (*ZOR_PFN_PCM)(void* data, unsigned int bytes);
/** keyword begin and end (sample positions in the audio that follows), keyword
 * name, metadata length and bytes. Both pointers are the library's storage
 * and outlive the call, so the application may keep them (and must not write
 * through them): the keyword stays valid for the life of the process, the
 * metadata until the next wake word's callback, whose data replaces it. */
typedef int (*ZOR_PFN_WAKEWORD)(unsigned int begin, unsigned int end, char* keyword,
                                unsigned int metadataLen, char* metadata);
/** @} */

/** The library's callback table (the server reads it); one pointer per
 * register function below, null when none is registered. */
typedef struct {
    ZOR_PFN_VOID fptrMicButtonTappedCallback;                  /**< microphone button tapped */
    ZOR_PFN_BOOL fptrMicButtonHoldCallback;                    /**< microphone button held */
    ZOR_PFN_INT fptrSetPowerModeCallback;                      /**< power mode */
    ZOR_PFN_VOID fptrSetTimeZoneCallback;                      /**< time zone changed */
    ZOR_PFN_VOID fptrActivateAVSCallback;                      /**< activate the assistant */
    ZOR_PFN_COMMAND_TYPE fptrEnableDisableAVSCallback;         /**< enable or disable */
    ZOR_PFN_UI_STATUS fptrReportUIStatusCallback;              /**< UI status */
    ZOR_PFN_STRING fptrUserChangedLanguageCallback;            /**< language changed */
    ZOR_PFN_STRING fptrUserChangedCountryCallback;             /**< country changed */
    ZOR_PFN_RESET_STATE fptrRestAVSCallback;                   /**< reset */
    ZOR_PFN_NOTIFY_TYPE fptrInformControlChangedCallback;      /**< control changed */
    ZOR_PFN_VOID fptrQueryForIOTCertificateCallback;           /**< IoT certificate asked for */
    ZOR_PFN_STRING fptrInformTevoraCertificateChangedCallback; /**< portal certificate changed */
    ZOR_PFN_PCM fptrsendAudioPCMDataCallback;                  /**< PCM audio */
    ZOR_PFN_WAKEWORD fptrSendWakeWordDetectionSignalCallback;  /**< far-field wake word */
    ZOR_PFN_VOID fptrNotifyActionButtonPressedCallback;        /**< action button pressed */
    ZOR_PFN_BOOL fptrSetFFmicStatusCallback;                   /**< far-field microphone status */
    ZOR_PFN_BOOL fptrNotifyFWUpdateStatusCallback;             /**< DSP firmware update status */
} ST_AVSP_CALLBACK_FUN;

/** @name Register functions
 * Store the callback for one inbound command (null unregisters) and return
 * 1. Any thread, at any time; the pointer is kept until replaced. The
 * callback runs on the thread named in the file description.
 * @{ */

/** Microphone button tapped; a worker thread. */
ZOR_EXPORT int ZOR_MicButtonTapped_register_callback(ZOR_PFN_VOID fn);
/** Microphone button held (true) or released; a worker thread. */
ZOR_EXPORT int ZOR_MicButtonHold_register_callback(ZOR_PFN_BOOL fn);
/** Power mode; the server thread. */
ZOR_EXPORT int ZOR_SetPowerMode_register_callback(ZOR_PFN_INT fn);
/** Time zone changed (read it with ZOR_App_GetTimeZone()); the server thread. */
ZOR_EXPORT int ZOR_SetTimeZone_register_callback(ZOR_PFN_VOID fn);
/** Activate the assistant; the server thread. */
ZOR_EXPORT int ZOR_ActivateApp_register_callback(ZOR_PFN_VOID fn);
/** Enable or disable the assistant; the server thread. */
ZOR_EXPORT int ZOR_EnableDisableApp_register_callback(ZOR_PFN_COMMAND_TYPE fn);
/** UI status; the server thread. */
ZOR_EXPORT int ZOR_ReportUIStatus_register_callback(ZOR_PFN_UI_STATUS fn);
/** The user changed the language; the server thread. */
ZOR_EXPORT int ZOR_UserChangedLanguage_register_callback(ZOR_PFN_STRING fn);
/** The user changed the country; the server thread. */
ZOR_EXPORT int ZOR_UserChangedCountry_register_callback(ZOR_PFN_STRING fn);
/** Reset the assistant; the server thread. */
ZOR_EXPORT int ZOR_ResetApp_register_callback(ZOR_PFN_RESET_STATE fn);
/** Control changed; a worker thread. */
ZOR_EXPORT int ZOR_InformControlChanged_register_callback(ZOR_PFN_NOTIFY_TYPE fn);
/** The television asks for the IoT certificate; the server thread. */
ZOR_EXPORT int ZOR_QueryForIOTCertificate_register_callback(ZOR_PFN_VOID fn);
/** The portal certificate changed; the server thread. */
ZOR_EXPORT int ZOR_InformTevoraCertificate_register_callback(ZOR_PFN_STRING fn);
/** PCM audio: the server thread for PCM sent by the middleware, the capture
 * threads for the remote-control and far-field captures (also their PCM
 * target). */
ZOR_EXPORT int ZOR_SendAudioPCMData_register_callback(ZOR_PFN_PCM fn);
/** Far-field wake word; the detection thread. Also handed to the far-field
 * pipeline. */
ZOR_EXPORT int ZOR_FF_SendWakeWordDetectionSignal_register_callback(ZOR_PFN_WAKEWORD fn);
/** Action button pressed; the server thread. */
ZOR_EXPORT int ZOR_NotifyActionButtonPressed_register_callback(ZOR_PFN_VOID fn);
/** Far-field microphone on or off; the server thread. */
ZOR_EXPORT int ZOR_SetFFmicStatus_register_callback(ZOR_PFN_BOOL fn);
/** DSP firmware update under way (true) or over; the server thread (and the
 * caller's thread of ZOR_App_SetAlexaLanguageSlection()). */
ZOR_EXPORT int ZOR_FF_NotifyFWUpdateStatus_register_callback(ZOR_PFN_BOOL fn);
/** @} */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
