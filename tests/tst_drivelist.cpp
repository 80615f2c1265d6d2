#include "app/configwindow.h"

#include <QAction>
#include <QComboBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

using namespace Tavrinox;
using Tavrinox::Platform::UsbDevice;

namespace {

// Stands in for the USB bus: the test decides which drives are attached.
class AttachedDrives final : public Platform::DeviceManager
{
public:
    QList<UsbDevice> listUsbDevices() const override
    {
        ++m_calls;
        return drives;
    }
    int calls() const { return m_calls; }

    QList<UsbDevice> drives;

private:
    mutable int m_calls = 0;
};

UsbDevice mountedDrive(const QString &label, const QString &root)
{
    return UsbDevice{root + QStringLiteral("-1a2b"), root, label, root, QStringLiteral("FAT32"), true, true};
}

UsbDevice unmountedDrive(const QString &label, const QString &devicePath)
{
    return UsbDevice{devicePath, devicePath, label, QString(), QString(), true, false};
}

QStringList comboEntries(const ConfigWindow &window)
{
    const QComboBox *combo = window.findChild<QComboBox *>();
    QStringList entries;
    for (int index = 0; index < combo->count(); ++index)
        entries.append(combo->itemText(index));
    return entries;
}

QStringList logLines(const ConfigWindow &window)
{
    return window.findChild<QTextEdit *>()->toPlainText().split(QLatin1Char('\n'));
}

} // namespace

using Drives = QList<UsbDevice>;

class TestDriveList : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(m_emptyDir.isValid()); }

    void refreshListsDrivesAndSelectsTheOnlyUsableOne_data()
    {
        QTest::addColumn<Drives>("drives");
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<int>("selected");
        QTest::addColumn<QString>("countLine");

        QTest::newRow("no drive") << Drives() << QStringList() << -1 << "Nenhuma unidade USB detectada.";
        QTest::newRow("one mounted drive is selected")
            << Drives{mountedDrive("PENDRIVE", "E:\\")} << QStringList{"PENDRIVE (E:\\)"} << 0
            << "1 unidade(s) USB detectada(s).";
        QTest::newRow("two mounted drives: the user must choose")
            << Drives{mountedDrive("PENDRIVE", "E:\\"), mountedDrive("", "F:\\")}
            << QStringList{"PENDRIVE (E:\\)", "F:\\ (F:\\)"} << -1 << "2 unidade(s) USB detectada(s).";
        QTest::newRow("unmounted ones count but are never selected")
            << Drives{unmountedDrive("Arquivo", "/dev/sdb2"),
                      mountedDrive("PENDRIVE", "/media/user/PENDRIVE/")}
            << QStringList{"Arquivo (/dev/sdb2) | não montado", "PENDRIVE (/media/user/PENDRIVE/)"} << 1
            << "2 unidade(s) USB detectada(s).";
        QTest::newRow("only an unmounted drive")
            << Drives{unmountedDrive("", "/dev/sdb1")} << QStringList{"/dev/sdb1 (/dev/sdb1) | não montado"}
            << -1 << "1 unidade(s) USB detectada(s).";
        QTest::newRow("unmounted without a device path")
            << Drives{unmountedDrive("", ""), unmountedDrive("USB sdc1", "")}
            << QStringList{"não montado (não montado) | não montado", "USB sdc1 (não montado) | não montado"}
            << -1 << "2 unidade(s) USB detectada(s).";
        QTest::newRow("mounted without a root is not usable")
            << Drives{mountedDrive("SEMRAIZ", QString())} << QStringList{"SEMRAIZ ()"} << -1
            << "1 unidade(s) USB detectada(s).";
    }
    void refreshListsDrivesAndSelectsTheOnlyUsableOne()
    {
        QFETCH(Drives, drives);
        QFETCH(QStringList, entries);
        QFETCH(int, selected);
        QFETCH(QString, countLine);

        auto manager = std::make_unique<AttachedDrives>();
        manager->drives = drives;
        ConfigWindow window(setupWith(std::move(manager)));

        QCOMPARE(comboEntries(window), entries);
        QCOMPARE(window.findChild<QComboBox *>()->currentIndex(), selected);
        // The bundle-source lines come first, then one count line.
        QCOMPARE(logLines(window).size(), 3);
        QCOMPARE(logLines(window).last(), countLine);
    }

    void refreshReplacesTheListAndForgetsTheChoice()
    {
        auto manager = std::make_unique<AttachedDrives>();
        AttachedDrives *attached = manager.get();
        attached->drives = {mountedDrive("PENDRIVE", "E:\\"), mountedDrive("DADOS", "F:\\")};
        ConfigWindow window(setupWith(std::move(manager)));
        auto *combo = window.findChild<QComboBox *>();
        combo->setCurrentIndex(1);

        QPushButton *refreshButton = nullptr;
        for (QPushButton *button : window.findChildren<QPushButton *>()) {
            if (button->text() == QLatin1String("Atualizar lista"))
                refreshButton = button;
        }
        QVERIFY(refreshButton);
        refreshButton->click();
        QCOMPARE(combo->currentIndex(), -1);
        QCOMPARE(attached->calls(), 2);

        attached->drives = {mountedDrive("DADOS", "F:\\")};
        for (QAction *action : window.findChildren<QAction *>()) {
            if (action->text() == QLatin1String("Atualizar lista"))
                action->trigger();
        }
        QCOMPARE(attached->calls(), 3);
        QCOMPARE(comboEntries(window), QStringList{"DADOS (F:\\)"});
        QCOMPARE(combo->currentIndex(), 0);
        QCOMPARE(logLines(window).mid(2),
                 QStringList({"2 unidade(s) USB detectada(s).", "2 unidade(s) USB detectada(s).",
                              "1 unidade(s) USB detectada(s)."}));
    }

    void withoutManagerDetectionIsUnavailable()
    {
        ConfigWindow window(setupWith(nullptr));
        window.refreshDevices();
        QCOMPARE(comboEntries(window), QStringList());
        QCOMPARE(window.findChild<QComboBox *>()->currentIndex(), -1);
        QCOMPARE(logLines(window).mid(2), QStringList({"Detecção de USB não disponível neste sistema.",
                                                       "Detecção de USB não disponível neste sistema."}));
    }

private:
    ConfigWindowSetup setupWith(std::unique_ptr<Platform::DeviceManager> manager) const
    {
        ConfigWindowSetup setup;
        setup.deviceManager = std::move(manager);
        setup.bundleSearchDirectory = m_emptyDir.path();
        return setup;
    }

    QTemporaryDir m_emptyDir;
};

QTEST_MAIN(TestDriveList)
#include "tst_drivelist.moc"
