// SPDX-License-Identifier: MIT
// The server object that the messaging layer calls for every command the
// middleware sends to the application.
#ifndef ZOR_SERVER_AVS_SERVER_BACKEND_H
#define ZOR_SERVER_AVS_SERVER_BACKEND_H

#include "mup/mup.h"
#include "server/callback_worker.h"
#include "zor/zor_callbacks.h"

#include <pthread.h>

class AVSServerBackend : public OXAPC::C_OXAAVSServerHandler
{
public:
    AVSServerBackend();
    ~AVSServerBackend();

    // Called on the server thread, one command at a time. Returns 0 for a
    // command of a known class (known id or not), -1 for an unknown class or
    // a dropped PCM command; nothing thrown escapes.
    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int flags) override;

    int handleAlexaTransact(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int flags);
    int handleVoiceControlTransact(unsigned int cmd, MUPParam& in, MUPParam* out,
                                   unsigned int flags);
    int handleGATransact(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int flags);

    void RegisterCallbackFun(ST_AVSP_CALLBACK_FUN* table);

    // The operations behind the inbound commands. Each returns 0, except
    // QueryForIOTCertificate, which returns the application's answer.
    int ActivateAVS();
    int EnableDisableAVS(EN_AVS_COMMAND_TYPE type);
    int ReportUIStatus(EN_AVS_UI_STATUS status, unsigned int value);
    int UserChangedLanguage(char* code);
    int UserChangedCountry(char* code);
    int SendAudioPCMData(void* data, unsigned int bytes);
    int MicButtonTapped();
    int MicButtonHold(bool mode);
    int RestAVS(EN_AVS_RESET_STATE state);
    int SetPowerMode(int mode);
    int SetTimeZoneCallback();
    int InformTevoraCertificateChanged(char* text);
    int InformControlChanged(EN_VOICECTRL_NOTIFY_TYPE type);
    int QueryForIOTCertificate();
    int NotifyActionButtonPressed();
    int NotifyXMOSMicButtonOn(bool on);
    int NotifyAudDSPStatus(unsigned int status);
    int NotifyYTSoftMicStatus(unsigned int status);
    int SetButtonTapped(_EN_AVS_TAPPED_TYPE type);
    int SetDebugLevel(int level);
    int SetFFMSup(_ST_FFM_INFO info);

private:
    // The three callback workers (server/callback_worker.h): created on first
    // use, polling their pending flag every 200 ms for the life of the
    // process. The entry functions are their threads' bodies.
    static void* _handleMicButtonTappedCallbackThread(void*);
    static void* _handleMicButtonHoldCallbackThread(void*);
    static void* _handleControlChangedCallbackThread(void*);
    static const zor::server::CallbackWorker s_micButtonTappedWorker;
    static const zor::server::CallbackWorker s_micButtonHoldWorker;
    static const zor::server::CallbackWorker s_controlChangedWorker;

    // The workers' thread handles, 0 until the thread exists.
    pthread_t m_micButtonTappedThread;
    pthread_t m_micButtonHoldThread;
    pthread_t m_controlChangedThread;
};

// The library's one server object.
extern AVSServerBackend g_stAVSServerBackend;

#endif
