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

// Class 6: power, sources, FVP actions, token, time zone, portal application.
// One row per command, on one line, reads as the table it is.
// clang-format off
constexpr CommandRow kRows[] = {
    {0x18060001, "OXA_TV_CMD_ID_SYSTEM_SetPowerControl", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18060002, "OXA_TV_CMD_ID_SYSTEM_SetUSBSource", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x18060003, "OXA_TV_CMD_ID_SYSTEM_SetIOTCertificate", nullptr, K::Byte, Q::Record, A::None, U},
    {0x18060004, "OXA_TV_CMD_ID_SYSTEM_GetEnvironment", nullptr, K::Byte, Q::Empty, A::Record, U},
    {0x18060005, "OXA_TV_CMD_ID_SYSTEM_getFWversion", nullptr, K::FwVersion, Q::Empty, A::Record, U},
    {0x18060006, "OXA_TV_CMD_ID_SYSTEM_showFVPRecommendation", nullptr, K::FvpText, Q::Record, A::None, U},
    {0x18060007, "OXA_TV_CMD_ID_SYSTEM_showFVPCollection", nullptr, K::FvpText, Q::Record, A::None, U},
    {0x18060008, "OXA_TV_CMD_ID_SYSTEM_TuneToFVPProgram", nullptr, K::FvpProgramReq, Q::Record, A::None, U},
    {0x18060009, "OXA_TV_CMD_ID_SYSTEM_restartCurrentFVPProgram", nullptr, K::None, Q::NoRecord, A::None, U},
    {0x1806000A, "OXA_TV_CMD_ID_SYSTEM_SetCtrlMode", nullptr, K::Word, Q::Record, A::None, U},
    {0x1806000B, "OXA_TV_CMD_ID_SYSTEM_SetAVSToken", nullptr, K::AvsToken, Q::Record, A::None, U},
    {0x1806000C, "OXA_TV_CMD_ID_SYSTEM_GetAVSToken", nullptr, K::AvsToken, Q::Empty, A::Record, U},
    {0x1806000D, "OXA_TV_CMD_ID_SYSTEM_GetTimeZone", nullptr, K::LongStrInfo, Q::Empty, A::Record, U},
    {0x1806000E, "OXA_TV_CMD_ID_SYSTEM_GetFFmicOption", nullptr, K::Byte, Q::Empty, A::Record, U},
    {0x1806000F, "OXA_TV_CMD_ID_SYSTEM_LoadTevoraApp", nullptr, K::TevoraAppReq, Q::Record, A::None, U},
};
// clang-format on

} // namespace

// clang-format off
const CommandClass kSystemClass = {
    6, "OXA_TV_CMD_CLASS_SYSTEM", "_systemModuleSendTransact", 0x18060001, 0x1806000F, true,
    kRows, sizeof(kRows) / sizeof(kRows[0]),
};
// clang-format on

} // namespace zor::wire
