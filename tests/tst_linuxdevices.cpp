#include "platform/linux/linuxdevicemanager.h"
#include "support/usbdevicetext.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using Tavrinox::Platform::Linux::LinuxDeviceManager;

namespace {

constexpr char kIntelUsb2Port[] = "pci0000:00/0000:00:14.0/usb1/1-2/1-2:1.0";
constexpr char kIntelUsb3Port[] = "pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0";

// Builds the parts of a machine's /sys, /proc and /dev that drive listing reads, laid out as the kernel
// and udev lay them out: class/block links into the device tree, partitions as subfolders of their
// disk, mount points escaped in mountinfo, udev's links named with \x escapes.
class FakeMachine
{
public:
    explicit FakeMachine(const QString &root)
        : m_root(root)
    {}

    // devicePath: the disk's folder below /sys/devices, ending in its kernel name.
    void addDisk(const QString &devicePath, const QString &majorMinor, qint64 sectors, bool removable)
    {
        const QString name = devicePath.section(QLatin1Char('/'), -1);
        const QString directory = sysPath(QStringLiteral("devices/") + devicePath);
        QVERIFY(QDir().mkpath(directory + QStringLiteral("/queue")));
        QVERIFY(QDir().mkpath(directory + QStringLiteral("/holders")));
        writeAttributes(
            directory,
            {{"dev", majorMinor}, {"size", QString::number(sectors)}, {"removable", removable ? "1" : "0"}});
        // Real sysfs links back up the tree from every disk; following them would loop.
        QVERIFY(QFile::link(QStringLiteral("../.."), directory + QStringLiteral("/device")));
        link(QStringLiteral("sys/class/block/") + name, QStringLiteral("../../devices/") + devicePath);
        m_diskPaths.insert(name, devicePath);
    }

    void addPartition(const QString &disk, int number, const QString &majorMinor, qint64 sectors)
    {
        const QString name =
            disk + (disk.back().isDigit() ? QStringLiteral("p%1") : QStringLiteral("%1")).arg(number);
        const QString devicePath = m_diskPaths.value(disk) + QLatin1Char('/') + name;
        const QString directory = sysPath(QStringLiteral("devices/") + devicePath);
        QVERIFY(QDir().mkpath(directory));
        writeAttributes(directory, {{"dev", majorMinor},
                                    {"size", QString::number(sectors)},
                                    {"partition", QString::number(number)}});
        link(QStringLiteral("sys/class/block/") + name, QStringLiteral("../../devices/") + devicePath);
    }

    // escapedMountPoint as the kernel writes it (\040 for a space); tags such as "shared:1" are optional.
    void addMount(const QString &majorMinor, const QString &escapedMountPoint, const QString &type,
                  const QString &source, const QString &root = QStringLiteral("/"),
                  const QString &tags = QStringLiteral("shared:1"))
    {
        m_mountInfo += QStringLiteral("%1 1 %2 %3 %4 rw,nosuid,nodev,relatime %5- %6 %7 rw\n")
                           .arg(QString::number(++m_mountId + 20), majorMinor, root, escapedMountPoint,
                                tags.isEmpty() ? QString() : tags + QLatin1Char(' '), type, source);
        QDir().mkpath(m_root + QStringLiteral("/proc/self"));
        QFile file(m_root + QStringLiteral("/proc/self/mountinfo"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(m_mountInfo.toUtf8());
    }

    // escapedName as udev writes it (\x20 for a space).
    void addLabel(const QString &escapedName, const QString &device)
    {
        addDiskLink("by-label", escapedName, device);
    }
    void addUuid(const QString &uuid, const QString &device) { addDiskLink("by-uuid", uuid, device); }

private:
    QString sysPath(const QString &below) const { return m_root + QStringLiteral("/sys/") + below; }

    void writeAttributes(const QString &directory, const QList<QPair<const char *, QString>> &attributes)
    {
        for (const auto &[name, value] : attributes) {
            QFile file(directory + QLatin1Char('/') + QLatin1String(name));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(value.toUtf8() + '\n');
        }
    }

    void link(const QString &at, const QString &target)
    {
        const QString path = m_root + QLatin1Char('/') + at;
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QVERIFY2(QFile::link(target, path), qPrintable(path));
    }

    void addDiskLink(const char *kind, const QString &name, const QString &device)
    {
        link(QStringLiteral("dev/disk/%1/%2").arg(QLatin1String(kind), name),
             QStringLiteral("../../") + device);
    }

    QString m_root;
    QHash<QString, QString> m_diskPaths;
    QString m_mountInfo;
    int m_mountId = 0;
};

} // namespace

class TestLinuxDevices : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        m_machine.reset(new FakeMachine(m_dir->path()));
    }

