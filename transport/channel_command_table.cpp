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

// Class 5: channel counts, lists and tuning, FVP applications and channels.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18050001, "OXA_TV_CMD_ID_CHANNEL_GetChannelList", nullptr, K::ChannelList, Q::ListCount, A::List, G},
    {0x18050002, "OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18050003, "OXA_TV_CMD_ID_CHANNEL_TuneToPreviousChannel", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18050004, "OXA_TV_CMD_ID_CHANNEL_ChangeToChannel", nullptr, K::ChannelChangeReq, Q::Record, A::None, U},
    {0x18050005, "OXA_TV_CMD_ID_CHANNEL_TuneToChannel", nullptr, K::Word, Q::Record, A::None, U},
    {0x18050006, "OXA_TV_CMD_ID_CHANNEL_GetCurrentChannel", nullptr, K::ChannelInfo, Q::Empty, A::Record, U},
    {0x18050007, "OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels", nullptr, K::Word, Q::Empty, A::Record, U},
    {0x18050008, "OXA_TV_CMD_ID_CHANNEL_TuneToLastTunedChannel", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18050009, "OXA_TV_CMD_ID_CHANNEL_StartFVPApp", nullptr, K::FvpAppReq, Q::Record, A::None, U},
    {0x1805000A, "OXA_TV_CMD_ID_CHANNEL_TuneToFVPChannel", nullptr, K::StrInfo, Q::Record, A::None, U},
    // Its trace line is the same as that of TuneToChannel.
    {0x1805000B, "OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2", "OXA_TV_CMD_ID_CHANNEL_TuneToChannel", K::String, Q::CountedString, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kChannelClass = {
    5, "OXA_TV_CMD_CLASS_CHANNEL", "_channelModuleSendTransact", 0x18050001, 0x1805000B, true,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
