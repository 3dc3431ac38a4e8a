// SPDX-License-Identifier: MIT
// The commands that the middleware sends to the application: 0x1 in bits 28
// to 31, the class in bits 16 to 19, the command number from 1 in bits 0 to
// 15. Shared by the server and by the simulator, which sends them.
#ifndef ZOR_SERVER_INBOUND_COMMANDS_H
#define ZOR_SERVER_INBOUND_COMMANDS_H

#include <cstdint>

namespace OXAPC
{

enum OXA_CMD_ID : uint32_t {
    /* class 1, assistant */
    OXA_CMD_ID_AVS_ACTIVATE_AVS = 0x10010001,
    OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS = 0x10010002,
    OXA_CMD_ID_AVS_REPORT_UI_STATUS = 0x10010003,
    OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE = 0x10010004,
    OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY = 0x10010005,
    OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA = 0x10010006,
    OXA_CMD_ID_AVS_MIC_BUTTON_TAPPED = 0x10010007,
    OXA_CMD_ID_AVS_REST_AVS = 0x10010008,
    OXA_CMD_ID_AVS_SET_POWER_MODE = 0x10010009,
    OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE = 0x1001000A,
    OXA_CMD_ID_AVS_SET_DEBUG_LEVEL = 0x1001000B,
    OXA_CMD_ID_AVS_MIC_BUTTON_HOLD = 0x1001000C,
    OXA_CMD_ID_AVS_SET_TIME_ZONE = 0x1001000D,
    OXA_CMD_ID_AVS_SET_FFM_SUP = 0x1001000E,
    OXA_CMD_ID_AVS_NOTIFY_ACTIONBUTTON_PRESSED = 0x1001000F,
    OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS = 0x10010010,
    OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON = 0x10010011,
    /* class 2, voice control */
    OXA_CMD_ID_VOICE_CTRL_INFORM_CONTROL_CHANGED = 0x10020001,
    OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED = 0x10020002,
    OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE = 0x10020003,
    OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS = 0x10020004,
    /* class 3, Google Assistant: the assistant-class operations */
    OXA_CMD_ID_GA_ACTIVATE_GA = 0x10030001,
    OXA_CMD_ID_GA_ENABLE_DISABLE_GA = 0x10030002,
    OXA_CMD_ID_GA_REPORT_UI_STATUS = 0x10030003,
    OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE = 0x10030004,
    OXA_CMD_ID_GA_USER_CHANGE_COUNTRY = 0x10030005,
    OXA_CMD_ID_GA_REST_GA = 0x10030006,
    OXA_CMD_ID_GA_NOTIFY_POWER_MODE = 0x10030007,
};

} // namespace OXAPC

namespace zor::inbound
{

constexpr unsigned kClassAssistant = 1;
constexpr unsigned kClassVoiceControl = 2;
constexpr unsigned kClassGoogleAssistant = 3;

constexpr unsigned classOf(uint32_t id)
{
    return (id >> 16) & 0xF;
}

// Field widths of the requests.
constexpr unsigned kLanguageBytes = 4;
constexpr unsigned kCountryBytes = 3;
constexpr unsigned kCertificateTextBytes = 129;

// The messaging layer carries at most 1 MiB of payload in one frame (its
// interface, mup/mup.h, says so); a PCM command (count word, then 2 bytes per
// sample) can never carry more samples than fit in it, so a larger count is
// refused before anything is allocated.
constexpr uint64_t kMaxFramePayload = 1024 * 1024;
constexpr uint64_t kMaxPcmSamples = (kMaxFramePayload - 4) / 2;

} // namespace zor::inbound

#endif
