#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The dynamic symbols that libzor.so and libmup.so define must be exactly the
# exported interface: what an application may link against. A name missing
# here is an interface function that was not built or lost its export mark; an
# extra name is an internal function or a C++ standard library instantiation
# that leaked out (and would be interposed by an application's own copy).
# usage: exported_symbols_test.sh NM LIBZOR LIBMUP
set -euo pipefail

nm=$1
libzor=$2
libmup=$3

expected_zor=$(cat <<'END'
GetLogDebugLevel
KEL_AVS_FFM_Init
KEL_AVS_FFM_NotifyActionButtonPressed
KEL_AVS_FFM_NotifyAudDSPStatus
KEL_AVS_FFM_NotifyPowerStatus
KEL_AVS_FFM_NotifyYTSoftMicStatus
KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback
KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback
KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback
KEL_AVS_FFM_TrigSendPCMData
KEL_AVS_FFM_TriggerCaptureData
ZOR_ActivateApp_register_callback
ZOR_App_ChangeToChannel
ZOR_App_GetAVSToken
ZOR_App_GetActiveApp
ZOR_App_GetCertificate
ZOR_App_GetChannelList
ZOR_App_GetChannelNumber
ZOR_App_GetCurrentChannel
ZOR_App_GetCurrentInputSource
ZOR_App_GetCurrentInputSrc
ZOR_App_GetDeviceSetting
ZOR_App_GetEnvironment
ZOR_App_GetFFmicOptionBit
ZOR_App_GetFWversion
ZOR_App_GetInputSouceList
ZOR_App_GetInputSourceNumber
ZOR_App_GetMaxVolume
ZOR_App_GetMute
ZOR_App_GetOptionBit
ZOR_App_GetOptionBits
ZOR_App_GetPlayerStatus
ZOR_App_GetTimeZone
ZOR_App_GetVolume
ZOR_App_GetWallglowOptionBit
ZOR_App_InformSetupStatus
ZOR_App_Inject_RC_Key
ZOR_App_LoadTevoraApp
ZOR_App_LoadURLInWindow
ZOR_App_NotifyAVSWakeword
ZOR_App_SendPlaybackCtrl
ZOR_App_SetAVSToken
ZOR_App_SetAlexaLanguageSlection
ZOR_App_SetBrowserCertificates
ZOR_App_SetIOTCertificate
ZOR_App_SetMainAudioGain
ZOR_App_SetModes
ZOR_App_SetMute
ZOR_App_SetPictureStyle
ZOR_App_SetPowerControl
ZOR_App_SetSoundStyle
ZOR_App_SetSwitchOnMode
ZOR_App_SetUSBSource
ZOR_App_SetVolume
ZOR_App_SetWallglowState
ZOR_App_SetWallglowToFollow
ZOR_App_StartFVPApp
ZOR_App_StartSmartTVApp
ZOR_App_StartUIControl
ZOR_App_StartYoutubeVideo
ZOR_App_TriggerCaptureData
ZOR_App_TuneToChannel
ZOR_App_TuneToChannel_2
ZOR_App_TuneToFVPChannel
ZOR_App_TuneToFVPProgram
ZOR_App_TuneToInputSrc
ZOR_App_TuneToLastTunedChannel
ZOR_App_TuneToNextChannel
ZOR_App_TuneToPreviousChannel
ZOR_App_informStates
ZOR_App_initCompleted
ZOR_App_restartCurrentFVPProgram
ZOR_App_setUserSelectionChromeGlow
ZOR_App_showFVPCollection
ZOR_App_showFVPRecommendation
ZOR_App_startStreamingMicrophoneData
ZOR_App_stopStreamingMicrophoneData
ZOR_Common_Init
ZOR_EnableDisableApp_register_callback
ZOR_FF_NotifyFWUpdateStatus_register_callback
ZOR_FF_SendWakeWordDetectionSignal_register_callback
ZOR_GA_Init
ZOR_InformControlChanged_register_callback
ZOR_InformTevoraCertificate_register_callback
ZOR_MicButtonHold_register_callback
ZOR_MicButtonTapped_register_callback
ZOR_NotifyActionButtonPressed_register_callback
ZOR_QueryForIOTCertificate_register_callback
ZOR_ReportUIStatus_register_callback
ZOR_ResetApp_register_callback
ZOR_SendAudioPCMData_register_callback
ZOR_SetFFmicStatus_register_callback
ZOR_SetPowerMode_register_callback
ZOR_SetTimeZone_register_callback
ZOR_UserChangedCountry_register_callback
ZOR_UserChangedLanguage_register_callback
ZOR_Voice_Ctrl_Init
_alexaSendTransact(unsigned int, void*)
_audioModuleSendTransact(unsigned int, void*)
_channelModuleSendTransact(unsigned int, void*)
_miscModuleSendTransact(unsigned int, void*)
_systemModuleSendTransact(unsigned int, void*)
_videoModuleSendTransact(unsigned int, void*)
_voiceCtrlSendTransact(unsigned int, void*)
alsaCaptureRegisterCallback
forwardCommand(OXAPC::OXA_TV_CMD_ID, void*)
g_alsa_write_handle
initCaptureThreadMutex
initClient
initServer
setButtonTappedType
setDebugLevel
setFFMSup
startAlsaCaptureThread
stopAlsaCaptureThread
youtube_softmic_alsa_write_init
youtube_softmic_alsa_write_start
youtube_softmic_alsa_write_stop
END
)