    // An Intel laptop: NVMe system disk, snap loop devices, one vfat stick mounted by the desktop.
    void laptopListsItsStickOnly()
    {
        FakeMachine &machine = *m_machine;
        machine.addDisk("pci0000:00/0000:00:1d.0/0000:3d:00.0/nvme/nvme0/nvme0n1", "259:0", 1000215216,
                        false);
        machine.addPartition("nvme0n1", 1, "259:1", 1048576);
        machine.addPartition("nvme0n1", 2, "259:2", 999163904);
        machine.addDisk("virtual/block/loop0", "7:0", 151720, false);
        machine.addDisk(QStringLiteral("%1/host0/target0:0:0/0:0:0:0/block/sda").arg(kIntelUsb2Port), "8:0",
                        60628992, true);
        machine.addPartition("sda", 1, "8:1", 60626944);
        machine.addMount("259:2", "/", "ext4", "/dev/nvme0n1p2");
        machine.addMount("259:1", "/boot/efi", "vfat", "/dev/nvme0n1p1");
        machine.addMount("7:0", "/snap/core22/1122", "squashfs", "/dev/loop0", "/", "");
        // A bind of one of the stick's folders comes first; it is not the drive root.
        machine.addMount("8:1", "/home/user/fotos", "vfat", "/dev/sda1", "/DCIM");
        machine.addMount("8:1", "/media/user/PENDRIVE", "vfat", "/dev/sda1");
        machine.addLabel("PENDRIVE", "sda1");
        machine.addUuid("1A2B-3C4D", "sda1");
        machine.addUuid("5F1E-0C2A", "nvme0n1p1");
        machine.addUuid("0b8e1c3a-4f6d-4c2e-9a51-7d3f2e1b6c90", "nvme0n1p2");

        QCOMPARE(usbDeviceTexts(LinuxDeviceManager(m_dir->path()).listUsbDevices()),
                 QStringList{
                     "/dev/sda1-1A2B-3C4D|/dev/sda1|PENDRIVE|/media/user/PENDRIVE/|vfat|removable|mounted"});
    }

    // A desktop: SATA system disk, a USB hard disk (not removable media) with an NTFS partition mounted
    // by the user through FUSE and an ext4 one left unmounted, a two-slot USB card reader without cards.
    void desktopListsBothPartitionsOfItsUsbDisk()
    {
        FakeMachine &machine = *m_machine;
        machine.addDisk("pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/sda", "8:0", 488397168,
                        false);
        machine.addPartition("sda", 1, "8:1", 480000000);
        machine.addPartition("sda", 2, "8:2", 8388608);
        machine.addDisk(QStringLiteral("%1/host6/target6:0:0/6:0:0:0/block/sdb").arg(kIntelUsb3Port), "8:16",
                        1953525168, false);
        machine.addPartition("sdb", 1, "8:17", 1000000000);
        machine.addPartition("sdb", 2, "8:18", 953522176);
        const QString reader = QStringLiteral("pci0000:00/0000:00:14.0/usb1/1-4/1-4:1.0/host7/target7:0:0");
        machine.addDisk(reader + QStringLiteral("/7:0:0:0/block/sdc"), "8:32", 0, true);
        machine.addDisk(reader + QStringLiteral("/7:0:0:1/block/sdd"), "8:48", 0, true);
        machine.addMount("8:1", "/", "ext4", "/dev/sda1");
        machine.addMount("0:52", "/media/user/Backup", "fuse", "/dev/sdb1");
        machine.addLabel("Backup", "sdb1");
        machine.addLabel("Arquivo", "sdb2");
        machine.addUuid("6C2A8F1E2A8EE5B0", "sdb1");
        machine.addUuid("3d9f7e52-1c0a-4b8e-8f61-2a7c5e9d0b14", "sdb2");

        QCOMPARE(usbDeviceTexts(LinuxDeviceManager(m_dir->path()).listUsbDevices()),
                 QStringList(
                     {"/dev/sdb1-6C2A8F1E2A8EE5B0|/dev/sdb1|Backup|/media/user/Backup/|fuse|fixed|mounted",
                      "/dev/sdb2-3d9f7e52-1c0a-4b8e-8f61-2a7c5e9d0b14|/dev/sdb2|Arquivo|||fixed|unmounted"}));
    }

