#pragma once

#include <QString>

namespace Tavrinox::Platform {

// One attached USB volume. Usable for writing only when mounted and rootPath is non-empty.
struct UsbDevice
{
    QString id;         // stable identity of the volume
    QString devicePath; // where the device is, shown when it is not mounted
    QString label;      // display name
    QString rootPath;   // root directory of the mounted volume, with trailing separator
    QString fileSystem; // file-system name as the system reports it
    bool removable = false;
    bool mounted = false;

    bool isUsable() const { return mounted && !rootPath.isEmpty(); }
};

} // namespace Tavrinox::Platform
