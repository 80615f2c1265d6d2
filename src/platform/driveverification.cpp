#include "platform/driveverification.h"

namespace Tavrinox::Platform {

std::optional<UsbDevice> findChosenDrive(const UsbDevice &chosen, const QList<UsbDevice> &listedNow)
{
    for (const UsbDevice &device : listedNow) {
        if (device.id == chosen.id)
            return device.isUsable() && device.rootPath == chosen.rootPath ? std::optional(device)
                                                                           : std::nullopt;
    }
    return std::nullopt;
}

bool isChosenDriveInPlace(const DeviceManager &manager, const UsbDevice &chosen)
{
    const std::optional<UsbDevice> device = findChosenDrive(chosen, manager.listUsbDevices());
    return device && manager.isVolumeAtRoot(*device);
}

} // namespace Tavrinox::Platform
