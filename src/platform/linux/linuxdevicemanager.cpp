#include "platform/linux/linuxdevicemanager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>

#include <algorithm>
#include <optional>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace Tavrinox::Platform::Linux {

namespace {

struct MountEntry
{
    QString majorMinor;
    QString root; // the folder of the file system that is mounted; "/" for the whole volume
    QString mountPoint;
    QString fileSystem;
    QString source;
};

// Replaces each escape, a backslash, the marker and a number of the given digits, by the byte it
// stands for; the bytes are file names, read as UTF-8.
QString decodeEscapes(const QByteArray &text, const QByteArray &marker, int digits, int base)
{
    const qsizetype escapeLength = 1 + marker.size() + digits;
    QByteArray bytes;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text.at(i) == '\\' && i + escapeLength <= text.size() &&
            text.mid(i + 1, marker.size()) == marker) {
            bool ok = false;
            const uint value = text.mid(i + 1 + marker.size(), digits).toUInt(&ok, base);
            if (ok && value < 256) {
                bytes.append(char(value));
                i += escapeLength - 1;
                continue;
            }
        }
        bytes.append(text.at(i));
    }
    return QString::fromUtf8(bytes);
}

// The kernel writes space, tab, newline and backslash in mount table fields as octal escapes (\040).
QString decodeMountField(const QByteArray &field)
{
    return decodeEscapes(field, QByteArray(), 3, 8);
}

QByteArray readWholeFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// One line: id, parent, major:minor, root, mount point, options, optional tags, "-", type, source, options.
QList<MountEntry> parseMountTable(const QByteArray &table)
{
    QList<MountEntry> entries;
    const QList<QByteArray> lines = table.split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf(QByteArrayLiteral("-"), 6);
        if (separator < 0 || separator + 2 >= fields.size())
            continue;
        entries.append({QString::fromLatin1(fields.at(2)), decodeMountField(fields.at(3)),
                        decodeMountField(fields.at(4)), decodeMountField(fields.at(separator + 1)),
                        decodeMountField(fields.at(separator + 2))});
    }
    return entries;
}

// A FUSE mount (exFAT, NTFS) carries an anonymous major:minor and names the device only as its source.
// Only a mount of the volume's own root gives the drive root; a bind of one of its folders does not.
bool mountsWholeVolume(const MountEntry &entry, const QString &majorMinor, const QString &deviceNode)
{
    return (entry.majorMinor == majorMinor || entry.source == deviceNode) && entry.root == QLatin1String("/");
}

const MountEntry *findMount(const QList<MountEntry> &mounts, const QString &majorMinor,
                            const QString &deviceNode)
{
    for (const MountEntry &entry : mounts) {
        if (mountsWholeVolume(entry, majorMinor, deviceNode))
            return &entry;
    }
    return nullptr;
}

QString withTrailingSlash(const QString &path)
{
    return path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
}

// The major:minor of the file system a path lies on, as the mount table writes it; empty when the path
// cannot be reached (a FUSE mount whose program has gone answers with an error).
QString deviceNumberOf(const QString &path)
{
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return QString();
    return QStringLiteral("%1:%2").arg(major(status.st_dev)).arg(minor(status.st_dev));
}

// udev names each link after the value, with unsafe bytes written as \x20, and points it at the device
// node: the result maps kernel names (sdb1) to values.
QHash<QString, QString> readDeviceLinks(const QString &directory)
{
    QHash<QString, QString> values;
    const QFileInfoList links =
        QDir(directory).entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &link : links) {
        if (link.isSymLink()) {
            values.insert(QFileInfo(link.symLinkTarget()).fileName(),
                          decodeEscapes(QFile::encodeName(link.fileName()), QByteArrayLiteral("x"), 2, 16));
        }
    }
    return values;
}

