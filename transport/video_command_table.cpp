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

// Class 3: wall lighting, input sources, player status, picture style.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18030001, "OXA_TV_CMD_ID_VIDEO_SetWallglowState", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18030002, "OXA_TV_CMD_ID_VIDEO_SetWallglowToFollow", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18030003, "OXA_TV_CMD_ID_VIDEO_TuneToInputSrc", nullptr, K::StrInfo, Q::Record, A::None, U},
    {0x18030004, "OXA_TV_CMD_ID_VIDEO_GetCurrentInputSrc", nullptr, K::StrInfo, Q::Record, A::Record, U},
    {0x18030005, "OXA_TV_CMD_ID_VIDEO_GetInputSouceList", nullptr, K::SourceList, Q::ListCount, A::List, G},
    {0x18030006, "OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen", nullptr, K::Word, Q::Empty, A::Record, G},
    {0x18030007, "OXA_TV_CMD_ID_VIDEO_GetPlayerStatus", nullptr, K::Word, Q::Empty, A::Record, U},
    {0x18030008, "OXA_TV_CMD_ID_VIDEO_SetPictureStyle", nullptr, K::Word, Q::Record, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kVideoClass = {
    3, "OXA_TV_CMD_CLASS_VIDEO", "_videoModuleSendTransact", 0x18030001, 0x18030008, false,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
