// SPDX-License-Identifier: MIT
#include "sim/television.h"

#include "zor/zor_transport.h"
#include "zor/zor_types.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

namespace zor::sim
{

using namespace OXAPC;

namespace
{

constexpr size_t kMaxInjectedKeys = 32;

template <typename Record> Record decode(const std::vector<unsigned char>& request)
{
    Record record;
    memset(&record, 0, sizeof(record));
    memcpy(&record, request.data(), std::min(sizeof(record), request.size()));
    return record;
}

template <typename Record> std::vector<unsigned char> encode(const Record& record)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
    return std::vector<unsigned char>(bytes, bytes + sizeof(record));
}

std::vector<unsigned char> wordBytes(uint32_t value)
{
    return encode(value);
}

std::string fieldText(const char* field, size_t size)
{
    return std::string(field, strnlen(field, size));
}

template <size_t N> void putField(char (&field)[N], const std::string& text)
{
    memset(field, 0, N);
    memcpy(field, text.data(), std::min(text.size(), N - 1));
}

uint32_t wordOf(const std::vector<unsigned char>& request)
{
    return decode<uint32_t>(request);
}

bool sameText(const std::string& left, const std::string& right)
{
    return left.size() == right.size() &&
           std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) {
               return tolower(static_cast<unsigned char>(a)) ==
                      tolower(static_cast<unsigned char>(b));
           });
}

_VOICECTRL_CHANNEL_INFO channelRecord(const Channel& channel)
{
    _VOICECTRL_CHANNEL_INFO record;
    memset(&record, 0, sizeof(record));
    record.u32Param1 = channel.number;
    record.u16Param1 = channel.serviceId;
    record.u16Param2 = channel.transportId;
    record.u16Param3 = channel.networkId;
    record.u16Param4 = channel.kind;
    record.u32Param2 = channel.frequency;
    putField(record.c8ChannelName, channel.name);
    return record;
}

// The voice-control commands that behave exactly as a command of another class.
uint32_t twinOf(uint32_t id)
{
    static const std::map<uint32_t, uint32_t> twins = {
        {OXA_TV_CMD_ID__VOICE_CTRL_SetWallglowState, OXA_TV_CMD_ID_VIDEO_SetWallglowState},
        {OXA_TV_CMD_ID__VOICE_CTRL_SetWallglowToFollow, OXA_TV_CMD_ID_VIDEO_SetWallglowToFollow},
        {OXA_TV_CMD_ID__VOICE_CTRL_SetPowerControl, OXA_TV_CMD_ID_SYSTEM_SetPowerControl},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetChannelList, OXA_TV_CMD_ID_CHANNEL_GetChannelList},
        {OXA_TV_CMD_ID__VOICE_CTRL_TuneToNextChannel, OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel},
        {OXA_TV_CMD_ID__VOICE_CTRL_TuneToPreviousChannel,
         OXA_TV_CMD_ID_CHANNEL_TuneToPreviousChannel},
        {OXA_TV_CMD_ID__VOICE_CTRL_ChangeToChannel, OXA_TV_CMD_ID_CHANNEL_ChangeToChannel},
        {OXA_TV_CMD_ID__VOICE_CTRL_TuneToChannel, OXA_TV_CMD_ID_CHANNEL_TuneToChannel},
        {OXA_TV_CMD_ID__VOICE_CTRL_SetUSBSource, OXA_TV_CMD_ID_SYSTEM_SetUSBSource},
        {OXA_TV_CMD_ID__VOICE_CTRL_TuneToInputSrc, OXA_TV_CMD_ID_VIDEO_TuneToInputSrc},
        {OXA_TV_CMD_ID__VOICE_CTRL_SetMute, OXA_TV_CMD_ID_AUDIO_SetMute},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetMute, OXA_TV_CMD_ID_AUDIO_GetMute},
        {OXA_TV_CMD_ID__VOICE_CTRL_SetVolume, OXA_TV_CMD_ID_AUDIO_SetVolume},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetVolume, OXA_TV_CMD_ID_AUDIO_GetVolume},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetMaxVolume, OXA_TV_CMD_ID_AUDIO_GetMaxVolume},
        {OXA_TV_CMD_ID__VOICE_CTRL_SendPlaybackCtrl, OXA_TV_CMD_ID_MISC_SendPlaybackCtrl},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetOptionBits, OXA_TV_CMD_ID_MISC_GetOptionBits},
        {OXA_TV_CMD_ID__VOICE_CTRL_StartSmartTVApp, OXA_TV_CMD_ID_MISC_StartSmartTVApp},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetCurrentInputSrc, OXA_TV_CMD_ID_VIDEO_GetCurrentInputSrc},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetCurrentChannel, OXA_TV_CMD_ID_CHANNEL_GetCurrentChannel},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetNumberofChannels, OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels},
        {OXA_TV_CMD_ID__VOICE_CTRL_StartUIControl, OXA_TV_CMD_ID_MISC_StartUIControl},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetInputSouceList, OXA_TV_CMD_ID_VIDEO_GetInputSouceList},
        {OXA_TV_CMD_ID__VOICE_CTRL_GetInputSouceListLen, OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen},
    };
    auto found = twins.find(id);
    return found != twins.end() ? found->second : id;
}

