#include "support/standinprogram.h"
#include "support/zippackage.h"
#include "update/zipextraction.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using namespace Tavrinox;

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestZipExtraction : public QObject
{
    Q_OBJECT
private slots:
    void quotesForPowerShell_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("quoted");
        QTest::newRow("plain") << "E:/Tavrinox/.update-1/package.zip"
                               << "'E:/Tavrinox/.update-1/package.zip'";
        QTest::newRow("one quote") << "E:/it's"
                                   << "'E:/it''s'";
        QTest::newRow("quotes at both ends") << "'x'"
                                             << "'''x'''";
        QTest::newRow("empty") << ""
                               << "''";
    }
    void quotesForPowerShell()
    {
        QFETCH(QString, text);
        QFETCH(QString, quoted);
        QCOMPARE(quoteForPowerShell(text), quoted);
    }

    void powerShellExpandsWithTheSixArguments_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::newRow("plain folder") << "drive";
        QTest::newRow("single quote in the path") << "it's drive";
    }
    void powerShellExpandsWithTheSixArguments()
    {
        QFETCH(QString, folder);
        StandInPrograms programs;
        QVERIFY(programs.install(QStringLiteral("powershell")));
        QTemporaryDir temp;
        const QString zip = temp.filePath(folder + "/package.zip");
        const QString dest = temp.filePath(folder + "/extracted");
        QVERIFY(tavrinoxPackage("new").save(zip));
        QVERIFY(QDir().mkpath(dest));

        QString error;
        QVERIFY2(runPowerShellExtraction(zip, dest, kPowerShellExtractTimeoutMs, &error), qPrintable(error));
        QCOMPARE(programs.recordedArguments(),
                 QStringList({"-NoProfile", "-ExecutionPolicy", "Bypass", "-NonInteractive", "-Command",
                              QStringLiteral("Expand-Archive -LiteralPath %1 -DestinationPath %2 -Force")
                                  .arg(quoteForPowerShell(zip), quoteForPowerShell(dest))}));
        QCOMPARE(readFile(dest + "/Tavrinox/linux/Tavrinox"), bundleFileContent("new", "linux/Tavrinox"));
    }

    void powerShellFailureReportsErrorThenOutput()
    {
        StandInPrograms programs;
        QVERIFY(programs.install(QStringLiteral("powershell")));
        programs.setMode("fail");
        QTemporaryDir temp;
        QString error;
        QVERIFY(!runPowerShellExtraction(temp.filePath("package.zip"), temp.path(),
                                         kPowerShellExtractTimeoutMs, &error));
        QCOMPARE(error,
                 QStringLiteral("Falha ao extrair ZIP: Expand-Archive: arquivo corrompido\nsaida parcial\n"));
    }

    void powerShellThatHangsIsStoppedAtTheLimit()
    {
        StandInPrograms programs;
        QVERIFY(programs.install(QStringLiteral("powershell")));
        programs.setMode("hang");
        QTemporaryDir temp;
        QString error;
        QVERIFY(!runPowerShellExtraction(temp.filePath("package.zip"), temp.path(), 1000, &error));
        QCOMPARE(error, QStringLiteral("Falha ao extrair ZIP: iniciando\n"));
    }

    void missingPowerShellFails()
    {
        QVERIFY(QStandardPaths::findExecutable(QStringLiteral("powershell")).isEmpty());
        QTemporaryDir temp;
        QString error;
        QVERIFY(!runPowerShellExtraction(temp.filePath("package.zip"), temp.path(),
                                         kPowerShellExtractTimeoutMs, &error));
        QCOMPARE(error, QStringLiteral("Falha ao extrair ZIP: "));
    }

    void extractsAPackageWithItsModes()
    {
        QTemporaryDir temp;
        const QString zip = temp.filePath("package.zip");
        QVERIFY(tavrinoxPackage("new").directory("Tavrinox/linux/empty/").save(zip));
        const QString dest = temp.filePath("work/extracted");

        QString error;
        QVERIFY2(extractZip(zip, dest, &error), qPrintable(error));
        for (const QByteArray &file : tavrinoxBundleFiles())
            QCOMPARE(readFile(dest + "/Tavrinox/" + file), bundleFileContent("new", file));
        QVERIFY(QFileInfo(dest + "/Tavrinox/linux/empty").isDir());
        QVERIFY(QFileInfo(dest + "/Tavrinox/linux/Tavrinox").isExecutable());
    }

    void unmakeableStagingIsNamed()
    {
        QTemporaryDir temp;
        QVERIFY(QFile(temp.filePath("occupied")).open(QIODevice::WriteOnly));
        const QString dest = temp.filePath("occupied/extracted");
        QString error;
        QVERIFY(!extractZip(temp.filePath("package.zip"), dest, &error));
        QCOMPARE(error, QStringLiteral("Não foi possível criar staging: %1").arg(dest));
    }

    void refusesHostileArchiveBeforeWritingAnything_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<QString>("reason");
        QTest::newRow("zip-slip") << QByteArray("file") << QByteArray("../outside.txt")
                                  << "entrada que sai do diretório de destino: ../outside.txt";
        QTest::newRow("zip-slip deeper")
            << QByteArray("file") << QByteArray("Tavrinox/../../outside.txt")
            << "entrada que sai do diretório de destino: Tavrinox/../../outside.txt";
        // Windows separators reach the check as slashes.
        QTest::newRow("zip-slip with backslashes")
            << QByteArray("file") << QByteArray("Tavrinox\\..\\..\\x")
            << "entrada que sai do diretório de destino: Tavrinox/../../x";
        QTest::newRow("absolute") << QByteArray("file") << QByteArray("ABSOLUTE")
                                  << "entrada com caminho absoluto: ABSOLUTE";
        QTest::newRow("drive letter") << QByteArray("file") << QByteArray("C:/outside.txt")
                                      << "entrada com caminho absoluto: C:/outside.txt";
        QTest::newRow("symbolic link") << QByteArray("symlink") << QByteArray("Tavrinox/linux/lib/link")
                                       << "entrada que é link simbólico: Tavrinox/linux/lib/link";
        QTest::newRow("device") << QByteArray("device") << QByteArray("Tavrinox/linux/tty")
                                << "entrada que é dispositivo ou arquivo especial: Tavrinox/linux/tty";
    }
    void refusesHostileArchiveBeforeWritingAnything()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, entry);
        QFETCH(QString, reason);
        QTemporaryDir temp;
        const QString outside = temp.filePath("outside.txt");
        const QByteArray absolute = QFile::encodeName(outside);
        entry.replace("ABSOLUTE", absolute);
        reason.replace("ABSOLUTE", QString::fromUtf8(absolute));

        // The good files come first: a refusal after writing them would leave them behind.
        ZipBuilder package = tavrinoxPackage("new");
        if (kind == "symlink")
            package.symlink(entry, QFile::encodeName(temp.path()));
        else if (kind == "device")
            package.characterDevice(entry);
        else
            package.file(entry, "escaped");
        const QString zip = temp.filePath("work/package.zip");
        QVERIFY(package.save(zip));
        const QString dest = temp.filePath("work/a/extracted");

        QString error;
        QVERIFY(!extractZip(zip, dest, &error));
        QCOMPARE(error, "Falha ao extrair ZIP: " + reason);
        QCOMPARE(driveSnapshot(temp.path()).keys(),
                 QStringList({"work", "work/a", "work/a/extracted", "work/package.zip"}));
    }

    void hardLinkEntryNeverLinksToAnything()
    {
        QTemporaryDir temp;
        const QString zip = temp.filePath("package.zip");
        QVERIFY(ZipBuilder().file("target.txt", "original").hardLink("link.txt", "target.txt").save(zip));
        const QString dest = temp.filePath("extracted");

        QString error;
        QVERIFY2(extractZip(zip, dest, &error), qPrintable(error));
        struct stat target;
        QCOMPARE(::stat(QFile::encodeName(dest + "/target.txt").constData(), &target), 0);
        QCOMPARE(target.st_nlink, nlink_t(1));
        QCOMPARE(readFile(dest + "/target.txt"), QByteArray("original"));
    }
};

QTEST_GUILESS_MAIN(TestZipExtraction)
#include "tst_zipextraction.moc"
