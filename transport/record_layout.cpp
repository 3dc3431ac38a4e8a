// SPDX-License-Identifier: MIT
#include "transport/record_layout.h"

#include "zor/zor_types.h"

#include <cstddef>

namespace zor::wire
{

namespace
{

using T = FieldType;

// The offsets come from the public record types, whose layout the headers pin.
#define FIELD(Record, member, label, type)                                                         \
    RecordField                                                                                    \
    {                                                                                              \
#member, label, static_cast < uint32_t>(offsetof(Record, member)),                         \
            static_cast < uint32_t>(sizeof(static_cast <Record*>(nullptr)->member)), type          \
    }
// A string record inside another: its text, then its length word.
#define STR_INFO(Record, member, label)                                                            \
    FIELD(Record, member.c8Str, label, T::Text),                                                   \
        FIELD(Record, member.u32StrLen, label "_len", T::U32)

template <size_t N> constexpr size_t countOf(const RecordField (&)[N])
{
    return N;
}

#define LAYOUT(typeName, key, size, fields, countName)                                             \
    RecordLayout                                                                                   \
    {                                                                                              \
        typeName, key, static_cast<uint32_t>(size), fields, countOf(fields), countName             \
    }

// clang-format off
const RecordField kByteFields[] = {{"value", "value", 0, 1, T::U8}};
const RecordField kWordFields[] = {{"value", "value", 0, 4, T::I32}};

const RecordField kUrlWindowFields[] = {
    FIELD(ST_ZOR_APP_URL_WINDOW_T, u32WindowParam, "param", T::U32),
    FIELD(ST_ZOR_APP_URL_WINDOW_T, u32WindowType, "type", T::U32),
    FIELD(ST_ZOR_APP_URL_WINDOW_T, c8URL, "url", T::Text),
    FIELD(ST_ZOR_APP_URL_WINDOW_T, u8Background, "background", T::U8),
};
const RecordField kDeviceSettingFields[] = {
    FIELD(ST_ZOR_APP_DATA_SETTING_T, au8Setting, "bytes", T::Bytes),
};
const RecordField kLanguageFields[] = {
    FIELD(ST_ZOR_APP_LANGUAGE_T, c8Language, "language", T::Text),
    FIELD(ST_ZOR_APP_LANGUAGE_T, u32LanguageLen, "len", T::U32),
};
const RecordField kStrInfoFields[] = {
    FIELD(_VOICECTRL_STR_INFO, c8Str, "text", T::Text),
    FIELD(_VOICECTRL_STR_INFO, u32StrLen, "text_len", T::U32),
};
const RecordField kLongStrInfoFields[] = {
    FIELD(_VOICECTRL_LONG_STR_INFO, c8Str, "text", T::Text),
    FIELD(_VOICECTRL_LONG_STR_INFO, u32StrLen, "text_len", T::U32),
};
const RecordField kSourceInfoFields[] = {
    FIELD(_VOICECTRL_SOURCE_INFO, c8SourceText1, "text1", T::Text),
    FIELD(_VOICECTRL_SOURCE_INFO, c8SourceText2, "text2", T::Text),
};
const RecordField kChannelInfoFields[] = {
    FIELD(_VOICECTRL_CHANNEL_INFO, u32Param1, "param1", T::U32),
    FIELD(_VOICECTRL_CHANNEL_INFO, u16Param1, "u16_1", T::U16),
    FIELD(_VOICECTRL_CHANNEL_INFO, u16Param2, "u16_2", T::U16),
    FIELD(_VOICECTRL_CHANNEL_INFO, u16Param3, "u16_3", T::U16),
    FIELD(_VOICECTRL_CHANNEL_INFO, u16Param4, "u16_4", T::U16),
    FIELD(_VOICECTRL_CHANNEL_INFO, u32Param2, "param2", T::U32),
    FIELD(_VOICECTRL_CHANNEL_INFO, c8ChannelName, "name", T::Text),
};
const RecordField kChannelChangeReqFields[] = {
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, u32Param1, "param1", T::U32),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, u16Param1, "u16_1", T::U16),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, u16Param2, "u16_2", T::U16),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, u16Param3, "u16_3", T::U16),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, u16Param4, "u16_4", T::U16),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, u32Param2, "param2", T::U32),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, c8ChannelName, "name", T::Text),
    FIELD(_VOICECTRL_CHANNEL_CHANGE_REQ, au8Reserved, nullptr, T::Bytes),
};
const RecordField kFvpAppReqFields[] = {
    FIELD(_VOICECTRL_FVP_APP_REQ, ait_url, "ait_url", T::Text),
    FIELD(_VOICECTRL_FVP_APP_REQ, crid, "crid", T::Text),
};
const RecordField kFwVersionFields[] = {
    FIELD(_VOICECTRL_FW_VERSION, c8Version, "version", T::Text),
};
const RecordField kFvpTextFields[] = {
    FIELD(_VOICECTRL_FVP_TEXT, c8Text, "text", T::Text),
};
const RecordField kFvpProgramReqFields[] = {
    FIELD(_VOICECTRL_FVP_PROGRAM_REQ, c8First, "first", T::Text),
    FIELD(_VOICECTRL_FVP_PROGRAM_REQ, c8Second, "second", T::Text),
};
const RecordField kAvsTokenFields[] = {
    FIELD(_VOICECTRL_AVS_TOKEN, c8Token, "token", T::Text),
    FIELD(_VOICECTRL_AVS_TOKEN, s32TokenLen, "len", T::I32),
};
const RecordField kTevoraAppReqFields[] = {
    STR_INFO(_VOICECTRL_TEVORA_APP_REQ, stAppName, "app"),
    STR_INFO(_VOICECTRL_TEVORA_APP_REQ, stAppId, "id"),
};
const RecordField kSmartTvAppReqFields[] = {
    FIELD(_VOICECTRL_SMARTTV_APP_REQ, stCommand.c8Str, "command", T::Text),
    FIELD(_VOICECTRL_SMARTTV_APP_REQ, stCommand.u32StrLen, "command_len", T::U32),
    STR_INFO(_VOICECTRL_SMARTTV_APP_REQ, stAppName, "app"),
    FIELD(_VOICECTRL_SMARTTV_APP_REQ, i4AppParam, "param", T::I32),
};
const RecordField kUiControlReqFields[] = {
    FIELD(_VOICECTRL_UI_CONTROL_REQ, stSubCommand.c8Str, "sub", T::Text),
    FIELD(_VOICECTRL_UI_CONTROL_REQ, stSubCommand.u32StrLen, "sub_len", T::U32),
    STR_INFO(_VOICECTRL_UI_CONTROL_REQ, stName, "name"),
};
const RecordField kYoutubeVideoReqFields[] = {
    FIELD(_VOICECTRL_YOUTUBE_VIDEO_REQ, stVideo.c8Str, "video", T::Text),
    FIELD(_VOICECTRL_YOUTUBE_VIDEO_REQ, stVideo.u32StrLen, "video_len", T::U32),
    FIELD(_VOICECTRL_YOUTUBE_VIDEO_REQ, i4VideoParam, "param", T::I32),
};
const RecordField kOptionBitsFields[] = {
    FIELD(_VOICECTRL_OPTION_BITS, c8Option0, "o0", T::I8),
    FIELD(_VOICECTRL_OPTION_BITS, c8Option1, "o1", T::I8),
    FIELD(_VOICECTRL_OPTION_BITS, c8Option2, "o2", T::I8),
    FIELD(_VOICECTRL_OPTION_BITS, c8Option3, "o3", T::I8),
    FIELD(_VOICECTRL_OPTION_BITS, c8Option4, "o4", T::I8),
};
// The request's certificate bytes are zeros; the log shows only their count.
const RecordField kCertDataFields[] = {
    FIELD(_VOICECTRL_CERT_DATA, c8CertData, nullptr, T::Text),
    FIELD(_VOICECTRL_CERT_DATA, u32BufLen, "buf_len", T::U32),
};

