#pragma once

#include "platform/devicemanager.h"
#include "platform/driveverification.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

namespace Tavrinox::Cli {

// The drive enumerator the window uses on this platform; null where there is none. Shared, as the write
// gates of the workers hold it.
std::shared_ptr<const Platform::DeviceManager> platformDeviceManager();

enum class DriveMatch { Found, NotFound, Ambiguous };

// The drive a person named by its mount root, its device or its label as "list" shows them; a root
// or device match wins over a label, and a label carried by several drives names none of them.
DriveMatch findDrive(const QList<Platform::UsbDevice> &devices, const QString &name,
                     Platform::UsbDevice *device);

// The named drives, listed and mounted (their roots really the volumes' own), each named once.
// Otherwise says why on standard error (for a drive that is listed but not mounted, with
// notMountedText) and returns the exit code.
int resolveMountedDrives(const QStringList &names, const QString &notMountedText,
                         QList<Platform::UsbDevice> *drives);

// The first named drive, as resolveMountedDrives finds it, for the commands that work on one drive; with
// prepared, it must also hold a Tavrinox folder. Otherwise says why on standard error and returns the
// exit code.
int resolveOneDrive(const QStringList &names, const QString &notMountedText, bool prepared,
                    Platform::UsbDevice *drive);

// Asks again right before writing, after the question: the drive must still be there, mounted where it
// was when it was named. Otherwise says so on standard error.
bool isStillWhereChosen(const Platform::UsbDevice &chosen);

// The same question for a worker about to write: false, with refusal as the reason, once the drive has
// gone or moved.
Platform::DriveWriteGate driveGate(const Platform::UsbDevice &chosen, const QString &refusal);

} // namespace Tavrinox::Cli
