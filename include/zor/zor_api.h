/* SPDX-License-Identifier: MIT */
/**
 * @file
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

/** Starts the library for an application type: registers the inbound server and
 * opens the client endpoint. Returns the client endpoint's result (0), or -1
 * for an unknown type. Call once, before any command. */
ZOR_EXPORT int ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_T type);
/** Always 0; does nothing else. */
ZOR_EXPORT int ZOR_GA_Init(void);
/** Tells the television that the application is ready (status of the
 * init-completed command). For the AVS application on a set whose far-field
 * record (setFFMSup) says a microphone array is present, also starts the
 * far-field pipeline: its threads run once the DSP is reported ready too, and
 * wake words then reach the wake-word callback and the television. Register
 * the callbacks before calling this. */
ZOR_EXPORT int ZOR_App_initCompleted(EN_ZOR_COMMON_APP_TYPE_T type);
/** 1 starts the far-field capture and detection threads, anything else stops
 * them; the far-field control's result. */
ZOR_EXPORT int ZOR_App_TriggerCaptureData(unsigned int start);
/** Registers the inbound server under `name` (a failure is logged); always 1. */
ZOR_EXPORT int initServer(const char* name);
/** Opens the client endpoint towards `name`: 0, or -1 for an invalid name. */
ZOR_EXPORT int initClient(const char* name);

/** Middleware-set options, called by the server on its thread. setFFMSup
 * records the far-field record for the next ZOR_App_initCompleted; a running
 * pipeline is not touched. */
ZOR_EXPORT void setFFMSup(_ST_FFM_INFO info);
/** Records the remote-control button mode (server thread); ends microphone
 * streaming when the mode changes while streaming is active. */
ZOR_EXPORT void setButtonTappedType(_EN_AVS_TAPPED_TYPE type);

/* ---- Assistant class (0x1801xxxx) ------------------------------------------ */

/** -1 without sending for a null URL or one longer than 1024 characters. */
ZOR_EXPORT int ZOR_App_LoadURLInWindow(unsigned int param, EN_ZOR_APP_WINDOW_TYPE type,
                                       const char* url, unsigned char background);
/** The device settings into the caller's record (68 bytes), whatever the
 * status. Null record: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_GetDeviceSetting(ST_ZOR_APP_DATA_SETTING_T* pt_setting);
/** State 4 first stops the remote-control capture and far-field sending. */
ZOR_EXPORT int ZOR_App_informStates(EN_AVS_STATE state);
/** Reports the set-up progress; the status. */
ZOR_EXPORT int ZOR_App_InformSetupStatus(EN_ZOR_APP_SETUP_STATE_T state);
/** Sets the switch-on mode; the status. */
ZOR_EXPORT int ZOR_App_SetSwitchOnMode(EN_ZOR_APP_SWITCH_ON_STATE_T mode);
/** Reports the user's wall-lighting choice (a word); the status. */
ZOR_EXPORT int ZOR_App_setUserSelectionChromeGlow(int selection);
/** Microphone streaming; PCM then arrives at the PCM callback. Source 0
 * (far-field) returns 1; 1 (the middleware's stream) the command's status; 2
 * (remote control) tells the television to open the microphone and returns
 * the local capture's start result; any other value starts nothing and
 * returns 0. Stop acts on the source of the last start (the same results)
 * and resets the source to 3 (none). The library itself stops streaming when
 * the middleware changes the button mode meanwhile (on the server thread).
 *
 * Any thread may start and stop, also at the same time: the calls take effect
 * in one order, the state that the next call sees is that of the call that
 * took effect last, and the commands reach the television in that order, one
 * at a time. Two stops racing each other stop the stream once; the other finds
 * nothing to stop. No call waits for another thread's command: a call made
 * while another thread is still carrying out a start or stop hands its own
 * start or stop to that thread, which carries it out before it returns, and
 * returns at once with 0 (1 for the far-field source) instead of the status it
 * did not wait for. At most 16 calls wait like that; a further one is refused
 * with -1 and a line, and changes nothing. */
