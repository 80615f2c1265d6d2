#include "platform/linux/linuxdevicemanager.h"
#include "platform/windows/usbvolumes.h"
#include "prepare/capacity.h"
#include "prepare/drivepreparer.h"
#include "support/bundlefixture.h"
#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/modalanswerer.h"
#include "support/testfiles.h"
#include "support/windowfixture.h"
#include "support/zippackage.h"

#include <QAction>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QtTest>

using namespace Tavrinox;
using namespace Fixture;
using Platform::UsbDevice;

namespace {

const QString kManifestPath = QStringLiteral("/000Updates/tavrinox/manifest.json");
const QString kMountFirst =
    QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar.");

// The USB bus is the test's; what is mounted where is the system's.
struct LoopBus final : Platform::Linux::LinuxDeviceManager
{
    QList<UsbDevice> drives;
    QList<UsbDevice> listUsbDevices() const override { return drives; }
};

} // namespace

class TestPrepareSafety : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(HttpsServer::trustTestCertificateAuthority() && m_server.start());
        const QByteArray package = tavrinoxPackage("new").bytes();
        const QString manifest = R"({"schemaVersion": 1, "app": "Tavrinox", "version": "1.1.0",
                                     "sha256": "%1", "packageUrl": "%2"})";
        const QString url = m_server.url("/package.zip").toString();
        // Both answer late, so that the busy dialogs are seen at work.
        m_server.addRoute(kManifestPath, {200, manifest.arg(sha256Hex(package), url).toUtf8(), {}, 700});
        m_server.addDelayed("/package.zip", 1500, package);
        QVERIFY(makeLinuxBundle(m_dir.filePath("app/bundles/linux-x64")));
    }

    // Listed as /dev/sdb1 (8:17) mounted at /media/u/STICK. Found unmounted, or mounted through FUSE, by the
    // tests on a real stick below.
    void linuxRootMustBeTheVolumesMount()
    {
        const QByteArray ext4 = "36 25 8:17 / /media/u/STICK rw - ext4 /dev/sdb1 rw\n";
        const auto inPlace = [](const QByteArray &mountTable, const QString &rootNumberNow) {
            return Platform::Linux::isVolumeRoot(
                {mountTable, "/dev/sdb1", "8:17", "/media/u/STICK/", rootNumberNow});
        };
        QVERIFY(inPlace(ext4, "8:17"));
        QVERIFY(!inPlace(ext4 + "40 36 8:33 / /media/u/STICK - ext4 /dev/sdc1", "8:33")); // mounted over it
        QVERIFY(!inPlace(QByteArray(ext4).replace(" / /", " /sub /"), "8:17")); // a folder of it bound there
        QVERIFY(!inPlace(ext4, ""));                                            // unreachable
    }

    // Listed with serial 1a2b3c.
    void windowsVolumeMustKeepItsSerial()
    {
        const UsbDevice listed{"E:\\-1a2b3c", "E:\\", "STICK", "E:\\", "exFAT", true, true};
        QVERIFY(Platform::Windows::isListedVolume(listed, 0x1a2b3c));
        QVERIFY(!Platform::Windows::isListedVolume(listed, 0x999)); // another stick given the same letter
        QVERIFY(!Platform::Windows::isListedVolume(listed, std::nullopt));
    }

    // A link back into the bundle (plugins/up -> ..) is neither counted nor followed. Of what an interrupted
    // copy may have left, only names of the atomic writer's temporary form beside a file of the bundle go.
    void preparationSkipsLinkCyclesAndClearsInterruptedCopies()
    {
        const QString bundle = m_dir.filePath("app/bundles/linux-x64");
        const QString target = m_dir.filePath("drive/Tavrinox/linux/");
        QMap<QString, QByteArray> expected = visibleTreeContents(bundle);
        const qint64 size = directorySize(bundle);
        QVERIFY(QFile::link("..", bundle + "/plugins/up"));
        QCOMPARE(directorySize(bundle), size);
        for (const char *name : {"plugins/platforms/libqxcb.so.AbCdEf", "notes.txt.AbCdEf", "qt.conf.Ab3dEf"})
            QVERIFY(writeFile(target + name, "left here"));
        expected.insert("notes.txt.AbCdEf", "left here"); // not beside a file of the bundle
        expected.insert("qt.conf.Ab3dEf", "left here");   // not the temporary form
        const PreparationResult result =
            DrivePreparer().prepare(m_dir.filePath("drive"), {{}, {}, bundle + "/Tavrinox", bundle});
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(treeContents(target), expected);
    }

    // A real stick unmounted after the list was read ("click") or when a busy dialog whose label starts so
    // is up: the empty folder it leaves on the computer stays empty. Meanwhile the user presses Escape,
    // closes the busy dialog and asks for every command, Sair too: all refused.
    void unmountedStickIsNeverWritten_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("unmountAt");
        QTest::addColumn<QStringList>("log"); // what the window adds to it
        const QString refusal = "Aguarde o fim da operação em andamento antes de fechar o programa.";
        const QString prepare = "Preparar unidade USB";
        QTest::newRow("prepare, before the click") << prepare << QString("click") << QStringList();
        QTest::newRow("prepare, busy")
            << prepare << QString() << QStringList{refusal, "Falha: " + kMountFirst};
        QTest::newRow("update, downloading")
            << QString("Verificar atualizações") << QString("Baixando")
            << QStringList{refusal,
                           "Falha ao aplicar atualização: A unidade USB foi removida ou desmontada. A "
                           "atualização foi interrompida sem gravar mais nada nela; monte a unidade "
                           "novamente e atualize a lista antes de tentar outra vez."};
    }
    void unmountedStickIsNeverWritten()
    {
        QFETCH(QString, command);
        QFETCH(QString, unmountAt);
        QFETCH(QStringList, log);
        LoopVolume volume;
        QString why;
        if (!volume.mount(LoopVolume::FileSystem::ExFat, 32 * 1024 * 1024, &why))
            QSKIP(qPrintable(why));
        const QString root = volume.mountPoint();
        QVERIFY(layOutPreparedDrive(root, "1.0.0", "old"));
        auto bus = std::make_unique<LoopBus>();
        const QString device = QString::fromUtf8(QStorageInfo(root).device());
        bus->drives = {{device, device, "STICK", root + "/", "fuseblk", true, true}};
        const auto window = newWindow(std::move(bus));
        window->show();
        const int linesBefore = logLines(*window).size();
        bool mounted = true;
        const auto unmount = [&] { mounted = QProcess::execute("umount", {root}) != 0; };
        if (unmountAt == "click")
            unmount();
        QString seen;
        QTimer user;
        connect(&user, &QTimer::timeout, this, [&] {
            auto *dialog = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget());
            if (dialog && seen.isEmpty()) {
                QTest::keyClick(dialog, Qt::Key_Escape);
                dialog->close();
                for (const char *name :
                     {"Preparar unidade USB", "Verificar atualizações", "Atualizar lista", "Sair"})
                    controlNamed<QAction>(*window, name)->trigger();
                seen = dialog->isVisible() && window->isVisible() ? dialog->windowTitle() : "closed";
            }
            if (mounted && dialog && dialog->labelText().startsWith(unmountAt))
                unmount();
        });
        user.start(0);
        ModalAnswerer answerer;
        answerer.answer(log.isEmpty() ? QStringList{"OK"} : QStringList{"Sim", "OK"});
        controlNamed<QPushButton>(*window, command)->click();

        QTRY_COMPARE_WITH_TIMEOUT(logLines(*window).size(), linesBefore + log.size(), 60000);
        QCOMPARE(logLines(*window).mid(linesBefore), log);
        QCOMPARE(answerer.boxes().last().text, log.isEmpty() ? kMountFirst : log.last().section(": ", 1));
        QCOMPARE(seen, log.isEmpty() ? QString() : kBoxTitle);
        QCOMPARE(QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
    }

    // The program runs on a 1280 x 500 screen here.
    void windowFitsAShortScreen()
    {
        const auto window = newWindow(nullptr);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QCOMPARE(window->screen()->availableGeometry(), QRect(0, 0, 1280, 500));
        QVERIFY(window->screen()->availableGeometry().contains(window->frameGeometry()));
        const QWidget *log = window->findChild<QTextEdit *>();
        QVERIFY(log->parentWidget()->contentsRect().contains(log->geometry()));
    }

private:
    std::unique_ptr<ConfigWindow> newWindow(std::unique_ptr<Platform::DeviceManager> drives)
    {
        ConfigWindowSetup setup;
        setup.deviceManager = std::move(drives);
        setup.bundleSearchDirectory = m_dir.filePath("app");
        setup.updateManifestUrl = m_server.url(kManifestPath);
        return std::make_unique<ConfigWindow>(std::move(setup));
    }

    QTemporaryDir m_dir;
    HttpsServer m_server;
};

QTEST_MAIN(TestPrepareSafety)
#include "tst_preparesafety.moc"