# Constructors and destructors appear once per variant (complete, base) with
# the same demangled name; the vtable and type information of the handler
# class are what a derived class in the application refers to.
expected_mup=$(cat <<'END'
MUPParam::MUPParam()
MUPParam::assign(unsigned char const*, unsigned int)
MUPParam::clear()
MUPParam::data() const
MUPParam::read(void*, unsigned int)
MUPParam::readInt32()
MUPParam::remaining() const
MUPParam::size() const
MUPParam::write(void const*, unsigned int)
MUPParam::writeInt32(int)
MUPParam::~MUPParam()
OXAPC::C_OXAAVSServerHandler::C_OXAAVSServerHandler()
OXAPC::C_OXAAVSServerHandler::handleCommand(unsigned int, MUPParam&, MUPParam*, unsigned int)
OXAPC::C_OXAAVSServerHandler::~C_OXAAVSServerHandler()
OXA_TVC_NewClient(char const*)
OXA_TVC_SocketPath(char const*, char*, unsigned int)
OXA_TVC_TransmitCommand(unsigned int, MUPParam&, MUPParam*, unsigned int)
OXA_TVC_TransmitCounts(unsigned long*, unsigned long*)
initAVSServer(char const*, OXAPC::C_OXAAVSServerHandler*)
typeinfo for OXAPC::C_OXAAVSServerHandler
typeinfo name for OXAPC::C_OXAAVSServerHandler
vtable for OXAPC::C_OXAAVSServerHandler
END
)

# "ADDRESS TYPE NAME" -> NAME, demangled, one line per distinct name.
defined_symbols() {
    "$nm" -D --defined-only -C "$1" | sed -E 's/^[0-9a-fA-F]* *[A-Za-z] //' | LC_ALL=C sort -u
}

status=0
check() {
    local library=$1 expected=$2 actual
    actual=$(defined_symbols "$library")
    if ! diff_out=$(diff <(printf '%s\n' "$expected" | LC_ALL=C sort -u) <(printf '%s\n' "$actual")); then
        echo "FAIL: $library: dynamic symbols differ from the exported interface"
        echo "  ('<' expected but not defined, '>' defined but not part of the interface)"
        printf '%s\n' "$diff_out" | grep '^[<>]' | sed 's/^/  /'
        status=1
    else
        echo "ok: $library: $(printf '%s\n' "$actual" | wc -l) exported names"
    fi
}

check "$libzor" "$expected_zor"
check "$libmup" "$expected_mup"

# Interface functions still served by a weak stand-in (W) are reported, not
# failed: the far-field units replace them with their definitions.
weak=$("$nm" -D --defined-only "$libzor" | awk '$2 == "W" { print $3 }' | LC_ALL=C sort)
if [ -n "$weak" ]; then
    echo "note: weak stand-ins in $libzor: $(printf '%s ' $weak)"
fi
exit $status