ZOR_EXPORT int ZOR_App_startStreamingMicrophoneData(_EN_AVS_AUDIO_SOURCE_TYPE source);
/** Ends the streaming started last; see ZOR_App_startStreamingMicrophoneData(). */
ZOR_EXPORT int ZOR_App_stopStreamingMicrophoneData(void);
/** Sends the first 6 bytes of the code. The far-field DSP is reported not
 * ready until the middleware says otherwise, and the firmware-update callback
 * is called with true. A null language is refused with -1: nothing is sent
 * and the DSP state is not touched. */
ZOR_EXPORT int ZOR_App_SetAlexaLanguageSlection(char* language);
/** Tells the television of a wake word; always 0. Also called by the
 * far-field detection thread. */
ZOR_EXPORT int ZOR_App_NotifyAVSWakeword(void);

/* ---- Voice-control class (0x1802xxxx) -------------------------------------- */

/** Sends the voice-control init command (no data); returns the status. */
ZOR_EXPORT int ZOR_Voice_Ctrl_Init(void);
/** Sends four caller-owned strings, each with its terminator, behind a header of
 * their lengths (+1). No length limit. A null string is refused by the
 * encoder before any is read: -1, "certificate string is NULL." (an error
 * line), nothing sent. Prints the subject name unconditionally. */
ZOR_EXPORT int ZOR_App_SetBrowserCertificates(char* data1, char* data2, char* data3,
                                              char* subjectName);

/* ---- Video class (0x1803xxxx) ---------------------------------------------- */

/** Wall lighting on (1) or off (0); one byte; the status. */
ZOR_EXPORT int ZOR_App_SetWallglowState(bool on);
/** What the wall lighting follows; one byte; the status. */
ZOR_EXPORT int ZOR_App_SetWallglowToFollow(unsigned char follow);
/** Tunes to the source named ps_srcName (at most 64 characters; longer or null
 * is refused with -1 and a line, nothing sent). */
ZOR_EXPORT int ZOR_App_TuneToInputSrc(const char* ps_srcName);
/** The current source's name into a caller's buffer of 65 bytes, always
 * terminated (a reply text without terminator is cut at 64 characters).
 * Delivered whatever the status. Null buffer: -1, nothing sent. The two entry
 * points differ only in their null message. */
ZOR_EXPORT int ZOR_App_GetCurrentInputSource(char* pc_current_source);
/** As ZOR_App_GetCurrentInputSource(), with its own null message. */
ZOR_EXPORT int ZOR_App_GetCurrentInputSrc(char* srcName);
/** Asks for the number of sources, stores it into *i4_bufLen, then fetches that
 * many records into pt_sourceList, which must hold as many records as the
 * television reports (no more than that count is ever written): learn the
 * count first with ZOR_App_GetInputSourceNumber. Returns 0
 * with "no source" when the count is 0 (or its command failed); on a negative
 * status of the list command nothing is copied and the status is returned. */
ZOR_EXPORT int ZOR_App_GetInputSouceList(_VOICECTRL_SOURCE_INFO* pt_sourceList, int* i4_bufLen);
/** The number of input sources into *i4_count (0 when the status is -1): the
 * same count command that ZOR_App_GetInputSouceList sends first. Allocate the
 * list's array for this count, with room for sources that may appear before
 * the list call counts again. Returns the status; null i4_count: -1 with a
 * line on stdout, nothing sent. */
ZOR_EXPORT int ZOR_App_GetInputSourceNumber(int* i4_count);
/** Playback status (preset 6 before the query), delivered whatever the status. */
ZOR_EXPORT int ZOR_App_GetPlayerStatus(EN_VOICECTRL_PLAYBACK_STATUS* pt_value);
/** Sets the picture style; the status. */
ZOR_EXPORT int ZOR_App_SetPictureStyle(EN_VOICECTRL_PICTURE_MODE_T style);

/* ---- Audio class (0x1804xxxx) ---------------------------------------------- */

/* Set functions return the status. Queries return the value from the reply,
 * not the status: a failed query can't be told from a reported value. */
