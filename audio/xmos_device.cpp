// SPDX-License-Identifier: MIT
// Which far-field board the detection thread opens.
#include "audio/xmos_device.h"

#include "base/no_destructor.h"

#include <cstdlib>
#include <mutex>

namespace zor::audio
{

namespace
{

// The opener that tests and tools installed, with its lock.
struct InstalledOpener {
    std::mutex mutex;
    XmosDeviceOpener opener;
};

// Never destroyed: a detached detection thread may open its board while the
// process exits.
InstalledOpener& installedOpener()
{
    static zor::NoDestructor<InstalledOpener> instance;
    return *instance;
}

} // namespace

void setXmosDeviceOpener(XmosDeviceOpener opener)
{
    InstalledOpener& installed = installedOpener();
    std::lock_guard<std::mutex> lock(installed.mutex);
    installed.opener = std::move(opener);
}

std::unique_ptr<XmosDevice> openXmosDevice(const XmosOpenParams& params)
{
    XmosDeviceOpener opener;
    {
        InstalledOpener& installed = installedOpener();
        std::lock_guard<std::mutex> lock(installed.mutex);
        opener = installed.opener;
    }
    if (opener)
        return opener(params);
#ifdef ZOR_SIM_BOARD
    // Development builds only: the television's library has no switch that
    // an application's environment could turn.
    const char* simulator = getenv("ZOR_XMOS_DEVICE");
    if (simulator != nullptr && simulator[0] != '\0')
        return openSimulatedXmosDevice(simulator, params);
#endif
    return openUsbXmosDevice(params);
}

} // namespace zor::audio
