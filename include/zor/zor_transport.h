/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Outbound command transport: command ids, the router and the seven class
 * encoders, and the debug level that gates the library's log lines.
 *
 * An outbound id is 0x18 in its top byte, the command class (1 to 7) in bits
 * 16 to 19 and the command number from 1 in its low 16 bits. Each encoder
 * builds a request from the caller's record, transmits it over the client
 * endpoint opened by ZOR_Common_Init and reads the middleware's status word
 * and reply fields back into the record. Everything runs on the caller's
 * thread and blocks until the reply arrives (or the messaging layer gives up,
 * which reads as status -1).
 */
#ifndef ZOR_ZOR_TRANSPORT_H
#define ZOR_ZOR_TRANSPORT_H

#include "zor/zor_types.h"

/** The messaging layer's namespace: command ids and the server handler. */
namespace OXAPC
{

/** Outbound command ids, by class; forwardCommand() routes on bits 16 to 19. */
enum OXA_TV_CMD_ID : unsigned int {
    /** class 1, assistant */
    OXA_TV_CMD_ID_AVS_INIT_COMPLETED = 0x18010001,
    OXA_TV_CMD_ID_AVS_LOAD_URL_WINDOW = 0x18010002,
    OXA_TV_CMD_ID_AVS_GET_DEVICE_SETTING = 0x18010003,
    OXA_TV_CMD_ID_AVS_INFORM_STATES = 0x18010006,
    OXA_TV_CMD_ID_AVS_INFORM_STETUP_STATUS = 0x18010007,
    OXA_TV_CMD_ID_AVS_SET_SWICH_ON_MODE = 0x18010008,
    OXA_TV_CMD_ID_AVS_SET_USER_SELECT_CHROME_GLOW = 0x18010009,
    OXA_TV_CMD_ID_AVS_START_STREAM_MIC_DATA = 0x1801000A,
    OXA_TV_CMD_ID_AVS_STOP_STREAM_MIC_DATA = 0x1801000B,
    OXA_TV_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE_NONE = 0x1801000C,
    OXA_TV_CMD_ID_AVS_START_BTRC_MIC_OPEN = 0x1801000D,
    OXA_TV_CMD_ID_AVS_SET_LANGUAGE_SELECTION = 0x1801000E,
    OXA_TV_CMD_ID_AVS_FFM_WAKEWORD_DECT = 0x1801000F,
    /** class 2, voice control */
    OXA_TV_CMD_ID__VOICE_CTRL_INIT = 0x18020001,
    OXA_TV_CMD_ID__VOICE_CTRL_SetWallglowState = 0x18020002,
    OXA_TV_CMD_ID__VOICE_CTRL_SetWallglowToFollow = 0x18020003,
    OXA_TV_CMD_ID__VOICE_CTRL_SetPowerControl = 0x18020004,
    OXA_TV_CMD_ID__VOICE_CTRL_GetChannelList = 0x18020005,
    OXA_TV_CMD_ID__VOICE_CTRL_TuneToNextChannel = 0x18020006,
    OXA_TV_CMD_ID__VOICE_CTRL_TuneToPreviousChannel = 0x18020007,
    OXA_TV_CMD_ID__VOICE_CTRL_ChangeToChannel = 0x18020008,
    OXA_TV_CMD_ID__VOICE_CTRL_TuneToChannel = 0x18020009,
    OXA_TV_CMD_ID__VOICE_CTRL_SetUSBSource = 0x1802000A,
    OXA_TV_CMD_ID__VOICE_CTRL_TuneToInputSrc = 0x1802000B,
    OXA_TV_CMD_ID__VOICE_CTRL_SetMute = 0x1802000C,
    OXA_TV_CMD_ID__VOICE_CTRL_GetMute = 0x1802000D,
    OXA_TV_CMD_ID__VOICE_CTRL_SetVolume = 0x1802000E,
    OXA_TV_CMD_ID__VOICE_CTRL_GetVolume = 0x1802000F,
    OXA_TV_CMD_ID__VOICE_CTRL_GetMaxVolume = 0x18020010,
    OXA_TV_CMD_ID__VOICE_CTRL_SendPlaybackCtrl = 0x18020011,
    OXA_TV_CMD_ID__VOICE_CTRL_GetOptionBits = 0x18020013,
    OXA_TV_CMD_ID__VOICE_CTRL_StartSmartTVApp = 0x18020014,
    OXA_TV_CMD_ID__VOICE_CTRL_GetCurrentInputSrc = 0x18020015,
    OXA_TV_CMD_ID__VOICE_CTRL_GetCurrentChannel = 0x18020016,
    OXA_TV_CMD_ID__VOICE_CTRL_GetNumberofChannels = 0x18020017,
    OXA_TV_CMD_ID__VOICE_CTRL_StartUIControl = 0x18020018,
    OXA_TV_CMD_ID__VOICE_CTRL_GetInputSouceList = 0x18020019,
    OXA_TV_CMD_ID__VOICE_CTRL_GetInputSouceListLen = 0x18020020,
    OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts = 0x18020021,
    /** class 3, video */
    OXA_TV_CMD_ID_VIDEO_SetWallglowState = 0x18030001,
    OXA_TV_CMD_ID_VIDEO_SetWallglowToFollow = 0x18030002,
    OXA_TV_CMD_ID_VIDEO_TuneToInputSrc = 0x18030003,
    OXA_TV_CMD_ID_VIDEO_GetCurrentInputSrc = 0x18030004,
    OXA_TV_CMD_ID_VIDEO_GetInputSouceList = 0x18030005,
    OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen = 0x18030006,
    OXA_TV_CMD_ID_VIDEO_GetPlayerStatus = 0x18030007,
    OXA_TV_CMD_ID_VIDEO_SetPictureStyle = 0x18030008,
    /** class 4, audio */
    OXA_TV_CMD_ID_AUDIO_SetMute = 0x18040001,
    OXA_TV_CMD_ID_AUDIO_GetMute = 0x18040002,
    OXA_TV_CMD_ID_AUDIO_SetVolume = 0x18040003,
    OXA_TV_CMD_ID_AUDIO_GetVolume = 0x18040004,
    OXA_TV_CMD_ID_AUDIO_GetMaxVolume = 0x18040005,
    OXA_TV_CMD_ID_AUDIO_SetMainAudioGain = 0x18040006,
    OXA_TV_CMD_ID_AUDIO_SetSoundStyle = 0x18040007,
    /** class 5, channel */
    OXA_TV_CMD_ID_CHANNEL_GetChannelList = 0x18050001,
    OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel = 0x18050002,
    OXA_TV_CMD_ID_CHANNEL_TuneToPreviousChannel = 0x18050003,
    OXA_TV_CMD_ID_CHANNEL_ChangeToChannel = 0x18050004,
    OXA_TV_CMD_ID_CHANNEL_TuneToChannel = 0x18050005,
    OXA_TV_CMD_ID_CHANNEL_GetCurrentChannel = 0x18050006,
    OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels = 0x18050007,
    OXA_TV_CMD_ID_CHANNEL_TuneToLastTunedChannel = 0x18050008,
    OXA_TV_CMD_ID_CHANNEL_StartFVPApp = 0x18050009,
    OXA_TV_CMD_ID_CHANNEL_TuneToFVPChannel = 0x1805000A,
    OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2 = 0x1805000B,
    /** class 6, system */
    OXA_TV_CMD_ID_SYSTEM_SetPowerControl = 0x18060001,
    OXA_TV_CMD_ID_SYSTEM_SetUSBSource = 0x18060002,
    OXA_TV_CMD_ID_SYSTEM_SetIOTCertificate = 0x18060003,
    OXA_TV_CMD_ID_SYSTEM_GetEnvironment = 0x18060004,
    OXA_TV_CMD_ID_SYSTEM_getFWversion = 0x18060005,
    OXA_TV_CMD_ID_SYSTEM_showFVPRecommendation = 0x18060006,
    OXA_TV_CMD_ID_SYSTEM_showFVPCollection = 0x18060007,
    OXA_TV_CMD_ID_SYSTEM_TuneToFVPProgram = 0x18060008,
    OXA_TV_CMD_ID_SYSTEM_restartCurrentFVPProgram = 0x18060009,
    OXA_TV_CMD_ID_SYSTEM_SetCtrlMode = 0x1806000A,
    OXA_TV_CMD_ID_SYSTEM_SetAVSToken = 0x1806000B,
    OXA_TV_CMD_ID_SYSTEM_GetAVSToken = 0x1806000C,
    OXA_TV_CMD_ID_SYSTEM_GetTimeZone = 0x1806000D,
    OXA_TV_CMD_ID_SYSTEM_GetFFmicOption = 0x1806000E,
    OXA_TV_CMD_ID_SYSTEM_LoadTevoraApp = 0x1806000F,
    /** class 7, miscellaneous */
    OXA_TV_CMD_ID_MISC_SendPlaybackCtrl = 0x18070001,
    OXA_TV_CMD_ID_MISC_GetCertificate = 0x18070002,
    OXA_TV_CMD_ID_MISC_GetOptionBits = 0x18070003,
    OXA_TV_CMD_ID_MISC_StartSmartTVApp = 0x18070004,
    OXA_TV_CMD_ID_MISC_StartUIControl = 0x18070005,
    OXA_TV_CMD_ID_MISC_GetActiveApp = 0x18070006,
    OXA_TV_CMD_ID_MISC_InjectRCKey = 0x18070007,
    OXA_TV_CMD_ID_MISC_StartYoutubeVideo = 0x18070008,
};

} // namespace OXAPC

