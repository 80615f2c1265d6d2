#include "app/configwindow.h"
#include "buildconfig.h"
#include "prepare/drivetexts.h"
#include "support/bundlefixture.h"
#include "support/modalanswerer.h"
#include "transaction/updatestate.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QProgressDialog>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

using namespace Tavrinox;
using Fixture::readFile;
using Tavrinox::Platform::UsbDevice;

namespace {

const QString kTitle = QStringLiteral("Tavrinox - Gerenciador");
const QString kPrepared = QStringLiteral("USB preparado com estrutura portatil Tavrinox.");

// Stands in for the USB bus: the test decides which drives are attached.
class FixedDrives final : public Platform::DeviceManager
{
public:
    explicit FixedDrives(QList<UsbDevice> drives)
        : m_drives(std::move(drives))
    {}
    QList<UsbDevice> listUsbDevices() const override { return m_drives; }

private:
    QList<UsbDevice> m_drives;
};

UsbDevice mountedDrive(const QString &root)
{
    return UsbDevice{root, root, QStringLiteral("PENDRIVE"), root, QStringLiteral("exFAT"), true, true};
}

UsbDevice unmountedDrive()
{
    return UsbDevice{QStringLiteral("sdz1"),
                     QStringLiteral("/dev/sdz1"),
                     QStringLiteral("PENDRIVE"),
                     QString(),
                     QString(),
                     true,
                     false};
}

QStringList logLines(const ConfigWindow &window)
{
    return window.findChild<QTextEdit *>()->toPlainText().split(QLatin1Char('\n'));
}

void clickPrepare(const ConfigWindow &window)
{
    for (QPushButton *button : window.findChildren<QPushButton *>()) {
        if (button->text() == QLatin1String("Preparar unidade USB"))
            button->click();
    }
}

// What the progress dialog showed each time the event loop ran during the preparation. The dialog
// itself runs the event loop when its value changes, so a label can be seen with the next value.
struct ProgressWatch : QObject
{
    QStringList labels;
    QSet<int> values;
    int maximum = 0;
    bool applicationModal = true;
    bool hadCancelButton = false;

    ProgressWatch()
    {
        auto *timer = new QTimer(this);
        timer->setInterval(0);
        connect(timer, &QTimer::timeout, this, [this] {
            auto *dialog = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget());
            if (!dialog)
                return;
            applicationModal = applicationModal && dialog->windowModality() == Qt::ApplicationModal;
            hadCancelButton = hadCancelButton || dialog->findChild<QPushButton *>();
            maximum = dialog->maximum();
            values.insert(dialog->value());
            if (labels.isEmpty() || labels.last() != dialog->labelText())
                labels.append(dialog->labelText());
        });
        timer->start();
    }
};

} // namespace

