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

// Class 7: playback control, certificates, option bytes, applications, keys.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18070001, "OXA_TV_CMD_ID_MISC_SendPlaybackCtrl", nullptr, K::LongStrInfo, Q::Record, A::None, U},
    {0x18070002, "OXA_TV_CMD_ID_MISC_GetCertificate", nullptr, K::CertData, Q::Record, A::Record, U},
    {0x18070003, "OXA_TV_CMD_ID_MISC_GetOptionBits", nullptr, K::OptionBits, Q::Empty, A::Record, U},
    {0x18070004, "OXA_TV_CMD_ID_MISC_StartSmartTVApp", nullptr, K::SmartTvAppReq, Q::Record, A::None, U},
    {0x18070005, "OXA_TV_CMD_ID_MISC_StartUIControl", nullptr, K::UiControlReq, Q::Record, A::None, U},
    {0x18070006, "OXA_TV_CMD_ID_MISC_GetActiveApp", nullptr, K::Word, Q::Empty, A::Record, U},
    {0x18070007, "OXA_TV_CMD_ID_MISC_InjectRCKey", nullptr, K::StrInfo, Q::Record, A::None, U},
    {0x18070008, "OXA_TV_CMD_ID_MISC_StartYoutubeVideo", nullptr, K::YoutubeVideoReq, Q::Record, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kMiscClass = {
    7, "OXA_TV_CMD_CLASS_MISC", "_miscModuleSendTransact", 0x18070001, 0x18070008, true,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