    // Names with spaces and accents: an exFAT stick mounted through FUSE at a folder named after its label,
    // and a stick formatted without a partition table.
    void spacesAndAccentsInLabelsAndMountPointsAreDecoded()
    {
        FakeMachine &machine = *m_machine;
        machine.addDisk(QStringLiteral("%1/host3/target3:0:0/3:0:0:0/block/sdb").arg(kIntelUsb3Port), "8:16",
                        30031872, true);
        machine.addPartition("sdb", 1, "8:17", 30029824);
        machine.addDisk("pci0000:00/0000:00:14.0/usb1/1-3/1-3:1.0/host4/target4:0:0/4:0:0:0/block/sdc",
                        "8:32", 7864320, true);
        machine.addMount("8:17", "/media/user/MEU\\040PEN", "fuseblk", "/dev/sdb1", "/",
                         "shared:412 master:1");
        machine.addMount("8:32", "/media/user/C\xc3\x93PIA\\134A", "vfat", "/dev/sdc");
        machine.addLabel("MEU\\x20PEN", "sdb1");
        machine.addLabel(QStringLiteral("C\u00D3PIA\\x5cA"), "sdc");
        machine.addUuid("64A5-F009", "sdb1");

        QCOMPARE(usbDeviceTexts(LinuxDeviceManager(m_dir->path()).listUsbDevices()),
                 QStringList(
                     {"/dev/sdb1-64A5-F009|/dev/sdb1|MEU PEN|/media/user/MEU PEN/|fuseblk|removable|mounted",
                      QStringLiteral("/dev/sdc|/dev/sdc|C\u00D3PIA\\A|/media/user/C\u00D3PIA\\A/|vfat|"
                                     "removable|mounted")}));
    }

    // A USB disk with many partitions, one of them unformatted, and a new disk with nothing on it.
    void partitionsComeInNaturalOrderAndBlankDisksAreLeftOut()
    {
        FakeMachine &machine = *m_machine;
        const QString disk = QStringLiteral("%1/host6/target6:0:0/6:0:0:0/block/sdb").arg(kIntelUsb3Port);
        machine.addDisk(disk, "8:16", 1953525168, false);
        for (int number : {10, 2, 1})
            machine.addPartition("sdb", number, QStringLiteral("8:%1").arg(16 + number), 2048000);
        machine.addDisk("pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/host8/target8:0:0/8:0:0:0/block/sdc",
                        "8:32", 15633408, true);
        machine.addMount("8:18", "/media/user/DADOS", "ext4", "/dev/sdb2");

        QCOMPARE(usbDeviceTexts(LinuxDeviceManager(m_dir->path()).listUsbDevices()),
                 QStringList({"/dev/sdb1|/dev/sdb1|USB sdb1|||fixed|unmounted",
                              "/dev/sdb2|/dev/sdb2|USB sdb2|/media/user/DADOS/|ext4|fixed|mounted",
                              "/dev/sdb10|/dev/sdb10|USB sdb10|||fixed|unmounted"}));
    }

    // The build machine of this project: a virtio disk, zram swap, loop devices, one of them carrying an
    // exFAT test volume mounted through FUSE. Nothing there is USB.
    void virtualMachineListsNothing()
    {
        FakeMachine &machine = *m_machine;
        machine.addDisk("pci0000:00/0000:00:02.0/virtio1/block/vda", "254:0", 536870912, false);
        machine.addDisk("virtual/block/zram0", "252:0", 8388608, false);
        for (int index = 0; index < 8; ++index)
            machine.addDisk(QStringLiteral("virtual/block/loop%1").arg(index),
                            QStringLiteral("7:%1").arg(index), index == 0 ? 16384 : 0, false);
        machine.addMount("254:0", "/", "ext4", "/dev/vda");
        machine.addMount("7:0", "/tmp/exfprobe/m\\040nt", "fuseblk", "/dev/loop0", "/", "");
        machine.addLabel("MEU\\x20PEN", "loop0");

        QCOMPARE(usbDeviceTexts(LinuxDeviceManager(m_dir->path()).listUsbDevices()), QStringList());
    }

    void missingSystemFilesGiveAnEmptyList()
    {
        QCOMPARE(LinuxDeviceManager(m_dir->filePath(QStringLiteral("nowhere"))).listUsbDevices().size(), 0);
    }

    void thisComputerListsNoVirtualDisk()
    {
        for (const Tavrinox::Platform::UsbDevice &device : LinuxDeviceManager().listUsbDevices()) {
            QVERIFY2(
                !device.devicePath.contains(QRegularExpression(QStringLiteral("/(loop|zram|vd|dm-|nvme)"))),
                qPrintable(device.devicePath));
        }
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<FakeMachine> m_machine;
};

QTEST_GUILESS_MAIN(TestLinuxDevices)
#include "tst_linuxdevices.moc"
