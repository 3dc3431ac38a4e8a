// SPDX-License-Identifier: MIT
// The kinds of command record, and the one place that maps a kind to its size
// on the wire. The layouts themselves are the public record types.
#ifndef ZOR_TRANSPORT_RECORD_KIND_H
#define ZOR_TRANSPORT_RECORD_KIND_H

#include <cstddef>
#include <cstdint>

namespace zor::wire
{

enum class RecordKind : uint8_t {
    None,
    Byte,             // one byte: a flag or a small value
    Word,             // one 32-bit value
    UrlWindow,        // ST_ZOR_APP_URL_WINDOW_T
    DeviceSetting,    // ST_ZOR_APP_DATA_SETTING_T
    Language,         // ST_ZOR_APP_LANGUAGE_T
    StrInfo,          // _VOICECTRL_STR_INFO
    LongStrInfo,      // _VOICECTRL_LONG_STR_INFO
    SourceList,       // _VOICECTRL_SOURCE_LIST (elements _VOICECTRL_SOURCE_INFO)
    ChannelInfo,      // _VOICECTRL_CHANNEL_INFO
    ChannelList,      // _VOICECTRL_CHANNEL_LIST (elements _VOICECTRL_CHANNEL_INFO)
    ChannelChangeReq, // _VOICECTRL_CHANNEL_CHANGE_REQ
    FvpAppReq,        // _VOICECTRL_FVP_APP_REQ
    FwVersion,        // _VOICECTRL_FW_VERSION
    FvpText,          // _VOICECTRL_FVP_TEXT
    FvpProgramReq,    // _VOICECTRL_FVP_PROGRAM_REQ
    AvsToken,         // _VOICECTRL_AVS_TOKEN
    TevoraAppReq,     // _VOICECTRL_TEVORA_APP_REQ
    SmartTvAppReq,    // _VOICECTRL_SMARTTV_APP_REQ
    UiControlReq,     // _VOICECTRL_UI_CONTROL_REQ
    YoutubeVideoReq,  // _VOICECTRL_YOUTUBE_VIDEO_REQ
    OptionBits,       // _VOICECTRL_OPTION_BITS
    CertData,         // _VOICECTRL_CERT_DATA
    String,           // a NUL-terminated string, sent as length and bytes
    BrowserCerts,     // _VOICECTRL_BROWSER_CERT_INFO
};

// Bytes of the record on the wire (for list holders: of one element).
size_t recordSize(RecordKind kind);

// The two list holders share one layout: the element array, then the count.
struct ListHolder {
    void* items;
    uint32_t count;
};

} // namespace zor::wire

#endif
