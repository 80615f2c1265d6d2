#include "app/configwindow.h"
#include "buildconfig.h"
#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/modalanswerer.h"
#include "support/zippackage.h"
#include "transaction/updatejournal.h"
#include "transaction/updatestate.h"

#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

#include <memory>

using namespace Tavrinox;

namespace {

constexpr int kGenerousWaitMs = 120000;
const QString kManifestPath = QStringLiteral("/000Updates/tavrinox/manifest.json");
const QString kUpdateText = QStringLiteral("Verificar atualizações");

class FixedDrives : public Platform::DeviceManager
{
public:
    explicit FixedDrives(QList<Platform::UsbDevice> devices)
        : m_devices(std::move(devices))
    {}
    QList<Platform::UsbDevice> listUsbDevices() const override { return m_devices; }
    bool isVolumeAtRoot(const Platform::UsbDevice &) const override { return true; }

private:
    QList<Platform::UsbDevice> m_devices;
};

Platform::UsbDevice usbDrive(const QString &path, bool mounted = true)
{
    Platform::UsbDevice device;
    device.id = path;
    device.devicePath = QStringLiteral("/dev/sdz1");
    device.label = QStringLiteral("PENDRIVE");
    device.rootPath = mounted ? path + QLatin1Char('/') : QString();
    device.fileSystem = QStringLiteral("exfat");
    device.removable = true;
    device.mounted = mounted;
    return device;
}

QStringList logLines(const ConfigWindow &window)
{
    return window.findChild<QTextEdit *>()->toPlainText().split(QLatin1Char('\n'));
}

QPushButton *updateButton(const ConfigWindow &window)
{
    for (QPushButton *button : window.findChildren<QPushButton *>()) {
        if (button->text() == kUpdateText)
            return button;
    }
    return nullptr;
}

QAction *updateAction(const ConfigWindow &window)
{
    for (QAction *action : window.findChildren<QAction *>()) {
        if (action->text() == kUpdateText)
            return action;
    }
    return nullptr;
}

bool updateControlsEnabled(const ConfigWindow &window)
{
    return updateButton(window)->isEnabled() && updateAction(window)->isEnabled();
}

// The visible busy dialog with that label and bar range; it must be application-modal and offer no cancel.
QProgressDialog *busyDialog(const ConfigWindow &window, const QString &label, int maximum = 0)
{
    for (QProgressDialog *dialog : window.findChildren<QProgressDialog *>()) {
        if (dialog->isVisible() && dialog->labelText() == label &&
            dialog->windowModality() == Qt::ApplicationModal && dialog->minimum() == 0 &&
            dialog->maximum() == maximum && !dialog->findChild<QPushButton *>())
            return dialog;
    }
    return nullptr;
}

bool requested(const HttpsServer &server, const QString &path)
{
    for (const HttpsServer::Request &request : server.requests()) {
        if (request.path == path)
            return true;
    }
    return false;
}

} // namespace