QByteArray readAttribute(const QString &deviceDirectory, const QString &name)
{
    QFile file(QDir(deviceDirectory).filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

bool isPartition(const QString &deviceDirectory)
{
    return QFileInfo::exists(QDir(deviceDirectory).filePath(QStringLiteral("partition")));
}

// The kernel names the root hub of each USB host controller usbN: a disk below one is attached by USB.
bool isBelowUsbRootHub(const QString &pathBelowDevices)
{
    static const QRegularExpression rootHub(QStringLiteral("^usb\\d+$"));
    const QStringList components = pathBelowDevices.split(QLatin1Char('/'));
    return std::any_of(components.cbegin(), components.cend(),
                       [](const QString &component) { return rootHub.match(component).hasMatch(); });
}

// A disk's partitions are the subfolders of its sysfs folder that say which partition they are.
QStringList partitionDirectories(const QString &diskDirectory)
{
    QStringList partitions;
    const QDir disk(diskDirectory);
    for (const QString &name : disk.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks)) {
        if (isPartition(disk.filePath(name)))
            partitions.append(disk.filePath(name));
    }
    return partitions;
}

// Digit runs compare by value, so sdb2 comes before sdb10.
bool naturalLess(const QString &left, const QString &right)
{
    qsizetype l = 0;
    qsizetype r = 0;
    while (l < left.size() && r < right.size()) {
        if (left.at(l).isDigit() && right.at(r).isDigit()) {
            const qsizetype leftStart = l;
            const qsizetype rightStart = r;
            while (l < left.size() && left.at(l).isDigit())
                ++l;
            while (r < right.size() && right.at(r).isDigit())
                ++r;
            const qulonglong leftNumber = QStringView(left).mid(leftStart, l - leftStart).toULongLong();
            const qulonglong rightNumber = QStringView(right).mid(rightStart, r - rightStart).toULongLong();
            if (leftNumber != rightNumber)
                return leftNumber < rightNumber;
        } else {
            if (left.at(l) != right.at(r))
                return left.at(l) < right.at(r);
            ++l;
            ++r;
        }
    }
    return left.size() - l < right.size() - r;
}

// What the mount table and udev's links say, read once per listing.
struct SystemFacts
{
    QList<MountEntry> mounts;
    QHash<QString, QString> labels;
    QHash<QString, QString> uuids;
};

// The record of one partition, or of a disk without partitions. Nothing for an empty card reader slot
// (size 0) nor for a whole disk that shows no file system of its own.
std::optional<UsbDevice> describeVolume(const QString &volumeDirectory, bool wholeDisk, bool removable,
                                        const SystemFacts &facts)
{
    if (readAttribute(volumeDirectory, QStringLiteral("size")).toLongLong() == 0)
        return std::nullopt;
    const QString name = QFileInfo(volumeDirectory).fileName();
    const QString deviceNode = QStringLiteral("/dev/") + name;
    const MountEntry *mount = findMount(
        facts.mounts, QString::fromLatin1(readAttribute(volumeDirectory, QStringLiteral("dev"))), deviceNode);
    const QString uuid = facts.uuids.value(name);
    const QString label = facts.labels.value(name);
    if (wholeDisk && !mount && uuid.isEmpty() && label.isEmpty())
        return std::nullopt;

    UsbDevice device;
    device.id = uuid.isEmpty() ? deviceNode : QStringLiteral("%1-%2").arg(deviceNode, uuid);
    device.devicePath = deviceNode;
    device.label = label.isEmpty() ? QStringLiteral("USB %1").arg(name) : label;
    if (mount) {
        device.rootPath = withTrailingSlash(mount->mountPoint);
        device.fileSystem = mount->fileSystem;
    }
    device.removable = removable;
    device.mounted = mount != nullptr;
    return device;
}

} // namespace

bool isVolumeRoot(const RootFacts &facts)
{
    for (const MountEntry &entry : parseMountTable(facts.mountTable)) {
        if (mountsWholeVolume(entry, facts.deviceNumber, facts.deviceNode) &&
            withTrailingSlash(entry.mountPoint) == withTrailingSlash(facts.rootPath))
            return !facts.rootNumber.isEmpty() && facts.rootNumber == entry.majorMinor;
    }
    return false;
}

LinuxDeviceManager::LinuxDeviceManager(const QString &systemRoot)
    : m_systemRoot(systemRoot)
{}

LinuxDeviceManager::~LinuxDeviceManager() = default;

QList<UsbDevice> LinuxDeviceManager::listUsbDevices() const
{
    const QDir root(m_systemRoot);
    const SystemFacts facts{
        parseMountTable(readWholeFile(root.filePath(QStringLiteral("proc/self/mountinfo")))),
        readDeviceLinks(root.filePath(QStringLiteral("dev/disk/by-label"))),
        readDeviceLinks(root.filePath(QStringLiteral("dev/disk/by-uuid")))};
    const QDir devices(QDir(root.filePath(QStringLiteral("sys/devices"))).canonicalPath());
    const QDir classBlock(root.filePath(QStringLiteral("sys/class/block")));

    QList<UsbDevice> result;
    for (const QString &entry :
         classBlock.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)) {
        // Partitions are reached through their disk, which knows whether the medium is removable.
        const QString diskDirectory = QFileInfo(classBlock.filePath(entry)).canonicalFilePath();
        if (diskDirectory.isEmpty() || isPartition(diskDirectory) ||
            !isBelowUsbRootHub(devices.relativeFilePath(diskDirectory))) {
            continue;
        }
        const bool removable = readAttribute(diskDirectory, QStringLiteral("removable")) == "1";
        const QStringList partitions = partitionDirectories(diskDirectory);
        const bool wholeDisk = partitions.isEmpty();
        for (const QString &volumeDirectory : wholeDisk ? QStringList{diskDirectory} : partitions) {
            if (const std::optional<UsbDevice> device =
                    describeVolume(volumeDirectory, wholeDisk, removable, facts))
                result.append(*device);
        }
    }
    std::sort(result.begin(), result.end(), [](const UsbDevice &left, const UsbDevice &right) {
        return naturalLess(left.devicePath, right.devicePath);
    });
    return result;
}

bool LinuxDeviceManager::isVolumeAtRoot(const UsbDevice &device) const
{
    const QDir root(m_systemRoot);
    const QString name = QFileInfo(device.devicePath).fileName();
    const QString deviceDirectory = root.filePath(QStringLiteral("sys/class/block/") + name);
    return isVolumeRoot({readWholeFile(root.filePath(QStringLiteral("proc/self/mountinfo"))),
                         device.devicePath,
                         QString::fromLatin1(readAttribute(deviceDirectory, QStringLiteral("dev"))),
                         device.rootPath, deviceNumberOf(device.rootPath)});
}

} // namespace Tavrinox::Platform::Linux
