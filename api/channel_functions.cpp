// SPDX-License-Identifier: MIT
// Channel class: channel count and list, current channel, tuning, FVP
// applications and channels.
#include "api/record_text.h"
#include "base/log.h"
#include "zor/zor_api.h"
#include "zor/zor_transport.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

using namespace OXAPC;
using namespace zor::api;

namespace
{

constexpr size_t kChannelNameChars = sizeof(_VOICECTRL_CHANNEL_INFO::c8ChannelName) - 1; // 64
constexpr size_t kAitUrlBytes = sizeof(_VOICECTRL_FVP_APP_REQ::ait_url);                 // 1024
constexpr size_t kCridBytes = sizeof(_VOICECTRL_FVP_APP_REQ::crid);                      // 64

uint32_t channelCount(int* status)
{
    uint32_t count = 0;
    *status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels, &count);
    return count;
}

// Field by field: the padding behind the name is not the caller's business.
void copyChannel(_VOICECTRL_CHANNEL_INFO& to, const _VOICECTRL_CHANNEL_INFO& from)
{
    to.u32Param1 = from.u32Param1;
    to.u16Param1 = from.u16Param1;
    to.u16Param2 = from.u16Param2;
    to.u16Param3 = from.u16Param3;
    to.u16Param4 = from.u16Param4;
    to.u32Param2 = from.u32Param2;
    copyPadded(to.c8ChannelName, sizeof(to.c8ChannelName), from.c8ChannelName,
               sizeof(from.c8ChannelName));
}

} // namespace

int ZOR_App_GetChannelNumber(unsigned long* number)
{
    ZOR_TRACE("<===\n");
    if (!number) {
        ZOR_ARG_ERROR("number is NULL\n");
        return -1;
    }
    int status = 0;
    *number = channelCount(&status);
    return status;
}

int ZOR_App_GetChannelList(_VOICECTRL_CHANNEL_INFO* pt_channel_info, unsigned long* number)
{
    ZOR_TRACE("<===\n");
    if (!pt_channel_info || !number) {
        ZOR_ARG_ERROR("pt_channel_info or number is NULL\n");
        return -1;
    }

    int countStatus = 0;
    const uint32_t count = channelCount(&countStatus);
    *number = count;
    if (count == 0) {
        ZOR_PRINT("[20200228] %s line:%d  no channel\n", __func__, __LINE__);
        return 0;
    }

    // The list command asks for exactly the count just reported, and the
    // encoder reads no more than that into the temporary array.
    std::unique_ptr<_VOICECTRL_CHANNEL_INFO[]> channels;
    if (static_cast<size_t>(count) <= SIZE_MAX / sizeof(_VOICECTRL_CHANNEL_INFO))
        channels.reset(new (std::nothrow) _VOICECTRL_CHANNEL_INFO[count]());
    if (!channels) {
        ZOR_PRINT("[20200228] %s line:%d  stChanelList.pstChanelInfo new fail\n", __func__,
                  __LINE__);
        return -1;
    }
    _VOICECTRL_CHANNEL_LIST stChanelList;
    memset(&stChanelList, 0, sizeof(stChanelList));
    stChanelList.pstChanelInfo = channels.get();
    stChanelList.u32ChanelNum = count;

    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_GetChannelList, &stChanelList);
    if (status >= 0) {
        for (uint32_t i = 0; i < count; ++i)
            copyChannel(pt_channel_info[i], channels[i]);
    } else {
        ZOR_PRINT("[20200228] %s line:%d  ERROR: iRetVal < 0 \n", __func__, __LINE__);
    }
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetCurrentChannel(_VOICECTRL_CHANNEL_INFO* pt_current_info)
{
    ZOR_TRACE("<===\n");
    if (!pt_current_info) {
        ZOR_ARG_ERROR("pt_current_info is NULL\n");
        return -1;
    }
    _VOICECTRL_CHANNEL_INFO record;
    memset(&record, 0, sizeof(record));
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_GetCurrentChannel, &record);
    copyChannel(*pt_current_info, record);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToNextChannel(void)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_TuneToNextChannel, nullptr);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToPreviousChannel(void)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_TuneToPreviousChannel, nullptr);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToLastTunedChannel(void)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_TuneToLastTunedChannel, nullptr);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_ChangeToChannel(_VOICECTRL_CHANNEL_INFO* pt_channel_info)
{
    ZOR_TRACE("<===\n");
    if (!pt_channel_info) {
        ZOR_ARG_ERROR("pt_channel_info is NULL\n");
        return -1;
    }
    size_t length = 0;
    // The caller's name field may lack a terminator; fitsIn reads at most 65 bytes.
    if (!fitsIn(pt_channel_info->c8ChannelName, kChannelNameChars, &length)) {
        ZOR_ARG_ERROR("Then length of channelNameTobeTuned  is out of range\n");
        return -1;
    }
    _VOICECTRL_CHANNEL_CHANGE_REQ request;
    memset(&request, 0, sizeof(request));
    putText(request.c8ChannelName, kChannelNameChars, pt_channel_info->c8ChannelName, length);
    request.u32Param1 = pt_channel_info->u32Param1;
    request.u16Param1 = pt_channel_info->u16Param1;
    request.u16Param2 = pt_channel_info->u16Param2;
    request.u16Param3 = pt_channel_info->u16Param3;
    request.u16Param4 = pt_channel_info->u16Param4;
    request.u32Param2 = pt_channel_info->u32Param2;
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_ChangeToChannel, &request);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToChannel(unsigned int u32Channel)
{
    ZOR_TRACE("<===\n");
    uint32_t channel = u32Channel;
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_TuneToChannel, &channel);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToChannel_2(char* ps_channel)
{
    ZOR_TRACE("<===\n");
    // The encoder refuses a null string, and measures and sends any other.
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2, ps_channel);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_StartFVPApp(char* ait_url, char* crid)
{
    ZOR_TRACE("<===\n");
    _VOICECTRL_FVP_APP_REQ request;
    memset(&request, 0, sizeof(request));
    if (!ait_url) {
        ZOR_ARG_ERROR("ait_url is NULL\n");
        return -1;
    }
    size_t urlLength = 0;
    if (!fitsIn(ait_url, kAitUrlBytes, &urlLength)) {
        ZOR_ARG_ERROR("Then length of ait_url is out of range\n");
        return -1;
    }
    if (!crid) {
        ZOR_ARG_ERROR("crid is NULL\n");
        return -1;
    }
    size_t cridLength = 0;
    if (!fitsIn(crid, kCridBytes, &cridLength)) {
        ZOR_ARG_ERROR("Then length of crid is out of range\n");
        return -1;
    }
    // Texts that fill their field exactly go without terminator.
    putText(request.ait_url, sizeof(request.ait_url), ait_url, urlLength);
    putText(request.crid, sizeof(request.crid), crid, cridLength);
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_StartFVPApp, &request);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToFVPChannel(char* crid)
{
    ZOR_TRACE("<===\n");
    if (!crid) {
        ZOR_ARG_ERROR("crid is NULL\n");
        return -1;
    }
    size_t length = 0;
    if (!fitsIn(crid, kStrInfoChars, &length)) {
        ZOR_ARG_ERROR("Then length of crid is out of range\n");
        return -1;
    }
    _VOICECTRL_STR_INFO request;
    memset(&request, 0, sizeof(request));
    putStrInfo(request, crid, length);
    const int status = forwardCommand(OXA_TV_CMD_ID_CHANNEL_TuneToFVPChannel, &request);
    ZOR_TRACE("===>\n");
    return status;
}
