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

std::mutex openerMutex;
// Never destroyed: a detached detection thread may open its board while the
// process exits.
zor::NoDestructor<XmosDeviceOpener> installedOpener;

} // namespace

void setXmosDeviceOpener(XmosDeviceOpener opener)
{
    std::lock_guard<std::mutex> lock(openerMutex);
    *installedOpener = std::move(opener);
}

std::unique_ptr<XmosDevice> openXmosDevice(const XmosOpenParams& params)
{
    XmosDeviceOpener opener;
    {
        std::lock_guard<std::mutex> lock(openerMutex);
        opener = *installedOpener;
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
