#include "support/usbmachine.h"
#include "support/testfiles.h"

#include <QDir>
#include <QFile>

// Only what the listing reads: the disk's removable flag and its link in /sys/class/block, the
// partition's folder inside the disk's with its numbers, the label link and the mount table line.
bool addUsbStick(const QString &systemRoot, int number, const QString &label, const QString &mountPoint)
{
    const QDir root(systemRoot);
    const QString disk = QStringLiteral("sd") + QChar(u'a' + number);
    const QString device =
        QStringLiteral("devices/pci0000:00/0000:00:14.0/usb1/1-%1/block/%2").arg(number).arg(disk);
    const QString partition = root.filePath("sys/" + device + "/" + disk + "1/");
    const QString numbers = QStringLiteral("8:%1").arg(16 * number + 1);
    if (!Fixture::writeFile(root.filePath("sys/" + device + "/removable"), "1") ||
        !Fixture::writeFile(partition + "dev", numbers.toUtf8()) ||
        !Fixture::writeFile(partition + "size", "60000000") ||
        !Fixture::writeFile(partition + "partition", "1") || !root.mkpath("sys/class/block") ||
        !root.mkpath("dev/disk/by-label") ||
        !QFile::link("../../" + device, root.filePath("sys/class/block/" + disk)) ||
        !QFile::link("../../" + disk + "1", root.filePath("dev/disk/by-label/" + label)))
        return false;
    const QString mountInfo = root.filePath("proc/self/mountinfo");
    const QString line = QStringLiteral("%1 1 %2 / %3 rw - ext4 /dev/%4 rw\n")
                             .arg(QString::number(20 + number), numbers, mountPoint, disk + "1");
    return mountPoint.isEmpty() ||
           (QDir().mkpath(mountPoint) &&
            Fixture::writeFile(mountInfo, Fixture::readFile(mountInfo) + line.toUtf8()));
}