// Zeros where the reply's fields go: what a failed command answers with.
std::vector<unsigned char> zeroFields(const wire::CommandRow& row,
                                      const std::vector<unsigned char>& request)
{
    switch (row.reply) {
    case wire::ReplyShape::None:
        return {};
    case wire::ReplyShape::Record:
        return std::vector<unsigned char>(wire::recordSize(row.record), 0);
    case wire::ReplyShape::List:
        // Bounded: a failed list never answers more than a screenful.
        return std::vector<unsigned char>(
            std::min<size_t>(wordOf(request), 1024) * wire::recordSize(row.record), 0);
    }
    return {};
}

} // namespace

Television::Television(TelevisionState state, FaultPlan faults)
    : m_state(std::move(state)), m_faults(std::move(faults))
{
}

Answer Television::apply(const wire::CommandRow& row, const unsigned char* payload, size_t size)
{
    Request request(payload, payload + size);
    if (request.size() < wire::recordSize(row.record))
        request.resize(wire::recordSize(row.record), 0);
    if (request.size() < sizeof(uint32_t))
        request.resize(sizeof(uint32_t), 0);

    std::lock_guard<std::mutex> guard(m_lock);
    auto failure = m_faults.failures.find(row.id);
    if (failure != m_faults.failures.end())
        return {failure->second, zeroFields(row, request)};

    Answer answer = applyCommand(twinOf(row.id), row, request);
    if (m_faults.shortReplies.count(row.id))
        answer.fields.resize(answer.fields.size() / 2);
    return answer;
}

Answer Television::applyCommand(uint32_t id, const wire::CommandRow&, const Request& request)
{
    switch (id >> 16 & 0xF) {
    case 1:
        return applyAssistant(id, request);
    case 2:
        return applyVoiceControl(id, request);
    case 3:
        return applyVideo(id, request);
    case 4:
        return applyAudio(id, wordOf(request));
    case 5:
        return applyChannel(id, request);
    case 6:
        return applySystem(id, request);
    case 7:
        return applyMisc(id, request);
    default:
        return {};
    }
}

Answer Television::applyAudio(uint32_t id, uint32_t word)
{
    AudioState& audio = m_state.audio;
    switch (id) {
    case OXA_TV_CMD_ID_AUDIO_SetMute:
        audio.mute = word != 0;
        return {};
    case OXA_TV_CMD_ID_AUDIO_GetMute:
        return {0, wordBytes(audio.mute)};
    case OXA_TV_CMD_ID_AUDIO_SetVolume:
        audio.volume = std::min(word, audio.maxVolume);
        return {};
    case OXA_TV_CMD_ID_AUDIO_GetVolume:
        return {0, wordBytes(audio.volume)};
    case OXA_TV_CMD_ID_AUDIO_GetMaxVolume:
        return {0, wordBytes(audio.maxVolume)};
    case OXA_TV_CMD_ID_AUDIO_SetMainAudioGain:
        audio.gain = static_cast<int32_t>(word);
        return {};
    case OXA_TV_CMD_ID_AUDIO_SetSoundStyle:
        audio.soundStyle = static_cast<int32_t>(word);
        return {};
    default:
        return {};
    }
}

