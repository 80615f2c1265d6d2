// How a preparation copies the bundles: each file replaced whole however the copy ends, progress by bytes,
// a stop between files that says what was left, and a window that keeps running while a large file copies.
#include "prepare/capacity.h"
#include "prepare/drivepreparer.h"
#include "support/bundlefixture.h"
#include "support/loopvolume.h"
#include "support/modalanswerer.h"
#include "support/testfiles.h"
#include "support/windowfixture.h"

#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QStorageInfo>
#include <QtTest>

using namespace Tavrinox;
using namespace Fixture;

class TestPrepareCopy : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(makeWindowsBundle(path("build/Tavrinox/windows")) &&
                makeLinuxBundle(path("build/Tavrinox/linux")) && QDir().mkpath(path("drive")));
        m_sources = {path("build/Tavrinox/windows/Tavrinox.exe"), path("build/Tavrinox/windows"),
                     path("build/Tavrinox/linux/Tavrinox"), path("build/Tavrinox/linux")};
    }

    // A child preparing a drive with older bundles (each file 20 KiB larger) is killed before each of its
    // file-system operations in turn, or a small real volume runs out of room while the Windows bundle is
    // written. Each file of the bundles is then its old self or its new self, and the next preparation
    // leaves exactly the new bundles, no temporary beside them.
    void eachFileIsOldOrNewAfterAnInterruptedCopy_data()
    {
        QTest::addColumn<bool>("full");
        QTest::newRow("killed") << false;
        QTest::newRow("volume full") << true;
    }
    void eachFileIsOldOrNewAfterAnInterruptedCopy()
    {
        QFETCH(bool, full);
        LoopVolume volume;
        QString why;
        if (full && !volume.mount(LoopVolume::FileSystem::Ext4, 16 * 1024 * 1024, &why))
            QSKIP(qPrintable(why));
        const QDir drive(full ? volume.mountPoint() : path("drive"));
        const QByteArray older(20480, 'o');
        const QMap<QString, QByteArray> newFiles = visibleTreeContents(path("build"));
        for (int killAt = 1;; ++killAt) {
            QVERIFY(QDir(drive.filePath("Tavrinox")).removeRecursively());
            for (const QString &file : newFiles.keys())
                QVERIFY(writeFile(drive.filePath(file), newFiles.value(file) + older));
            bool interrupted = true;
            if (full) {
                QVERIFY(writeFile(drive.filePath("filler"),
                                  QByteArray(QStorageInfo(drive).bytesAvailable() - 262144, 'f')));
                const QString message = DrivePreparer().prepare(drive.path(), m_sources).message;
                QVERIFY2(message.startsWith("Nao foi possivel gravar o arquivo: "), qPrintable(message));
                QVERIFY(QFile::remove(drive.filePath("filler")));
            } else {
                QProcess child;
                child.setEnvironment(QProcess::systemEnvironment() +
                                     QStringList{"LD_PRELOAD=" TAVRINOX_KILLSHIM_LIBRARY,
                                                 "TAVRINOX_KILLSHIM_SCOPE=" + drive.path() + "/",
                                                 "TAVRINOX_KILLSHIM_AT=" + QString::number(killAt)});
                child.start(TAVRINOX_TRANSACTION_CHILD,
                            {"prepare", drive.path(), m_sources.windowsDirectory, m_sources.linuxDirectory});
                QVERIFY(child.waitForFinished(60000));
                interrupted = child.exitStatus() == QProcess::CrashExit;
                QVERIFY2(interrupted || child.exitCode() == 0, child.readAllStandardError().constData());
            }
            for (auto [file, bytes] : newFiles.asKeyValueRange())
                QVERIFY2((QList{bytes, bytes + older}.contains(readFile(drive.filePath(file)))),
                         qPrintable(file));
            QVERIFY(DrivePreparer().prepare(drive.path(), m_sources).success);
            for (const QString bundle : {"windows", "linux"})
                QCOMPARE(treeContents(drive.filePath("Tavrinox/" + bundle)),
                         visibleTreeContents(path("build/Tavrinox/" + bundle)));
            if (full || !interrupted)
                break;
        }
    }

    // Asked before each file, the caller stops at the given question (never with 0). The bytes told, out of
    // those of both bundles, grow to what the bundles copied hold, naming each bundle at work; what was
    // copied stays, whole.
    void followsAndStopsBetweenFiles_data()
    {
        QTest::addColumn<int>("stopAt");
        QTest::addColumn<QStringList>("copied");
        QTest::addColumn<QString>("message");
        const QString stopped =
            "Preparacao interrompida. Nao foram copiados: %1os inicializadores e o README. "
            "Prepare a unidade novamente para concluir.";
        QTest::newRow("not stopped") << 0 << QStringList{"windows", "linux"}
                                     << "USB preparado com estrutura portatil Tavrinox.";
        QTest::newRow("before the first file")
            << 1 << QStringList()
            << stopped.arg("9 de 9 arquivo(s) do bundle Windows (1,6 MB); 4 de 4 arquivo(s) do bundle Linux "
                           "(1,2 MB); ");
        QTest::newRow("before the first Linux file")
            << 10 << QStringList{"windows"} << stopped.arg("4 de 4 arquivo(s) do bundle Linux (1,2 MB); ");
    }
    void followsAndStopsBetweenFiles()
    {
        QFETCH(int, stopAt);
        QFETCH(QStringList, copied);
        QFETCH(QString, message);
        int asked = 0;
        QList<qint64> done;
        QStringList named;
        const auto told = [&](const CopyProgress &progress) {
            done.append(progress.doneBytes);
            named.append(progress.bundle);
            QCOMPARE(progress.totalBytes, directorySize(path("build")));
        };
        const PreparationResult result = DrivePreparer().prepare(path("drive"), m_sources, {}, {},
                                                                 {told, [&] { return ++asked == stopAt; }});

        QCOMPARE(result.message, message);
        qint64 copiedBytes = 0;
        for (const QString bundle : {"windows", "linux"}) {
            const bool whole = copied.contains(bundle);
            copiedBytes += whole ? directorySize(path("build/Tavrinox/" + bundle)) : 0;
            QCOMPARE(treeContents(path("drive/Tavrinox/" + bundle)),
                     whole ? visibleTreeContents(path("build/Tavrinox/" + bundle))
                           : decltype(treeContents({}))());
        }
        named.removeDuplicates();
        QCOMPARE(named.join(' ').toLower(), copied.join(' '));
        QVERIFY(std::is_sorted(done.cbegin(), done.cend()));
        QCOMPARE(done.value(done.size() - 1), copiedBytes);
    }

    // While a large file copies, the window's event loop keeps running and the dialog, naming the bundle,
    // shows the megabytes copied of those to copy and moves its bar with them.
    void dialogKeepsRunningWhileALargeFileCopies()
    {
        QVERIFY(makeLinuxBundle(path("app/bundles/linux-x64")) &&
                makeSparseFile(path("app/bundles/linux-x64/lib/libbig.so"), 128 * 1024 * 1024));
        const auto window = windowWith({mountedDrive(path("drive/"))}, path("app"));
        ModalAnswerer answerer;
        answerer.answer({"Sim", "OK"});
        QList<int> values;
        QTimer watch;
        connect(&watch, &QTimer::timeout, this, [&] {
            const auto *dialog = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget());
            if (dialog && dialog->labelText().contains(
                              QRegularExpression("^Copiando bundle Linux...\n[0-9,]+ de 129,2 MB$")))
                values.append(dialog->value());
        });
        watch.start(0);
        controlNamed<QPushButton>(*window, "Preparar unidade USB")->click();

        QCOMPARE(answerer.boxes().last().text, "USB preparado com estrutura portatil Tavrinox.");
        QVERIFY(QSet<int>(values.cbegin(), values.cend()).size() > 3 &&
                std::is_sorted(values.cbegin(), values.cend()) && values.last() < 1000);
    }

private:
    QString path(const QString &relative) const { return QDir(m_dir->path()).filePath(relative); }

    std::unique_ptr<QTemporaryDir> m_dir;
    PreparationSources m_sources;
};

QTEST_MAIN(TestPrepareCopy)
#include "tst_preparecopy.moc"
