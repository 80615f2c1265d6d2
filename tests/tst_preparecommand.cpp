#include "app/configwindow.h"
#include "buildconfig.h"
#include "prepare/drivetexts.h"
#include "support/bundlefixture.h"
#include "support/modalanswerer.h"
#include "support/testfiles.h"
#include "support/windowfixture.h"
#include "transaction/updatestate.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QProgressDialog>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Tavrinox::Platform::UsbDevice;
using namespace Fixture;

namespace {

const QString kTitle = QStringLiteral("Tavrinox - Gerenciador");
const QString kPrepared = QStringLiteral("USB preparado com estrutura portatil Tavrinox.");

// The steps the progress dialog showed (its label's first line) each time the event loop ran during the
// preparation, after its opening text.
struct ProgressWatch : QObject
{
    QStringList labels;
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
            const QString step = dialog->labelText().section(QLatin1Char('\n'), 0, 0);
            if (step != "Preparando unidade USB..." && (labels.isEmpty() || labels.last() != step))
                labels.append(step);
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

    // The checks come in a fixed order, then the question: each stop shows one box and leaves drive and
    // log alone. A %1 in a text stands for the drive's root.
    void stopsWithoutPreparing_data()
    {
        QTest::addColumn<bool>("withBundles");
        QTest::addColumn<int>("drives"); // 0: two usable, none selected; 1: one unmounted; 2: one usable
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("expectedTitle");
        QTest::addColumn<QString>("expectedText");
        QTest::addColumn<int>("expectedIcon");
        QTest::newRow("no bundle, checked before the selection")
            << false << 0 << "OK" << kTitle
            << "Compile pelo menos um bundle do Tavrinox antes de preparar a unidade."
            << int(QMessageBox::Warning);
        QTest::newRow("no drive selected")
            << true << 0 << "OK" << kTitle << "Selecione uma unidade USB primeiro."
            << int(QMessageBox::Information);
        QTest::newRow("listed but not mounted")
            << true << 1 << "OK" << kTitle
            << "Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar."
            << int(QMessageBox::Information);
        QTest::newRow("answered Não")
            << true << 2 << "Não"
            << "Preparar unidade USB"
            << "Preparar a estrutura Tavrinox em %1?\n\nA unidade não será formatada. Arquivos existentes do "
               "bundle Tavrinox podem ser substituídos."
            << int(QMessageBox::Question);
    }
    void stopsWithoutPreparing()
    {
        QFETCH(bool, withBundles);
        QFETCH(int, drives);
        QFETCH(QString, answer);
        QFETCH(QString, expectedTitle);
        QFETCH(QString, expectedText);
        QFETCH(int, expectedIcon);
        if (withBundles)
            placeBundles();
        const QList<QList<UsbDevice>> attached = {{mountedDrive(m_root), mountedDrive(path("other/"))},
                                                  {unmountedDrive("/dev/sdz1")},
                                                  {mountedDrive(m_root)}};
        const auto window = newWindow(attached.at(drives));
        // A lone unmounted drive is not selected by the refresh; the user picks it by hand.
        if (drives == 1)
            window->findChild<QComboBox *>()->setCurrentIndex(0);
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer({answer, "Sim"});

        clickPrepare(*window);

        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(answerer.boxes().at(0).title, expectedTitle);
        QCOMPARE(answerer.boxes().at(0).text, expectedText.replace(QLatin1String("%1"), m_root));
        QCOMPARE(int(answerer.boxes().at(0).icon), expectedIcon);
        QCOMPARE(logLines(*window), logBefore);
        QVERIFY(!QFileInfo::exists(path("drive/Tavrinox")));
    }

    // A failed preparation is logged and shown and records no state; a failed state write only warns.
    // An obstacle ending in "/" is a folder where a file goes, any other a file where a folder goes.
    // A %1 stands for the drive's folder.
    void failureIsLoggedAndShown_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::addColumn<QStringList>("expectedLog");
        QTest::addColumn<QString>("expectedText");
        QTest::addColumn<int>("expectedIcon");
        QTest::newRow("preparation fails")
            << "Tavrinox/windows" << QStringList{"Falha: Nao foi possivel criar a pasta: %1/Tavrinox/windows"}
            << "Nao foi possivel criar a pasta: %1/Tavrinox/windows" << int(QMessageBox::Warning);
        QTest::newRow("state write fails")
            << "Tavrinox/update-state.json/"
            << QStringList{"Unidade preparada: %1/",
                           "Aviso: Não foi possível abrir o arquivo de estado: %1/Tavrinox/update-state.json"}
            << kPrepared << int(QMessageBox::Information);
    }
    void failureIsLoggedAndShown()
    {
        QFETCH(QString, obstacle);
        QFETCH(QStringList, expectedLog);
        QFETCH(QString, expectedText);
        QFETCH(int, expectedIcon);
        placeBundles();
        if (obstacle.endsWith(QLatin1Char('/')))
            QVERIFY(QDir().mkpath(path("drive/" + obstacle)));
        else
            QVERIFY(writeFile(path("drive/" + obstacle), "a file where a folder goes"));
        const auto window = newWindow({mountedDrive(m_root)});
        const QStringList logBefore = logLines(*window);
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});

        clickPrepare(*window);

        expectedLog.replaceInStrings(QLatin1String("%1"), path("drive"));
        QCOMPARE(logLines(*window), logBefore + expectedLog);
        QCOMPARE(answerer.boxes().size(), 2);
        QCOMPARE(answerer.boxes().at(1).text, expectedText.replace(QLatin1String("%1"), path("drive")));
        QCOMPARE(int(answerer.boxes().at(1).icon), expectedIcon);
        QVERIFY(!QFileInfo(updateStatePath(m_root)).isFile());
    }

private:
    QString path(const QString &relative) const { return QDir(m_dir->path()).filePath(relative); }

    // Both builds where the window looks first: the bundles folder beside the program.
    void placeBundles()
    {
        QVERIFY(Fixture::makeWindowsBundle(path("app/bundles/windows-x64")));
        QVERIFY(Fixture::makeLinuxBundle(path("app/bundles/linux-x64")));
    }

    static void clickPrepare(const ConfigWindow &window)
    {
        controlNamed<QPushButton>(window, QStringLiteral("Preparar unidade USB"))->click();
    }

    std::unique_ptr<ConfigWindow> newWindow(QList<UsbDevice> drives) const
    {
        return windowWith(std::move(drives), path("app"));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_root;
};

QTEST_MAIN(TestPrepareCommand)
#include "tst_preparecommand.moc"
