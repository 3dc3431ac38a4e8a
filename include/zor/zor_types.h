/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Records and enumerations of the libzor interface.
 *
 * Every record travels to the middleware in its in-memory form: little-endian,
 * 32-bit fields on 4-byte boundaries, 16-bit fields on 2-byte boundaries,
 * padding included. The static assertions at the end of this file pin every
 * size and offset, so a build for any target (x86-64 or armhf) produces the
 * same bytes. List holders carry a pointer and so differ in size between
 * ABIs; only their count crosses the wire.
 *
 * Values of the enumerations that belong to the middleware (states, modes,
 * notify types) are carried unchanged; the library gives them no meaning
 * unless a comment says so.
 */
#ifndef ZOR_ZOR_TYPES_H
#define ZOR_ZOR_TYPES_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

/** Marks a declaration as part of the shared library's exported interface. */
#if defined(__GNUC__)
#define ZOR_EXPORT __attribute__((visibility("default")))
#else
#define ZOR_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Set-up ---------------------------------------------------------------- */

/** Application type: selects the service names of ZOR_Common_Init(). */
typedef enum {
    EN_ZOR_COMMON_APP_TYPE_AVS = 0,
    EN_ZOR_COMMON_APP_TYPE_GA = 1,
    EN_ZOR_COMMON_APP_TYPE_IOT = 2,
    /** Callers pass other values too (-1, 3, 4, ...), which the functions
     * refuse: these two make every int32 value a valid, signed one in C and
     * C++. */
    EN_ZOR_COMMON_APP_TYPE_MIN = INT32_MIN,
    EN_ZOR_COMMON_APP_TYPE_MAX = INT32_MAX,
} EN_ZOR_COMMON_APP_TYPE_T;

/** Debug level bits: 1 turns error lines on, 8 trace lines. Other bits are kept
 * and have no effect. */
typedef enum {
    EN_DBG_PRT_LEVEL_NONE = 0,
    EN_DBG_PRT_LEVEL_ERROR = 1,
    EN_DBG_PRT_LEVEL_TRACE = 8,
    /** The middleware may set any 32-bit level: these two make every int32
     * value a valid level in C++ as well. */
    EN_DBG_PRT_LEVEL_MIN = INT32_MIN,
    EN_DBG_PRT_LEVEL_MAX = INT32_MAX,
} _EN_DBG_PRT_LEVEL;

/** Far-field microphone information, set by the middleware. */
typedef struct {
    uint8_t u8Sup;   /**< 1: the set has a far-field microphone */
    int8_t c8CardID; /**< ALSA card number of the far-field capture device */
    int8_t c8DevID;  /**< ALSA device number */
} _ST_FFM_INFO;

/** Remote-control button mode; the values are the middleware's. */
typedef int32_t _EN_AVS_TAPPED_TYPE;

/* ---- Assistant class ------------------------------------------------------- */

/** Assistant state reported to the television; 4 also stops local capture. */
typedef int32_t EN_AVS_STATE;
/** Set-up progress reported to the television (the middleware's values). */
typedef int32_t EN_ZOR_APP_SETUP_STATE_T;
/** Switch-on mode (the middleware's values). */
typedef int32_t EN_ZOR_APP_SWITCH_ON_STATE_T;
/** Window type: 0 is sent as 0, 1 and 3 as 1, 2 as 2, anything else as 3. */
typedef int32_t EN_ZOR_APP_WINDOW_TYPE;

/** Microphone source of ZOR_App_startStreamingMicrophoneData(). */
typedef enum {
    EN_AVS_AUDIO_SOURCE_FFM = 0,        /**< far-field microphone */
    EN_AVS_AUDIO_SOURCE_MIDDLEWARE = 1, /**< the middleware's stream */
    EN_AVS_AUDIO_SOURCE_RC_MIC = 2,     /**< remote-control microphone */
    EN_AVS_AUDIO_SOURCE_NONE = 3,       /**< nothing streams */
    /** Any other int32 value is a valid source that streams nothing (see
     * ZOR_App_startStreamingMicrophoneData()): the full signed range. */
    EN_AVS_AUDIO_SOURCE_MIN = INT32_MIN,
    EN_AVS_AUDIO_SOURCE_MAX = INT32_MAX,
} _EN_AVS_AUDIO_SOURCE_TYPE;

