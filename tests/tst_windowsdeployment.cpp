#include "prepare/windowsdeployment.h"
#include "support/bundlefixture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::readFile;
using Fixture::writeFile;

namespace {

const QStringList kRuntimeLibraries = {"vcruntime140.dll", "vcruntime140_1.dll", "msvcp140.dll"};

QString missingRuntimeMessage(const QString &library)
{
    return QStringLiteral(
               "O bundle Windows não contém %1. Use o bundle oficial preparado com as DLLs MSVC ao lado do "
               "Tavrinox.exe.")
        .arg(library);
}

} // namespace

class TestWindowsDeployment : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }

    void executableLandsUnderItsFixedName_data()
    {
        QTest::addColumn<QString>("sourceName");
        QTest::addColumn<QString>("landedName");
        QTest::newRow("build tree name") << "TavrinoxApp.exe"
                                         << "Tavrinox.exe";
        QTest::newRow("upper-case extension") << "TAVRINOX.EXE"
                                              << "Tavrinox.exe";
        QTest::newRow("no extension") << "tavrinox-bin"
                                      << "Tavrinox";
        QTest::newRow("exe not at the end") << "app.exe.bak"
                                            << "Tavrinox";
    }
    void executableLandsUnderItsFixedName()
    {
        QFETCH(QString, sourceName);
        QFETCH(QString, landedName);
        const QString source = path("out/build/" + sourceName);
        QVERIFY(writeFile(source, "program"));
        QVERIFY(QDir().mkpath(path("drive")));
        QString copied;
        PreparationResult result;
        QVERIFY(copyExecutable(source, path("drive"), &copied, result));
        QCOMPARE(copied, path("drive/" + landedName));
        QCOMPARE(readFile(copied), QByteArray("program"));
        QCOMPARE(result.writtenPaths, QStringList({copied, copied}));
    }

    void executableFailuresAreNamed()
    {
        PreparationResult result;
        QString copied;
        QVERIFY(!copyExecutable(path("missing.exe"), path("drive"), &copied, result));
        QCOMPARE(result.message, "Executavel do Tavrinox nao encontrado: " + path("missing.exe"));

        QVERIFY(writeFile(path("app.exe"), "program"));
        QVERIFY(writeFile(path("drive/Tavrinox.exe/kept"), "kept"));
        QVERIFY(!copyExecutable(path("app.exe"), path("drive"), &copied, result));
        QCOMPARE(result.message, "Nao foi possivel copiar o executavel para: " + path("drive/Tavrinox.exe"));
        QVERIFY(copied.isEmpty());
        QCOMPARE(readFile(path("drive/Tavrinox.exe/kept")), QByteArray("kept"));
    }

    void withoutToolTheFolderIsCopiedAndItsLibrariesKept()
    {
        QVERIFY(Fixture::makeWindowsBundle(path("source"), {"msvcp140.dll"}));
        const QString target = path("drive/Tavrinox/windows");
        QVERIFY(QDir().mkpath(target));
        PreparationResult result;
        QString copied;
        QVERIFY(copyExecutable(path("source/Tavrinox.exe"), target, &copied, result));
        QVERIFY(deployWindowsRuntime(copied, path("source"), result, missingTool()));
        QCOMPARE(Fixture::treeContents(target), Fixture::visibleTreeContents(path("source")));

        QVERIFY(Fixture::ageTree(target));
        QVERIFY(copyWindowsLibraries(target, path("source"), result));
        QVERIFY(Fixture::hasOldTime(target + "/Qt6Core.dll"));
    }

    void toolRunsOnTheCopiedExecutable()
    {
        QVERIFY(Fixture::makeWindowsBundle(path("drive/windows")));
        const QString tool = standInTool("printf '%s\\n' \"$@\" > \"$(dirname \"$0\")/arguments\"\nexit 0\n");
        PreparationResult result;
        QVERIFY(
            deployWindowsRuntime(path("drive/windows/Tavrinox.exe"), path("source"), result, {tool, 60000}));
        QCOMPARE(
            QString::fromUtf8(readFile(path("tool/arguments"))).split('\n', Qt::SkipEmptyParts),
            QStringList({"--no-translations", "--no-compiler-runtime", path("drive/windows/Tavrinox.exe")}));
        QCOMPARE(result.writtenPaths, QStringList{path("drive/windows")});
    }

    // The tool deploys no compiler runtime, so the drive must already hold it.
    void toolPathNamesFirstMissingRuntimeLibrary_data()
    {
        QTest::addColumn<int>("present");
        QTest::newRow("none there") << 0;
        QTest::newRow("first there") << 1;
        QTest::newRow("two there") << 2;
    }
    void toolPathNamesFirstMissingRuntimeLibrary()
    {
        QFETCH(int, present);
        QVERIFY(writeFile(path("drive/windows/Tavrinox.exe"), "program"));
        for (int i = present; i < kRuntimeLibraries.size(); ++i)
            QVERIFY(writeFile(path("source/" + kRuntimeLibraries.at(i)), "runtime in the source only"));
        for (int i = 0; i < present; ++i)
            QVERIFY(writeFile(path("drive/windows/" + kRuntimeLibraries.at(i)), "runtime"));
        PreparationResult result;
        QVERIFY(!deployWindowsRuntime(path("drive/windows/Tavrinox.exe"), path("source"), result,
                                      {standInTool("exit 0\n"), 60000}));
        QCOMPARE(result.message, missingRuntimeMessage(kRuntimeLibraries.at(present)));
        QVERIFY(result.writtenPaths.isEmpty());
    }

    void failingToolReportsErrorThenStandardOutput_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("timeoutMs");
        QTest::addColumn<QString>("expectedMessage");
        QTest::newRow("exit code 1") << "printf 'saida\\n'\nprintf 'erro grave\\n' >&2\nexit 1\n"
                                     << 60000 << "windeployqt falhou: erro grave\nsaida\n";
        QTest::newRow("crash") << "printf 'antes\\n'\nkill -SEGV $$\n"
                               << 60000 << "windeployqt falhou: antes\n";
        // The limit is what ends this one: the stand-in would sleep far longer than the test may run.
        QTest::newRow("hangs past the limit") << "exec sleep 3600\n" << 500 << "windeployqt falhou: ";
    }
    void failingToolReportsErrorThenStandardOutput()
    {
        QFETCH(QString, script);
        QFETCH(int, timeoutMs);
        QFETCH(QString, expectedMessage);
        QVERIFY(writeFile(path("drive/windows/Tavrinox.exe"), "program"));
        PreparationResult result;
        QVERIFY(!deployWindowsRuntime(path("drive/windows/Tavrinox.exe"), path("source"), result,
                                      {standInTool(script), timeoutMs}));
        QCOMPARE(result.message, expectedMessage);
    }

    void librariesAreTheTopLevelDllsOnly()
    {
        QVERIFY(Fixture::makeWindowsBundle(path("source")));
        QVERIFY(QDir().mkpath(path("drive")));
        PreparationResult result;
        QVERIFY(copyWindowsLibraries(path("drive"), path("source"), result));
        QCOMPARE(
            QDir(path("drive")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name),
            QStringList(
                {"Qt6Core.dll", "Qt6Gui.dll", "msvcp140.dll", "vcruntime140.dll", "vcruntime140_1.dll"}));
        QCOMPARE(readFile(path("drive/Qt6Gui.dll")), readFile(path("source/Qt6Gui.dll")));

        result.writtenPaths.clear();
        QVERIFY(copyWindowsLibraries(path("source"), path("source"), result));
        QVERIFY(result.writtenPaths.isEmpty());
    }

    void failedLibraryIsNamed()
    {
        QVERIFY(writeFile(path("source/Qt6Gui.dll"), "library"));
        QVERIFY(writeFile(path("drive/Qt6Gui.dll/kept"), "kept"));
        PreparationResult result;
        QVERIFY(!copyWindowsLibraries(path("drive"), path("source"), result));
        QCOMPARE(result.message, QStringLiteral("Nao foi possivel copiar a biblioteca: Qt6Gui.dll"));
        QCOMPARE(readFile(path("drive/Qt6Gui.dll/kept")), QByteArray("kept"));
    }

    void bundleFolderOntoItselfIsKept()
    {
        QVERIFY(writeFile(path("bundle/Tavrinox.exe"), "program"));
        PreparationResult result;
        QVERIFY(copyBundleFolder(path("bundle/"), path("bundle"), result));
        QCOMPARE(result.writtenPaths, QStringList{path("bundle/")});
        QCOMPARE(QDir(path("bundle")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
                 QStringList{"Tavrinox.exe"});
    }

private:
    QString path(const QString &relative) const { return QDir(m_dir->path()).filePath(relative); }

    WindowsDeployTool missingTool() const { return {path("no-qt/bin/windeployqt.exe"), 60000}; }

    // A program in the deployment tool's place: a shell script under the tool's name.
    QString standInTool(const QString &body) const
    {
        const QString tool = path("tool/windeployqt.exe");
        if (!writeFile(tool, ("#!/bin/sh\n" + body).toUtf8()))
            return {};
        QFile::setPermissions(tool, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return tool;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(TestWindowsDeployment)
#include "tst_windowsdeployment.moc"
