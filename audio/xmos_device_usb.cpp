// SPDX-License-Identifier: MIT
// The television's far-field board: key events from its input event node
// through libevdev, index queries over libusb vendor control transfers.
#include "audio/xmos_device.h"

#include "base/log.h"

#include <cerrno>
#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <libusb.h>
#include <poll.h>
#include <unistd.h>

namespace zor::audio
{

namespace
{

constexpr const char* HID_DEVICE_PATH = "/dev/input/event0";
constexpr uint16_t USB_VENDOR_ID = 0x20B1;
constexpr uint16_t USB_PRODUCT_ID = 0x0018;

// -1 when closed. Only the detection thread opens and closes the board.
int s32FFMHandle = -1;

int kel_avs_ffm_openUSBDevice(libevdev** evdevOut, libusb_device_handle** devhOut,
                              bool& usbInitialised, const XmosOpenParams& params)
{
    ZOR_FFM_LOG("Get HID_DEVICE(%s) Start... \n\n", HID_DEVICE_PATH);
    int failed = 0;
    s32FFMHandle = open(HID_DEVICE_PATH, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    while (s32FFMHandle < 0 && ++failed < params.openAttempts) {
        usleep(params.openDelayMs * 1000);
        s32FFMHandle = open(HID_DEVICE_PATH, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    ZOR_FFM_LOG("iOpenevdevCnt(%d),s32FFMHandle %d, %p \n\n", failed, s32FFMHandle,
                static_cast<void*>(*devhOut));
    if (s32FFMHandle < 0) {
        ZOR_FFM_LOG("Get HID_DEVICE failed (%d)\n\n", s32FFMHandle);
        return 255;
    }
    ZOR_FFM_LOG("Get HID_DEVICE Success (%d)\n\n", s32FFMHandle);

    if (libevdev_new_from_fd(s32FFMHandle, evdevOut) < 0) {
        ZOR_FFM_LOG("openUSBDeviceFailed\n\n");
        return 255;
    }
    if (libusb_init(nullptr) < 0) {
        ZOR_FFM_LOG("openUSBDeviceFailed-initialiseLibUsbFailed\n\n");
        return 255;
    }
    usbInitialised = true;

    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    libusb_device* found = nullptr;
    for (ssize_t k = 0; k < count; ++k) {
        libusb_device_descriptor descriptor;
        if (libusb_get_device_descriptor(list[k], &descriptor) == 0 &&
            descriptor.idVendor == USB_VENDOR_ID && descriptor.idProduct == USB_PRODUCT_ID) {
            found = list[k];
            break;
        }
    }
    if (found == nullptr) {
        if (list != nullptr)
            libusb_free_device_list(list, 1);
        ZOR_FFM_LOG("openUSBDeviceFailed-UsbDeviceNotFound\n\n");
        return 255;
    }
    const int result = libusb_open(found, devhOut);
    libusb_free_device_list(list, 1);
    if (result < 0) {
        ZOR_FFM_LOG("openUSBDeviceFailed-UsbDeviceNotOpened, %d\n\n", result);
        return 255;
    }
    ZOR_FFM_LOG("openUSBDeviceSuccess-UsbDeviceOpened\n\n");
    return 0;
}

int kel_avs_ffm_closeUSBDevice(libusb_device_handle* devh, int descriptor)
{
    if (devh != nullptr)
        libusb_close(devh);
    if (descriptor >= 0)
        close(descriptor);
    return 0;
}

class UsbXmosDevice : public XmosDevice
{
public:
    UsbXmosDevice() = default;
    ~UsbXmosDevice() override
    {
        kel_avs_ffm_closeUSBDevice(m_devh, s32FFMHandle);
        m_devh = nullptr;
        s32FFMHandle = -1;
        // Unlike the descriptor and the USB handle, these two were kept for
        // the process's life before; a restart now builds them afresh.
        if (m_evdev != nullptr)
            libevdev_free(m_evdev);
        if (m_usbInitialised)
            libusb_exit(nullptr);
    }

    bool open(const XmosOpenParams& params)
    {
        return kel_avs_ffm_openUSBDevice(&m_evdev, &m_devh, m_usbInitialised, params) == 0;
    }

    int nextEvent(XmosKeyEvent& event) override
    {
        if (m_evdev == nullptr)
            return -ENODEV;
        input_event raw;
        const int result = libevdev_next_event(m_evdev, LIBEVDEV_READ_FLAG_NORMAL, &raw);
        if (result == -EAGAIN)
            return 0;
        if (result < 0)
            return result;
        event.type = raw.type;
        event.code = raw.code;
        event.value = raw.value;
        return 1;
    }

    void waitForEvent(unsigned timeoutMs) override
    {
        if (m_evdev != nullptr && libevdev_has_event_pending(m_evdev) > 0)
            return;
        pollfd fd = {s32FFMHandle, POLLIN, 0};
        poll(&fd, 1, static_cast<int>(timeoutMs));
    }

    int controlTransfer(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index,
                        uint8_t* data, uint16_t length, unsigned timeoutMs) override
    {
        if (m_devh == nullptr)
            return kXmosErrorNoDevice;
        return libusb_control_transfer(m_devh, requestType, request, value, index, data, length,
                                       timeoutMs);
    }

    const void* eventHandle() const override { return m_evdev; }
    const void* controlHandle() const override { return m_devh; }
    int descriptor() const override { return s32FFMHandle; }

private:
    libevdev* m_evdev = nullptr;
    libusb_device_handle* m_devh = nullptr;
    bool m_usbInitialised = false;
};

} // namespace

std::unique_ptr<XmosDevice> openUsbXmosDevice(const XmosOpenParams& params)
{
    auto device = std::make_unique<UsbXmosDevice>();
    if (!device->open(params))
        return nullptr;
    return device;
}

} // namespace zor::audio