/** URL-window record, 1036 bytes. */
typedef struct {
    uint32_t u32WindowParam; /**< the caller's parameter, unchanged */
    uint32_t u32WindowType;  /**< the window type as sent (see EN_ZOR_APP_WINDOW_TYPE) */
    char c8URL[1024];        /**< a URL of exactly 1024 characters has no terminator */
    uint8_t u8Background;    /**< the caller's background flag, unchanged */
} ST_ZOR_APP_URL_WINDOW_T;

/** Device settings, 68 bytes filled by the middleware; the library reads none of them. */
typedef struct {
    uint8_t au8Setting[68]; /**< the middleware's bytes */
} ST_ZOR_APP_DATA_SETTING_T;

/** Language record, 12 bytes. */
typedef struct {
    char c8Language[8];      /**< at most 6 bytes of the code, zero-filled */
    uint32_t u32LanguageLen; /**< always 6 */
} ST_ZOR_APP_LANGUAGE_T;

/* ---- Shared string records ------------------------------------------------- */

/** 72 bytes: a string of at most 64 characters and its length. */
typedef struct {
    char c8Str[65];     /**< the text, NUL-terminated */
    uint32_t u32StrLen; /**< its length without the terminator */
} _VOICECTRL_STR_INFO;

/** 1032 bytes: a string of at most 1024 characters and its length. */
typedef struct {
    char c8Str[1025];   /**< the text, NUL-terminated */
    uint32_t u32StrLen; /**< its length without the terminator */
} _VOICECTRL_LONG_STR_INFO;

/* ---- Video class ----------------------------------------------------------- */

/** Player status (the middleware's values). */
typedef int32_t EN_VOICECTRL_PLAYBACK_STATUS;
/** Picture style (the middleware's values). */
typedef int32_t EN_VOICECTRL_PICTURE_MODE_T;

/** Input source, 66 bytes, no padding. */
typedef struct {
    char c8SourceText1[33]; /**< the source's name, as the middleware filled it */
    char c8SourceText2[33]; /**< its second text (a label), as the middleware filled it */
} _VOICECTRL_SOURCE_INFO;

/** List holder: only u32SourceNum is sent; pSourceList receives the reply. */
typedef struct {
    _VOICECTRL_SOURCE_INFO* pSourceList; /**< the caller's array, u32SourceNum records */
    uint32_t u32SourceNum;               /**< the number of records asked for */
} _VOICECTRL_SOURCE_LIST;

/* ---- Audio class ----------------------------------------------------------- */

/** Sound style (the middleware's values). */
typedef int32_t EN_VOICECTRL_SOUND_MODE_T;

/* ---- Channel class --------------------------------------------------------- */

/** Channel record, 84 bytes. The numeric fields are the middleware's,
 * carried unchanged. */
typedef struct {
    uint32_t u32Param1;     /**< offset 0 */
    uint16_t u16Param1;     /**< offset 4 */
    uint16_t u16Param2;     /**< offset 6 */
    uint16_t u16Param3;     /**< offset 8 */
    uint16_t u16Param4;     /**< offset 10 */
    uint32_t u32Param2;     /**< offset 12 */
    char c8ChannelName[65]; /**< offset 16: the name, at most 64 characters */
} _VOICECTRL_CHANNEL_INFO;

/** List holder: only u32ChanelNum is sent; pstChanelInfo receives the reply. */
typedef struct {
    _VOICECTRL_CHANNEL_INFO* pstChanelInfo; /**< the caller's array, u32ChanelNum records */
    uint32_t u32ChanelNum;                  /**< the number of records asked for */
} _VOICECTRL_CHANNEL_LIST;

/** Change-to-channel request, 88 bytes: the channel fields, then zeros. */
typedef struct {
    uint32_t u32Param1;     /**< offset 0 */
    uint16_t u16Param1;     /**< offset 4 */
    uint16_t u16Param2;     /**< offset 6 */
    uint16_t u16Param3;     /**< offset 8 */
    uint16_t u16Param4;     /**< offset 10 */
    uint32_t u32Param2;     /**< offset 12 */
    char c8ChannelName[65]; /**< offset 16: the name, at most 64 characters */
    uint8_t au8Reserved[7]; /**< zeros */
} _VOICECTRL_CHANNEL_CHANGE_REQ;

/** Start-FVP-application request, 1088 bytes. */
typedef struct {
    char ait_url[1024]; /**< the application's AIT URL; no terminator when full */
    char crid[64];      /**< the content reference; no terminator when full */
} _VOICECTRL_FVP_APP_REQ;

