#include "prepare/filecopy.h"
#include "support/bundlefixture.h"
#include "support/testfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::readFile;
using Fixture::writeFile;

class TestFileCopy : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }

    void copiesBytesAndPermissions()
    {
        const QString source = path("source.bin");
        const QString destination = path("destination.bin");
        QByteArray bytes(3 * 1024 * 1024 + 17, '\0');
        for (int i = 0; i < bytes.size(); ++i)
            bytes[i] = char(i * 31 % 251);
        QVERIFY(writeFile(source, bytes));
        const QFile::Permissions permissions =
            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup;
        QVERIFY(QFile::setPermissions(source, permissions));

        PreparationResult result;
        QVERIFY(copyFile(source, destination, result));

        QCOMPARE(readFile(destination), bytes);
        QCOMPARE(QFile::permissions(destination), QFile::permissions(source));
        QCOMPARE(result.writtenPaths, QStringList{destination});
        QVERIFY(result.message.isEmpty());
    }

    // A destination that is the source itself, or of the same size, is left as it is; any other is rewritten.
    void rewritesOnlyADestinationOfOtherSize_data()
    {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QByteArray>("earlier");
        QTest::addColumn<bool>("kept");
        QTest::newRow("same absolute path") << "sub/../bundle.dll" << QByteArray() << true;
        QTest::newRow("same size, other bytes") << "drive.dll" << QByteArray("old content") << true;
        QTest::newRow("other size") << "drive.dll" << QByteArray("v1") << false;
    }
    void rewritesOnlyADestinationOfOtherSize()
    {
        QFETCH(QString, destination);
        QFETCH(QByteArray, earlier);
        QFETCH(bool, kept);
        QVERIFY(writeFile(path("bundle.dll"), "new content"));
        QVERIFY(QDir().mkpath(path("sub")));
        if (!earlier.isEmpty())
            QVERIFY(writeFile(path(destination), earlier));
        const QByteArray before = readFile(path(destination));
        QVERIFY(Fixture::ageTree(m_dir->path()));

        PreparationResult result;
        QVERIFY(copyFile(path("bundle.dll"), path(destination), result));

        QCOMPARE(readFile(path(destination)), kept ? before : QByteArray("new content"));
        QCOMPARE(Fixture::hasOldTime(path(destination)), kept);
        QCOMPARE(result.writtenPaths, QStringList{path(destination)});
    }

    // Each failure names what failed and leaves the earlier destination as it was.
    void failedCopyKeepsEarlierDestination_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QString>("expectedMessage");
        // Permission bits do not stop root, so unreadable sources are a directory (open fails) and
        // the process's own memory file (open succeeds, the first read fails).
        QTest::newRow("source cannot be opened") << "folder.dll"
                                                 << "drive.dll"
                                                 << "Nao foi possivel copiar o arquivo: folder.dll";
        QTest::newRow("source fails while read") << "/proc/self/mem"
                                                 << "drive.dll"
                                                 << "Nao foi possivel ler o arquivo: mem";
        QTest::newRow("destination is a directory") << "source.dll"
                                                    << "taken"
                                                    << "Nao foi possivel criar o arquivo: %1/taken";
        QTest::newRow("destination folder is a file")
            << "source.dll"
            << "drive.dll/inner.dll"
            << "Nao foi possivel criar o arquivo: %1/drive.dll/inner.dll";
    }
    void failedCopyKeepsEarlierDestination()
    {
        QFETCH(QString, source);
        QFETCH(QString, destination);
        QFETCH(QString, expectedMessage);
        if (source.startsWith("/proc/") && !QFile::exists(source))
            QSKIP("this system has no /proc/self/mem to fail a read with");
        QVERIFY(QDir().mkpath(path("folder.dll")));
        QVERIFY(writeFile(path("taken/keep.txt"), "kept"));
        QVERIFY(writeFile(path("source.dll"), "a longer new library"));
        QVERIFY(writeFile(path("drive.dll"), "old library"));
        const auto before = Fixture::treeContents(m_dir->path());

        PreparationResult result;
        result.writtenPaths = QStringList{"earlier"};
        QVERIFY(!copyFile(path(source), path(destination), result));

        QCOMPARE(result.message, expectedMessage.replace(QLatin1String("%1"), m_dir->path()));
        QCOMPARE(result.writtenPaths, QStringList{"earlier"});
        QCOMPARE(Fixture::treeContents(m_dir->path()), before);
    }

    void copiesTreeWithoutHiddenEntries()
    {
        QVERIFY(Fixture::makeWindowsBundle(path("source")));
        QVERIFY(writeFile(path("source/.cache/index"), "hidden folder"));
        QVERIFY(QDir().mkpath(path("source/empty")));
        QVERIFY(QFile::link(path("source/platforms"), path("source/linked")));
        const QString target = path("drive/Tavrinox/windows");

        PreparationResult result;
        QVERIFY(copyDirectory(path("source"), target, result));

        // A link to a folder arrives as a real folder with the linked files.
        auto expected = Fixture::visibleTreeContents(path("source"));
        expected.insert("linked/qwindows.dll", readFile(path("source/platforms/qwindows.dll")));
        QCOMPARE(Fixture::treeContents(target), expected);
        QVERIFY(QFileInfo(target + "/empty").isDir());
        QVERIFY(!QFileInfo(target + "/linked").isSymLink());
        QCOMPARE(result.writtenPaths.first(), target);
        QVERIFY(result.writtenPaths.contains(target + "/platforms/qwindows.dll"));
        QVERIFY(!result.writtenPaths.contains(target + "/.build-id"));
    }

    void missingSourceFolderIsNamed()
    {
        PreparationResult result;
        QVERIFY(!copyDirectory(path("nowhere"), path("target"), result));
        QCOMPARE(result.message, "Pasta de origem nao encontrada: " + path("nowhere"));
        QVERIFY(!QFileInfo::exists(path("target")));
    }

    void treeCopyStopsAtFirstFailure()
    {
        QVERIFY(writeFile(path("source/lib/libQt6Core.so.6"), "library"));
        QVERIFY(writeFile(path("target/lib"), "a file where the folder goes"));
        PreparationResult result;
        QVERIFY(!copyDirectory(path("source"), path("target"), result));
        QCOMPARE(result.message, "Nao foi possivel criar a pasta: " + path("target/lib"));
        QCOMPARE(readFile(path("target/lib")), QByteArray("a file where the folder goes"));
    }

    void writesTextAsUtf8WithoutMark()
    {
        const QString readme = path("README.txt");
        QVERIFY(writeFile(readme, "older and longer text that must go entirely"));
        PreparationResult result;
        QVERIFY(writeTextFile(readme, QStringLiteral("Tavrinox — unidade portátil\n"), result));
        // Text mode: Windows writes the line feed as CR LF, other systems as it is.
        const QByteArray lineEnd = QSysInfo::productType() == QLatin1String("windows") ? "\r\n" : "\n";
        QCOMPARE(readFile(readme), "Tavrinox \xe2\x80\x94 unidade port\xc3\xa1til" + lineEnd);
        QCOMPARE(result.writtenPaths, QStringList{readme});
    }

    void textWriteFailuresAreNamed_data()
    {
        QTest::addColumn<QString>("relativePath");
        QTest::newRow("path is a directory") << "folder";
        QTest::newRow("parent is a file") << "file/README.txt";
    }
    void textWriteFailuresAreNamed()
    {
        QFETCH(QString, relativePath);
        QVERIFY(writeFile(path("folder/keep"), "kept"));
        QVERIFY(writeFile(path("file"), "kept too"));
        const auto before = Fixture::treeContents(m_dir->path());
        PreparationResult result;
        QVERIFY(!writeTextFile(path(relativePath), "text", result));
        QCOMPARE(result.message, "Nao foi possivel criar o arquivo: " + path(relativePath));
        QCOMPARE(Fixture::treeContents(m_dir->path()), before);
    }

    void ensuresNestedDirectoriesOrNamesTheBlocker()
    {
        PreparationResult result;
        QVERIFY(ensureDirectory(path("a/b/c"), result));
        QVERIFY(ensureDirectory(path("a/b/c"), result));
        QVERIFY(QFileInfo(path("a/b/c")).isDir());
        QVERIFY(writeFile(path("blocker"), "x"));
        QVERIFY(!ensureDirectory(path("blocker/d"), result));
        QCOMPARE(result.message, "Nao foi possivel criar a pasta: " + path("blocker/d"));
        QCOMPARE(result.writtenPaths, QStringList({path("a/b/c"), path("a/b/c")}));
    }

private:
    QString path(const QString &relative) const { return QDir(m_dir->path()).filePath(relative); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(TestFileCopy)
#include "tst_filecopy.moc"
