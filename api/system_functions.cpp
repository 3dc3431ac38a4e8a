// SPDX-License-Identifier: MIT
// System class: power, USB source, IoT certificate, environment, firmware
// version, FVP actions, control mode, AVS token, time zone, portal application,
// and the far-field option that the board keeps in a file.
#include "api/ffmic_option.h"
#include "api/record_text.h"
#include "base/log.h"
#include "zor/zor_api.h"
#include "zor/zor_transport.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <unistd.h>

using namespace OXAPC;
using namespace zor::api;

namespace
{

constexpr size_t kFwVersionOutBytes = 33;
constexpr size_t kFvpTextChars = sizeof(_VOICECTRL_FVP_TEXT::c8Text) - 1;            // 1027
constexpr size_t kFvpFirstChars = sizeof(_VOICECTRL_FVP_PROGRAM_REQ::c8First) - 1;   // 63
constexpr size_t kFvpSecondChars = sizeof(_VOICECTRL_FVP_PROGRAM_REQ::c8Second) - 1; // 1023
constexpr size_t kTokenSentBytes = 2048;
constexpr int32_t kTokenFieldBytes = sizeof(_VOICECTRL_AVS_TOKEN::c8Token); // 4096

// Both FVP text commands: one 1028-byte text record.
int sendFvpText(OXA_TV_CMD_ID id, const char* text, const char* function, int line,
                const char* name)
{
    size_t length = 0;
    if (!fitsIn(text, kFvpTextChars, &length)) {
        zor::log::line(zor::log::Family::Argument, function, line,
                       "Then length of %s is out of range\n", name);
        return -1;
    }
    _VOICECTRL_FVP_TEXT record;
    memset(&record, 0, sizeof(record));
    putText(record.c8Text, sizeof(record.c8Text), text, length);
    return forwardCommand(id, &record);
}

// One half of the portal request. False (nothing put) when the text is longer
// than the record takes; an over-long text is sent empty.
bool putTevoraText(_VOICECTRL_STR_INFO& record, const char* text, size_t* length)
{
    if (!text)
        return true;
    *length = strlen(text);
    if (*length > kStrInfoChars)
        return false;
    putStrInfo(record, text, *length);
    return true;
}

} // namespace