Answer Television::applyVideo(uint32_t id, const Request& request)
{
    TelevisionState& tv = m_state;
    switch (id) {
    case OXA_TV_CMD_ID_VIDEO_SetWallglowState:
        tv.wallglowOn = request[0] != 0;
        return {};
    case OXA_TV_CMD_ID_VIDEO_SetWallglowToFollow:
        tv.wallglowFollow = request[0];
        return {};
    case OXA_TV_CMD_ID_VIDEO_TuneToInputSrc: {
        const auto record = decode<_VOICECTRL_STR_INFO>(request);
        const std::string name = fieldText(record.c8Str, sizeof(record.c8Str));
        for (size_t i = 0; i < tv.sources.size(); ++i) {
            if (sameText(tv.sources[i].name, name) || sameText(tv.sources[i].label, name)) {
                tv.currentSource = static_cast<uint32_t>(i);
                return {};
            }
        }
        return {-1, {}};
    }
    case OXA_TV_CMD_ID_VIDEO_GetCurrentInputSrc: {
        _VOICECTRL_STR_INFO record;
        memset(&record, 0, sizeof(record));
        if (tv.currentSource < tv.sources.size()) {
            putField(record.c8Str, tv.sources[tv.currentSource].name);
            record.u32StrLen = static_cast<uint32_t>(strlen(record.c8Str));
        }
        return {0, encode(record)};
    }
    case OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen:
        return {0, wordBytes(static_cast<uint32_t>(tv.sources.size()))};
    case OXA_TV_CMD_ID_VIDEO_GetInputSouceList: {
        // Exactly as many records as asked for; zeros past the last source.
        const uint32_t count = std::min<uint32_t>(wordOf(request), 1024);
        std::vector<unsigned char> fields;
        for (uint32_t i = 0; i < count; ++i) {
            _VOICECTRL_SOURCE_INFO record;
            memset(&record, 0, sizeof(record));
            if (i < tv.sources.size()) {
                putField(record.c8SourceText1, tv.sources[i].name);
                putField(record.c8SourceText2, tv.sources[i].label);
            }
            const auto bytes = encode(record);
            fields.insert(fields.end(), bytes.begin(), bytes.end());
        }
        return {0, fields};
    }
    case OXA_TV_CMD_ID_VIDEO_GetPlayerStatus:
        return {0, wordBytes(static_cast<uint32_t>(tv.playerStatus))};
    case OXA_TV_CMD_ID_VIDEO_SetPictureStyle:
        tv.pictureStyle = static_cast<int32_t>(wordOf(request));
        return {};
    default:
        return {};
    }
}

void Television::tuneTo(uint32_t index)
{
    if (index != m_state.currentChannel)
        m_state.lastTunedChannel = m_state.currentChannel;
    m_state.currentChannel = index;
}

int Television::findChannelByNumber(uint32_t number) const
{
    for (size_t i = 0; i < m_state.channels.size(); ++i) {
        if (m_state.channels[i].number == number)
            return static_cast<int>(i);
    }
    return -1;
}

int Television::findChannelByName(const std::string& name) const
{
    for (size_t i = 0; i < m_state.channels.size(); ++i) {
        if (sameText(m_state.channels[i].name, name))
            return static_cast<int>(i);
    }
    return -1;
}

