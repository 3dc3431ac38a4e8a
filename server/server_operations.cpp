// SPDX-License-Identifier: MIT
// What each inbound command does: most call the application's callback at
// once on the server thread; some also tell the far-field control or change a
// library setting.
#include "server/avs_server_backend.h"

#include "base/log.h"
#include "server/callback_table.h"
#include "transport/debug_level.h"
#include "zor/zor_api.h"
#include "zor/zor_audio.h"

using zor::callbacks::load;
using Table = ST_AVSP_CALLBACK_FUN;

int AVSServerBackend::ActivateAVS()
{
    if (auto fn = load(&Table::fptrActivateAVSCallback))
        fn();
    else
        ZOR_SERVER_ERROR("fptrActivateAVSCallback null \n");
    return 0;
}

int AVSServerBackend::EnableDisableAVS(EN_AVS_COMMAND_TYPE type)
{
    if (auto fn = load(&Table::fptrEnableDisableAVSCallback))
        fn(type);
    else
        ZOR_SERVER_ERROR("fptrEnableDisableAVSCallback null \n");
    return 0;
}

int AVSServerBackend::ReportUIStatus(EN_AVS_UI_STATUS status, unsigned int value)
{
    if (auto fn = load(&Table::fptrReportUIStatusCallback))
        fn(status, value);
    else
        ZOR_SERVER_ERROR("fptrReportUIStatusCallback null \n");
    return 0;
}

int AVSServerBackend::UserChangedLanguage(char* code)
{
    if (auto fn = load(&Table::fptrUserChangedLanguageCallback)) {
        ZOR_SERVER_LOG("pc_languageCode %s\n", code);
        fn(code);
    } else {
        ZOR_SERVER_ERROR("fptrUserChangedLanguageCallback null \n");
    }
    return 0;
}

int AVSServerBackend::UserChangedCountry(char* code)
{
    if (auto fn = load(&Table::fptrUserChangedCountryCallback))
        fn(code);
    else
        ZOR_SERVER_ERROR("fptrUserChangedCountryCallback null \n");
    return 0;
}

int AVSServerBackend::SendAudioPCMData(void* data, unsigned int bytes)
{
    if (auto fn = load(&Table::fptrsendAudioPCMDataCallback))
        fn(data, bytes);
    else
        ZOR_SERVER_ERROR("fptrsendAudioPCMDataCallback null \n");
    return 0;
}

int AVSServerBackend::RestAVS(EN_AVS_RESET_STATE state)
{
    if (auto fn = load(&Table::fptrRestAVSCallback))
        fn(state);
    else
        ZOR_SERVER_ERROR("fptrRestAVSCallback null \n");
    return 0;
}

int AVSServerBackend::SetPowerMode(int mode)
{
    // Without an application to tell, the far-field control is not told either.
    if (auto fn = load(&Table::fptrSetPowerModeCallback)) {
        KEL_AVS_FFM_NotifyPowerStatus(mode);
        fn(mode);
    } else {
        ZOR_SERVER_ERROR("fptrSetPowerModeCallback null \n");
    }
    return 0;
}

int AVSServerBackend::SetTimeZoneCallback()
{
    if (auto fn = load(&Table::fptrSetTimeZoneCallback))
        fn();
    else
        ZOR_SERVER_ERROR("fptrSetTimeZoneCallback null \n");
    return 0;
}

int AVSServerBackend::InformTevoraCertificateChanged(char* text)
{
    if (auto fn = load(&Table::fptrInformTevoraCertificateChangedCallback))
        fn(text);
    else
        ZOR_SERVER_ERROR("fptrInformTevoraCertificateChangedCallback null \n");
    return 0;
}

int AVSServerBackend::QueryForIOTCertificate()
{
    // The one command whose reply carries the application's answer.
    if (auto fn = load(&Table::fptrQueryForIOTCertificateCallback))
        return fn();
    ZOR_SERVER_ERROR("fptrQueryForIOTCertificateCallback  null \n");
    return 0;
}

int AVSServerBackend::NotifyActionButtonPressed()
{
    if (auto fn = load(&Table::fptrNotifyActionButtonPressedCallback)) {
        ZOR_SERVER_LOG("in  fptrNotifyActionButtonPressedCallback\n");
        KEL_AVS_FFM_NotifyActionButtonPressed();
        fn();
    } else {
        ZOR_SERVER_ERROR("fptrNotifyActionButtonPressedCallback null \n");
    }
    return 0;
}

int AVSServerBackend::NotifyXMOSMicButtonOn(bool on)
{
    if (auto fn = load(&Table::fptrSetFFmicStatusCallback)) {
        ZOR_SERVER_LOG("in  fptrSetFFmicStatusCallback bStatus = %d\n", on ? 1 : 0);
        fn(on);
    } else {
        ZOR_SERVER_ERROR("fptrSetFFmicStatusCallback null \n");
    }
    return 0;
}

int AVSServerBackend::NotifyAudDSPStatus(unsigned int status)
{
    ZOR_SERVER_LOG("in  NotifyAudDSPStatus, Status = %d\n", static_cast<int>(status));
    KEL_AVS_FFM_NotifyAudDSPStatus(static_cast<int>(status));
    // The DSP is back: any firmware update the application was told of is over.
    if (status == 1) {
        if (auto fn = load(&Table::fptrNotifyFWUpdateStatusCallback))
            fn(false);
    }
    return 0;
}

int AVSServerBackend::NotifyYTSoftMicStatus(unsigned int status)
{
    ZOR_SERVER_LOG("in  NotifyYTSoftMicStatus, Status = %d\n", static_cast<int>(status));
    KEL_AVS_FFM_NotifyYTSoftMicStatus(static_cast<int>(status));
    return 0;
}

int AVSServerBackend::SetButtonTapped(_EN_AVS_TAPPED_TYPE type)
{
    setButtonTappedType(type);
    return 0;
}

int AVSServerBackend::SetDebugLevel(int level)
{
    setDebugLevel(static_cast<_EN_DBG_PRT_LEVEL>(level));
    return 0;
}

int AVSServerBackend::SetFFMSup(_ST_FFM_INFO info)
{
    ZOR_SERVER_LOG("u8_sup = %d c8CardID = %d c8DevID = %d \n", info.u8Sup, info.c8CardID,
                   info.c8DevID);
    setFFMSup(info);
    return 0;
}