class TestUpdateFlow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName(QStringLiteral("TavrinoxConfig"));
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
        QString why;
        QVERIFY2(HttpsServer::trustTestCertificateAuthority(&why), qPrintable(why));
    }

    void init()
    {
        m_server = std::make_unique<HttpsServer>();
        QString why;
        QVERIFY2(m_server->start(&why), qPrintable(why));
        m_drive = std::make_unique<QTemporaryDir>();
        QVERIFY(layOutPreparedDrive(m_drive->path(), "1.0.0", "old"));
        m_package = tavrinoxPackage("new").bytes();
        publish("1.1.0", sha256Hex(m_package));
    }

    void cleanup()
    {
        QThreadPool::globalInstance()->waitForDone();
        m_server.reset();
        m_drive.reset();
    }

    void updatesDriveFromTheWindow()
    {
        // The package answers late enough to see the apply's busy dialog.
        m_server->addDelayed("/package.zip", 3000, m_package);
        std::unique_ptr<ConfigWindow> window = windowFor({usbDrive(m_drive->path())});
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});

        updateButton(*window)->click();
        QVERIFY(busyDialog(*window, "Consultando manifesto de atualização..."));
        QVERIFY(!updateButton(*window)->isEnabled());
        QVERIFY(!updateAction(*window)->isEnabled());
        // While the package is awaited, the dialog shows the download: received of total, and the rate.
        QTRY_VERIFY_WITH_TIMEOUT(
            busyDialog(*window, "Baixando a atualização: 0,0 de 0,0 MB (0,0 MB/s)", 1000), kGenerousWaitMs);
        QVERIFY(!updateControlsEnabled(*window));
        QTRY_COMPARE_WITH_TIMEOUT(answerer.boxes().size(), 2, kGenerousWaitMs);

        const ShownBox question = answerer.boxes().at(0);
        QCOMPARE(question.title, QStringLiteral("Atualização disponível"));
        QCOMPARE(question.text,
                 QStringLiteral("Atualizar Tavrinox na unidade %1/?\n\nVersão instalada: 1.0.0\n"
                                "Versão disponível: 1.1.0\n\nCorreções de segurança.")
                     .arg(m_drive->path()));
        QCOMPARE(question.icon, QMessageBox::Question);
        QCOMPARE(question.buttons, QStringList({"Sim", "Não"}));
        QCOMPARE(question.defaultButton, QStringLiteral("Não"));
        const ShownBox done = answerer.boxes().at(1);
        QCOMPARE(done.title, QStringLiteral("Tavrinox - Gerenciador"));
        QCOMPARE(done.text, QStringLiteral("Atualização concluída.\n\nVersão instalada: 1.1.0"));
        QCOMPARE(done.icon, QMessageBox::Information);

        QCOMPARE(logLines(*window).last(), QStringLiteral("Unidade atualizada para Tavrinox 1.1.0."));
        QTRY_VERIFY(updateControlsEnabled(*window));
        QVERIFY(driveHoldsBundles(m_drive->path(), "new"));
        QCOMPARE(readInstalledVersion(m_drive->path()), QStringLiteral("1.1.0"));
        QFile state(updateStatePath(m_drive->path()));
        QVERIFY(state.open(QIODevice::ReadOnly));
        QCOMPARE(QJsonDocument::fromJson(state.readAll()).object().value("lastPackageSha256").toString(),
                 sha256Hex(m_package));
        QCOMPARE(updateLeftovers(m_drive->path()), QStringList());
    }

    void declineLeavesDriveUntouched()
    {
        m_server->addBody("/package.zip", m_package);
        const QMap<QString, QByteArray> before = driveSnapshot(m_drive->path());
        std::unique_ptr<ConfigWindow> window = windowFor({usbDrive(m_drive->path())});
        ModalAnswerer answerer;
        answerer.answer("Não");

        window->updateSelectedDevice();
        QTRY_VERIFY_WITH_TIMEOUT(logLines(*window).last() ==
                                     QStringLiteral("Atualização cancelada pelo usuário."),
                                 kGenerousWaitMs);
        QCOMPARE(answerer.boxes().size(), 1);
        QVERIFY(updateControlsEnabled(*window));
        QVERIFY(!requested(*m_server, "/package.zip"));
        QCOMPARE(driveSnapshot(m_drive->path()), before);
    }

    void reportsEachOutcomeOnceInLogAndBox_data()
    {
        QTest::addColumn<QString>("manifestVersion");
        QTest::addColumn<QString>("manifestHash");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QString>("logLine");
        QTest::addColumn<QString>("boxText");
        QTest::addColumn<int>("boxIcon");

        QTest::newRow("same version")
            << "1.0.0" << QString() << QStringList{"OK"}
            << "Nenhuma atualização disponível. Instalado: 1.0.0 | Remoto: 1.0.0"
            << "A unidade já está atualizada.\n\nVersão instalada: 1.0.0\nVersão disponível: 1.0.0"
            << int(QMessageBox::Information);
        QTest::newRow("manifest missing")
            << "" << QString() << QStringList{"OK"}
            << "Falha ao consultar manifesto: Error transferring URL - server replied: Not Found"
            << "Error transferring URL - server replied: Not Found" << int(QMessageBox::Warning);
        QTest::newRow("package hash differs")
            << "1.1.0" << sha256Hex("another") << QStringList{"Sim", "OK"}
            << "Falha ao aplicar atualização: Hash SHA-256 divergente. O pacote não será aplicado."
            << "Hash SHA-256 divergente. O pacote não será aplicado." << int(QMessageBox::Warning);
    }
    void reportsEachOutcomeOnceInLogAndBox()
    {
        QFETCH(QString, manifestVersion);
        QFETCH(QString, manifestHash);
        QFETCH(QStringList, answers);
        QFETCH(QString, logLine);
        QFETCH(QString, boxText);
        QFETCH(int, boxIcon);
        m_server->addBody("/package.zip", m_package);
        if (manifestVersion.isEmpty())
            m_server->addStatus(kManifestPath, 404);
        else
            publish(manifestVersion, manifestHash.isEmpty() ? sha256Hex(m_package) : manifestHash);
        const QString url = m_server->url(kManifestPath).toString();
        logLine.replace("URL", url);
        boxText.replace("URL", url);
        const QMap<QString, QByteArray> before = driveSnapshot(m_drive->path());

        std::unique_ptr<ConfigWindow> window = windowFor({usbDrive(m_drive->path())});
        const int linesBefore = logLines(*window).size();
        ModalAnswerer answerer;
        answerer.answer(answers);
        window->updateSelectedDevice();
        QTRY_COMPARE_WITH_TIMEOUT(answerer.boxes().size(), answers.size(), kGenerousWaitMs);

        QCOMPARE(answerer.boxes().last().text, boxText);
        QCOMPARE(int(answerer.boxes().last().icon), boxIcon);
        QCOMPARE(answerer.boxes().last().title, QStringLiteral("Tavrinox - Gerenciador"));
        QCOMPARE(logLines(*window).mid(linesBefore), QStringList{logLine});
        QTRY_VERIFY(updateControlsEnabled(*window));
        QCOMPARE(driveSnapshot(m_drive->path()), before);
    }

    void preconditionRefusesWithItsBox_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("icon");
        QTest::newRow("no drive selected")
            << "none"
            << "Selecione uma unidade USB primeiro." << int(QMessageBox::Information);
        QTest::newRow("drive not mounted")
            << "unmounted"
            << "Monte a unidade USB e atualize a lista antes de verificar atualizações."
            << int(QMessageBox::Information);
        QTest::newRow("drive not prepared")
            << "unprepared"
            << "A unidade selecionada ainda não possui uma estrutura Tavrinox preparada."
            << int(QMessageBox::Information);
        QTest::newRow("Tavrinox running")
            << "running"
            << "Feche o Tavrinox antes de atualizar os bundles da unidade USB." << int(QMessageBox::Warning);
    }
    void preconditionRefusesWithItsBox()
    {
        QFETCH(QString, situation);
        QFETCH(QString, text);
        QFETCH(int, icon);

        QList<Platform::UsbDevice> drives;
        if (situation == "unmounted")
            drives = {usbDrive(m_drive->path(), false)};
        else if (situation != "none")
            drives = {usbDrive(m_drive->path())};
        if (situation == "unprepared")
            QVERIFY(QDir(m_drive->filePath("Tavrinox")).removeRecursively());
        // The application started from a folder of its own, as a user would.
        QTemporaryDir applicationDir;
        QProcess application;
        if (situation == "running") {
            QVERIFY(QFile::copy("/bin/sleep", applicationDir.filePath("Tavrinox")));
            application.start(applicationDir.filePath("Tavrinox"), {"60"});
            QVERIFY(application.waitForStarted());
        }

        std::unique_ptr<ConfigWindow> window = windowFor(drives);
        if (situation == "unmounted")
            window->findChild<QComboBox *>()->setCurrentIndex(0);
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer("OK");
        window->updateSelectedDevice();
        application.kill();
        application.waitForFinished();

        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(answerer.boxes().first().title, QStringLiteral("Tavrinox - Gerenciador"));
        QCOMPARE(answerer.boxes().first().text, text);
        QCOMPARE(int(answerer.boxes().first().icon), icon);
        QCOMPARE(answerer.boxes().first().buttons, QStringList{"OK"});
        QCOMPARE(logLines(*window), logBefore);
        QVERIFY(updateControlsEnabled(*window));
        QVERIFY(m_server->requests().isEmpty());
    }

    void waitsWhileARecoveryRunsOnAnyDrive()
    {
        QTemporaryDir otherDrive;
        QVERIFY(QDir(otherDrive.path()).mkpath("Tavrinox"));
        QVERIFY(writeUpdateJournal(
            otherDrive.path(),
            QJsonObject{{"id", "20260301140509"}, {"phase", "staged"}, {"version", "9.9.9"}}));
        std::unique_ptr<ConfigWindow> window =
            windowFor({usbDrive(m_drive->path()), usbDrive(otherDrive.path())});
        window->findChild<QComboBox *>()->setCurrentIndex(0);
        ModalAnswerer answerer;
        answerer.answer("OK");

        // The recovery's result cannot arrive before the event loop runs again.
        window->updateSelectedDevice();
        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(answerer.boxes().first().text,
                 QStringLiteral("Aguarde a recuperação automática de atualização "
                                "pendente terminar antes de iniciar outra atualização."));
        QCOMPARE(answerer.boxes().first().icon, QMessageBox::Information);
        QTRY_VERIFY_WITH_TIMEOUT(updateControlsEnabled(*window), kGenerousWaitMs);
        QVERIFY(m_server->requests().isEmpty());
    }

    void refusesDriveWhoseRecoveryFailed()
    {
        QFile journal(updateJournalPath(m_drive->path()));
        QVERIFY(journal.open(QIODevice::WriteOnly));
        journal.write("{ not json");
        journal.close();
        std::unique_ptr<ConfigWindow> window = windowFor({usbDrive(m_drive->path())});
        ModalAnswerer answerer;
        answerer.answer({"OK", "OK"});
        QTRY_COMPARE_WITH_TIMEOUT(answerer.boxes().size(), 1, kGenerousWaitMs);
        const QStringList logBefore = logLines(*window);

        window->updateSelectedDevice();
        QCOMPARE(answerer.boxes().size(), 2);
        QCOMPARE(
            answerer.boxes().last().text,
            QStringLiteral("Há uma atualização pendente que não pôde ser recuperada com segurança. Nenhuma "
                           "nova atualização será iniciada para esta unidade."));
        QCOMPARE(answerer.boxes().last().icon, QMessageBox::Warning);
        QCOMPARE(logLines(*window), logBefore);
        QVERIFY(m_server->requests().isEmpty());
    }

    void updateStoppedAfterPublishingIsCompletedAtNextRefresh()
    {
        m_server->addBody("/package.zip", m_package);
        qputenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE", "state-written");
        const auto unsetPhase = qScopeGuard([] { qunsetenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE"); });
        std::unique_ptr<ConfigWindow> window = windowFor({usbDrive(m_drive->path())});
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});
        window->updateSelectedDevice();
        QTRY_COMPARE_WITH_TIMEOUT(answerer.boxes().size(), 2, kGenerousWaitMs);

        const QString injected = QStringLiteral("Falha de teste injetada na fase: state-written");
        QCOMPARE(answerer.boxes().last().text, injected);
        QCOMPARE(logLines(*window).last(), "Falha ao aplicar atualização: " + injected);
        // Stopped with the new version published: backups and journal stay for recovery, the work area
        // is gone.
        const QStringList leftBehind = updateLeftovers(m_drive->path());
        QCOMPARE(leftBehind.size(), 3);
        QVERIFY(leftBehind.contains("update-journal.json"));
        QCOMPARE(readInstalledVersion(m_drive->path()), QStringLiteral("1.1.0"));

        window->refreshDevices();
        QTRY_VERIFY_WITH_TIMEOUT(logLines(*window).contains(QStringLiteral(
                                     "Uma atualização interrompida foi concluída com segurança.")),
                                 kGenerousWaitMs);
        QCOMPARE(updateLeftovers(m_drive->path()), QStringList());
        QVERIFY(driveHoldsBundles(m_drive->path(), "new"));
        QCOMPARE(readInstalledVersion(m_drive->path()), QStringLiteral("1.1.0"));
    }

    void readOnlyDriveIsRefused()
    {
        LoopVolume volume;
        QString why;
        if (!volume.mount(LoopVolume::FileSystem::Ext4, 16 * 1024 * 1024, &why))
            QSKIP(qPrintable(why));
        QVERIFY(layOutPreparedDrive(volume.mountPoint(), "1.0.0", "old"));
        QProcess remount;
        remount.start("mount", {"-o", "remount,ro", volume.mountPoint()});
        if (!remount.waitForFinished() || remount.exitCode() != 0)
            QSKIP("the volume cannot be remounted read-only here");

        std::unique_ptr<ConfigWindow> window = windowFor({usbDrive(volume.mountPoint())});
        ModalAnswerer answerer;
        answerer.answer("OK");
        window->updateSelectedDevice();
        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(answerer.boxes().first().text,
                 QStringLiteral("A unidade USB não está disponível para gravação. "
                                "Monte-a com leitura e gravação antes de atualizar."));
        QCOMPARE(answerer.boxes().first().icon, QMessageBox::Warning);
        QVERIFY(m_server->requests().isEmpty());
    }

private:
    void publish(const QString &version, const QString &sha256)
    {
        const QJsonObject manifest{{"schemaVersion", 1},
                                   {"app", "Tavrinox"},
                                   {"version", version},
                                   {"packageUrl", m_server->url("/package.zip").toString()},
                                   {"sha256", sha256},
                                   {"size", m_package.size()},
                                   {"releaseNotes", "Correções de segurança."}};
        m_server->addBody(kManifestPath, QJsonDocument(manifest).toJson());
    }

    std::unique_ptr<ConfigWindow> windowFor(const QList<Platform::UsbDevice> &drives)
    {
        ConfigWindowSetup setup;
        setup.deviceManager = std::make_unique<FixedDrives>(drives);
        setup.bundleSearchDirectory = m_noBundles.path();
        setup.updateManifestUrl = m_server->url(kManifestPath);
        return std::make_unique<ConfigWindow>(std::move(setup));
    }

    QTemporaryDir m_noBundles;
    std::unique_ptr<HttpsServer> m_server;
    std::unique_ptr<QTemporaryDir> m_drive;
    QByteArray m_package;
};

QTEST_MAIN(TestUpdateFlow)
#include "tst_updateflow.moc"
