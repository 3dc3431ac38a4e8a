// SPDX-License-Identifier: MIT
#include "transport/command_table.h"

namespace zor::wire
{
namespace
{

using K = RecordKind;
using Q = RequestShape;
using A = ReplyShape;
constexpr ReadRule U = ReadRule::Unconditional;
constexpr ReadRule G = ReadRule::Guarded;

// Class 2: the voice-control service's own command set; most rows have a twin
// of the same record in another class.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18020001, "OXA_TV_CMD_ID__VOICE_CTRL_INIT", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18020002, "OXA_TV_CMD_ID__VOICE_CTRL_SetWallglowState", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18020003, "OXA_TV_CMD_ID__VOICE_CTRL_SetWallglowToFollow", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18020004, "OXA_TV_CMD_ID__VOICE_CTRL_SetPowerControl", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18020005, "OXA_TV_CMD_ID__VOICE_CTRL_GetChannelList", nullptr, K::ChannelList, Q::ListCount, A::List, G},
    {0x18020006, "OXA_TV_CMD_ID__VOICE_CTRL_TuneToNextChannel", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18020007, "OXA_TV_CMD_ID__VOICE_CTRL_TuneToPreviousChannel", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18020008, "OXA_TV_CMD_ID__VOICE_CTRL_ChangeToChannel", nullptr, K::ChannelChangeReq, Q::Record, A::None, U},
    {0x18020009, "OXA_TV_CMD_ID__VOICE_CTRL_TuneToChannel", nullptr, K::Word, Q::Record, A::None, U},
    {0x1802000A, "OXA_TV_CMD_ID__VOICE_CTRL_SetUSBSource", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x1802000B, "OXA_TV_CMD_ID__VOICE_CTRL_TuneToInputSrc", nullptr, K::StrInfo, Q::Record, A::None, U},
    {0x1802000C, "OXA_TV_CMD_ID__VOICE_CTRL_SetMute", nullptr, K::Word, Q::Record, A::None, U},
    {0x1802000D, "OXA_TV_CMD_ID__VOICE_CTRL_GetMute", nullptr, K::Word, Q::Record, A::Record, U},
    {0x1802000E, "OXA_TV_CMD_ID__VOICE_CTRL_SetVolume", nullptr, K::Word, Q::Record, A::None, U},
    {0x1802000F, "OXA_TV_CMD_ID__VOICE_CTRL_GetVolume", nullptr, K::Word, Q::Record, A::Record, U},
    {0x18020010, "OXA_TV_CMD_ID__VOICE_CTRL_GetMaxVolume", nullptr, K::Word, Q::Record, A::Record, U},
    {0x18020011, "OXA_TV_CMD_ID__VOICE_CTRL_SendPlaybackCtrl", nullptr, K::LongStrInfo, Q::Record, A::None, U},
    {0x18020013, "OXA_TV_CMD_ID__VOICE_CTRL_GetOptionBits", nullptr, K::OptionBits, Q::Empty, A::Record, U},
    {0x18020014, "OXA_TV_CMD_ID__VOICE_CTRL_StartSmartTVApp", nullptr, K::SmartTvAppReq, Q::Record, A::None, U},
    {0x18020015, "OXA_TV_CMD_ID__VOICE_CTRL_GetCurrentInputSrc", nullptr, K::StrInfo, Q::Record, A::Record, U},
    {0x18020016, "OXA_TV_CMD_ID__VOICE_CTRL_GetCurrentChannel", nullptr, K::ChannelInfo, Q::Empty, A::Record, U},
    {0x18020017, "OXA_TV_CMD_ID__VOICE_CTRL_GetNumberofChannels", nullptr, K::Word, Q::Empty, A::Record, U},
    {0x18020018, "OXA_TV_CMD_ID__VOICE_CTRL_StartUIControl", nullptr, K::UiControlReq, Q::Record, A::None, U},
    {0x18020019, "OXA_TV_CMD_ID__VOICE_CTRL_GetInputSouceList", nullptr, K::SourceList, Q::ListCount, A::List, G},
    {0x18020020, "OXA_TV_CMD_ID__VOICE_CTRL_GetInputSouceListLen", nullptr, K::Word, Q::Empty, A::Record, U},
    {0x18020021, "OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts", nullptr, K::BrowserCerts, Q::BrowserCerts, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kVoiceControlClass = {
    2, "OXA_TV_CMD_CLASS_VOICE_CTRL", "_voiceCtrlSendTransact", 0x18020001, 0x18020021, true,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