class TestPrepareCommand : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QVERIFY(QDir().mkpath(path("drive")));
        QVERIFY(Fixture::writeFile(path("drive/tavrinox.susb"), "the user's container"));
        m_root = path("drive") + QLatin1Char('/');
    }

    void preparesDriveFromButtonToFinalBox()
    {
        placeBundles();
        const auto window = newWindow({mountedDrive(m_root)});
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});
        ProgressWatch progress;

        clickPrepare(*window);

        QCOMPARE(answerer.boxes().size(), 2);
        const ShownBox question = answerer.boxes().at(0);
        QCOMPARE(question.title, QStringLiteral("Preparar unidade USB"));
        QCOMPARE(question.text,
                 "Preparar a estrutura Tavrinox em " + m_root +
                     "?\n\nA unidade não será formatada. Arquivos existentes do bundle Tavrinox "
                     "podem ser substituídos.");
        QCOMPARE(question.icon, QMessageBox::Question);
        QCOMPARE(question.buttons, QStringList({"Sim", "Não"}));
        QCOMPARE(question.defaultButton, QStringLiteral("Não"));
        const ShownBox done = answerer.boxes().at(1);
        QCOMPARE(done.title, kTitle);
        QCOMPARE(done.text, kPrepared);
        QCOMPARE(done.icon, QMessageBox::Information);

        QCOMPARE(logLines(*window), logBefore + QStringList({"Unidade preparada: " + m_root,
                                                             "Estado de atualização registrado: " +
                                                                 path("drive/Tavrinox/update-state.json")}));
        // The dialog closes itself on reaching its maximum, so the closing text is never on screen.
        QCOMPARE(progress.labels,
                 QStringList({"Validando unidade USB...", "Criando estrutura de pastas...",
                              "Copiando bundle Windows...", "Copiando bundle Linux...",
                              "Criando inicializador Windows...", "Criando arquivos auxiliares..."}));
        QCOMPARE(progress.values - QSet<int>{0}, QSet<int>({1, 2, 3, 5, 6, 7}));
        QCOMPARE(progress.maximum, 7);
        QVERIFY(progress.applicationModal);
        QVERIFY(!progress.hadCancelButton);
        QVERIFY(!window->findChild<QProgressDialog *>());

        QCOMPARE(Fixture::treeContents(path("drive/Tavrinox/windows")),
                 Fixture::visibleTreeContents(path("app/bundles/windows-x64")));
        QCOMPARE(Fixture::treeContents(path("drive/Tavrinox/linux")),
                 Fixture::visibleTreeContents(path("app/bundles/linux-x64")));
        QCOMPARE(readFile(path("drive/Tavrinox-Windows.bat")), windowsLauncherText().toUtf8());
        QCOMPARE(readFile(path("drive/Tavrinox-Linux.sh")), linuxLauncherText().toUtf8());
        QCOMPARE(readFile(path("drive/Tavrinox/README.txt")), readmeText().toUtf8());
        QCOMPARE(readFile(path("drive/tavrinox.susb")), QByteArray("the user's container"));
        QCOMPARE(readInstalledVersion(m_root), QStringLiteral("1.0.5"));
    }

    // The checks come in a fixed order; each refusal shows one box and leaves drive and log alone.
    void refusesBeforeAsking_data()
    {
        QTest::addColumn<bool>("withBundles");
        QTest::addColumn<int>("drives");
        QTest::addColumn<QString>("expectedText");
        QTest::addColumn<int>("expectedIcon");
        QTest::newRow("no bundle, checked before the selection")
            << false << 0 << "Compile pelo menos um bundle do Tavrinox antes de preparar a unidade."
            << int(QMessageBox::Warning);
        QTest::newRow("no drive selected")
            << true << 0 << "Selecione uma unidade USB primeiro." << int(QMessageBox::Information);
        QTest::newRow("listed but not mounted")
            << true << 1
            << "Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar."
            << int(QMessageBox::Information);
    }
    void refusesBeforeAsking()
    {
        QFETCH(bool, withBundles);
        QFETCH(int, drives);
        QFETCH(QString, expectedText);
        QFETCH(int, expectedIcon);
        if (withBundles)
            placeBundles();
        // Two usable drives leave nothing selected; a lone unmounted one is selected by hand.
        const auto window = drives == 0 ? newWindow({mountedDrive(m_root), mountedDrive(path("other/"))})
                                        : newWindow({unmountedDrive()});
        if (drives == 1)
            window->findChild<QComboBox *>()->setCurrentIndex(0);
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer({"OK", "Sim"});

        clickPrepare(*window);

        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(answerer.boxes().at(0).title, kTitle);
        QCOMPARE(answerer.boxes().at(0).text, expectedText);
        QCOMPARE(int(answerer.boxes().at(0).icon), expectedIcon);
        QCOMPARE(logLines(*window), logBefore);
        QVERIFY(!QFileInfo::exists(path("drive/Tavrinox")));
    }

    void answeringNoChangesNothing()
    {
        placeBundles();
        const auto window = newWindow({mountedDrive(m_root)});
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer("Não");

        clickPrepare(*window);

        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(logLines(*window), logBefore);
        QVERIFY(!QFileInfo::exists(path("drive/Tavrinox")));
    }

    void failedPreparationIsLoggedAndShown()
    {
        placeBundles();
        QVERIFY(Fixture::writeFile(path("drive/Tavrinox/windows"), "a file where the bundle folder goes"));
        const auto window = newWindow({mountedDrive(m_root)});
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});

        clickPrepare(*window);

        const QString message = "Nao foi possivel criar a pasta: " + path("drive/Tavrinox/windows");
        QCOMPARE(logLines(*window), logBefore + QStringList{"Falha: " + message});
        QCOMPARE(answerer.boxes().size(), 2);
        QCOMPARE(answerer.boxes().at(1).text, message);
        QCOMPARE(answerer.boxes().at(1).icon, QMessageBox::Warning);
        QVERIFY(!QFileInfo::exists(updateStatePath(m_root)));
    }

    void failedStateWriteIsOnlyAWarning()
    {
        placeBundles();
        QVERIFY(QDir().mkpath(path("drive/Tavrinox/update-state.json")));
        const auto window = newWindow({mountedDrive(m_root)});
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});

        clickPrepare(*window);

        QCOMPARE(logLines(*window),
                 logBefore + QStringList({"Unidade preparada: " + m_root,
                                          "Aviso: Não foi possível abrir o arquivo de estado: " +
                                              path("drive/Tavrinox/update-state.json")}));
        QCOMPARE(answerer.boxes().size(), 2);
        QCOMPARE(answerer.boxes().at(1).text, kPrepared);
        QCOMPARE(answerer.boxes().at(1).icon, QMessageBox::Information);
    }

private:
    QString path(const QString &relative) const { return QDir(m_dir->path()).filePath(relative); }

    // Both builds where the window looks first: the bundles folder beside the program.
    void placeBundles()
    {
        QVERIFY(Fixture::makeWindowsBundle(path("app/bundles/windows-x64")));
        QVERIFY(Fixture::makeLinuxBundle(path("app/bundles/linux-x64")));
    }

    std::unique_ptr<ConfigWindow> newWindow(QList<UsbDevice> drives) const
    {
        ConfigWindowSetup setup;
        setup.deviceManager = std::make_unique<FixedDrives>(std::move(drives));
        setup.bundleSearchDirectory = path("app");
        return std::make_unique<ConfigWindow>(std::move(setup));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_root;
};

QTEST_MAIN(TestPrepareCommand)
#include "tst_preparecommand.moc"
