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

// Class 4: one 32-bit word each way; the queries send theirs as zero.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18040001, "OXA_TV_CMD_ID_AUDIO_SetMute", nullptr, K::Word, Q::Record, A::None, U},
    {0x18040002, "OXA_TV_CMD_ID_AUDIO_GetMute", nullptr, K::Word, Q::Record, A::Record, U},
    {0x18040003, "OXA_TV_CMD_ID_AUDIO_SetVolume", nullptr, K::Word, Q::Record, A::None, U},
    {0x18040004, "OXA_TV_CMD_ID_AUDIO_GetVolume", nullptr, K::Word, Q::Record, A::Record, U},
    {0x18040005, "OXA_TV_CMD_ID_AUDIO_GetMaxVolume", nullptr, K::Word, Q::Record, A::Record, U},
    {0x18040006, "OXA_TV_CMD_ID_AUDIO_SetMainAudioGain", nullptr, K::Word, Q::Record, A::None, U},
    {0x18040007, "OXA_TV_CMD_ID_AUDIO_SetSoundStyle", nullptr, K::Word, Q::Record, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kAudioClass = {
    4, "OXA_TV_CMD_CLASS_AUDIO", "_audioModuleSendTransact", 0x18040001, 0x18040007, true,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