/* ---- System class ---------------------------------------------------------- */

/** Control mode (the middleware's values). */
typedef int32_t EN_VOICECTRL_CTRL_MODE_T;

/** Firmware version reply, 40 bytes. */
typedef struct {
    char c8Version[40]; /**< the version text, zero-filled */
} _VOICECTRL_FW_VERSION;

/** FVP recommendation path or collection CRID, 1028 bytes. */
typedef struct {
    char c8Text[1028]; /**< the text, zero-filled */
} _VOICECTRL_FVP_TEXT;

/** Tune-to-FVP-programme request, 1088 bytes. */
typedef struct {
    char c8First[64];    /**< the first text, zero-filled */
    char c8Second[1024]; /**< the second text, zero-filled */
} _VOICECTRL_FVP_PROGRAM_REQ;

/** AVS token, 4100 bytes: at most 2048 bytes of text are sent. */
typedef struct {
    char c8Token[4096];  /**< the token text */
    int32_t s32TokenLen; /**< the caller's length (set) or the token's length (get) */
} _VOICECTRL_AVS_TOKEN;

/** Portal application request, 144 bytes. */
typedef struct {
    _VOICECTRL_STR_INFO stAppName; /**< the application's name */
    _VOICECTRL_STR_INFO stAppId;   /**< the application's id */
} _VOICECTRL_TEVORA_APP_REQ;

/* ---- Miscellaneous class --------------------------------------------------- */

/** Active application (the middleware's values). */
typedef int32_t EN_VOICECTRL_ACTIVE_APP;

/** Start-smart-TV-application request, 1108 bytes. */
typedef struct {
    _VOICECTRL_LONG_STR_INFO stCommand; /**< the command for the application, may be empty */
    _VOICECTRL_STR_INFO stAppName;      /**< the application's name */
    int32_t i4AppParam;                 /**< the caller's parameter, unchanged */
} _VOICECTRL_SMARTTV_APP_REQ;

/** Start-UI-control request, 1104 bytes. */
typedef struct {
    _VOICECTRL_LONG_STR_INFO stSubCommand; /**< the sub-command, may be empty */
    _VOICECTRL_STR_INFO stName;            /**< the control's name */
} _VOICECTRL_UI_CONTROL_REQ;

/** Start-YouTube-video request, 1036 bytes. */
typedef struct {
    _VOICECTRL_LONG_STR_INFO stVideo; /**< the video id, cut at 1024 characters */
    int32_t i4VideoParam;             /**< the caller's parameter, unchanged */
} _VOICECTRL_YOUTUBE_VIDEO_REQ;

/** Option bytes, 5 bytes. */
typedef struct {
    int8_t c8Option0; /**< option byte 0 */
    int8_t c8Option1; /**< Google Assistant option */
    int8_t c8Option2; /**< option byte 2 */
    int8_t c8Option3; /**< option byte 3 */
    int8_t c8Option4; /**< wall-lighting option */
} _VOICECTRL_OPTION_BITS;

/** Capacity of the certificate record's data field. */
#define MAX_LEN 6144
/** Certificate record, 6148 bytes. */
typedef struct {
    char c8CertData[MAX_LEN]; /**< the certificate's bytes, no terminator */
    uint32_t u32BufLen;       /**< the number of bytes in c8CertData */
} _VOICECTRL_CERT_DATA;

/* ---- Voice-control class --------------------------------------------------- */

/** Browser certificates: four caller-owned strings, none of them null. */
typedef struct {
    char* pcData1;       /**< first certificate */
    char* pcData2;       /**< second certificate */
    char* pcData3;       /**< third certificate */
    char* pcSubjectName; /**< the subject name */
} _VOICECTRL_BROWSER_CERT_INFO;

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- Layout checks --------------------------------------------------------- */

#ifdef __cplusplus
#include <cstddef>
#define ZOR_ASSERT_LAYOUT(cond) static_assert(cond, #cond)
#else
#include <stddef.h>
#define ZOR_ASSERT_LAYOUT(cond) _Static_assert(cond, #cond)
#endif

/* The enumerations that carry values outside their named ones are signed
 * 32-bit types (as -1 must stay -1). */
