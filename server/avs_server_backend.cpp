#include "server/avs_server_backend.h"

#include "transport/log.h"

ST_AVSP_CALLBACK_FUN* g_pstCBHandle = nullptr;

AVSServerBackend::AVSServerBackend()
    : m_micButtonTappedThread(0), m_micButtonHoldThread(0), m_controlChangedThread(0)
{
    ::zor::log::line(::zor::log::Family::Server, "AVSServerBackend", __LINE__,
                     "SRVTVBackend constructor\n");
}

AVSServerBackend::~AVSServerBackend()
{
    ::zor::log::line(::zor::log::Family::Server, "~AVSServerBackend", __LINE__,
                     "SRVTVBackend destructor\n");
}

int AVSServerBackend::handleCommand(unsigned int, MUPParam&, MUPParam*, unsigned int)
{
    // Inbound dispatch arrives with the callback operations.
    return -1;
}

void AVSServerBackend::RegisterCallbackFun(ST_AVSP_CALLBACK_FUN* table)
{
    g_pstCBHandle = table;
}
