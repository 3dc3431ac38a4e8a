// SPDX-License-Identifier: MIT
// The library's main unit: the server object, and start-up per application type.
#include "api/streaming_state.h"
#include "base/log.h"
#include "server/avs_server_backend.h"
#include "server/callback_table.h"
#include "zor/zor_api.h"
#include "zor/zor_audio.h"
#include "zor/zor_callbacks.h"
#include "zor/zor_transport.h"

#include "mup/mup.h"

AVSServerBackend g_stAVSServerBackend;
ST_AVSP_CALLBACK_FUN g_stAVSP_CBHandle = {};

namespace
{

struct AppServices {
    const char* typeLine;
    const char* serverName;
    const char* clientName;
};

// Indexed by EN_ZOR_COMMON_APP_TYPE_T.
constexpr AppServices kAppServices[] = {
    {"AVS App Type\n", "oxa.kel.idtv.client", "oxa.kel.avs.client"},
    {"GA App Type\n", "oxa.kel.idtv.client3", "oxa.kel.ga.client"},
    {"IOT App Type\n", "oxa.kel.idtv.client2", "oxa.kel.iot.client"},
};

} // namespace

int initServer(const char* name)
{
    ZOR_TRACE("<===\n");
    if (initAVSServer(name, &g_stAVSServerBackend) == -1)
        ZOR_ARG_ERROR("initAVSServer %s return error\n", name ? name : "(null)");
    g_stAVSServerBackend.RegisterCallbackFun(&g_stAVSP_CBHandle);
    ZOR_TRACE("===>\n");
    return 1;
}

int initClient(const char* name)
{
    return OXA_TVC_NewClient(name);
}

int ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_T type)
{
    int result = -1;
    const int value = static_cast<int>(type);
    if (value > 3) {
        ZOR_ERROR("over app type can support\n");
        return -1;
    }
    if (value >= 0 && value < 3) {
        const AppServices& services = kAppServices[value];
        ZOR_TRACE("%s", services.typeLine);
        initServer(services.serverName);
        result = initClient(services.clientName);
    }
    return result;
}

int ZOR_GA_Init(void)
{
    return 0;
}

int ZOR_App_initCompleted(EN_ZOR_COMMON_APP_TYPE_T type)
{
    ZOR_TRACE("%s ==> \n\n", __func__);
    const int status = forwardCommand(OXAPC::OXA_TV_CMD_ID_AVS_INIT_COMPLETED, nullptr);

    // The far-field pipeline serves the AVS application only, on sets that
    // have the microphone array; its threads start once the DSP is ready too.
    const _ST_FFM_INFO info = zor::options::farFieldInfo();
    if (type == EN_ZOR_COMMON_APP_TYPE_AVS && info.u8Sup == 1) {
        ZOR_ARG_ERROR("Support FFM, init...\n");
        initCaptureThreadMutex();
        KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(ZOR_App_NotifyAVSWakeword);
        KEL_AVS_FFM_Init(info);
    }
    ZOR_TRACE("%s <== \n\n", __func__);
    return status;
}

int ZOR_App_TriggerCaptureData(unsigned int start)
{
    return KEL_AVS_FFM_TriggerCaptureData(static_cast<int>(start));
}
