// The server object that the messaging layer calls for every command the
// middleware sends to the application.
#ifndef ZOR_SERVER_AVS_SERVER_BACKEND_H
#define ZOR_SERVER_AVS_SERVER_BACKEND_H

#include "mup/mup.h"
#include "zor/zor_callbacks.h"

#include <pthread.h>

class AVSServerBackend : public OXAPC::C_OXAAVSServerHandler {
public:
    AVSServerBackend();
    ~AVSServerBackend();

    // Called on the server thread, one command at a time.
    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int flags) override;

    void RegisterCallbackFun(ST_AVSP_CALLBACK_FUN* table);

private:
    pthread_t m_micButtonTappedThread;
    pthread_t m_micButtonHoldThread;
    pthread_t m_controlChangedThread;
};

// The library's one server object.
extern AVSServerBackend g_stAVSServerBackend;

#endif
