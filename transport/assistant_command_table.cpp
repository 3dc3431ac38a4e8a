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

// Class 1: what the assistant tells the television about itself.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18010001, "OXA_TV_CMD_ID_AVS_INIT_COMPLETED", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18010002, "OXA_TV_CMD_ID_AVS_LOAD_URL_WINDOW", nullptr, K::UrlWindow, Q::Record, A::None, U},
    {0x18010003, "OXA_TV_CMD_ID_AVS_GET_DEVICE_SETTING", nullptr, K::DeviceSetting, Q::Empty, A::Record, U},
    {0x18010006, "OXA_TV_CMD_ID_AVS_INFORM_STATES", nullptr, K::Word, Q::Record, A::None, U},
    {0x18010007, "OXA_TV_CMD_ID_AVS_INFORM_STETUP_STATUS", nullptr, K::Word, Q::Record, A::None, U},
    {0x18010008, "OXA_TV_CMD_ID_AVS_SET_SWICH_ON_MODE", nullptr, K::Word, Q::Record, A::None, U},
    {0x18010009, "OXA_TV_CMD_ID_AVS_SET_USER_SELECT_CHROME_GLOW", nullptr, K::Word, Q::Record, A::None, U},
    {0x1801000A, "OXA_TV_CMD_ID_AVS_START_STREAM_MIC_DATA", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x1801000B, "OXA_TV_CMD_ID_AVS_STOP_STREAM_MIC_DATA", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x1801000C, "OXA_TV_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE_NONE", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x1801000D, "OXA_TV_CMD_ID_AVS_START_BTRC_MIC_OPEN", nullptr, K::Byte, Q::Record, A::None, U},
    {0x1801000E, "OXA_TV_CMD_ID_AVS_SET_LANGUAGE_SELECTION", nullptr, K::Language, Q::Record, A::None, U},
    {0x1801000F, "OXA_TV_CMD_ID_AVS_FFM_WAKEWORD_DECT", nullptr, K::None, Q::NoRecord, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kAssistantClass = {
    1, "OXA_TV_CMD_CLASS_ALEXA", "_alexaSendTransact", 0x18010001, 0x1801000F, true,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