Answer Television::applyChannel(uint32_t id, const Request& request)
{
    TelevisionState& tv = m_state;
    const uint32_t channelCount = static_cast<uint32_t>(tv.channels.size());
    switch (id) {
    case OXA_TV_CMD_ID_CHANNEL_GetChannelList: {
        const uint32_t count = std::min<uint32_t>(wordOf(request), 1024);
        std::vector<unsigned char> fields;
        for (uint32_t i = 0; i < count; ++i) {
            _VOICECTRL_CHANNEL_INFO record;
            memset(&record, 0, sizeof(record));
            if (i < channelCount)
                record = channelRecord(tv.channels[i]);
            const auto bytes = encode(record);
            fields.insert(fields.end(), bytes.begin(), bytes.end());
        }
        return {0, fields};
    }
    case OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel:
        if (channelCount == 0)
            return {-1, {}};
        tuneTo((tv.currentChannel + 1) % channelCount);
        return {};
    case OXA_TV_CMD_ID_CHANNEL_TuneToPreviousChannel:
        if (channelCount == 0)
            return {-1, {}};
        tuneTo((tv.currentChannel + channelCount - 1) % channelCount);
        return {};
    case OXA_TV_CMD_ID_CHANNEL_TuneToLastTunedChannel:
        if (tv.lastTunedChannel >= channelCount)
            return {-1, {}};
        tuneTo(tv.lastTunedChannel);
        return {};
    case OXA_TV_CMD_ID_CHANNEL_ChangeToChannel: {
        const auto record = decode<_VOICECTRL_CHANNEL_CHANGE_REQ>(request);
        int index =
            findChannelByName(fieldText(record.c8ChannelName, sizeof(record.c8ChannelName)));
        if (index < 0)
            index = findChannelByNumber(record.u32Param1);
        if (index < 0)
            return {-1, {}};
        tuneTo(static_cast<uint32_t>(index));
        return {};
    }
    case OXA_TV_CMD_ID_CHANNEL_TuneToChannel: {
        const int index = findChannelByNumber(wordOf(request));
        if (index < 0)
            return {-1, {}};
        tuneTo(static_cast<uint32_t>(index));
        return {};
    }
    case OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2: {
        // Length word, then the text: a channel name or its number.
        const uint32_t length = wordOf(request);
        const size_t available = request.size() - sizeof(uint32_t);
        const std::string text(reinterpret_cast<const char*>(request.data()) + sizeof(uint32_t),
                               std::min<size_t>(length, available));
        int index = findChannelByName(text);
        if (index < 0 && !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
                return isdigit(static_cast<unsigned char>(c));
            }))
            index = findChannelByNumber(static_cast<uint32_t>(std::stoul(text)));
        if (index < 0)
            return {-1, {}};
        tuneTo(static_cast<uint32_t>(index));
        return {};
    }
    case OXA_TV_CMD_ID_CHANNEL_GetCurrentChannel: {
        _VOICECTRL_CHANNEL_INFO record;
        memset(&record, 0, sizeof(record));
        if (tv.currentChannel < channelCount)
            record = channelRecord(tv.channels[tv.currentChannel]);
        return {0, encode(record)};
    }
    case OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels:
        return {0, wordBytes(channelCount)};
    case OXA_TV_CMD_ID_CHANNEL_StartFVPApp: {
        const auto record = decode<_VOICECTRL_FVP_APP_REQ>(request);
        tv.lastFvpAction = "app " + fieldText(record.ait_url, sizeof(record.ait_url)) + " crid " +
                           fieldText(record.crid, sizeof(record.crid));
        return {};
    }
    case OXA_TV_CMD_ID_CHANNEL_TuneToFVPChannel: {
        const auto record = decode<_VOICECTRL_STR_INFO>(request);
        tv.lastFvpAction = "channel " + fieldText(record.c8Str, sizeof(record.c8Str));
        return {};
    }
    default:
        return {};
    }
}

