#include "transport/record_kind.h"

#include "zor/zor_types.h"

namespace zor::wire
{

static_assert(offsetof(ListHolder, items) == offsetof(_VOICECTRL_CHANNEL_LIST, pstChanelInfo));
static_assert(offsetof(ListHolder, count) == offsetof(_VOICECTRL_CHANNEL_LIST, u32ChanelNum));
static_assert(offsetof(ListHolder, items) == offsetof(_VOICECTRL_SOURCE_LIST, pSourceList));
static_assert(offsetof(ListHolder, count) == offsetof(_VOICECTRL_SOURCE_LIST, u32SourceNum));
static_assert(sizeof(ListHolder) == sizeof(_VOICECTRL_CHANNEL_LIST));

size_t recordSize(RecordKind kind)
{
    switch (kind) {
    case RecordKind::None:
    case RecordKind::String:
    case RecordKind::BrowserCerts:
        return 0;
    case RecordKind::Byte:
        return 1;
    case RecordKind::Word:
        return 4;
    case RecordKind::UrlWindow:
        return sizeof(ST_ZOR_APP_URL_WINDOW_T);
    case RecordKind::DeviceSetting:
        return sizeof(ST_ZOR_APP_DATA_SETTING_T);
    case RecordKind::Language:
        return sizeof(ST_ZOR_APP_LANGUAGE_T);
    case RecordKind::StrInfo:
        return sizeof(_VOICECTRL_STR_INFO);
    case RecordKind::LongStrInfo:
        return sizeof(_VOICECTRL_LONG_STR_INFO);
    case RecordKind::SourceList:
        return sizeof(_VOICECTRL_SOURCE_INFO);
    case RecordKind::ChannelInfo:
        return sizeof(_VOICECTRL_CHANNEL_INFO);
    case RecordKind::ChannelList:
        return sizeof(_VOICECTRL_CHANNEL_INFO);
    case RecordKind::ChannelChangeReq:
        return sizeof(_VOICECTRL_CHANNEL_CHANGE_REQ);
    case RecordKind::FvpAppReq:
        return sizeof(_VOICECTRL_FVP_APP_REQ);
    case RecordKind::FwVersion:
        return sizeof(_VOICECTRL_FW_VERSION);
    case RecordKind::FvpText:
        return sizeof(_VOICECTRL_FVP_TEXT);
    case RecordKind::FvpProgramReq:
        return sizeof(_VOICECTRL_FVP_PROGRAM_REQ);
    case RecordKind::AvsToken:
        return sizeof(_VOICECTRL_AVS_TOKEN);
    case RecordKind::TevoraAppReq:
        return sizeof(_VOICECTRL_TEVORA_APP_REQ);
    case RecordKind::SmartTvAppReq:
        return sizeof(_VOICECTRL_SMARTTV_APP_REQ);
    case RecordKind::UiControlReq:
        return sizeof(_VOICECTRL_UI_CONTROL_REQ);
    case RecordKind::YoutubeVideoReq:
        return sizeof(_VOICECTRL_YOUTUBE_VIDEO_REQ);
    case RecordKind::OptionBits:
        return sizeof(_VOICECTRL_OPTION_BITS);
    case RecordKind::CertData:
        return sizeof(_VOICECTRL_CERT_DATA);
    }
    return 0;
}

} // namespace zor::wire
