// SPDX-License-Identifier: MIT
// The three callbacks that must not hold up the middleware's reply (mic
// button tapped, mic button hold, control changed) run on worker threads. The
// server thread latches the argument, then raises the worker's pending flag
// with release order; the worker takes the flag with acquire order before it
// reads the latch, so it always calls with the latest argument. Requests that
// arrive before the worker's next poll merge into one call.
#include "server/avs_server_backend.h"

#include "base/log.h"
#include "server/callback_table.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <sys/prctl.h>
#include <unistd.h>

using zor::callbacks::load;
using Table = ST_AVSP_CALLBACK_FUN;

namespace
{

std::atomic<uint8_t> gbExcuteMicButtonTapped{0};
std::atomic<uint8_t> gbExcuteMicButtonHold{0};
std::atomic<uint8_t> gbExcuteInformControlChanged{0};
std::atomic<bool> gbMicButtonHoldMode{false};
std::atomic<EN_VOICECTRL_NOTIFY_TYPE> genNotifyType{1};

// Several servers (one per application type) may share the one server object,
// each on its own thread: creation of a worker is serialised.
std::mutex gWorkerCreation;

constexpr useconds_t kPollInterval = 200000;

// True once per raised flag. The exchange both clears the flag and makes the
// latch written before the latest raise visible.
bool takePending(std::atomic<uint8_t>& flag)
{
    return flag.load(std::memory_order_relaxed) != 0 &&
           flag.exchange(0, std::memory_order_acquire) != 0;
}

void nameThread(const char* name)
{
    prctl(PR_SET_NAME, name, 0, 0, 0);
}

} // namespace

void AVSServerBackend::ensureWorker(pthread_t& handle, void* (*body)(void*))
{
    std::lock_guard<std::mutex> guard(gWorkerCreation);
    if (handle != 0)
        return;
    pthread_t thread = 0;
    if (pthread_create(&thread, nullptr, body, nullptr) != 0) {
        // The handle stays 0: the next request tries again.
        ZOR_PRINT("thread creation failed!");
        return;
    }
    // Lives until the process ends; nothing ever joins it.
    pthread_detach(thread);
    handle = thread;
}

int AVSServerBackend::MicButtonTapped()
{
    if (!load(&Table::fptrMicButtonTappedCallback)) {
        ZOR_SERVER_ERROR("fptrMicButtonTappedCallback null \n");
        return 0;
    }
    ensureWorker(m_micButtonTappedThread, _handleMicButtonTappedCallbackThread);
    gbExcuteMicButtonTapped.store(1, std::memory_order_release);
    return 0;
}

int AVSServerBackend::MicButtonHold(bool mode)
{
    if (!load(&Table::fptrMicButtonHoldCallback)) {
        ZOR_SERVER_ERROR("fptrMicButtonHoldCallback null \n");
        return 0;
    }
    ensureWorker(m_micButtonHoldThread, _handleMicButtonHoldCallbackThread);
    gbMicButtonHoldMode.store(mode, std::memory_order_relaxed);
    gbExcuteMicButtonHold.store(1, std::memory_order_release);
    return 0;
}

int AVSServerBackend::InformControlChanged(EN_VOICECTRL_NOTIFY_TYPE type)
{
    if (!load(&Table::fptrInformControlChangedCallback)) {
        ZOR_SERVER_ERROR("fptrInformControlChangedCallback  null \n");
        return 0;
    }
    ensureWorker(m_controlChangedThread, _handleControlChangedCallbackThread);
    genNotifyType.store(type, std::memory_order_relaxed);
    gbExcuteInformControlChanged.store(1, std::memory_order_release);
    return 0;
}

void* AVSServerBackend::_handleMicButtonTappedCallbackThread(void*)
{
    nameThread("avs_tap_cb");
    for (;;) {
        if (takePending(gbExcuteMicButtonTapped)) {
            ZOR_SERVER_LOG("in  fptrMicButtonTappedCallback\n");
            // The slot is read now: the application may have replaced or
            // cleared it since the request.
            if (auto fn = load(&Table::fptrMicButtonTappedCallback))
                fn();
            ZOR_SERVER_LOG("out  fptrMicButtonTappedCallback\n");
        }
        usleep(kPollInterval);
    }
    return nullptr;
}

void* AVSServerBackend::_handleMicButtonHoldCallbackThread(void*)
{
    nameThread("avs_hold_cb");
    for (;;) {
        if (takePending(gbExcuteMicButtonHold)) {
            ZOR_SERVER_LOG("in  fptrMicButtonHoldCallback\n");
            const bool mode = gbMicButtonHoldMode.load(std::memory_order_relaxed);
            if (auto fn = load(&Table::fptrMicButtonHoldCallback))
                fn(mode);
            ZOR_SERVER_LOG("out  fptrMicButtonHoldCallback\n");
        }
        usleep(kPollInterval);
    }
    return nullptr;
}

void* AVSServerBackend::_handleControlChangedCallbackThread(void*)
{
    nameThread("avs_ctrl_cb");
    for (;;) {
        if (takePending(gbExcuteInformControlChanged)) {
            ZOR_SERVER_LOG("in  fptrInformControlChangedCallback\n");
            const EN_VOICECTRL_NOTIFY_TYPE type = genNotifyType.load(std::memory_order_relaxed);
            if (auto fn = load(&Table::fptrInformControlChangedCallback))
                fn(type);
            ZOR_SERVER_LOG("out  fptrInformControlChangedCallback\n");
        }
        usleep(kPollInterval);
    }
    return nullptr;
}