Answer Television::applySystem(uint32_t id, const Request& request)
{
    TelevisionState& tv = m_state;
    switch (id) {
    case OXA_TV_CMD_ID_SYSTEM_SetPowerControl:
        tv.powerOn = request[0] != 0;
        return {};
    case OXA_TV_CMD_ID_SYSTEM_SetUSBSource:
        ++tv.usbSourceRequests;
        for (size_t i = 0; i < tv.sources.size(); ++i) {
            if (sameText(tv.sources[i].name, "USB"))
                tv.currentSource = static_cast<uint32_t>(i);
        }
        return {};
    case OXA_TV_CMD_ID_SYSTEM_SetIOTCertificate:
        tv.iotCertificate = request[0];
        return {};
    case OXA_TV_CMD_ID_SYSTEM_GetEnvironment:
        return {0, {tv.environment}};
    case OXA_TV_CMD_ID_SYSTEM_getFWversion: {
        // The field is filled as far as the text goes; a 40-character text has
        // no terminator, as the middleware sends it.
        _VOICECTRL_FW_VERSION record;
        memset(&record, 0, sizeof(record));
        memcpy(record.c8Version, tv.firmwareVersion.data(),
               std::min(tv.firmwareVersion.size(), sizeof(record.c8Version)));
        return {0, encode(record)};
    }
    case OXA_TV_CMD_ID_SYSTEM_showFVPRecommendation:
    case OXA_TV_CMD_ID_SYSTEM_showFVPCollection: {
        const auto record = decode<_VOICECTRL_FVP_TEXT>(request);
        tv.lastFvpAction =
            std::string(id == OXA_TV_CMD_ID_SYSTEM_showFVPRecommendation ? "recommendation "
                                                                         : "collection ") +
            fieldText(record.c8Text, sizeof(record.c8Text));
        return {};
    }
    case OXA_TV_CMD_ID_SYSTEM_TuneToFVPProgram: {
        const auto record = decode<_VOICECTRL_FVP_PROGRAM_REQ>(request);
        tv.lastFvpAction = "programme " + fieldText(record.c8First, sizeof(record.c8First)) + " " +
                           fieldText(record.c8Second, sizeof(record.c8Second));
        return {};
    }
    case OXA_TV_CMD_ID_SYSTEM_restartCurrentFVPProgram:
        tv.lastFvpAction = "restart";
        return {};
    case OXA_TV_CMD_ID_SYSTEM_SetCtrlMode:
        tv.controlMode = static_cast<int32_t>(wordOf(request));
        return {};
    case OXA_TV_CMD_ID_SYSTEM_SetAVSToken: {
        const auto record =
            std::make_unique<_VOICECTRL_AVS_TOKEN>(decode<_VOICECTRL_AVS_TOKEN>(request));
        tv.avsToken = fieldText(record->c8Token, sizeof(record->c8Token));
        tv.avsTokenLength = record->s32TokenLen;
        return {};
    }
    case OXA_TV_CMD_ID_SYSTEM_GetAVSToken: {
        auto record = std::make_unique<_VOICECTRL_AVS_TOKEN>();
        memset(record.get(), 0, sizeof(*record));
        memcpy(record->c8Token, tv.avsToken.data(),
               std::min(tv.avsToken.size(), sizeof(record->c8Token)));
        record->s32TokenLen = tv.avsTokenLength;
        return {0, encode(*record)};
    }
    case OXA_TV_CMD_ID_SYSTEM_GetTimeZone: {
        auto record = std::make_unique<_VOICECTRL_LONG_STR_INFO>();
        memset(record.get(), 0, sizeof(*record));
        putField(record->c8Str, tv.timeZone);
        record->u32StrLen = static_cast<uint32_t>(strlen(record->c8Str));
        return {0, encode(*record)};
    }
    case OXA_TV_CMD_ID_SYSTEM_GetFFmicOption:
        return {0, {tv.ffmicOption}};
    case OXA_TV_CMD_ID_SYSTEM_LoadTevoraApp: {
        const auto record = decode<_VOICECTRL_TEVORA_APP_REQ>(request);
        tv.portalApp.name = fieldText(record.stAppName.c8Str, sizeof(record.stAppName.c8Str));
        tv.portalApp.id = fieldText(record.stAppId.c8Str, sizeof(record.stAppId.c8Str));
        return {};
    }
    default:
        return {};
    }
}

