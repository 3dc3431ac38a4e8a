// SPDX-License-Identifier: MIT
// What the middleware tells the library about the set: far-field microphone
// presence and device, and the remote control's button mode.
#include "api/streaming_state.h"
#include "base/log.h"
#include "zor/zor_api.h"

#include <mutex>

std::atomic<_EN_AVS_TAPPED_TYPE> genTappedType{4};

namespace
{

// Written on the server thread, read by ZOR_App_initCompleted on the
// application's thread: the three bytes are copied under this lock so that a
// reader never sees half of an update. It guards that one record only, so
// it stays beside it.
std::mutex gFFMInfoLock;
_ST_FFM_INFO gstFFMInfo = {};

} // namespace

namespace zor::options
{

_ST_FFM_INFO farFieldInfo()
{
    std::lock_guard<std::mutex> guard(gFFMInfoLock);
    return gstFFMInfo;
}

} // namespace zor::options

void setFFMSup(_ST_FFM_INFO info)
{
    ZOR_TRACE("<===\n");
    ZOR_ARG_ERROR("u8Sup %d c8CardID %d c8DevID %d\n", info.u8Sup, info.c8CardID, info.c8DevID);
    {
        std::lock_guard<std::mutex> guard(gFFMInfoLock);
        gstFFMInfo = _ST_FFM_INFO{};
        gstFFMInfo.u8Sup = info.u8Sup;
        gstFFMInfo.c8CardID = info.c8CardID;
        gstFFMInfo.c8DevID = info.c8DevID;
    }
    ZOR_TRACE("===>\n");
}

void setButtonTappedType(_EN_AVS_TAPPED_TYPE type)
{
    ZOR_PRINT("enTappedTYPE = %d\n", static_cast<int>(type));
    // A new button mode ends the stream that the old mode started. The stop
    // does not wait for an application thread that is starting or stopping
    // meanwhile: that thread carries it out after its own.
    if (genTappedType.exchange(type) != type && gbCaptured.load() == 1)
        ZOR_App_stopStreamingMicrophoneData();
}
