// The library's main unit: the server object, and start-up per application type.
#include "server/avs_server_backend.h"
#include "transport/log.h"
#include "zor/zor_api.h"
#include "zor/zor_callbacks.h"

#include "mup/mup.h"

AVSServerBackend g_stAVSServerBackend;
ST_AVSP_CALLBACK_FUN g_stAVSP_CBHandle = {};

namespace {

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
