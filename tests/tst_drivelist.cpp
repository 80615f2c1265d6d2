#include "app/configwindow.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QComboBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Tavrinox::Platform::UsbDevice;
using namespace Fixture;

namespace {

QStringList comboEntries(const ConfigWindow &window)
{
    const QComboBox *combo = window.findChild<QComboBox *>();
    QStringList entries;
    for (int index = 0; index < combo->count(); ++index)
        entries.append(combo->itemText(index));
    return entries;
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
            << Drives{mountedDrive("E:\\")} << QStringList{"PENDRIVE (E:\\)"} << 0
            << "1 unidade(s) USB detectada(s).";
        QTest::newRow("two mounted drives: the user must choose")
            << Drives{mountedDrive("E:\\"), mountedDrive("F:\\", "")}
            << QStringList{"PENDRIVE (E:\\)", "F:\\ (F:\\)"} << -1 << "2 unidade(s) USB detectada(s).";
        QTest::newRow("unmounted ones count but are never selected")
            << Drives{unmountedDrive("/dev/sdb2", "Arquivo"), mountedDrive("/media/user/PENDRIVE/")}
            << QStringList{"Arquivo (/dev/sdb2) | não montado", "PENDRIVE (/media/user/PENDRIVE/)"} << 1
            << "2 unidade(s) USB detectada(s).";
        QTest::newRow("only an unmounted drive")
            << Drives{unmountedDrive("/dev/sdb1", "")} << QStringList{"/dev/sdb1 (/dev/sdb1) | não montado"}
            << -1 << "1 unidade(s) USB detectada(s).";
        QTest::newRow("unmounted without a device path")
            << Drives{unmountedDrive("", ""), unmountedDrive("", "USB sdc1")}
            << QStringList{"não montado (não montado) | não montado", "USB sdc1 (não montado) | não montado"}
            << -1 << "2 unidade(s) USB detectada(s).";
        QTest::newRow("mounted without a root is not usable")
            << Drives{mountedDrive(QString(), "SEMRAIZ")} << QStringList{"SEMRAIZ ()"} << -1
            << "1 unidade(s) USB detectada(s).";
    }
    void refreshListsDrivesAndSelectsTheOnlyUsableOne()
    {
        QFETCH(Drives, drives);
        QFETCH(QStringList, entries);
        QFETCH(int, selected);
        QFETCH(QString, countLine);

        const auto window = windowWith(drives, m_emptyDir.path());

        QCOMPARE(comboEntries(*window), entries);
        QCOMPARE(window->findChild<QComboBox *>()->currentIndex(), selected);
        // The bundle-source lines come first, then one count line.
        QCOMPARE(logLines(*window).size(), 3);
        QCOMPARE(logLines(*window).last(), countLine);
    }

    void refreshReplacesTheListAndForgetsTheChoice()
    {
        AttachedDrives *bus = nullptr;
        const auto window =
            windowWith({mountedDrive("E:\\"), mountedDrive("F:\\", "DADOS")}, m_emptyDir.path(), &bus);
        auto *combo = window->findChild<QComboBox *>();
        combo->setCurrentIndex(1);

        controlNamed<QPushButton>(*window, QStringLiteral("Atualizar lista"))->click();
        QCOMPARE(combo->currentIndex(), -1);
        QCOMPARE(bus->calls(), 2);

        bus->drives = {mountedDrive("F:\\", "DADOS")};
        controlNamed<QAction>(*window, QStringLiteral("Atualizar lista"))->trigger();
        QCOMPARE(bus->calls(), 3);
        QCOMPARE(comboEntries(*window), QStringList{"DADOS (F:\\)"});
        QCOMPARE(combo->currentIndex(), 0);
        QCOMPARE(logLines(*window).mid(2),
                 QStringList({"2 unidade(s) USB detectada(s).", "2 unidade(s) USB detectada(s).",
                              "1 unidade(s) USB detectada(s)."}));
    }

    // At start-up and at each refresh the log says so, after the bundle-source lines.
    void withoutManagerDetectionIsUnavailable()
    {
        const auto window = windowWithoutDetection(m_emptyDir.path());
        window->refreshDevices();
        QCOMPARE(comboEntries(*window), QStringList());
        QCOMPARE(window->findChild<QComboBox *>()->currentIndex(), -1);
        QCOMPARE(logLines(*window), QStringList({"Fonte Windows para preparação ausente.",
                                                 "Fonte Linux para preparação ausente.",
                                                 "Detecção de USB não disponível neste sistema.",
                                                 "Detecção de USB não disponível neste sistema."}));
    }

private:
    QTemporaryDir m_emptyDir;
};

QTEST_MAIN(TestDriveList)
#include "tst_drivelist.moc"
