#pragma once

#include "platform/devicemanager.h"

#include <QList>

#include <functional>
#include <optional>

namespace Tavrinox::Platform {

// Asked right before something is written to a drive; false, with the reason in *error, stops the write.
using DriveWriteGate = std::function<bool(QString *error)>;

// The chosen drive as a fresh listing shows it: the record with the same identity, when it is still
// mounted at the same root.
std::optional<UsbDevice> findChosenDrive(const UsbDevice &chosen, const QList<UsbDevice> &listedNow);

// Whether the drive chosen from an earlier listing may still be written to as that drive: listed again
// under the same identity, mounted at the same root, and that root still the volume's own. A drive can be
// pulled or unmounted at any moment, and on Linux the folder it was mounted on stays behind on the
// computer's own disk, so this is asked again right before each phase that writes.
bool isChosenDriveInPlace(const DeviceManager &manager, const UsbDevice &chosen);

} // namespace Tavrinox::Platform
