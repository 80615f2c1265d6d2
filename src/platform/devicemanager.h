#pragma once

#include "platform/usbdevice.h"

#include <QList>

namespace Tavrinox::Platform {

// Lists the USB volumes attached right now. A drive whose query fails is simply absent.
class DeviceManager
{
public:
    DeviceManager() = default;
    virtual ~DeviceManager();
    Q_DISABLE_COPY(DeviceManager)

    virtual QList<UsbDevice> listUsbDevices() const = 0;

    // Whether the device's root, as the system resolves it now, is the root of the volume the record was
    // listed for, and not the empty folder left where it was mounted or another volume put in its place.
    // Safe to call from any thread, like the listing.
    virtual bool isVolumeAtRoot(const UsbDevice &device) const = 0;
};

} // namespace Tavrinox::Platform
