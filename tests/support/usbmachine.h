#pragma once

#include <QString>

// Adds a USB stick to the model of a Linux machine below systemRoot: the sysfs entries, the mount
// table line and the udev label link that drive listing reads. Pointed at that folder
// (TAVRINOX_SYSTEM_ROOT), the real programs list the stick as /dev/sd<b...>1 (number 1 to 20),
// mounted at mountPoint, a real folder (made when missing), or not mounted when that is empty.
bool addUsbStick(const QString &systemRoot, int number, const QString &label, const QString &mountPoint);
