#pragma once

#include "platform/devicemanager.h"

#include <QByteArray>
#include <QString>

namespace Tavrinox::Platform::Linux {

// What the system says, at one moment, about the root a volume was listed at.
struct RootFacts
{
    QByteArray mountTable; // the text of /proc/self/mountinfo
    QString deviceNode;    // /dev/sdb1
    QString deviceNumber;  // the device's own major:minor, as sysfs gives it
    QString rootPath;      // the mount point the listing gave
    QString rootNumber;    // major:minor of the file system the root lies on now; empty when unreachable
};

// Whether the mount table shows the whole volume mounted at the root, and the root, as it resolves now,
// lies on that very mount. The empty folder left by an unmount lies on the disk that holds it, and a
// volume mounted over the root shows its own number.
bool isVolumeRoot(const RootFacts &facts);

// The USB volumes of this computer, mounted or not: block devices from sysfs, mount points from the
// mount table, labels and identities from udev's links. Everything is read below systemRoot, so that a
// test can hand in a tree built like a real machine's.
class LinuxDeviceManager : public DeviceManager
{
public:
    explicit LinuxDeviceManager(const QString &systemRoot = QStringLiteral("/"));
    ~LinuxDeviceManager() override;

    QList<UsbDevice> listUsbDevices() const override;
    bool isVolumeAtRoot(const UsbDevice &device) const override;

private:
    const QString m_systemRoot;
};

} // namespace Tavrinox::Platform::Linux
