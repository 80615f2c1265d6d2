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
};

} // namespace Tavrinox::Platform