/**
 * Routes `id` by its class field to the class encoder and returns the
 * encoder's result. A class outside 1..7 is logged (error lines on) and
 * returns 0 without sending anything.
 *
 * cmd_data is the command's record, borrowed for the call: the encoder copies
 * request bytes out of it and reply bytes into it. Commands that carry no
 * record ignore it; the others refuse a null pointer with -1.
 *
 * Result: the middleware's status word, or -1 when the command was refused
 * before sending (unknown id, null record, null string) or the transmission
 * failed.
 */
ZOR_EXPORT int forwardCommand(OXAPC::OXA_TV_CMD_ID id, void* cmd_data);

/** @name Class encoders
 * Normally reached through forwardCommand(), with the same thread, ownership
 * and results. An id that is not a command of the encoder's class returns -1
 * and sends nothing.
 * @{ */
/** Assistant class (1). */
ZOR_EXPORT int _alexaSendTransact(unsigned int id, void* cmd_data);
/** Voice-control class (2). */
ZOR_EXPORT int _voiceCtrlSendTransact(unsigned int id, void* cmd_data);
/** Video class (3). */
ZOR_EXPORT int _videoModuleSendTransact(unsigned int id, void* cmd_data);
/** Audio class (4). */
ZOR_EXPORT int _audioModuleSendTransact(unsigned int id, void* cmd_data);
/** Channel class (5). */
ZOR_EXPORT int _channelModuleSendTransact(unsigned int id, void* cmd_data);
/** System class (6). */
ZOR_EXPORT int _systemModuleSendTransact(unsigned int id, void* cmd_data);
/** Miscellaneous class (7). */
ZOR_EXPORT int _miscModuleSendTransact(unsigned int id, void* cmd_data);
/** @} */

extern "C" {
/** The current debug level (initially 1). Safe from any thread. */
ZOR_EXPORT int GetLogDebugLevel(void);
/** ORs `level` into the debug level; 0 clears it. Prints both values. Called on
 * the server thread when the middleware sets the level; safe from any thread. */
ZOR_EXPORT void setDebugLevel(_EN_DBG_PRT_LEVEL level);
}

#endif