ZOR_ASSERT_LAYOUT(sizeof(EN_ZOR_COMMON_APP_TYPE_T) == 4);
ZOR_ASSERT_LAYOUT((EN_ZOR_COMMON_APP_TYPE_T)-1 < 0);
ZOR_ASSERT_LAYOUT(sizeof(_EN_AVS_AUDIO_SOURCE_TYPE) == 4);
ZOR_ASSERT_LAYOUT((_EN_AVS_AUDIO_SOURCE_TYPE)-1 < 0);
ZOR_ASSERT_LAYOUT(sizeof(_EN_DBG_PRT_LEVEL) == 4);
ZOR_ASSERT_LAYOUT((_EN_DBG_PRT_LEVEL)-1 < 0);

ZOR_ASSERT_LAYOUT(sizeof(_ST_FFM_INFO) == 3);
ZOR_ASSERT_LAYOUT(offsetof(_ST_FFM_INFO, c8CardID) == 1);
ZOR_ASSERT_LAYOUT(offsetof(_ST_FFM_INFO, c8DevID) == 2);

ZOR_ASSERT_LAYOUT(sizeof(ST_ZOR_APP_URL_WINDOW_T) == 1036);
ZOR_ASSERT_LAYOUT(offsetof(ST_ZOR_APP_URL_WINDOW_T, u32WindowType) == 4);
ZOR_ASSERT_LAYOUT(offsetof(ST_ZOR_APP_URL_WINDOW_T, c8URL) == 8);
ZOR_ASSERT_LAYOUT(offsetof(ST_ZOR_APP_URL_WINDOW_T, u8Background) == 1032);
ZOR_ASSERT_LAYOUT(sizeof(ST_ZOR_APP_DATA_SETTING_T) == 68);
ZOR_ASSERT_LAYOUT(sizeof(ST_ZOR_APP_LANGUAGE_T) == 12);
ZOR_ASSERT_LAYOUT(offsetof(ST_ZOR_APP_LANGUAGE_T, u32LanguageLen) == 8);

ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_STR_INFO) == 72);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_STR_INFO, u32StrLen) == 68);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_LONG_STR_INFO) == 1032);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_LONG_STR_INFO, u32StrLen) == 1028);

ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_SOURCE_INFO) == 66);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_SOURCE_INFO, c8SourceText2) == 33);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_SOURCE_LIST, pSourceList) == 0);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_SOURCE_LIST, u32SourceNum) == sizeof(void*));

ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_CHANNEL_INFO) == 84);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_INFO, u16Param1) == 4);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_INFO, u16Param2) == 6);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_INFO, u16Param3) == 8);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_INFO, u16Param4) == 10);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_INFO, u32Param2) == 12);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_INFO, c8ChannelName) == 16);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_LIST, pstChanelInfo) == 0);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_LIST, u32ChanelNum) == sizeof(void*));
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_CHANNEL_CHANGE_REQ) == 88);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_CHANGE_REQ, u16Param1) == 4);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_CHANGE_REQ, u16Param4) == 10);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_CHANGE_REQ, u32Param2) == 12);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_CHANGE_REQ, c8ChannelName) == 16);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CHANNEL_CHANGE_REQ, au8Reserved) == 81);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_FVP_APP_REQ) == 1088);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_FVP_APP_REQ, crid) == 1024);

ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_FW_VERSION) == 40);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_FVP_TEXT) == 1028);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_FVP_PROGRAM_REQ) == 1088);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_FVP_PROGRAM_REQ, c8Second) == 64);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_AVS_TOKEN) == 4100);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_AVS_TOKEN, s32TokenLen) == 4096);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_TEVORA_APP_REQ) == 144);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_TEVORA_APP_REQ, stAppId) == 72);

ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_SMARTTV_APP_REQ) == 1108);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_SMARTTV_APP_REQ, stAppName) == 1032);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_SMARTTV_APP_REQ, i4AppParam) == 1104);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_UI_CONTROL_REQ) == 1104);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_UI_CONTROL_REQ, stName) == 1032);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_YOUTUBE_VIDEO_REQ) == 1036);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_YOUTUBE_VIDEO_REQ, i4VideoParam) == 1032);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_OPTION_BITS) == 5);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_OPTION_BITS, c8Option4) == 4);
ZOR_ASSERT_LAYOUT(sizeof(_VOICECTRL_CERT_DATA) == 6148);
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_CERT_DATA, u32BufLen) == 6144);

ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_BROWSER_CERT_INFO, pcData2) == sizeof(void*));
ZOR_ASSERT_LAYOUT(offsetof(_VOICECTRL_BROWSER_CERT_INFO, pcSubjectName) == 3 * sizeof(void*));

#undef ZOR_ASSERT_LAYOUT

#endif