/** Mutes (1) or unmutes (0); the status. */
ZOR_EXPORT int ZOR_App_SetMute(unsigned char mute);
/** The mute state from the reply (not the status). */
ZOR_EXPORT int ZOR_App_GetMute(void);
/** Sets the volume; the status. */
ZOR_EXPORT int ZOR_App_SetVolume(unsigned char volume);
/** The volume from the reply (not the status). */
ZOR_EXPORT int ZOR_App_GetVolume(void);
/** The maximum volume from the reply (not the status). */
ZOR_EXPORT int ZOR_App_GetMaxVolume(void);
/** Sets the main audio gain (a word); the status. */
ZOR_EXPORT int ZOR_App_SetMainAudioGain(int gain);
/** Sets the sound style; the status. */
ZOR_EXPORT int ZOR_App_SetSoundStyle(EN_VOICECTRL_SOUND_MODE_T style);

/* ---- Channel class (0x1805xxxx) -------------------------------------------- */

/** Number of channels into *number, delivered whatever the status. */
ZOR_EXPORT int ZOR_App_GetChannelNumber(unsigned long* number);
/** Asks for the number of channels, stores it into *number, then fetches that
 * many records into pt_channel_info, which must hold as many records as
 * ZOR_App_GetChannelNumber reported just before (no more than the count of
 * this call is ever written). Count 0 (or a failed count command): 0 and
 * "no channel"; a negative status of the list command: nothing copied. */
ZOR_EXPORT int ZOR_App_GetChannelList(_VOICECTRL_CHANNEL_INFO* pt_channel_info,
                                      unsigned long* number);
/** The current channel, delivered whatever the status (zeros on failure). */
ZOR_EXPORT int ZOR_App_GetCurrentChannel(_VOICECTRL_CHANNEL_INFO* pt_current_info);
/** Tunes to the next channel (no data); the status. */
ZOR_EXPORT int ZOR_App_TuneToNextChannel(void);
/** Tunes to the previous channel (no data); the status. */
ZOR_EXPORT int ZOR_App_TuneToPreviousChannel(void);
/** Tunes to the channel described by the record; its name must have at most 64
 * characters within the 65-byte field (else -1, nothing sent). */
ZOR_EXPORT int ZOR_App_ChangeToChannel(_VOICECTRL_CHANNEL_INFO* pt_channel_info);
/** Tunes to a channel by number (a word); the status. */
ZOR_EXPORT int ZOR_App_TuneToChannel(unsigned int u32Channel);
/** Tunes by text: sends the string's length and bytes, no length limit. A null
 * string is refused by the encoder: -1, "cmd_data is NULL." (an error line),
 * nothing sent. */
ZOR_EXPORT int ZOR_App_TuneToChannel_2(char* ps_channel);
/** Tunes back to the last tuned channel (no data); the status. */
ZOR_EXPORT int ZOR_App_TuneToLastTunedChannel(void);
/** ait_url at most 1024 characters, crid at most 64 (a text that fills its
 * field is sent without terminator). A null or longer text is refused with
 * -1 and a line naming it; nothing is sent. */
ZOR_EXPORT int ZOR_App_StartFVPApp(char* ait_url, char* crid);
/** crid at most 64 characters; null or longer: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_TuneToFVPChannel(char* crid);

/* ---- System class (0x1806xxxx) --------------------------------------------- */

/** Power on (1) or off (0); one byte; the status. */
ZOR_EXPORT int ZOR_App_SetPowerControl(bool on);
/** Switches to the USB source (no data); the status. */
ZOR_EXPORT int ZOR_App_SetUSBSource(void);
/** Sends the IoT certificate byte; the status. */
ZOR_EXPORT int ZOR_App_SetIOTCertificate(unsigned char value);
/** The environment byte into *env, whatever the status; null: -1, not sent. */
ZOR_EXPORT int ZOR_App_GetEnvironment(unsigned char* env);
/** Firmware version into a caller's buffer of 33 bytes: the text and zeros
 * behind it; a text of 33 characters or more fills all 33 bytes without
 * terminator. Null buffer: -1, nothing sent ("version is NULL" as an error
 * line). */
ZOR_EXPORT int ZOR_App_GetFWversion(char* version);
/** Shows an FVP recommendation; path at most 1027 characters, null or longer:
 * -1 and a line, nothing sent. */
ZOR_EXPORT int ZOR_App_showFVPRecommendation(char* path);
/** Shows an FVP collection; the same limits as
 * ZOR_App_showFVPRecommendation(). */
