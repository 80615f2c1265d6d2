#include "prepare/drivepreparer.h"
#include "prepare/drivetexts.h"
#include "support/bundlefixture.h"
#include "support/loopvolume.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::readFile;
using Fixture::writeFile;

namespace {

const QStringList kAllSteps = {"0/7 Validando unidade USB...",
                               "1/7 Criando estrutura de pastas...",
                               "2/7 Copiando bundle Windows...",
                               "3/7 Copiando bundle Linux...",
                               "5/7 Criando inicializador Windows...",
                               "6/7 Criando arquivos auxiliares...",
                               "7/7 Preparacao concluida."};

const QFile::Permissions kExecuteForAll =
    QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;

struct ProgressLog
{
    QStringList steps;
    PreparationProgress callback()
    {
        return [this](int step, int total, const QString &message) {
            steps.append(QStringLiteral("%1/%2 %3").arg(step).arg(total).arg(message));
        };
    }
};

// A preparer that finds no deployment tool, as on a build machine without Qt's Windows tools.
DrivePreparer preparerWithoutTool()
{
    return DrivePreparer({QStringLiteral("/nonexistent/qt/bin/windeployqt.exe"), 60000});
}

} // namespace

class TestDrivePreparer : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QVERIFY(Fixture::makeWindowsBundle(path("build/windows")));
        QVERIFY(Fixture::makeLinuxBundle(path("build/linux")));
        QVERIFY(writeFile(path("drive/tavrinox.susb"), "the user's container"));
        m_sources = {path("build/windows/Tavrinox.exe"), path("build/windows"), path("build/linux/Tavrinox"),
                     path("build/linux")};
    }

    void preparesBundlesLaunchersAndReadme()
    {
        ProgressLog progress;
        const PreparationResult result =
            preparerWithoutTool().prepare(path("drive"), m_sources, progress.callback());

        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(result.message, QStringLiteral("USB preparado com estrutura portatil Tavrinox."));
        QCOMPARE(progress.steps, kAllSteps);
        QCOMPARE(Fixture::treeContents(path("drive/Tavrinox/windows")),
                 Fixture::visibleTreeContents(path("build/windows")));
        QCOMPARE(Fixture::treeContents(path("drive/Tavrinox/linux")),
                 Fixture::visibleTreeContents(path("build/linux")));
        QCOMPARE(readFile(path("drive/Tavrinox-Windows.bat")), windowsLauncherText().toUtf8());
        QCOMPARE(readFile(path("drive/Tavrinox-Linux.sh")), linuxLauncherText().toUtf8());
        QCOMPARE(readFile(path("drive/Tavrinox/README.txt")), readmeText().toUtf8());
        QCOMPARE(readFile(path("drive/tavrinox.susb")), QByteArray("the user's container"));
        QCOMPARE(QFile::permissions(path("drive/Tavrinox-Linux.sh")) & kExecuteForAll, kExecuteForAll);
        QCOMPARE(QFile::permissions(path("drive/Tavrinox/linux/Tavrinox")),
                 QFile::permissions(path("build/linux/Tavrinox")));
        QCOMPARE(result.writtenPaths.mid(0, 3),
                 QStringList(
                     {path("drive/Tavrinox"), path("drive/Tavrinox/windows"), path("drive/Tavrinox/linux")}));
        QCOMPARE(result.writtenPaths.mid(result.writtenPaths.size() - 3),
                 QStringList({path("drive/Tavrinox-Windows.bat"), path("drive/Tavrinox-Linux.sh"),
                              path("drive/Tavrinox/README.txt")}));
    }

    void generatedTextsKeepTheirExactForm()
    {
        const QString bat = windowsLauncherText();
        const QString sh = linuxLauncherText();
        const QString readme = readmeText();
        QCOMPARE(bat.size(), 796);
        QCOMPARE(sh.size(), 911);
        QCOMPARE(readme.size(), 711);
        QCOMPARE(bat.count(QStringLiteral("\r\n")), bat.count(QLatin1Char('\n')));
        QVERIFY(bat.startsWith(QStringLiteral("@echo off\r\nsetlocal\r\nchcp 65001 >nul\r\n")));
        QVERIFY(bat.contains(QStringLiteral("\r\nset \"APP_DIR=%~dp0Tavrinox\\windows\"\r\n")));
        QVERIFY(bat.contains(QStringLiteral("\r\nstart \"Tavrinox\" \"Tavrinox.exe\"\r\nexit /b 0\r\n")));
        QVERIFY(bat.endsWith(QStringLiteral("\r\nif errorlevel 1 echo %MENSAGEM%\r\nexit /b 1\r\n")));
        QVERIFY(!sh.contains(QLatin1Char('\r')));
        QVERIFY(sh.startsWith(
            QStringLiteral("#!/bin/sh\nSCRIPT_DIR=\"$(CDPATH= cd -- \"$(dirname -- \"$0\")\" && pwd)\"\n")));
        QVERIFY(sh.contains(QStringLiteral("\n        printf 'Tavrinox: %s\\n' \"$1\" >&2\n")));
        QVERIFY(sh.contains(QStringLiteral(
            "\nexport LD_LIBRARY_PATH=\"$APP_DIR/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}\"\n")));
        QVERIFY(readme.startsWith(QStringLiteral("Tavrinox — unidade portátil\n\nRaiz da unidade USB:\n")));
        QVERIFY(
            readme.contains(QStringLiteral("\nEjete a unidade com segurança após concluir a operação.\n")));
    }

    void linuxOnlyLeavesWindowsFolderEmpty()
    {
        const PreparationSources linuxOnly{{}, {}, m_sources.linuxExecutable, m_sources.linuxDirectory};
        ProgressLog progress;
        const PreparationResult result =
            preparerWithoutTool().prepare(path("drive"), linuxOnly, progress.callback());
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(progress.steps, kAllSteps);
        QVERIFY(QDir(path("drive/Tavrinox/windows"))
                    .isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));
        QCOMPARE(readFile(path("drive/Tavrinox-Windows.bat")), windowsLauncherText().toUtf8());
    }

    void linuxFolderWithoutLibrariesGivesOnlyTheExecutable()
    {
        QVERIFY(writeFile(path("plain/tavrinox-x86_64"), "linux program"));
        QVERIFY(writeFile(path("plain/notes.txt"), "not part of a bundle"));
        QVERIFY(QFile::setPermissions(path("plain/tavrinox-x86_64"), QFile::ReadOwner | QFile::WriteOwner));
        const PreparationSources plain{{}, {}, path("plain/tavrinox-x86_64"), path("plain")};

        const PreparationResult result = preparerWithoutTool().prepare(path("drive"), plain);

        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(QDir(path("drive/Tavrinox/linux"))
                     .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                 QStringList{"Tavrinox"});
        QCOMPARE(readFile(path("drive/Tavrinox/linux/Tavrinox")), QByteArray("linux program"));
        QCOMPARE(QFile::permissions(path("drive/Tavrinox/linux/Tavrinox")) & kExecuteForAll, kExecuteForAll);
    }

    // Without msvcp140.dll the folder is assembled from the executable: the deployment tool, when the
    // Qt installation has one, runs before the libraries are copied, so a fresh drive lacks the runtime.
    void incompleteWindowsBundleIsAssembled_data()
    {
        QTest::addColumn<bool>("toolPresent");
        QTest::addColumn<QString>("expectedMessage");
        QTest::newRow("no tool: folder copied") << false << "USB preparado com estrutura portatil Tavrinox.";
        QTest::newRow("tool runs first") << true
                                         << "O bundle Windows não contém vcruntime140.dll. Use o bundle "
                                            "oficial preparado com as DLLs MSVC ao "
                                            "lado do Tavrinox.exe.";
    }
    void incompleteWindowsBundleIsAssembled()
    {
        QFETCH(bool, toolPresent);
        QFETCH(QString, expectedMessage);
        QVERIFY(Fixture::makeWindowsBundle(path("out"), {"msvcp140.dll", "Tavrinox.exe"}));
        QVERIFY(writeFile(path("out/TavrinoxApp.exe"), "windows program"));
        const QString tool = path("qt/bin/windeployqt.exe");
        if (toolPresent) {
            QVERIFY(writeFile(tool, "#!/bin/sh\nexit 0\n"));
            QVERIFY(QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner));
        }
        const PreparationSources sources{path("out/TavrinoxApp.exe"), {}, {}, {}};

        const PreparationResult result = DrivePreparer({tool, 60000}).prepare(path("drive"), sources);

        QCOMPARE(result.message, expectedMessage);
        QCOMPARE(readFile(path("drive/Tavrinox/windows/Tavrinox.exe")), QByteArray("windows program"));
        QCOMPARE(result.writtenPaths.count(path("drive/Tavrinox/windows/Tavrinox.exe")), 2);
        QCOMPARE(QFileInfo::exists(path("drive/Tavrinox/windows/Qt6Core.dll")), !toolPresent);
    }

    void drivePulledBeforeStartWritesNothing()
    {
        ProgressLog progress;
        const auto before = Fixture::treeContents(m_dir->path());
        const PreparationResult result =
            preparerWithoutTool().prepare(path("pulled"), m_sources, progress.callback());
        QVERIFY(!result.success);
        QCOMPARE(result.message, QStringLiteral("Unidade USB invalida."));
        QCOMPARE(progress.steps, kAllSteps.mid(0, 1));
        QVERIFY(result.writtenPaths.isEmpty());
        QVERIFY(!QFileInfo::exists(path("pulled")));
        QCOMPARE(Fixture::treeContents(m_dir->path()), before);
    }

    // Each fault stops the preparation with its message and leaves what the drive held as it was.
    void faultKeepsEarlierContent_data()
    {
        QTest::addColumn<QString>("blocker");
        QTest::addColumn<bool>("blockerIsFolder");
        QTest::addColumn<QString>("linuxExecutable");
        QTest::addColumn<QString>("expectedMessage");
        QTest::newRow("folder where a bundle file goes")
            << "Tavrinox/linux/qt.conf" << true << QString()
            << "Nao foi possivel criar o arquivo: %1/Tavrinox/linux/qt.conf";
        QTest::newRow("folder where a launcher goes")
            << "Tavrinox-Linux.sh" << true << QString()
            << "Nao foi possivel criar o arquivo: %1/Tavrinox-Linux.sh";
        QTest::newRow("file where the bundle folder goes")
            << "Tavrinox/windows" << false << QString()
            << "Nao foi possivel criar a pasta: %1/Tavrinox/windows";
        // Permission bits do not stop root; reading the process's own memory file fails for anyone.
        QTest::newRow("source that cannot be read")
            << "Tavrinox/linux/Tavrinox" << false << "/proc/self/mem"
            << "Nao foi possivel copiar o executavel para: %1/Tavrinox/linux/Tavrinox";
    }
    void faultKeepsEarlierContent()
    {
        QFETCH(QString, blocker);
        QFETCH(bool, blockerIsFolder);
        QFETCH(QString, linuxExecutable);
        QFETCH(QString, expectedMessage);
        if (!linuxExecutable.isEmpty()) {
            if (!QFile::exists(linuxExecutable))
                QSKIP("this system has no /proc/self/mem to fail a read with");
            QVERIFY(writeFile(path("plain/notes.txt"), "gives the folder a size"));
            m_sources.linuxExecutable = linuxExecutable;
            m_sources.linuxDirectory = path("plain");
        }
        const QString blockerPath = path("drive/" + blocker);
        QVERIFY(writeFile(blockerIsFolder ? blockerPath + "/kept" : blockerPath, "earlier content"));
        const auto before = Fixture::treeContents(path("drive"));

        const PreparationResult result = preparerWithoutTool().prepare(path("drive"), m_sources);

        QVERIFY(!result.success);
        QCOMPARE(result.message, expectedMessage.replace(QLatin1String("%1"), path("drive")));
        const auto after = Fixture::treeContents(path("drive"));
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            QCOMPARE(after.value(it.key()), it.value());
    }

    void rePreparingUnchangedDriveRewritesOnlyGeneratedFiles()
    {
        QVERIFY(preparerWithoutTool().prepare(path("drive"), m_sources).success);
        QVERIFY(writeFile(path("drive/Tavrinox/windows/plugin-from-older-bundle.dll"), "older"));
        QVERIFY(Fixture::ageTree(path("drive")));

        const PreparationResult again = preparerWithoutTool().prepare(path("drive"), m_sources);

        QVERIFY2(again.success, qPrintable(again.message));
        const QStringList generated = {"Tavrinox-Windows.bat", "Tavrinox-Linux.sh", "Tavrinox/README.txt"};
        QDirIterator it(path("drive"), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        int bundleFiles = 0;
        while (it.hasNext()) {
            const QString file = it.next();
            const bool isGenerated = generated.contains(QDir(path("drive")).relativeFilePath(file));
            QVERIFY2(Fixture::hasOldTime(file) != isGenerated, qPrintable(file));
            bundleFiles += isGenerated ? 0 : 1;
        }
        QCOMPARE(bundleFiles, 15);
        QCOMPARE(readFile(path("drive/Tavrinox/windows/plugin-from-older-bundle.dll")), QByteArray("older"));
    }

    void refusesRealVolumeShortOfSpaceOrFilledOverAQuarter()
    {
        LoopVolume volume;
        QString whyNot;
        if (!volume.mount(LoopVolume::FileSystem::ExFat, 16 * 1024 * 1024, &whyNot))
            QSKIP(qPrintable(whyNot));
        const QString drive = volume.mountPoint();
        QVERIFY(writeFile(drive + "/Tavrinox-Windows.bat", "launcher of an earlier preparation"));
        const qint64 total = QStorageInfo(drive).bytesTotal();
        const PreparationSources big{{}, {}, path("big/Tavrinox"), {}};

        QVERIFY(Fixture::makeSparseFile(big.linuxExecutable, total * 2));
        PreparationResult result = preparerWithoutTool().prepare(drive, big);
        QCOMPARE(result.message,
                 QStringLiteral("Espaco insuficiente na unidade USB.\n\nNecessario: %1 bytes\n"
                                "Disponivel: %2 bytes")
                     .arg(total * 2)
                     .arg(QStorageInfo(drive).bytesAvailable()));

        QVERIFY(Fixture::makeSparseFile(big.linuxExecutable, total / 4 + 1));
        result = preparerWithoutTool().prepare(drive, big);
        QCOMPARE(result.message,
                 QStringLiteral("A unidade USB nao e recomendada para Tavrinox.\n\nCapacidade: %1 "
                                "bytes\nBundle estimado: %2 bytes\n\nO bundle ocuparia mais de 25% "
                                "da unidade.")
                     .arg(total)
                     .arg(total / 4 + 1));
        QCOMPARE(readFile(drive + "/Tavrinox-Windows.bat"), QByteArray("launcher of an earlier preparation"));
        QVERIFY(
            QDir(drive + "/Tavrinox/linux").isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));

        // The same volume takes a bundle of sensible size, with no Unix permissions to carry over.
        result = preparerWithoutTool().prepare(drive,
                                               {{}, {}, m_sources.linuxExecutable, m_sources.linuxDirectory});
        QVERIFY2(result.success, qPrintable(result.message));
        QCOMPARE(Fixture::treeContents(drive + "/Tavrinox/linux"),
                 Fixture::visibleTreeContents(path("build/linux")));
        QCOMPARE(readFile(drive + "/Tavrinox-Windows.bat"), windowsLauncherText().toUtf8());
    }

    void readOnlyVolumeKeepsWhatItHeld()
    {
        LoopVolume volume;
        QString whyNot;
        if (!volume.mount(LoopVolume::FileSystem::Ext4, 16 * 1024 * 1024, &whyNot))
            QSKIP(qPrintable(whyNot));
        const QString drive = volume.mountPoint();
        const PreparationSources linuxOnly{{}, {}, m_sources.linuxExecutable, m_sources.linuxDirectory};
        QVERIFY(preparerWithoutTool().prepare(drive, linuxOnly).success);
        const auto before = Fixture::treeContents(drive);
        QVERIFY(writeFile(path("build/linux/qt.conf"), "[Paths]\nPrefix = .\nPlugins = plugins\n"));
        QProcess remount;
        remount.start(QStringLiteral("mount"), {"-o", "remount,ro", drive});
        QVERIFY(remount.waitForFinished(60000) && remount.exitCode() == 0);

        const PreparationResult result = preparerWithoutTool().prepare(drive, linuxOnly);

        QCOMPARE(result.message, "Nao foi possivel criar o arquivo: " + drive + "/Tavrinox/linux/qt.conf");
        QCOMPARE(Fixture::treeContents(drive), before);
    }

private:
    QString path(const QString &relative) const { return QDir(m_dir->path()).filePath(relative); }

    std::unique_ptr<QTemporaryDir> m_dir;
    PreparationSources m_sources;
};

QTEST_GUILESS_MAIN(TestDrivePreparer)
#include "tst_drivepreparer.moc"
