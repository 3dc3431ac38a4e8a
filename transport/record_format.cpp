#include "transport/record_format.h"

#include "zor/zor_types.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zor::wire
{

namespace
{

// Texts longer than this are shown cut, with their length.
constexpr size_t kShownChars = 80;

// Field decoders append " name=value" to a line.
class Fields
{
public:
    explicit Fields(std::string& line) : m_line(line) {}

    void number(const char* name, long long value)
    {
        m_line += ' ';
        m_line += name;
        m_line += '=';
        m_line += std::to_string(value);
    }

    // A text field of `size` bytes, quoted; it ends at its terminator or at
    // the field's end.
    void text(const char* name, const char* field, size_t size)
    {
        const size_t length = strnlen(field, size);
        m_line += ' ';
        m_line += name;
        m_line += "=\"";
        for (size_t i = 0; i < length && i < kShownChars; ++i) {
            const unsigned char c = static_cast<unsigned char>(field[i]);
            if (c == '"' || c == '\\') {
                m_line += '\\';
                m_line += static_cast<char>(c);
            } else if (c < 0x20 || c >= 0x7f) {
                char escaped[8];
                snprintf(escaped, sizeof(escaped), "\\x%02x", c);
                m_line += escaped;
            } else {
                m_line += static_cast<char>(c);
            }
        }
        m_line += '"';
        if (length > kShownChars)
            m_line += "...(" + std::to_string(length) + " chars)";
    }

    void strInfo(const char* name, const _VOICECTRL_STR_INFO& record)
    {
        text(name, record.c8Str, sizeof(record.c8Str));
        number((std::string(name) + "_len").c_str(), record.u32StrLen);
    }

    void longStrInfo(const char* name, const _VOICECTRL_LONG_STR_INFO& record)
    {
        text(name, record.c8Str, sizeof(record.c8Str));
        number((std::string(name) + "_len").c_str(), record.u32StrLen);
    }

private:
    std::string& m_line;
};

template <typename Record> Record as(const unsigned char* payload)
{
    Record record;
    memcpy(&record, payload, sizeof(record));
    return record;
}

void describeByte(Fields& out, const unsigned char* p)
{
    out.number("value", p[0]);
}

void describeWord(Fields& out, const unsigned char* p)
{
    out.number("value", as<int32_t>(p));
}

void describeUrlWindow(Fields& out, const unsigned char* p)
{
    const auto r = as<ST_ZOR_APP_URL_WINDOW_T>(p);
    out.number("param", r.u32WindowParam);
    out.number("type", r.u32WindowType);
    out.text("url", r.c8URL, sizeof(r.c8URL));
    out.number("background", r.u8Background);
}

void describeLanguage(Fields& out, const unsigned char* p)
{
    const auto r = as<ST_ZOR_APP_LANGUAGE_T>(p);
    out.text("language", r.c8Language, sizeof(r.c8Language));
    out.number("len", r.u32LanguageLen);
}

void describeStrInfo(Fields& out, const unsigned char* p)
{
    out.strInfo("text", as<_VOICECTRL_STR_INFO>(p));
}

void describeLongStrInfo(Fields& out, const unsigned char* p)
{
    out.longStrInfo("text", as<_VOICECTRL_LONG_STR_INFO>(p));
}

template <typename Channel> void describeChannelFields(Fields& out, const Channel& r)
{
    out.number("param1", r.u32Param1);
    out.number("u16_1", r.u16Param1);
    out.number("u16_2", r.u16Param2);
    out.number("u16_3", r.u16Param3);
    out.number("u16_4", r.u16Param4);
    out.number("param2", r.u32Param2);
    out.text("name", r.c8ChannelName, sizeof(r.c8ChannelName));
}

void describeChannelInfo(Fields& out, const unsigned char* p)
{
    describeChannelFields(out, as<_VOICECTRL_CHANNEL_INFO>(p));
}

void describeChannelChangeReq(Fields& out, const unsigned char* p)
{
    describeChannelFields(out, as<_VOICECTRL_CHANNEL_CHANGE_REQ>(p));
}

void describeFvpAppReq(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_FVP_APP_REQ>(p);
    out.text("ait_url", r.ait_url, sizeof(r.ait_url));
    out.text("crid", r.crid, sizeof(r.crid));
}

void describeFwVersion(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_FW_VERSION>(p);
    out.text("version", r.c8Version, sizeof(r.c8Version));
}

void describeFvpText(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_FVP_TEXT>(p);
    out.text("text", r.c8Text, sizeof(r.c8Text));
}

void describeFvpProgramReq(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_FVP_PROGRAM_REQ>(p);
    out.text("first", r.c8First, sizeof(r.c8First));
    out.text("second", r.c8Second, sizeof(r.c8Second));
}

void describeAvsToken(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_AVS_TOKEN>(p);
    out.text("token", r.c8Token, sizeof(r.c8Token));
    out.number("len", r.s32TokenLen);
}

void describeTevoraAppReq(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_TEVORA_APP_REQ>(p);
    out.strInfo("app", r.stAppName);
    out.strInfo("id", r.stAppId);
}

void describeSmartTvAppReq(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_SMARTTV_APP_REQ>(p);
    out.strInfo("app", r.stAppName);
    out.longStrInfo("command", r.stCommand);
    out.number("param", r.i4AppParam);
}

void describeUiControlReq(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_UI_CONTROL_REQ>(p);
    out.strInfo("name", r.stName);
    out.longStrInfo("sub", r.stSubCommand);
}

void describeYoutubeVideoReq(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_YOUTUBE_VIDEO_REQ>(p);
    out.longStrInfo("video", r.stVideo);
    out.number("param", r.i4VideoParam);
}

void describeOptionBits(Fields& out, const unsigned char* p)
{
    const auto r = as<_VOICECTRL_OPTION_BITS>(p);
    out.number("o0", r.c8Option0);
    out.number("o1", r.c8Option1);
    out.number("o2", r.c8Option2);
    out.number("o3", r.c8Option3);
    out.number("o4", r.c8Option4);
}

void describeCertData(Fields& out, const unsigned char* p)
{
    // The request's certificate bytes are zeros; only the buffer length counts.
    out.number("buf_len", as<uint32_t>(p + offsetof(_VOICECTRL_CERT_DATA, u32BufLen)));
}

void describeDeviceSetting(Fields& out, const unsigned char*)
{
    out.number("bytes", sizeof(ST_ZOR_APP_DATA_SETTING_T));
}

using FixedDecoder = void (*)(Fields&, const unsigned char*);

// The decoder of a fixed-size record kind, or null for kinds without one.
FixedDecoder fixedDecoder(RecordKind kind)
{
    switch (kind) {
    case RecordKind::Byte:
        return describeByte;
    case RecordKind::Word:
        return describeWord;
    case RecordKind::UrlWindow:
        return describeUrlWindow;
    case RecordKind::DeviceSetting:
        return describeDeviceSetting;
    case RecordKind::Language:
        return describeLanguage;
    case RecordKind::StrInfo:
        return describeStrInfo;
    case RecordKind::LongStrInfo:
        return describeLongStrInfo;
    case RecordKind::ChannelInfo:
        return describeChannelInfo;
    case RecordKind::ChannelChangeReq:
        return describeChannelChangeReq;
    case RecordKind::FvpAppReq:
        return describeFvpAppReq;
    case RecordKind::FwVersion:
        return describeFwVersion;
    case RecordKind::FvpText:
        return describeFvpText;
    case RecordKind::FvpProgramReq:
        return describeFvpProgramReq;
    case RecordKind::AvsToken:
        return describeAvsToken;
    case RecordKind::TevoraAppReq:
        return describeTevoraAppReq;
    case RecordKind::SmartTvAppReq:
        return describeSmartTvAppReq;
    case RecordKind::UiControlReq:
        return describeUiControlReq;
    case RecordKind::YoutubeVideoReq:
        return describeYoutubeVideoReq;
    case RecordKind::OptionBits:
        return describeOptionBits;
    case RecordKind::CertData:
        return describeCertData;
    case RecordKind::None:
    case RecordKind::SourceList:
    case RecordKind::ChannelList:
    case RecordKind::String:
    case RecordKind::BrowserCerts:
        break;
    }
    return nullptr;
}

// Length word, then that many bytes.
void describeCountedString(Fields& out, const unsigned char* p, size_t size)
{
    if (size < 4) {
        out.number("short_bytes", static_cast<long long>(size));
        return;
    }
    const uint32_t length = as<uint32_t>(p);
    const size_t available = size - 4;
    out.number("len", length);
    out.text("text", reinterpret_cast<const char*>(p + 4), length < available ? length : available);
}

// A 16-byte header of four lengths (terminators included), then the strings.
void describeBrowserCerts(Fields& out, const unsigned char* p, size_t size)
{
    static const char* const names[] = {"data1", "data2", "data3", "subject"};
    if (size < 16) {
        out.number("short_bytes", static_cast<long long>(size));
        return;
    }
    size_t offset = 16;
    for (int i = 0; i < 4; ++i) {
        const uint32_t length = as<uint32_t>(p + 4 * i);
        const size_t available = offset < size ? size - offset : 0;
        out.text(names[i], reinterpret_cast<const char*>(p + offset),
                 length < available ? length : available);
        offset += length;
    }
}

} // namespace

std::string describeRequest(const CommandRow& row, const unsigned char* payload, size_t size)
{
    std::string line = row.name;
    Fields out(line);
    switch (row.request) {
    case RequestShape::NoRecord:
    case RequestShape::Empty:
        break;
    case RequestShape::Record: {
        const FixedDecoder decode = fixedDecoder(row.record);
        if (size < recordSize(row.record) || !decode) {
            line += " (short)";
            break;
        }
        decode(out, payload);
        break;
    }
    case RequestShape::ListCount:
        if (size < 4) {
            line += " (short)";
            break;
        }
        out.number("count", as<uint32_t>(payload));
        break;
    case RequestShape::CountedString:
        describeCountedString(out, payload, size);
        break;
    case RequestShape::BrowserCerts:
        describeBrowserCerts(out, payload, size);
        break;
    }
    return line;
}

std::string describeReply(const CommandRow& row, const unsigned char* fields, size_t size)
{
    std::string line;
    Fields out(line);
    switch (row.reply) {
    case ReplyShape::None:
        break;
    case ReplyShape::Record: {
        const FixedDecoder decode = fixedDecoder(row.record);
        if (size < recordSize(row.record) || !decode)
            out.number("short_bytes", static_cast<long long>(size));
        else
            decode(out, fields);
        break;
    }
    case ReplyShape::List: {
        const size_t each = recordSize(row.record);
        out.number("records", static_cast<long long>(each ? size / each : 0));
        break;
    }
    }
    return line;
}

bool isBlankQuery(const CommandRow& row, const unsigned char* payload, size_t size)
{
    if (row.request != RequestShape::Record || row.reply != ReplyShape::Record)
        return false;
    for (size_t i = 0; i < size; ++i)
        if (payload[i] != 0)
            return false;
    return true;
}

} // namespace zor::wire