Answer Television::applyMisc(uint32_t id, const Request& request)
{
    TelevisionState& tv = m_state;
    switch (id) {
    case OXA_TV_CMD_ID_MISC_SendPlaybackCtrl: {
        const auto record = decode<_VOICECTRL_LONG_STR_INFO>(request);
        tv.lastPlaybackCommand = fieldText(record.c8Str, sizeof(record.c8Str));
        return {};
    }
    case OXA_TV_CMD_ID_MISC_GetCertificate: {
        // The length field tells the whole certificate's size, even when the
        // field can't hold it all.
        auto record = std::make_unique<_VOICECTRL_CERT_DATA>();
        memset(record.get(), 0, sizeof(*record));
        memcpy(record->c8CertData, tv.certificate.data(),
               std::min(tv.certificate.size(), sizeof(record->c8CertData)));
        record->u32BufLen = static_cast<uint32_t>(tv.certificate.size());
        return {0, encode(*record)};
    }
    case OXA_TV_CMD_ID_MISC_GetOptionBits: {
        _VOICECTRL_OPTION_BITS record;
        memcpy(&record, tv.optionBits.data(), sizeof(record));
        return {0, encode(record)};
    }
    case OXA_TV_CMD_ID_MISC_StartSmartTVApp: {
        const auto record = decode<_VOICECTRL_SMARTTV_APP_REQ>(request);
        tv.smartTvApp.name = fieldText(record.stAppName.c8Str, sizeof(record.stAppName.c8Str));
        tv.smartTvApp.command = fieldText(record.stCommand.c8Str, sizeof(record.stCommand.c8Str));
        tv.smartTvApp.param = record.i4AppParam;
        return {};
    }
    case OXA_TV_CMD_ID_MISC_StartUIControl: {
        const auto record = decode<_VOICECTRL_UI_CONTROL_REQ>(request);
        tv.uiControl.name = fieldText(record.stName.c8Str, sizeof(record.stName.c8Str));
        tv.uiControl.subCommand =
            fieldText(record.stSubCommand.c8Str, sizeof(record.stSubCommand.c8Str));
        return {};
    }
    case OXA_TV_CMD_ID_MISC_GetActiveApp:
        return {0, wordBytes(static_cast<uint32_t>(tv.activeApp))};
    case OXA_TV_CMD_ID_MISC_InjectRCKey: {
        const auto record = decode<_VOICECTRL_STR_INFO>(request);
        tv.injectedKeys.push_back(fieldText(record.c8Str, sizeof(record.c8Str)));
        if (tv.injectedKeys.size() > kMaxInjectedKeys)
            tv.injectedKeys.erase(tv.injectedKeys.begin());
        return {};
    }
    case OXA_TV_CMD_ID_MISC_StartYoutubeVideo: {
        const auto record = decode<_VOICECTRL_YOUTUBE_VIDEO_REQ>(request);
        tv.youtubeVideo.id = fieldText(record.stVideo.c8Str, sizeof(record.stVideo.c8Str));
        tv.youtubeVideo.param = record.i4VideoParam;
        return {};
    }
    default:
        return {};
    }
}

Answer Television::applyVoiceControl(uint32_t id, const Request& request)
{
    TelevisionState& tv = m_state;
    switch (id) {
    case OXA_TV_CMD_ID__VOICE_CTRL_INIT:
        tv.voiceControlReady = true;
        return {};
    case OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts: {
        // Four lengths (terminators included), then the four strings.
        std::string* const targets[] = {
            &tv.browserCertificates.data1, &tv.browserCertificates.data2,
            &tv.browserCertificates.data3, &tv.browserCertificates.subjectName};
        if (request.size() < 16)
            return {-1, {}};
        size_t offset = 16;
        for (int i = 0; i < 4; ++i) {
            uint32_t length = 0;
            memcpy(&length, request.data() + 4 * i, sizeof(length));
            const size_t available = offset < request.size() ? request.size() - offset : 0;
            const char* text = reinterpret_cast<const char*>(request.data()) + offset;
            *targets[i] = fieldText(text, std::min<size_t>(length, available));
            offset += std::min<size_t>(length, available);
        }
        return {};
    }
    default:
        return {};
    }
}

Answer Television::applyAssistant(uint32_t id, const Request& request)
{
    if (id == OXA_TV_CMD_ID_AVS_LOAD_URL_WINDOW) {
        const auto record =
            std::make_unique<ST_ZOR_APP_URL_WINDOW_T>(decode<ST_ZOR_APP_URL_WINDOW_T>(request));
        m_state.urlWindow.param = record->u32WindowParam;
        m_state.urlWindow.type = record->u32WindowType;
        m_state.urlWindow.url = fieldText(record->c8URL, sizeof(record->c8URL));
        m_state.urlWindow.background = record->u8Background;
    }
    return {};
}

TelevisionState Television::state() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_state;
}

AudioState Television::audio() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_state.audio;
}

} // namespace zor::sim
