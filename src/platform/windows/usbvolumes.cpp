#include "platform/windows/usbvolumes.h"

namespace Tavrinox::Platform::Windows {

namespace {

QString volumeId(const QString &rootPath, quint32 serialNumber)
{
    return QStringLiteral("%1-%2").arg(rootPath, QString::number(serialNumber, 16));
}

} // namespace

VolumeProbe::~VolumeProbe() = default;

QList<UsbDevice> listUsbVolumes(const VolumeProbe &probe)
{
    QList<UsbDevice> devices;
    const quint32 letters = probe.logicalDrives();
    for (int index = 0; index < 26; ++index) {
        if (!(letters & (quint32(1) << index)))
            continue;
        const QChar letter(u'A' + index);
        const QString rootPath = letter + QStringLiteral(":\\");

        // Fixed drives stay in: USB disks often report themselves as fixed, and the bus decides.
        const unsigned driveType = probe.driveType(rootPath);
        if (driveType != kDriveRemovable && driveType != kDriveFixed)
            continue;
        unsigned busType = 0;
        if (!probe.queryBusType(QStringLiteral("\\\\.\\%1:").arg(letter), &busType) || busType != kBusTypeUsb)
            continue;

        VolumeInformation volume;
        const bool volumeKnown = probe.queryVolumeInformation(rootPath, &volume);

        UsbDevice device;
        device.rootPath = rootPath;
        device.devicePath = rootPath;
        device.label =
            volumeKnown && !volume.label.isEmpty() ? volume.label : QStringLiteral("USB %1:").arg(letter);
        device.fileSystem = volumeKnown ? volume.fileSystem : QString();
        device.id = volumeKnown ? volumeId(rootPath, volume.serialNumber) : rootPath;
        device.removable = driveType == kDriveRemovable;
        device.mounted = true;
        devices.append(device);
    }
    return devices;
}

bool isListedVolume(const UsbDevice &device, std::optional<quint32> serialNumberNow)
{
    return serialNumberNow && volumeId(device.rootPath, *serialNumberNow) == device.id;
}

} // namespace Tavrinox::Platform::Windows
