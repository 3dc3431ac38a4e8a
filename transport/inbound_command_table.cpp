// SPDX-License-Identifier: MIT
#include "transport/inbound_command_table.h"

namespace zor::wire
{

namespace
{

using T = FieldType;

template <size_t N> constexpr size_t countOf(const InboundField (&)[N])
{
    return N;
}

#define COMMAND(id, name, fields)                                                                  \
    InboundCommand                                                                                 \
    {                                                                                              \
        id, name, fields, countOf(fields), false                                                   \
    }
#define BARE(id, name)                                                                             \
    InboundCommand                                                                                 \
    {                                                                                              \
        id, name, nullptr, 0, false                                                                \
    }

const InboundField kCommandType[] = {{"type", 4, T::I32}};
const InboundField kUiStatus[] = {{"status", 4, T::I32}, {"value", 4, T::U32}};
const InboundField kLanguage[] = {{"code", 4, T::Text}};
const InboundField kCountry[] = {{"code", 3, T::Text}};
const InboundField kPcm[] = {{"samples", 4, T::U32}};
const InboundField kResetState[] = {{"state", 4, T::I32}};
const InboundField kPowerMode[] = {{"mode", 4, T::I32}};
const InboundField kTappedType[] = {{"type", 4, T::I32}};
const InboundField kDebugLevel[] = {{"level", 4, T::I32}};
const InboundField kHoldMode[] = {{"mode", 1, T::U8}};
const InboundField kFarField[] = {
    {"u8Sup", 1, T::U8}, {"c8CardID", 1, T::I8}, {"c8DevID", 1, T::I8}};
const InboundField kDspStatus[] = {{"status", 4, T::U32}};
const InboundField kMicButton[] = {{"on", 1, T::U8}};
const InboundField kNotifyType[] = {{"type", 4, T::I32}};
const InboundField kCertificate[] = {{"text", 129, T::Text}};
const InboundField kSoftMicStatus[] = {{"status", 4, T::U32}};

// clang-format off
const InboundCommand kAssistant[] = {
    BARE(0x10010001, "OXA_CMD_ID_AVS_ACTIVATE_AVS"),
    COMMAND(0x10010002, "OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS", kCommandType),
    COMMAND(0x10010003, "OXA_CMD_ID_AVS_REPORT_UI_STATUS", kUiStatus),
    COMMAND(0x10010004, "OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE", kLanguage),
    COMMAND(0x10010005, "OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY", kCountry),
    {0x10010006, "OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA", kPcm, 1, true},
    BARE(0x10010007, "OXA_CMD_ID_AVS_MIC_BUTTON_TAPPED"),
    COMMAND(0x10010008, "OXA_CMD_ID_AVS_REST_AVS", kResetState),
    COMMAND(0x10010009, "OXA_CMD_ID_AVS_SET_POWER_MODE", kPowerMode),
    COMMAND(0x1001000A, "OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE", kTappedType),
    COMMAND(0x1001000B, "OXA_CMD_ID_AVS_SET_DEBUG_LEVEL", kDebugLevel),
    COMMAND(0x1001000C, "OXA_CMD_ID_AVS_MIC_BUTTON_HOLD", kHoldMode),
    BARE(0x1001000D, "OXA_CMD_ID_AVS_SET_TIME_ZONE"),
    COMMAND(0x1001000E, "OXA_CMD_ID_AVS_SET_FFM_SUP", kFarField),
    BARE(0x1001000F, "OXA_CMD_ID_AVS_NOTIFY_ACTIONBUTTON_PRESSED"),
    COMMAND(0x10010010, "OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS", kDspStatus),
    COMMAND(0x10010011, "OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON", kMicButton),
};

const InboundCommand kVoiceControl[] = {
    COMMAND(0x10020001, "OXA_CMD_ID_VOICE_CTRL_INFORM_CONTROL_CHANGED", kNotifyType),
    COMMAND(0x10020002, "OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED", kCertificate),
    BARE(0x10020003, "OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE"),
    COMMAND(0x10020004, "OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS", kSoftMicStatus),
};

// The Google Assistant's requests have the layouts of their assistant twins.
const InboundCommand kGoogleAssistant[] = {
    BARE(0x10030001, "OXA_CMD_ID_GA_ACTIVATE_GA"),
    COMMAND(0x10030002, "OXA_CMD_ID_GA_ENABLE_DISABLE_GA", kCommandType),
    COMMAND(0x10030003, "OXA_CMD_ID_GA_REPORT_UI_STATUS", kUiStatus),
    COMMAND(0x10030004, "OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE", kLanguage),
    COMMAND(0x10030005, "OXA_CMD_ID_GA_USER_CHANGE_COUNTRY", kCountry),
    COMMAND(0x10030006, "OXA_CMD_ID_GA_REST_GA", kResetState),
    COMMAND(0x10030007, "OXA_CMD_ID_GA_NOTIFY_POWER_MODE", kPowerMode),
};
// clang-format on

template <size_t N>
constexpr InboundClass makeClass(unsigned number, const char* name,
                                 const InboundCommand (&commands)[N])
{
    return InboundClass{number, name, commands, N};
}

// Classes 1 and 3 are named as the server's dispatch lines name them.
const InboundClass kClasses[] = {
    makeClass(1, "OXV_CMD_CLASS_ALEXA", kAssistant),
    makeClass(2, "voice control", kVoiceControl),
    makeClass(3, "OXV_CMD_CLASS_GA", kGoogleAssistant),
};
const InboundClass* const kClassList[] = {&kClasses[0], &kClasses[1], &kClasses[2]};

} // namespace

const InboundClass* inboundClassOf(uint32_t id)
{
    if (!isInboundId(id))
        return nullptr;
    const unsigned number = (id >> 16) & 0xF;
    return number >= 1 && number <= 3 ? &kClasses[number - 1] : nullptr;
}

const InboundCommand* findInboundCommand(uint32_t id)
{
    const InboundClass* owner = inboundClassOf(id);
    if (!owner)
        return nullptr;
    // Command n of a class is its row n - 1; 0 wraps round and falls out.
    const size_t index = static_cast<size_t>(id & 0xFFFF) - 1;
    if (index >= owner->commandCount || owner->commands[index].id != id)
        return nullptr;
    return &owner->commands[index];
}

const InboundClass* const* allInboundClasses(size_t* count)
{
    *count = sizeof(kClassList) / sizeof(kClassList[0]);
    return kClassList;
}

} // namespace zor::wire
