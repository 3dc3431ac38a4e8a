/*
 * The exported command functions that assistant applications call.
 *
 * Threading: every function runs on the caller's thread and blocks until the
 * middleware has answered (or the messaging layer gave up). Functions may be
 * called from several threads at once, except ZOR_App_GetCertificate, whose
 * record is process-wide: callers serialise it.
 *
 * Ownership: pointer arguments are borrowed for the call only.
 *
 * Results: the middleware's 32-bit status word (0 or positive is success by
 * convention), or -1 when the library refused the call before sending it (a
 * null or over-long argument, with a line on stdout) or the transmission
 * failed. Query functions that deliver reply fields "whatever the status"
 * still fill their outputs when the status is negative: look at the result
 * before trusting them.
 */
#ifndef ZOR_ZOR_API_H
#define ZOR_ZOR_API_H

#include "zor/zor_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Set-up ---------------------------------------------------------------- */

/* Starts the library for an application type: registers the inbound server and
 * opens the client endpoint. Returns the client endpoint's result (0), or -1
 * for an unknown type. Call once, before any command. */
ZOR_EXPORT int ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_T type);
ZOR_EXPORT int ZOR_GA_Init(void);
ZOR_EXPORT int ZOR_App_initCompleted(EN_ZOR_COMMON_APP_TYPE_T type);
ZOR_EXPORT int ZOR_App_TriggerCaptureData(unsigned int start);
ZOR_EXPORT int initServer(const char* name);
ZOR_EXPORT int initClient(const char* name);

/* Middleware-set options (called by the server on its thread). */
ZOR_EXPORT void setFFMSup(_ST_FFM_INFO info);
ZOR_EXPORT void setButtonTappedType(_EN_AVS_TAPPED_TYPE type);

/* ---- Assistant class (0x1801xxxx) ------------------------------------------ */

ZOR_EXPORT int ZOR_App_LoadURLInWindow(unsigned int param, EN_ZOR_APP_WINDOW_TYPE type,
                                       const char* url, unsigned char background);
ZOR_EXPORT int ZOR_App_GetDeviceSetting(ST_ZOR_APP_DATA_SETTING_T* pt_setting);
ZOR_EXPORT int ZOR_App_informStates(EN_AVS_STATE state);
ZOR_EXPORT int ZOR_App_InformSetupStatus(EN_ZOR_APP_SETUP_STATE_T state);
ZOR_EXPORT int ZOR_App_SetSwitchOnMode(EN_ZOR_APP_SWITCH_ON_STATE_T mode);
ZOR_EXPORT int ZOR_App_setUserSelectionChromeGlow(int selection);
ZOR_EXPORT int ZOR_App_startStreamingMicrophoneData(_EN_AVS_AUDIO_SOURCE_TYPE source);
ZOR_EXPORT int ZOR_App_stopStreamingMicrophoneData(void);
ZOR_EXPORT int ZOR_App_SetAlexaLanguageSlection(char* language);
ZOR_EXPORT int ZOR_App_NotifyAVSWakeword(void);

/* ---- Voice-control class (0x1802xxxx) -------------------------------------- */

ZOR_EXPORT int ZOR_Voice_Ctrl_Init(void);
ZOR_EXPORT int ZOR_App_SetBrowserCertificates(char* data1, char* data2, char* data3,
                                              char* subjectName);

/* ---- Video class (0x1803xxxx) ---------------------------------------------- */

ZOR_EXPORT int ZOR_App_SetWallglowState(bool on);
ZOR_EXPORT int ZOR_App_SetWallglowToFollow(unsigned char follow);
ZOR_EXPORT int ZOR_App_TuneToInputSrc(char* ps_srcName);
ZOR_EXPORT int ZOR_App_GetCurrentInputSource(char* pc_current_source);
ZOR_EXPORT int ZOR_App_GetCurrentInputSrc(char* srcName);
ZOR_EXPORT int ZOR_App_GetInputSouceList(_VOICECTRL_SOURCE_INFO* pt_sourceList,
                                         unsigned int* i4_bufLen);
ZOR_EXPORT int ZOR_App_GetPlayerStatus(EN_VOICECTRL_PLAYBACK_STATUS* pt_value);
ZOR_EXPORT int ZOR_App_SetPictureStyle(EN_VOICECTRL_PICTURE_MODE_T style);

/* ---- Audio class (0x1804xxxx) ---------------------------------------------- */

/* Set functions return the status. Queries return the value from the reply,
 * not the status: a failed query can't be told from a reported value. */