const RecordLayout kByte = LAYOUT("uint8_t", "byte", 1, kByteFields, nullptr);
const RecordLayout kWord = LAYOUT("int32_t", "word", 4, kWordFields, nullptr);
const RecordLayout kUrlWindow = LAYOUT("ST_ZOR_APP_URL_WINDOW_T", "url_window", sizeof(ST_ZOR_APP_URL_WINDOW_T), kUrlWindowFields, nullptr);
const RecordLayout kDeviceSetting = LAYOUT("ST_ZOR_APP_DATA_SETTING_T", "device_setting", sizeof(ST_ZOR_APP_DATA_SETTING_T), kDeviceSettingFields, nullptr);
const RecordLayout kLanguage = LAYOUT("ST_ZOR_APP_LANGUAGE_T", "language", sizeof(ST_ZOR_APP_LANGUAGE_T), kLanguageFields, nullptr);
const RecordLayout kStrInfo = LAYOUT("_VOICECTRL_STR_INFO", "str_info", sizeof(_VOICECTRL_STR_INFO), kStrInfoFields, nullptr);
const RecordLayout kLongStrInfo = LAYOUT("_VOICECTRL_LONG_STR_INFO", "long_str_info", sizeof(_VOICECTRL_LONG_STR_INFO), kLongStrInfoFields, nullptr);
const RecordLayout kSourceList = LAYOUT("_VOICECTRL_SOURCE_INFO", "source_info", sizeof(_VOICECTRL_SOURCE_INFO), kSourceInfoFields, "u32SourceNum");
const RecordLayout kChannelInfo = LAYOUT("_VOICECTRL_CHANNEL_INFO", "channel_info", sizeof(_VOICECTRL_CHANNEL_INFO), kChannelInfoFields, nullptr);
const RecordLayout kChannelList = LAYOUT("_VOICECTRL_CHANNEL_INFO", "channel_list", sizeof(_VOICECTRL_CHANNEL_INFO), kChannelInfoFields, "u32ChanelNum");
const RecordLayout kChannelChangeReq = LAYOUT("_VOICECTRL_CHANNEL_CHANGE_REQ", "channel_change_req", sizeof(_VOICECTRL_CHANNEL_CHANGE_REQ), kChannelChangeReqFields, nullptr);
const RecordLayout kFvpAppReq = LAYOUT("_VOICECTRL_FVP_APP_REQ", "fvp_app_req", sizeof(_VOICECTRL_FVP_APP_REQ), kFvpAppReqFields, nullptr);
const RecordLayout kFwVersion = LAYOUT("_VOICECTRL_FW_VERSION", "fw_version", sizeof(_VOICECTRL_FW_VERSION), kFwVersionFields, nullptr);
const RecordLayout kFvpText = LAYOUT("_VOICECTRL_FVP_TEXT", "fvp_text", sizeof(_VOICECTRL_FVP_TEXT), kFvpTextFields, nullptr);
const RecordLayout kFvpProgramReq = LAYOUT("_VOICECTRL_FVP_PROGRAM_REQ", "fvp_program_req", sizeof(_VOICECTRL_FVP_PROGRAM_REQ), kFvpProgramReqFields, nullptr);
const RecordLayout kAvsToken = LAYOUT("_VOICECTRL_AVS_TOKEN", "avs_token", sizeof(_VOICECTRL_AVS_TOKEN), kAvsTokenFields, nullptr);
const RecordLayout kTevoraAppReq = LAYOUT("_VOICECTRL_TEVORA_APP_REQ", "tevora_app_req", sizeof(_VOICECTRL_TEVORA_APP_REQ), kTevoraAppReqFields, nullptr);
const RecordLayout kSmartTvAppReq = LAYOUT("_VOICECTRL_SMARTTV_APP_REQ", "smarttv_app_req", sizeof(_VOICECTRL_SMARTTV_APP_REQ), kSmartTvAppReqFields, nullptr);
const RecordLayout kUiControlReq = LAYOUT("_VOICECTRL_UI_CONTROL_REQ", "ui_control_req", sizeof(_VOICECTRL_UI_CONTROL_REQ), kUiControlReqFields, nullptr);
const RecordLayout kYoutubeVideoReq = LAYOUT("_VOICECTRL_YOUTUBE_VIDEO_REQ", "youtube_video_req", sizeof(_VOICECTRL_YOUTUBE_VIDEO_REQ), kYoutubeVideoReqFields, nullptr);
const RecordLayout kOptionBits = LAYOUT("_VOICECTRL_OPTION_BITS", "option_bits", sizeof(_VOICECTRL_OPTION_BITS), kOptionBitsFields, nullptr);
const RecordLayout kCertData = LAYOUT("_VOICECTRL_CERT_DATA", "cert_data", sizeof(_VOICECTRL_CERT_DATA), kCertDataFields, nullptr);
// clang-format on

