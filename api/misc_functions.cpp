// SPDX-License-Identifier: MIT
// Miscellaneous class: playback control, certificates, option bytes, smart-TV
// applications, UI control, active application, remote-control keys, YouTube.
#include "api/record_text.h"
#include "base/log.h"
#include "zor/zor_api.h"
#include "zor/zor_transport.h"

#include <cstdint>
#include <cstring>

using namespace OXAPC;
using namespace zor::api;

namespace
{

// The middleware has not said which application is active yet.
constexpr EN_VOICECTRL_ACTIVE_APP kActiveAppUnknown = 6;

// Too big for a caller's stack on the television; callers serialise its use.
_VOICECTRL_CERT_DATA stCertificateData;

// Options are delivered whatever the status: zeros when nothing came back.
int readOptionBits(_VOICECTRL_OPTION_BITS* options)
{
    memset(options, 0, sizeof(*options));
    return forwardCommand(OXA_TV_CMD_ID_MISC_GetOptionBits, options);
}

} // namespace

int ZOR_App_SendPlaybackCtrl(const char* ps_command)
{
    ZOR_TRACE("<===\n");
    if (!ps_command) {
        ZOR_ARG_ERROR("ps_command is NULL\n");
        return -1;
    }
    size_t length = 0;
    if (!fitsIn(ps_command, kLongStrInfoChars, &length)) {
        ZOR_ARG_ERROR("Then length of ps_command is out of range\n");
        return -1;
    }
    _VOICECTRL_LONG_STR_INFO record;
    memset(&record, 0, sizeof(record));
    putLongStrInfo(record, ps_command, length);
    const int status = forwardCommand(OXA_TV_CMD_ID_MISC_SendPlaybackCtrl, &record);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetCertificate(char* buffer, unsigned int* ui4_bufLen)
{
    ZOR_TRACE("<===\n");
    if (!buffer || !ui4_bufLen) {
        ZOR_ARG_ERROR("buffer or ui4_bufLen is NULL\n");
        return -1;
    }
    memset(&stCertificateData, 0, sizeof(stCertificateData));
    ZOR_ARG_ERROR("ui4_bufLen %d\n", static_cast<int>(*ui4_bufLen));

    stCertificateData.u32BufLen = *ui4_bufLen;
    const int status = forwardCommand(OXA_TV_CMD_ID_MISC_GetCertificate, &stCertificateData);

    const uint32_t certLength = stCertificateData.u32BufLen;
    if (certLength > MAX_LEN) {
        ZOR_ARG_ERROR("u32BufLen %d > MAX_LEN\n", static_cast<int>(certLength));
        return -1;
    }
    // Never more than the caller said the buffer holds.
    if (certLength > *ui4_bufLen) {
        ZOR_ARG_ERROR("u32BufLen %u > ui4_bufLen %u: buffer too small\n", certLength, *ui4_bufLen);
        return -1;
    }
    *ui4_bufLen = certLength;
    memcpy(buffer, stCertificateData.c8CertData, certLength);
    ZOR_ARG_ERROR("ui4_bufLen %d\n", static_cast<int>(*ui4_bufLen));
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetOptionBits(char* option0, char* option1, char* option2, char* option3)
{
    ZOR_TRACE("<===\n");
    _VOICECTRL_OPTION_BITS options;
    const int status = readOptionBits(&options);
    if (option0)
        *option0 = static_cast<char>(options.c8Option0);
    if (option1)
        *option1 = static_cast<char>(options.c8Option1);
    if (option2)
        *option2 = static_cast<char>(options.c8Option2);
    if (option3)
        *option3 = static_cast<char>(options.c8Option3);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetOptionBit(bool* optionGA)
{
    ZOR_TRACE("<===\n");
    if (!optionGA) {
        ZOR_ARG_ERROR(" optionGA is NULL\n");
        return -1;
    }
    _VOICECTRL_OPTION_BITS options;
    const int status = readOptionBits(&options);
    *optionGA = options.c8Option1 != 0;
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetWallglowOptionBit(char* option)
{
    ZOR_TRACE("<===\n");
    if (!option) {
        ZOR_ARG_ERROR("option is NULL\n");
        return -1;
    }
    _VOICECTRL_OPTION_BITS options;
    const int status = readOptionBits(&options);
    *option = static_cast<char>(options.c8Option4);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_StartSmartTVApp(char* appName, char* command, int i4AppParam)
{
    ZOR_TRACE("<===\n");
    if (!appName) {
        ZOR_ARG_ERROR("appName is NULL\n");
        return -1;
    }
    _VOICECTRL_SMARTTV_APP_REQ request;
    memset(&request, 0, sizeof(request));
    size_t length = 0;
    if (!fitsIn(appName, kStrInfoChars, &length)) {
        ZOR_ARG_ERROR("Then length of appName is out of range\n");
        return -1;
    }
    putStrInfo(request.stAppName, appName, length);
    if (command) {
        if (!fitsIn(command, kLongStrInfoChars, &length)) {
            ZOR_ARG_ERROR("Then length of command is out of range\n");
            return -1;
        }
        putLongStrInfo(request.stCommand, command, length);
    }
    request.i4AppParam = i4AppParam;
    const int status = forwardCommand(OXA_TV_CMD_ID_MISC_StartSmartTVApp, &request);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_StartUIControl(char* ps_name, char* ps_subCommand)
{
    ZOR_TRACE("<===\n");
    if (!ps_name) {
        ZOR_ARG_ERROR("ps_name is NULL\n");
        return -1;
    }
    _VOICECTRL_UI_CONTROL_REQ request;
    memset(&request, 0, sizeof(request));
    size_t length = 0;
    if (!fitsIn(ps_name, kStrInfoChars, &length)) {
        ZOR_ARG_ERROR("Then length of ps_name is out of range\n");
        return -1;
    }
    putStrInfo(request.stName, ps_name, length);
    if (ps_subCommand) {
        if (!fitsIn(ps_subCommand, kLongStrInfoChars, &length)) {
            ZOR_ARG_ERROR("Then length of ps_subCommand is out of range\n");
            return -1;
        }
        putLongStrInfo(request.stSubCommand, ps_subCommand, length);
    }
    const int status = forwardCommand(OXA_TV_CMD_ID_MISC_StartUIControl, &request);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetActiveApp(EN_VOICECTRL_ACTIVE_APP* pt_value)
{
    ZOR_TRACE("<===\n");
    if (!pt_value) {
        ZOR_ARG_ERROR("pt_value is NULL\n");
        return -1;
    }
    int32_t value = kActiveAppUnknown;
    const int status = forwardCommand(OXA_TV_CMD_ID_MISC_GetActiveApp, &value);
    *pt_value = value;
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_Inject_RC_Key(const char* ps_key)
{
    ZOR_TRACE("<===\n");
    if (!ps_key) {
        ZOR_ARG_ERROR("ps_key is NULL\n");
        return -1;
    }
    size_t length = 0;
    if (!fitsIn(ps_key, kStrInfoChars, &length)) {
        ZOR_ARG_ERROR("Then length of ps_key is out of range\n");
        return -1;
    }
    _VOICECTRL_STR_INFO record;
    memset(&record, 0, sizeof(record));
    putStrInfo(record, ps_key, length);
    const int status = forwardCommand(OXA_TV_CMD_ID_MISC_InjectRCKey, &record);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_StartYoutubeVideo(char* video_id, int i4VideoParam)
{
    _VOICECTRL_YOUTUBE_VIDEO_REQ request;
    memset(&request, 0, sizeof(request));
    if (!video_id) {
        ZOR_ERROR("video_id is NULL\n\n");
        return 0;
    }
    // Ids longer than the field are cut, not refused.
    putLongStrInfo(request.stVideo, video_id, strnlen(video_id, kLongStrInfoChars));
    request.i4VideoParam = i4VideoParam;
    return forwardCommand(OXA_TV_CMD_ID_MISC_StartYoutubeVideo, &request);
}
