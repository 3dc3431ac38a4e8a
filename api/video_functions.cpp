// SPDX-License-Identifier: MIT
// Video class: wall lighting, input sources, player status, picture style.
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

// The middleware has not said what the player does yet.
constexpr EN_VOICECTRL_PLAYBACK_STATUS kPlaybackStatusUnknown = 6;

int currentInputSource(char* out)
{
    _VOICECTRL_STR_INFO record;
    memset(&record, 0, sizeof(record));
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_GetCurrentInputSrc, &record);
    // Delivered whatever the status; the caller's buffer holds 65 bytes.
    copyTerminated(out, sizeof(record.c8Str), record.c8Str, sizeof(record.c8Str));
    return status;
}

} // namespace

int ZOR_App_SetWallglowState(bool on)
{
    ZOR_TRACE("<===\n");
    uint8_t value = on ? 1 : 0;
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_SetWallglowState, &value);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetWallglowToFollow(unsigned char follow)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_SetWallglowToFollow, &follow);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_TuneToInputSrc(const char* ps_srcName)
{
    ZOR_TRACE("<===\n");
    if (!ps_srcName) {
        ZOR_ARG_ERROR("ps_srcName is NULL\n");
        return -1;
    }
    size_t length = 0;
    if (!fitsIn(ps_srcName, kStrInfoChars, &length)) {
        ZOR_ARG_ERROR("Then length of ps_srcName is out of range\n");
        return -1;
    }
    _VOICECTRL_STR_INFO record;
    memset(&record, 0, sizeof(record));
    putStrInfo(record, ps_srcName, length);
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_TuneToInputSrc, &record);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetCurrentInputSource(char* pc_current_source)
{
    ZOR_TRACE("<===\n");
    if (!pc_current_source) {
        ZOR_ARG_ERROR("pc_current_source is NULL\n");
        return -1;
    }
    const int status = currentInputSource(pc_current_source);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetCurrentInputSrc(char* srcName)
{
    ZOR_TRACE("<===\n");
    if (!srcName) {
        ZOR_ARG_ERROR("srcName is NULL\n");
        return -1;
    }
    const int status = currentInputSource(srcName);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetInputSouceList(_VOICECTRL_SOURCE_INFO* pt_sourceList, int* i4_bufLen)
{
    ZOR_TRACE("<===\n");
    if (!pt_sourceList || !i4_bufLen) {
        ZOR_ARG_ERROR("pt_sourceList or i4_bufLen is NULL\n");
        return -1;
    }

    uint32_t count = 0;
    forwardCommand(OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen, &count);
    *i4_bufLen = static_cast<int>(count);
    if (count == 0) {
        ZOR_PRINT("[20200228] %s line:%d  no source\n", __func__, __LINE__);
        return 0;
    }

    // The list command asks for exactly the count just reported, and the
    // encoder reads no more than that into the temporary array.
    std::unique_ptr<_VOICECTRL_SOURCE_INFO[]> sources;
    if (static_cast<size_t>(count) <= SIZE_MAX / sizeof(_VOICECTRL_SOURCE_INFO))
        sources.reset(new (std::nothrow) _VOICECTRL_SOURCE_INFO[count]());
    if (!sources) {
        ZOR_PRINT("[20200228] %s line:%d  stSourceList.pSourceList new fail\n", __func__, __LINE__);
        return -1;
    }
    _VOICECTRL_SOURCE_LIST stSourceList;
    memset(&stSourceList, 0, sizeof(stSourceList));
    stSourceList.pSourceList = sources.get();
    stSourceList.u32SourceNum = count;

    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_GetInputSouceList, &stSourceList);
    if (status >= 0) {
        for (uint32_t i = 0; i < count; ++i) {
            const _VOICECTRL_SOURCE_INFO& from = sources[i];
            _VOICECTRL_SOURCE_INFO& to = pt_sourceList[i];
            copyPadded(to.c8SourceText1, sizeof(to.c8SourceText1), from.c8SourceText1,
                       sizeof(from.c8SourceText1));
            copyPadded(to.c8SourceText2, sizeof(to.c8SourceText2), from.c8SourceText2,
                       sizeof(from.c8SourceText2));
        }
    }
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetInputSourceNumber(int* i4_count)
{
    ZOR_TRACE("<===\n");
    if (!i4_count) {
        ZOR_ARG_ERROR("i4_count is NULL\n");
        return -1;
    }
    // The count that ZOR_App_GetInputSouceList asks for first; a status of -1
    // leaves it at 0.
    uint32_t count = 0;
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen, &count);
    *i4_count = static_cast<int>(count);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_GetPlayerStatus(EN_VOICECTRL_PLAYBACK_STATUS* pt_value)
{
    ZOR_TRACE("<===\n");
    if (!pt_value) {
        ZOR_ARG_ERROR("pt_value is NULL\n");
        return -1;
    }
    int32_t value = kPlaybackStatusUnknown;
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_GetPlayerStatus, &value);
    *pt_value = value;
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetPictureStyle(EN_VOICECTRL_PICTURE_MODE_T style)
{
    ZOR_TRACE("<===\n");
    int32_t value = style;
    const int status = forwardCommand(OXA_TV_CMD_ID_VIDEO_SetPictureStyle, &value);
    ZOR_TRACE("===>\n");
    return status;
}