const RecordLayout* const kAllLayouts[] = {
    &kByte,         &kWord,          &kUrlWindow,        &kDeviceSetting,
    &kLanguage,     &kStrInfo,       &kLongStrInfo,      &kSourceList,
    &kChannelInfo,  &kChannelList,   &kChannelChangeReq, &kFvpAppReq,
    &kFwVersion,    &kFvpText,       &kFvpProgramReq,    &kAvsToken,
    &kTevoraAppReq, &kSmartTvAppReq, &kUiControlReq,     &kYoutubeVideoReq,
    &kOptionBits,   &kCertData,
};

} // namespace

const RecordLayout* recordLayout(RecordKind kind)
{
    switch (kind) {
    case RecordKind::None:
    case RecordKind::String:
    case RecordKind::BrowserCerts:
        return nullptr;
    case RecordKind::Byte:
        return &kByte;
    case RecordKind::Word:
        return &kWord;
    case RecordKind::UrlWindow:
        return &kUrlWindow;
    case RecordKind::DeviceSetting:
        return &kDeviceSetting;
    case RecordKind::Language:
        return &kLanguage;
    case RecordKind::StrInfo:
        return &kStrInfo;
    case RecordKind::LongStrInfo:
        return &kLongStrInfo;
    case RecordKind::SourceList:
        return &kSourceList;
    case RecordKind::ChannelInfo:
        return &kChannelInfo;
    case RecordKind::ChannelList:
        return &kChannelList;
    case RecordKind::ChannelChangeReq:
        return &kChannelChangeReq;
    case RecordKind::FvpAppReq:
        return &kFvpAppReq;
    case RecordKind::FwVersion:
        return &kFwVersion;
    case RecordKind::FvpText:
        return &kFvpText;
    case RecordKind::FvpProgramReq:
        return &kFvpProgramReq;
    case RecordKind::AvsToken:
        return &kAvsToken;
    case RecordKind::TevoraAppReq:
        return &kTevoraAppReq;
    case RecordKind::SmartTvAppReq:
        return &kSmartTvAppReq;
    case RecordKind::UiControlReq:
        return &kUiControlReq;
    case RecordKind::YoutubeVideoReq:
        return &kYoutubeVideoReq;
    case RecordKind::OptionBits:
        return &kOptionBits;
    case RecordKind::CertData:
        return &kCertData;
    }
    return nullptr;
}

const RecordLayout* const* allRecordLayouts(size_t* count)
{
    *count = sizeof(kAllLayouts) / sizeof(kAllLayouts[0]);
    return kAllLayouts;
}

size_t fieldTypeWidth(FieldType type)
{
    switch (type) {
    case FieldType::U8:
    case FieldType::I8:
        return 1;
    case FieldType::U16:
        return 2;
    case FieldType::U32:
    case FieldType::I32:
        return 4;
    case FieldType::Text:
    case FieldType::Bytes:
        break;
    }
    return 0;
}

} // namespace zor::wire