int ZOR_App_SetPowerControl(bool on)
{
    ZOR_TRACE("<===\n");
    uint8_t flag = on ? 1 : 0;
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_SetPowerControl, &flag);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetUSBSource(void)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_SetUSBSource, nullptr);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetIOTCertificate(unsigned char value)
{
    ZOR_TRACE("<===\n");
    uint8_t certificate = value;
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_SetIOTCertificate, &certificate);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetEnvironment(unsigned char* env)
{
    ZOR_TRACE("<===\n");
    // The caller's byte is the record; the encoder refuses a null one.
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_GetEnvironment, env);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetFWversion(char* version)
{
    ZOR_TRACE("<===\n");
    // The record is the function's own, so the encoder can't refuse for it.
    if (!version) {
        ZOR_ERROR("version is NULL\n");
        return -1;
    }
    _VOICECTRL_FW_VERSION record;
    memset(&record, 0, sizeof(record));
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_getFWversion, &record);
    copyPadded(version, kFwVersionOutBytes, record.c8Version, sizeof(record.c8Version));
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_showFVPRecommendation(char* path)
{
    ZOR_TRACE("<===\n");
    if (!path) {
        ZOR_ERROR("path is NULL\n\n");
        return -1;
    }
    const int status =
        sendFvpText(OXA_TV_CMD_ID_SYSTEM_showFVPRecommendation, path, __func__, __LINE__, "path");
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_showFVPCollection(char* collectionCrid)
{
    ZOR_TRACE("<===\n");
    if (!collectionCrid) {
        ZOR_ERROR("collectionCrid is NULL\n\n");
        return -1;
    }
    const int status = sendFvpText(OXA_TV_CMD_ID_SYSTEM_showFVPCollection, collectionCrid, __func__,
                                   __LINE__, "collectionCrid");
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToFVPProgram(char* first, char* second)
{
    ZOR_TRACE("<===\n");
    if (!first || !second) {
        ZOR_ARG_ERROR("first or second is NULL\n");
        return -1;
    }
    size_t firstLength = 0;
    if (!fitsIn(first, kFvpFirstChars, &firstLength)) {
        ZOR_ARG_ERROR("Then length of first is out of range\n");
        return -1;
    }
    size_t secondLength = 0;
    if (!fitsIn(second, kFvpSecondChars, &secondLength)) {
        ZOR_ARG_ERROR("Then length of second is out of range\n");
        return -1;
    }
    _VOICECTRL_FVP_PROGRAM_REQ request;
    memset(&request, 0, sizeof(request));
    putText(request.c8First, sizeof(request.c8First), first, firstLength);
    putText(request.c8Second, sizeof(request.c8Second), second, secondLength);
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_TuneToFVPProgram, &request);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_restartCurrentFVPProgram(void)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_restartCurrentFVPProgram, nullptr);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetModes(EN_VOICECTRL_CTRL_MODE_T mode)
{
    ZOR_TRACE("<===\n");
    int32_t value = mode;
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_SetCtrlMode, &value);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetAVSToken(char* avsToken, int length)
{
    ZOR_TRACE("<===\n");
    _VOICECTRL_AVS_TOKEN record;
    memset(&record, 0, sizeof(record));
    int status = -1;
    if (!avsToken) {
        ZOR_ERROR("avsToken is NULL\n\n");
    } else {
        // Only the first 2048 bytes travel; the zeros behind them end the text.
        putText(record.c8Token, kTokenSentBytes, avsToken, strnlen(avsToken, kTokenSentBytes));
        record.s32TokenLen = length;
        status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_SetAVSToken, &record);
    }
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetAVSToken(char* avsToken, int* length)
{
    ZOR_TRACE("<===\n");
    if (!avsToken || !length) {
        ZOR_ERROR("input pointer is NULL! line = %d fun = %s\n\n", __LINE__, __func__);
        return -1;
    }
    _VOICECTRL_AVS_TOKEN record;
    memset(&record, 0, sizeof(record));
    int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_GetAVSToken, &record);

    const int32_t tokenLength = record.s32TokenLen;
    if (tokenLength < 0 || tokenLength > kTokenFieldBytes) {
        ZOR_ERROR("token length %d is out of range (0 to %d)\n", static_cast<int>(tokenLength),
                  static_cast<int>(kTokenFieldBytes));
        return -1;
    }
    // The text handed back is no longer than the length field says, and never
    // more than the 4096-byte field: the caller's buffer needs 4097 bytes.
    const size_t delivered = copyTerminated(avsToken, static_cast<size_t>(tokenLength) + 1,
                                            record.c8Token, sizeof(record.c8Token));
    *length = tokenLength;

    ZOR_PRINT(" length %d, %d, %s, ppid %d, pid %d\n", static_cast<int>(tokenLength),
              static_cast<int>(delivered), avsToken, static_cast<int>(getppid()),
              static_cast<int>(getpid()));
    if (tokenLength == 0) {
        ZOR_PRINT(" ppid %d, pid %d\n", static_cast<int>(getppid()), static_cast<int>(getpid()));
        status = -1;
    }
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetTimeZone(char* timeZone)
{
    ZOR_TRACE("<===\n");
    if (!timeZone) {
        ZOR_ERROR("input pointer is NULL! line = %d fun = %s\n\n", __LINE__, __func__);
        return -1;
    }
    _VOICECTRL_LONG_STR_INFO record;
    memset(&record, 0, sizeof(record));
    const int status = forwardCommand(OXA_TV_CMD_ID_SYSTEM_GetTimeZone, &record);
    if (record.u32StrLen == 0)
        return -1;
    // At most 1024 characters and the terminator: the caller's buffer holds 1025.
    copyTerminated(timeZone, sizeof(record.c8Str), record.c8Str, sizeof(record.c8Str));
    ZOR_PRINT("%s %s\n", "ZOR_App_GetTimeZone", timeZone);
    return status;
}

int ZOR_App_GetFFmicOptionBit(bool* option)
{
    ZOR_TRACE("<===\n");
    if (!option) {
        ZOR_PRINT("input pointer is NULL! line = %d fun = %s\n", __LINE__,
                  "ZOR_App_GetFFmicOptionBit");
        return -1;
    }
    return readFFmicOptionBit(kFFmicOptionPath, option);
}

int ZOR_App_LoadTevoraApp(char* appName, char* appId)
{
    ZOR_TRACE("<===\n");
    if (!appName && !appId) {
        ZOR_ERROR("input pointer is NULL! line = %d fun = %s\n\n", __LINE__, __func__);
        return -1;
    }
    _VOICECTRL_TEVORA_APP_REQ request;
    memset(&request, 0, sizeof(request));
    size_t length = 0;
    if (!putTevoraText(request.stAppName, appName, &length))
        ZOR_ERROR("%s line:%d Then length of appName(%d) is out of range(%d)\n\n", __func__,
                  __LINE__, static_cast<int>(length), static_cast<int>(kStrInfoChars));
    if (!putTevoraText(request.stAppId, appId, &length))
        ZOR_ERROR("%s line:%d Then length of appid(%d) is out of range(%d)\n\n", __func__, __LINE__,
                  static_cast<int>(length), static_cast<int>(kStrInfoChars));
    ZOR_TRACE("%s line:%d  appName = %s appId = %s\n\n", __func__, __LINE__,
              request.stAppName.c8Str, request.stAppId.c8Str);
    return forwardCommand(OXA_TV_CMD_ID_SYSTEM_LoadTevoraApp, &request);
}
