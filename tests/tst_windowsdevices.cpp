#include "platform/windows/usbvolumes.h"
#include "support/usbdevicetext.h"

#include <QMap>
#include <QtTest>

#include <optional>

using namespace Tavrinox::Platform::Windows;

namespace {

constexpr unsigned kDriveRemote = 4;
constexpr unsigned kDriveCdRom = 5;
constexpr unsigned kBusSata = 11;
constexpr unsigned kBusNvme = 17;

// What the system would answer for one drive letter. No bus: the device cannot be opened or queried.
// No volume: its volume information cannot be read.
struct ScriptedDrive
{
    unsigned driveType = kDriveRemovable;
    std::optional<unsigned> busType = kBusTypeUsb;
    std::optional<VolumeInformation> volume;
    bool letterPresent = true;
};

class ScriptedProbe final : public VolumeProbe
{
public:
    explicit ScriptedProbe(QMap<QChar, ScriptedDrive> drives)
        : m_drives(std::move(drives))
    {}

    quint32 logicalDrives() const override
    {
        quint32 mask = 0;
        for (auto it = m_drives.cbegin(); it != m_drives.cend(); ++it) {
            if (it->letterPresent)
                mask |= quint32(1) << (it.key().unicode() - u'A');
        }
        return mask;
    }

    unsigned driveType(const QString &rootPath) const override
    {
        return drive(rootPath, QStringLiteral("%1:\\")).driveType;
    }

    bool queryBusType(const QString &devicePath, unsigned *busType) const override
    {
        const ScriptedDrive &scripted = drive(devicePath.mid(4), QStringLiteral("%1:"));
        if (!devicePath.startsWith(QLatin1String("\\\\.\\")) || !scripted.busType)
            return false;
        *busType = *scripted.busType;
        return true;
    }

    bool queryVolumeInformation(const QString &rootPath, VolumeInformation *volume) const override
    {
        const ScriptedDrive &scripted = drive(rootPath, QStringLiteral("%1:\\"));
        if (!scripted.volume)
            return false;
        *volume = *scripted.volume;
        return true;
    }

private:
    // Paths in any other shape than the system's own answer nothing.
    const ScriptedDrive &drive(const QString &path, const QString &shape) const
    {
        static const ScriptedDrive absent{0, std::nullopt, std::nullopt, false};
        const auto it = m_drives.constFind(path.isEmpty() ? QChar() : path.at(0));
        return it != m_drives.cend() && path == shape.arg(it.key()) ? *it : absent;
    }

    QMap<QChar, ScriptedDrive> m_drives;
};

ScriptedDrive usbStick(const QString &label, quint32 serial,
                       const QString &fileSystem = QStringLiteral("FAT32"))
{
    return ScriptedDrive{kDriveRemovable, kBusTypeUsb, VolumeInformation{label, fileSystem, serial}};
}

} // namespace

using Drives = QMap<QChar, ScriptedDrive>;
Q_DECLARE_METATYPE(Drives)

class TestWindowsDevices : public QObject
{
    Q_OBJECT
private slots:
    void listsUsbVolumesFromProbeAnswers_data()
    {
        QTest::addColumn<Drives>("drives");
        QTest::addColumn<QStringList>("expected");

        const ScriptedDrive systemDisk{kDriveFixed, kBusSata, VolumeInformation{"Windows", "NTFS", 0x1234}};
        QTest::newRow("no USB volume") << Drives{{'C', systemDisk}} << QStringList();
        QTest::newRow("labelled stick")
            << Drives{{'C', systemDisk}, {'E', usbStick("PENDRIVE", 0x1a2b3c4d)}}
            << QStringList{"E:\\-1a2b3c4d|E:\\|PENDRIVE|E:\\|FAT32|removable|mounted"};
        QTest::newRow("unlabelled stick keeps its serial")
            << Drives{{'F', usbStick("", 0xdeadbeef, "exFAT")}}
            << QStringList{"F:\\-deadbeef|F:\\|USB F:|F:\\|exFAT|removable|mounted"};
        QTest::newRow("serial loses its leading zeros")
            << Drives{{'E', usbStick("DADOS", 0x00ab12cd)}}
            << QStringList{"E:\\-ab12cd|E:\\|DADOS|E:\\|FAT32|removable|mounted"};
        QTest::newRow("USB disk reporting itself as fixed")
            << Drives{{'G',
                       ScriptedDrive{kDriveFixed, kBusTypeUsb, VolumeInformation{"BACKUP", "NTFS", 0x5e}}}}
            << QStringList{"G:\\-5e|G:\\|BACKUP|G:\\|NTFS|fixed|mounted"};
        QTest::newRow("internal SATA and NVMe disks")
            << Drives{{'C', systemDisk},
                      {'D', ScriptedDrive{kDriveFixed, kBusNvme, VolumeInformation{"Dados", "NTFS", 0x77}}}}
            << QStringList();
        QTest::newRow("network and optical drives, even if they claimed USB")
            << Drives{{'Z', ScriptedDrive{kDriveRemote, kBusTypeUsb, VolumeInformation{"rede", "NTFS", 1}}},
                      {'R', ScriptedDrive{kDriveCdRom, kBusTypeUsb, VolumeInformation{"DVD", "UDF", 2}}}}
            << QStringList();
        QTest::newRow("empty card reader slot whose device does not answer")
            << Drives{{'H', ScriptedDrive{kDriveRemovable, std::nullopt, std::nullopt}}} << QStringList();
        QTest::newRow("empty card reader slot without a volume")
            << Drives{{'H', ScriptedDrive{kDriveRemovable, kBusTypeUsb, std::nullopt}}}
            << QStringList{"H:\\|H:\\|USB H:|H:\\||removable|mounted"};
        QTest::newRow("two partitions of one device, in letter order")
            << Drives{{'K', usbStick("PARTE2", 0x2222, "NTFS")}, {'J', usbStick("PARTE1", 0x1111)}}
            << QStringList{"J:\\-1111|J:\\|PARTE1|J:\\|FAT32|removable|mounted",
                           "K:\\-2222|K:\\|PARTE2|K:\\|NTFS|removable|mounted"};
        QTest::newRow("first and last letters")
            << Drives{{'Z', usbStick("ULTIMA", 0xf)}, {'A', usbStick("PRIMEIRA", 0xa)}}
            << QStringList{"A:\\-a|A:\\|PRIMEIRA|A:\\|FAT32|removable|mounted",
                           "Z:\\-f|Z:\\|ULTIMA|Z:\\|FAT32|removable|mounted"};
        ScriptedDrive missingLetter = usbStick("FANTASMA", 0x99);
        missingLetter.letterPresent = false;
        QTest::newRow("only letters the system reports are probed")
            << Drives{{'M', missingLetter}} << QStringList();
    }
    void listsUsbVolumesFromProbeAnswers()
    {
        QFETCH(Drives, drives);
        QFETCH(QStringList, expected);
        QCOMPARE(usbDeviceTexts(listUsbVolumes(ScriptedProbe(drives))), expected);
    }
};

QTEST_GUILESS_MAIN(TestWindowsDevices)
#include "tst_windowsdevices.moc"
