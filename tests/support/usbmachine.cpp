#include "support/usbmachine.h"
#include "support/testfiles.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <sys/sysmacros.h>

// Only what the listing reads: the disk's removable flag and its link in /sys/class/block, the
// partition's folder inside the disk's with its numbers and link, the label link and the mount table
// line. The line is written as FUSE writes its mounts (exFAT on Linux): the device named as the source,
// the numbers those of the file system the mount point lies on, so that the root checks as the volume's.
bool addUsbStick(const QString &systemRoot, int number, const QString &label, const QString &mountPoint)
{
    const QDir root(systemRoot);
    const QString disk = QStringLiteral("sd") + QChar(u'a' + number);
    const QString device =
        QStringLiteral("devices/pci0000:00/0000:00:14.0/usb1/1-%1/block/%2").arg(number).arg(disk);
    const QString partition = root.filePath("sys/" + device + "/" + disk + "1/");
    if (!Fixture::writeFile(root.filePath("sys/" + device + "/removable"), "1") ||
        !Fixture::writeFile(partition + "dev", QByteArray::number(16 * number + 1).prepend("8:")) ||
        !Fixture::writeFile(partition + "size", "60000000") ||
        !Fixture::writeFile(partition + "partition", "1") || !root.mkpath("sys/class/block") ||
        !root.mkpath("dev/disk/by-label") ||
        !QFile::link("../../" + device, root.filePath("sys/class/block/" + disk)) ||
        !QFile::link("../../" + device + "/" + disk + "1", root.filePath("sys/class/block/" + disk + "1")) ||
        !QFile::link("../../" + disk + "1", root.filePath("dev/disk/by-label/" + label)))
        return false;
    struct stat status;
    if (mountPoint.isEmpty())
        return true;
    if (!QDir().mkpath(mountPoint) || ::stat(QFile::encodeName(mountPoint).constData(), &status) != 0)
        return false;
    const QString mountInfo = root.filePath("proc/self/mountinfo");
    const QString line = QStringLiteral("%1 1 %2:%3 / %4 rw - exfat /dev/%5 rw\n")
                             .arg(QString::number(20 + number), QString::number(major(status.st_dev)),
                                  QString::number(minor(status.st_dev)), mountPoint, disk + "1");
    return Fixture::writeFile(mountInfo, Fixture::readFile(mountInfo) + line.toUtf8());
}
