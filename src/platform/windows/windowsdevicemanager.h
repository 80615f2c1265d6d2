#pragma once

#include "platform/devicemanager.h"

namespace Tavrinox::Platform::Windows {

// The USB volumes that have a drive letter, found through the system's volume and storage calls.
class WindowsDeviceManager : public DeviceManager
{
public:
    WindowsDeviceManager() = default;
    ~WindowsDeviceManager() override;

    QList<UsbDevice> listUsbDevices() const override;
    bool isVolumeAtRoot(const UsbDevice &device) const override;
};

} // namespace Tavrinox::Platform::Windows
