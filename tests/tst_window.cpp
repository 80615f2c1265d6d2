// The window and the drives it lists: enumeration on Linux (from recorded machines) and on Windows (from
// the answers of the volume calls), and the drive list with its selection rule.
#include "support/support.h"

using namespace Fixture;
using namespace Tavrinox::Platform::Windows;

namespace {

QString texts(const QList<UsbDevice> &devices)
{
    QString lines;
    for (const UsbDevice &d : devices)
        lines += QString("%1|%2|%3|%4|%5|%6|%7\n")
                     .arg(d.id, d.devicePath, d.label, d.rootPath, d.fileSystem,
                          d.removable ? "removable" : "fixed", d.mounted ? "mounted" : "unmounted");
    return lines;
}

// Answers the volume calls for the drives given (tests/data/tables/windows.txt); paths in any other shape
// than the system's own answer nothing.
struct ScriptedProbe : VolumeProbe
{
    QStringList drives;
    QStringList at(const QString &path, const char *shape) const
    {
        return drives.filter(QRegularExpression('^' + path.left(1) + ' '))
            .value(0)
            .split(' ')
            .mid(0, path.mid(1) == shape ? 6 : 0);
    }
    quint32 logicalDrives() const override
    {
        return std::accumulate(drives.begin(), drives.end(), 0u,
                               [](quint32 m, const QString &d) { return m | 1u << (d[0].unicode() - 'A'); });
    }
    unsigned driveType(const QString &root) const override { return at(root, ":\\").value(1).toUInt(); }
    bool queryBusType(const QString &device, unsigned *bus) const override
    {
        *bus = at(device.mid(4), ":").value(2).toUInt();
        return device.startsWith("\\\\.\\") && at(device.mid(4), ":").value(2, "-") != "-";
    }
    bool queryVolumeInformation(const QString &root, VolumeInformation *volume) const override
    {
        const QStringList f = at(root, ":\\");
        *volume = {QString(f.value(3)).remove('_'), f.value(4), f.value(5).toUInt(nullptr, 16)};
        return f.size() == 6;
    }
};

} // namespace

class TestWindow : public QObject
{
    Q_OBJECT
private slots:
    void windowsListsUsbVolumesInLetterOrder_data() { table("windows"); }
    void windowsListsUsbVolumesInLetterOrder()
    {
        QFETCH(QString, drives);
        QFETCH(QString, expected);
        ScriptedProbe probe;
        probe.drives = drives.split('|', Qt::SkipEmptyParts);
        QCOMPARE(texts(listUsbVolumes(probe)), expected);
    }

    // Before writing, a drive must still be the one listed: on Windows the volume at the letter keeps the
    // serial listed (not another stick given the same letter); on Linux the root is the volume's own mount,
    // listed as /dev/sdb1 (8:17) at /media/u/STICK, not a mount over it nor a folder of it bound there.
    void aDriveIsStillTheOneListed()
    {
        const UsbDevice listed{"E:\\-1a2b3c", "E:\\", "STICK", "E:\\", "exFAT", true, true};
        QVERIFY(isListedVolume(listed, 0x1a2b3c) && !isListedVolume(listed, 0x999) &&
                !isListedVolume(listed, std::nullopt));
#ifdef Q_OS_LINUX
        const QByteArray ext4 = "36 25 8:17 / /media/u/STICK rw - ext4 /dev/sdb1 rw\n";
        const auto inPlace = [](const QByteArray &mountTable, const QString &rootNumberNow) {
            return Tavrinox::Platform::Linux::isVolumeRoot(
                {mountTable, "/dev/sdb1", "8:17", "/media/u/STICK/", rootNumberNow});
        };
        QVERIFY(inPlace(ext4, "8:17") &&
                !inPlace(ext4 + "40 36 8:33 / /media/u/STICK - ext4 /dev/sdc1", "8:33") &&
                !inPlace(QByteArray(ext4).replace(" / /", " /sub /"), "8:17") && !inPlace(ext4, ""));
#endif
    }

    // Run on a 1280 x 500 screen (tests/data/shortscreen.json), the whole window and its log show.
    void windowFitsAShortScreen()
    {
        const auto shown = window({});
        shown->show();
        QVERIFY(QTest::qWaitForWindowExposed(shown.get()));
        QCOMPARE(shown->screen()->availableGeometry(), QRect(0, 0, 1280, 500));
        QVERIFY(shown->screen()->availableGeometry().contains(shown->frameGeometry()));
        const QWidget *log = shown->findChild<QTextEdit *>();
        QVERIFY(log->parentWidget()->contentsRect().contains(log->geometry()));
    }

    void refreshListsDrivesAndSelectsOnlyALoneUsableOne_data()
    {
        table("refresh");
    }
    void refreshListsDrivesAndSelectsOnlyALoneUsableOne()
    {
        QFETCH(QString, drives);
        QFETCH(QString, result);
        Bus *bus = nullptr;
        const auto shown = window({}, {}, {}, &bus, drives != "none");
        const auto combo = shown->findChild<QComboBox *>();
        for (const QString &each : drives.mid(drives.startsWith('!')).split('|', Qt::SkipEmptyParts)) {
            const QStringList f =
                QString(each).replace(QRegularExpression("(^| )-(?= |$)"), "\\1").split(' ');
            drives == "none" ? void() : void(bus->drives += drive(f[0], f[1], f[2] == "1"));
        }
        click(*shown, "Atualizar lista");
        QVERIFY(!drives.startsWith('!') ||
                (combo->setCurrentIndex(1), click(*shown, "Atualizar lista"), true));
        QStringList items;
        for (int i = 0; i < combo->count(); ++i)
            items += combo->itemText(i);
        QCOMPARE(items.join(", ") + ' ' + QString::number(combo->currentIndex()) + " | " + log(*shown).last(),
                 result);
    }

    // Each recorded machine (tests/data/machines) holds the parts of /sys, /proc and /dev that the listing
    // reads, one line each: a file and its content (added to what is there), or a link "path -> target";
    // lines "= record" are the records expected.
    void linuxListsUsbVolumes_data()
    {
        QTest::addColumn<QString>("machine");
        for (const QString &name : QDir(TAVRINOX_TEST_DATA_DIR "/machines").entryList({"*.txt"}))
            QTest::newRow(qPrintable(name)) << TAVRINOX_TEST_DATA_DIR "/machines/" + name;
    }
    void linuxListsUsbVolumes()
    {
#ifndef Q_OS_LINUX
        QSKIP("NOT TESTED: the Linux listing is built on Linux only");
#else
        QFETCH(QString, machine);
        QTemporaryDir root;
        QString expected;
        for (const QString &line : QString(read(machine)).split('\n', Qt::SkipEmptyParts)) {
            const QString path = root.filePath(line.section(' ', 0, 0)), content = line.section(' ', 1);
            QFile file(path);
            expected += line.startsWith("= ") ? line.mid(2) + '\n' : "";
            QVERIFY(line.contains(QRegularExpression("^(#|= )")) ||
                    (write(QFileInfo(path).path() + '/') && content.startsWith("-> ")
                         ? QFile::link(content.mid(3), path)
                         : file.open(QIODevice::Append) && file.write(content.toUtf8() + '\n')));
        }
        QCOMPARE(texts(Tavrinox::Platform::Linux::LinuxDeviceManager(root.path()).listUsbDevices()),
                 expected);
#endif
    }
};

TAVRINOX_TEST(TestWindow)
#include "tst_window.moc"
