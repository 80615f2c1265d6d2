#pragma once

#include "platform/usbdevice.h"

#include <QList>
#include <QStringList>

// One line per record, every field in order, so that a failed comparison shows the whole difference.
inline QString usbDeviceText(const Tavrinox::Platform::UsbDevice &device)
{
    return QStringList{device.id,
                       device.devicePath,
                       device.label,
                       device.rootPath,
                       device.fileSystem,
                       device.removable ? QStringLiteral("removable") : QStringLiteral("fixed"),
                       device.mounted ? QStringLiteral("mounted") : QStringLiteral("unmounted")}
        .join(QLatin1Char('|'));
}

inline QStringList usbDeviceTexts(const QList<Tavrinox::Platform::UsbDevice> &devices)
{
    QStringList texts;
    for (const Tavrinox::Platform::UsbDevice &device : devices)
        texts.append(usbDeviceText(device));
    return texts;
}
