#pragma once

#include "platform/devicemanager.h"

#include <QString>

namespace Tavrinox::Platform::Linux {

// The USB volumes of this computer, mounted or not: block devices from sysfs, mount points from the
// mount table, labels and identities from udev's links. Everything is read below systemRoot, so that a
// test can hand in a tree built like a real machine's.
class LinuxDeviceManager : public DeviceManager
{
public:
    explicit LinuxDeviceManager(const QString &systemRoot = QStringLiteral("/"));
    ~LinuxDeviceManager() override;

    QList<UsbDevice> listUsbDevices() const override;

private:
    const QString m_systemRoot;
};

} // namespace Tavrinox::Platform::Linux
