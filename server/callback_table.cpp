// SPDX-License-Identifier: MIT
// The register functions: one slot each, last writer wins, always 1.
#include "server/callback_table.h"

#include "base/log.h"
#include "zor/zor_audio.h"

using zor::callbacks::store;

namespace
{

template <typename Fn> int registerSlot(const char* function, zor::callbacks::Slot<Fn> slot, Fn fn)
{
    ::zor::log::line(::zor::log::Family::Trace, function, __LINE__, "<===\n");
    store(slot, fn);
    ::zor::log::line(::zor::log::Family::Trace, function, __LINE__, "===>\n");
    return 1;
}

} // namespace

#define REGISTER_SLOT(field, fn) registerSlot(__func__, &ST_AVSP_CALLBACK_FUN::field, fn)

int ZOR_MicButtonTapped_register_callback(ZOR_PFN_VOID fn)
{
    return REGISTER_SLOT(fptrMicButtonTappedCallback, fn);
}

int ZOR_MicButtonHold_register_callback(ZOR_PFN_BOOL fn)
{
    return REGISTER_SLOT(fptrMicButtonHoldCallback, fn);
}

int ZOR_SetPowerMode_register_callback(ZOR_PFN_INT fn)
{
    return REGISTER_SLOT(fptrSetPowerModeCallback, fn);
}

int ZOR_SetTimeZone_register_callback(ZOR_PFN_VOID fn)
{
    return REGISTER_SLOT(fptrSetTimeZoneCallback, fn);
}

int ZOR_ActivateApp_register_callback(ZOR_PFN_VOID fn)
{
    return REGISTER_SLOT(fptrActivateAVSCallback, fn);
}

int ZOR_EnableDisableApp_register_callback(ZOR_PFN_COMMAND_TYPE fn)
{
    return REGISTER_SLOT(fptrEnableDisableAVSCallback, fn);
}

int ZOR_ReportUIStatus_register_callback(ZOR_PFN_UI_STATUS fn)
{
    return REGISTER_SLOT(fptrReportUIStatusCallback, fn);
}

int ZOR_UserChangedLanguage_register_callback(ZOR_PFN_STRING fn)
{
    return REGISTER_SLOT(fptrUserChangedLanguageCallback, fn);
}

int ZOR_UserChangedCountry_register_callback(ZOR_PFN_STRING fn)
{
    return REGISTER_SLOT(fptrUserChangedCountryCallback, fn);
}

int ZOR_ResetApp_register_callback(ZOR_PFN_RESET_STATE fn)
{
    return REGISTER_SLOT(fptrRestAVSCallback, fn);
}

int ZOR_InformControlChanged_register_callback(ZOR_PFN_NOTIFY_TYPE fn)
{
    return REGISTER_SLOT(fptrInformControlChangedCallback, fn);
}

int ZOR_QueryForIOTCertificate_register_callback(ZOR_PFN_VOID fn)
{
    return REGISTER_SLOT(fptrQueryForIOTCertificateCallback, fn);
}

int ZOR_InformTevoraCertificate_register_callback(ZOR_PFN_STRING fn)
{
    return REGISTER_SLOT(fptrInformTevoraCertificateChangedCallback, fn);
}

int ZOR_SendAudioPCMData_register_callback(ZOR_PFN_PCM fn)
{
    // One callback receives every PCM path: remote-control capture, far-field
    // capture and the middleware's PCM commands.
    alsaCaptureRegisterCallback(fn);
    KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(fn);
    return REGISTER_SLOT(fptrsendAudioPCMDataCallback, fn);
}

int ZOR_FF_SendWakeWordDetectionSignal_register_callback(ZOR_PFN_WAKEWORD fn)
{
    KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(fn);
    return REGISTER_SLOT(fptrSendWakeWordDetectionSignalCallback, fn);
}

int ZOR_NotifyActionButtonPressed_register_callback(ZOR_PFN_VOID fn)
{
    return REGISTER_SLOT(fptrNotifyActionButtonPressedCallback, fn);
}

int ZOR_SetFFmicStatus_register_callback(ZOR_PFN_BOOL fn)
{
    return REGISTER_SLOT(fptrSetFFmicStatusCallback, fn);
}

int ZOR_FF_NotifyFWUpdateStatus_register_callback(ZOR_PFN_BOOL fn)
{
    return REGISTER_SLOT(fptrNotifyFWUpdateStatusCallback, fn);
}