ZOR_EXPORT int ZOR_App_showFVPCollection(char* collectionCrid);
/** first at most 63 characters, second at most 1023; a null or longer text is
 * refused with -1 and a line naming it; nothing is sent. */
ZOR_EXPORT int ZOR_App_TuneToFVPProgram(char* first, char* second);
/** Restarts the current FVP programme (no data); the status. */
ZOR_EXPORT int ZOR_App_restartCurrentFVPProgram(void);
/** Sets the control mode; the status. */
ZOR_EXPORT int ZOR_App_SetModes(EN_VOICECTRL_CTRL_MODE_T mode);
/** Stores the token: at most its first 2048 bytes are sent (longer tokens are
 * cut), `length` is sent unchanged. Null token: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_SetAVSToken(char* avsToken, int length);
/** Fetches the token into a caller's buffer of 4097 bytes (the 4096-byte field
 * and a terminator) and its length into *length; the text is cut at the
 * length field and always terminated. A length field of 0 gives -1 (after
 * the copy); a length field below 0 or above 4096 is refused: -1, a line,
 * buffer and *length untouched. Prints the token unconditionally. */
ZOR_EXPORT int ZOR_App_GetAVSToken(char* avsToken, int* length);
/** Time zone into a caller's buffer of 1025 bytes, always terminated (a reply
 * text without terminator is cut at 1024 characters). -1 with the buffer
 * untouched when the reply carries no time zone. */
ZOR_EXPORT int ZOR_App_GetTimeZone(char* timeZone);
/** Reads the far-field option code from "/mtd_rwarea/FFMOptionCode.txt"
 * (nothing is sent): 1 a number was read (*option = number != 0), 0 no number
 * (false), -1 empty file (false); 0 with *option untouched when the file is
 * missing or not writable. Null option: -1. */
ZOR_EXPORT int ZOR_App_GetFFmicOptionBit(bool* option);
/** Starts the portal application. Either text may be null or longer than 64
 * characters (then sent empty, with an error line); both null: -1. */
ZOR_EXPORT int ZOR_App_LoadTevoraApp(char* appName, char* appId);

/* ---- Miscellaneous class (0x1807xxxx) -------------------------------------- */

/** ps_command at most 1024 characters; null or longer: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_SendPlaybackCtrl(const char* ps_command);
/** Fetches a certificate (a byte run, no terminator added). On entry
 * *ui4_bufLen is the size of `buffer`; on success it is the number of bytes
 * delivered. A certificate longer than 6144 bytes or than *ui4_bufLen is an
 * error: -1, a line, buffer and *ui4_bufLen untouched, nothing copied. Not
 * reentrant: the record is process-wide, callers serialise this function. */
ZOR_EXPORT int ZOR_App_GetCertificate(char* buffer, unsigned int* ui4_bufLen);
/** Option bytes 0 to 3 into the four outputs (a null output is skipped). */
ZOR_EXPORT int ZOR_App_GetOptionBits(char* option0, char* option1, char* option2, char* option3);
/** Option byte 1 (Google Assistant) as a flag; null: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_GetOptionBit(bool* optionGA);
/** Option byte 4 (wall lighting); null: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_GetWallglowOptionBit(char* option);
/** appName at most 64 characters (required), command at most 1024 (may be
 * null). Longer texts or a null name: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_StartSmartTVApp(char* appName, char* command, int i4AppParam);
/** ps_name at most 64 characters (required), ps_subCommand at most 1024 (may
 * be null). Longer texts or a null name: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_StartUIControl(char* ps_name, char* ps_subCommand);
/** Active application (preset 6), delivered whatever the status. */
ZOR_EXPORT int ZOR_App_GetActiveApp(EN_VOICECTRL_ACTIVE_APP* pt_value);
/** ps_key at most 64 characters; null or longer: -1, nothing sent. */
ZOR_EXPORT int ZOR_App_Inject_RC_Key(const char* ps_key);
/** video_id is cut to its first 1024 characters. A null id sends nothing and
 * returns 0 (with an error line). No entry or exit trace lines. */
ZOR_EXPORT int ZOR_App_StartYoutubeVideo(char* video_id, int i4VideoParam);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
