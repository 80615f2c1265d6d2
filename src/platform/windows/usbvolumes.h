#pragma once

#include "platform/usbdevice.h"

#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>

namespace Tavrinox::Platform::Windows {

// The system's own codes, so that the probe passes them through untouched.
inline constexpr unsigned kDriveRemovable = 2; // DRIVE_REMOVABLE
inline constexpr unsigned kDriveFixed = 3;     // DRIVE_FIXED
inline constexpr unsigned kBusTypeUsb = 7;     // BusTypeUsb

struct VolumeInformation
{
    QString label;
    QString fileSystem;
    quint32 serialNumber = 0;
};

// The questions drive enumeration asks the system about one drive letter. The Windows build answers
// them with the volume and storage calls; tests answer them from a script.
class VolumeProbe
{
public:
    VolumeProbe() = default;
    virtual ~VolumeProbe();
    Q_DISABLE_COPY(VolumeProbe)

    // Bit 0 is A, bit 25 is Z.
    virtual quint32 logicalDrives() const = 0;
    // For a root such as "E:\".
    virtual unsigned driveType(const QString &rootPath) const = 0;
    // For a device such as "\\.\E:"; false when the device cannot be opened or does not answer.
    virtual bool queryBusType(const QString &devicePath, unsigned *busType) const = 0;
    // For a root such as "E:\"; false when no volume can be read there (an empty card reader slot).
    virtual bool queryVolumeInformation(const QString &rootPath, VolumeInformation *volume) const = 0;
};

// The USB volumes among the drive letters, in letter order. A letter whose questions fail is skipped
// or, when only its volume cannot be read, listed under a fallback label.
QList<UsbDevice> listUsbVolumes(const VolumeProbe &probe);

// Whether the volume at a listed device's root is still the one listed, by the serial number read there
// now (none: no volume could be read). Another stick given the same letter has another serial.
bool isListedVolume(const UsbDevice &device, std::optional<quint32> serialNumberNow);

} // namespace Tavrinox::Platform::Windows
