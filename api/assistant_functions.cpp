// SPDX-License-Identifier: MIT
// Assistant class: what the assistant tells the television about itself. The
// start and stop of microphone streaming are in microphone_streaming.cpp.
#include "base/log.h"
#include "server/callback_table.h"
#include "zor/zor_api.h"
#include "zor/zor_audio.h"
#include "zor/zor_transport.h"

#include <cstdint>
#include <cstring>

using namespace OXAPC;

namespace
{

constexpr size_t kMaxUrlLength = sizeof(ST_ZOR_APP_URL_WINDOW_T::c8URL);
constexpr size_t kLanguageCodeBytes = 6;
constexpr EN_AVS_STATE kStateStopsCapture = 4;

int sendWord(OXA_TV_CMD_ID id, int32_t value)
{
    return forwardCommand(id, &value);
}

uint32_t windowCode(EN_ZOR_APP_WINDOW_TYPE type)
{
    switch (type) {
    case 0:
        return 0;
    case 1:
    case 3:
        return 1;
    case 2:
        return 2;
    default:
        return 3;
    }
}

} // namespace

int ZOR_App_LoadURLInWindow(unsigned int param, EN_ZOR_APP_WINDOW_TYPE type, const char* url,
                            unsigned char background)
{
    ZOR_TRACE("%s ==> \n\n", __func__);
    if (!url) {
        ZOR_ARG_ERROR("ps_URL is NULL\n");
        return -1;
    }
    ST_ZOR_APP_URL_WINDOW_T stURLWindow;
    memset(&stURLWindow, 0, sizeof(stURLWindow));
    stURLWindow.u32WindowParam = param;
    stURLWindow.u32WindowType = windowCode(type);

    const size_t length = strnlen(url, kMaxUrlLength + 1);
    if (length > kMaxUrlLength) {
        ZOR_ARG_ERROR("URL length is out of range\n");
        return -1;
    }
    // A URL that fills the field exactly goes without its terminator.
    memcpy(stURLWindow.c8URL, url, length);
    stURLWindow.u8Background = background;
    ZOR_PRINT("ZOR_App_LoadURLInWindow, stURLWindow.u8Background = %u\n",
              static_cast<unsigned>(stURLWindow.u8Background));

    const int status = forwardCommand(OXA_TV_CMD_ID_AVS_LOAD_URL_WINDOW, &stURLWindow);
    ZOR_TRACE("%s <== \n\n", __func__);
    return status;
}

int ZOR_App_GetDeviceSetting(ST_ZOR_APP_DATA_SETTING_T* pt_setting)
{
    ZOR_TRACE("<===\n");
    if (!pt_setting) {
        ZOR_ARG_ERROR("pt_setting is NULL\n");
        return -1;
    }
    const int status = forwardCommand(OXA_TV_CMD_ID_AVS_GET_DEVICE_SETTING, pt_setting);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_informStates(EN_AVS_STATE state)
{
    ZOR_TRACE("<===\n");
    if (state == kStateStopsCapture) {
        // Local capture ends before the television hears of the state.
        stopAlsaCaptureThread();
        KEL_AVS_FFM_TrigSendPCMData(false);
    }
    const int status = sendWord(OXA_TV_CMD_ID_AVS_INFORM_STATES, state);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_InformSetupStatus(EN_ZOR_APP_SETUP_STATE_T state)
{
    ZOR_TRACE("<===\n");
    const int status = sendWord(OXA_TV_CMD_ID_AVS_INFORM_STETUP_STATUS, state);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetSwitchOnMode(EN_ZOR_APP_SWITCH_ON_STATE_T mode)
{
    ZOR_TRACE("<===\n");
    const int status = sendWord(OXA_TV_CMD_ID_AVS_SET_SWICH_ON_MODE, mode);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_setUserSelectionChromeGlow(int selection)
{
    ZOR_TRACE("<===\n");
    const int status = sendWord(OXA_TV_CMD_ID_AVS_SET_USER_SELECT_CHROME_GLOW, selection);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetAlexaLanguageSlection(char* language)
{
    ZOR_TRACE("<===\n");
    // No length comes with the code and it may be missing: refuse a null one
    // before anything is told to the far-field control or the television.
    if (!language) {
        ZOR_ARG_ERROR("language is NULL\n");
        return -1;
    }
    ST_ZOR_APP_LANGUAGE_T record;
    memset(&record, 0, sizeof(record));
    for (size_t i = 0; i < kLanguageCodeBytes; ++i) {
        record.c8Language[i] = language[i];
        if (language[i] == '\0')
            break;
    }
    record.u32LanguageLen = kLanguageCodeBytes;

    // The DSP reloads its models for the new language: until it reports
    // ready again the far-field pipeline stands still.
    KEL_AVS_FFM_NotifyAudDSPStatus(0);
    const int status = forwardCommand(OXA_TV_CMD_ID_AVS_SET_LANGUAGE_SELECTION, &record);
    if (auto fn = zor::callbacks::loadOwn(&ST_AVSP_CALLBACK_FUN::fptrNotifyFWUpdateStatusCallback))
        fn(true);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_NotifyAVSWakeword(void)
{
    ZOR_TRACE("<===\n");
    forwardCommand(OXA_TV_CMD_ID_AVS_FFM_WAKEWORD_DECT, nullptr);
    ZOR_TRACE("===>\n");
    return 0;
}
