// SPDX-License-Identifier: MIT
// The three callbacks that must not hold up the middleware's reply (mic
// button tapped, mic button hold, control changed): their operations, and the
// workers that call them (server/callback_worker.h).
#include "server/avs_server_backend.h"

#include "base/log.h"
#include "server/callback_table.h"
#include "server/callback_worker.h"

#include <atomic>
#include <cstdint>

using zor::callbacks::load;
using zor::server::CallbackWorker;
using Table = ST_AVSP_CALLBACK_FUN;

namespace
{

// The pending flags, and the arguments latched for the hold and
// control-changed workers.
std::atomic<uint8_t> gbExcuteMicButtonTapped{0};
std::atomic<uint8_t> gbExcuteMicButtonHold{0};
std::atomic<uint8_t> gbExcuteInformControlChanged{0};
std::atomic<bool> gbMicButtonHoldMode{false};
std::atomic<EN_VOICECTRL_NOTIFY_TYPE> genNotifyType{1};

// Each reads its slot when it runs: the application may have replaced or
// cleared it since the request.
void callMicButtonTapped()
{
    if (auto fn = load(&Table::fptrMicButtonTappedCallback))
        fn();
}

void callMicButtonHold()
{
    const bool mode = gbMicButtonHoldMode.load(std::memory_order_relaxed);
    if (auto fn = load(&Table::fptrMicButtonHoldCallback))
        fn(mode);
}

void callControlChanged()
{
    const EN_VOICECTRL_NOTIFY_TYPE type = genNotifyType.load(std::memory_order_relaxed);
    if (auto fn = load(&Table::fptrInformControlChangedCallback))
        fn(type);
}

} // namespace

const CallbackWorker AVSServerBackend::s_micButtonTappedWorker{
    gbExcuteMicButtonTapped, "avs_tap_cb", "fptrMicButtonTappedCallback", callMicButtonTapped,
    _handleMicButtonTappedCallbackThread};
const CallbackWorker AVSServerBackend::s_micButtonHoldWorker{
    gbExcuteMicButtonHold, "avs_hold_cb", "fptrMicButtonHoldCallback", callMicButtonHold,
    _handleMicButtonHoldCallbackThread};
const CallbackWorker AVSServerBackend::s_controlChangedWorker{
    gbExcuteInformControlChanged, "avs_ctrl_cb", "fptrInformControlChangedCallback",
    callControlChanged, _handleControlChangedCallbackThread};

int AVSServerBackend::MicButtonTapped()
{
    if (!load(&Table::fptrMicButtonTappedCallback)) {
        ZOR_SERVER_ERROR("fptrMicButtonTappedCallback null \n");
        return 0;
    }
    s_micButtonTappedWorker.request(m_micButtonTappedThread);
    return 0;
}

int AVSServerBackend::MicButtonHold(bool mode)
{
    if (!load(&Table::fptrMicButtonHoldCallback)) {
        ZOR_SERVER_ERROR("fptrMicButtonHoldCallback null \n");
        return 0;
    }
    gbMicButtonHoldMode.store(mode, std::memory_order_relaxed);
    s_micButtonHoldWorker.request(m_micButtonHoldThread);
    return 0;
}

int AVSServerBackend::InformControlChanged(EN_VOICECTRL_NOTIFY_TYPE type)
{
    if (!load(&Table::fptrInformControlChangedCallback)) {
        ZOR_SERVER_ERROR("fptrInformControlChangedCallback  null \n");
        return 0;
    }
    genNotifyType.store(type, std::memory_order_relaxed);
    s_controlChangedWorker.request(m_controlChangedThread);
    return 0;
}

// The entry functions name the loop in the workers' log lines.
void* AVSServerBackend::_handleMicButtonTappedCallbackThread(void*)
{
    s_micButtonTappedWorker.run(__func__);
}

void* AVSServerBackend::_handleMicButtonHoldCallbackThread(void*)
{
    s_micButtonHoldWorker.run(__func__);
}

void* AVSServerBackend::_handleControlChangedCallbackThread(void*)
{
    s_controlChangedWorker.run(__func__);
}