ZOR_EXPORT int ZOR_App_SetMute(unsigned char mute);
ZOR_EXPORT int ZOR_App_GetMute(void);
ZOR_EXPORT int ZOR_App_SetVolume(unsigned char volume);
ZOR_EXPORT int ZOR_App_GetVolume(void);
ZOR_EXPORT int ZOR_App_GetMaxVolume(void);
ZOR_EXPORT int ZOR_App_SetMainAudioGain(int gain);
ZOR_EXPORT int ZOR_App_SetSoundStyle(EN_VOICECTRL_SOUND_MODE_T style);

/* ---- Channel class (0x1805xxxx) -------------------------------------------- */

ZOR_EXPORT int ZOR_App_GetChannelNumber(unsigned long* number);
ZOR_EXPORT int ZOR_App_GetChannelList(_VOICECTRL_CHANNEL_INFO* pt_channel_info,
                                      unsigned long* number);
ZOR_EXPORT int ZOR_App_GetCurrentChannel(_VOICECTRL_CHANNEL_INFO* pt_current_info);
ZOR_EXPORT int ZOR_App_TuneToNextChannel(void);
ZOR_EXPORT int ZOR_App_TuneToPreviousChannel(void);
ZOR_EXPORT int ZOR_App_ChangeToChannel(_VOICECTRL_CHANNEL_INFO* pt_channel_info);
ZOR_EXPORT int ZOR_App_TuneToChannel(unsigned int u32Channel);
ZOR_EXPORT int ZOR_App_TuneToChannel_2(char* ps_channel);
ZOR_EXPORT int ZOR_App_TuneToLastTunedChannel(void);
ZOR_EXPORT int ZOR_App_StartFVPApp(char* ait_url, char* crid);
ZOR_EXPORT int ZOR_App_TuneToFVPChannel(char* crid);

/* ---- System class (0x1806xxxx) --------------------------------------------- */

ZOR_EXPORT int ZOR_App_SetPowerControl(bool on);
ZOR_EXPORT int ZOR_App_SetUSBSource(void);
ZOR_EXPORT int ZOR_App_SetIOTCertificate(unsigned char value);
ZOR_EXPORT int ZOR_App_GetEnvironment(unsigned char* env);
ZOR_EXPORT int ZOR_App_GetFWversion(char* version);
ZOR_EXPORT int ZOR_App_showFVPRecommendation(char* path);
ZOR_EXPORT int ZOR_App_showFVPCollection(char* collectionCrid);
ZOR_EXPORT int ZOR_App_TuneToFVPProgram(char* first, char* second);
ZOR_EXPORT int ZOR_App_restartCurrentFVPProgram(void);
ZOR_EXPORT int ZOR_App_SetModes(EN_VOICECTRL_CTRL_MODE_T mode);
ZOR_EXPORT int ZOR_App_SetAVSToken(char* avsToken, int length);
ZOR_EXPORT int ZOR_App_GetAVSToken(char* avsToken, int* length);
ZOR_EXPORT int ZOR_App_GetTimeZone(char* timeZone);
ZOR_EXPORT int ZOR_App_GetFFmicOptionBit(bool* option);
ZOR_EXPORT int ZOR_App_LoadTevoraApp(char* appName, char* appId);

/* ---- Miscellaneous class (0x1807xxxx) -------------------------------------- */

ZOR_EXPORT int ZOR_App_SendPlaybackCtrl(const char* ps_command);
ZOR_EXPORT int ZOR_App_GetCertificate(char* buffer, unsigned int* ui4_bufLen);
ZOR_EXPORT int ZOR_App_GetOptionBits(char* option0, char* option1, char* option2,
                                     char* option3);
ZOR_EXPORT int ZOR_App_GetOptionBit(bool* optionGA);
ZOR_EXPORT int ZOR_App_GetWallglowOptionBit(char* option);
ZOR_EXPORT int ZOR_App_StartSmartTVApp(char* appName, char* command, int i4AppParam);
ZOR_EXPORT int ZOR_App_StartUIControl(char* ps_name, char* ps_subCommand);
ZOR_EXPORT int ZOR_App_GetActiveApp(EN_VOICECTRL_ACTIVE_APP* pt_value);
ZOR_EXPORT int ZOR_App_Inject_RC_Key(const char* ps_key);
ZOR_EXPORT int ZOR_App_StartYoutubeVideo(char* video_id, int i4VideoParam);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
