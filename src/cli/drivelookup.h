#pragma once

#include "platform/devicemanager.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

namespace Tavrinox::Cli {

// The drive enumerator the window uses on this platform; null where there is none.
std::unique_ptr<Platform::DeviceManager> platformDeviceManager();

enum class DriveMatch { Found, NotFound, Ambiguous };

// The drive a person named by its mount root, its device or its label as "list" shows them; a root
// or device match wins over a label, and a label carried by several drives names none of them.
DriveMatch findDrive(const QList<Platform::UsbDevice> &devices, const QString &name,
                     Platform::UsbDevice *device);

// The named drives, listed and mounted, each named once. Otherwise says why on standard error (for
// a drive that is listed but not mounted, with notMountedText) and returns the exit code.
int resolveMountedDrives(const QStringList &names, const QString &notMountedText,
                         QList<Platform::UsbDevice> *drives);

// Lists the drives again right before writing: the drive must still be there, mounted where it was
// when it was chosen. Otherwise says so on standard error.
bool isStillWhereChosen(const Platform::UsbDevice &chosen);

} // namespace Tavrinox::Cli
