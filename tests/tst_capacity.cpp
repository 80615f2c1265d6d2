#include "prepare/capacity.h"
#include "support/bundlefixture.h"
#include "support/loopvolume.h"

#include <QDir>
#include <QFile>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::writeFile;

namespace {

const QString kNoBundle = QStringLiteral("Nenhum bundle valido foi encontrado para preparar a unidade USB.");

QString noSpace(qint64 needed, qint64 available)
{
    return QStringLiteral("Espaco insuficiente na unidade USB.\n\nNecessario: %1 bytes\nDisponivel: %2 bytes")
        .arg(needed)
        .arg(available);
}

QString overAQuarter(qint64 total, qint64 estimate)
{
    return QStringLiteral(
               "A unidade USB nao e recomendada para Tavrinox.\n\nCapacidade: %1 bytes\nBundle estimado: "
               "%2 bytes\n\nO bundle ocuparia mais de 25% da unidade.")
        .arg(total)
        .arg(estimate);
}

} // namespace

class TestCapacity : public QObject
{
    Q_OBJECT
private slots:
    void rulesDecideOnNumbers_data()
    {
        QTest::addColumn<qint64>("total");
        QTest::addColumn<qint64>("available");
        QTest::addColumn<qint64>("reclaimable");
        QTest::addColumn<qint64>("estimate");
        QTest::addColumn<QString>("refusal");
        QTest::newRow("nothing to copy") << 4000LL << 4000LL << 0LL << 0LL << kNoBundle;
        QTest::newRow("short of space") << 100000LL << 500LL << 400LL << 1000LL << noSpace(1000, 900);
        QTest::newRow("exactly enough space") << 4000LL << 600LL << 400LL << 1000LL << QString();
        QTest::newRow("full drive, same bundle already there")
            << 4000LL << 0LL << 1000LL << 1000LL << QString();
        QTest::newRow("exactly a quarter") << 4000LL << 4000LL << 0LL << 1000LL << QString();
        QTest::newRow("one byte over a quarter")
            << 4000LL << 4000LL << 0LL << 1001LL << overAQuarter(4000, 1001);
        QTest::newRow("quarter truncates") << 4003LL << 4003LL << 0LL << 1001LL << overAQuarter(4003, 1001);
        QTest::newRow("space is refused before size") << 4000LL << 10LL << 0LL << 2000LL << noSpace(2000, 10);
        QTest::newRow("volume without a total") << 0LL << 5000LL << 0LL << 2000LL << QString();
        const qint64 gib = 1024LL * 1024 * 1024;
        QTest::newRow("beyond 32 bits, no grouping")
            << 64 * gib << 60 * gib << 0LL << 17 * gib << overAQuarter(64 * gib, 17 * gib);
    }
    void rulesDecideOnNumbers()
    {
        QFETCH(qint64, total);
        QFETCH(qint64, available);
        QFETCH(qint64, reclaimable);
        QFETCH(qint64, estimate);
        QFETCH(QString, refusal);
        QString message;
        QCOMPARE(capacityAllows(total, available, reclaimable, estimate, &message), refusal.isEmpty());
        QCOMPARE(message, refusal);
    }

    void sizesLeaveHiddenEntriesOut()
    {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("tree/a"), QByteArray(100, 'a')));
        QVERIFY(writeFile(dir.filePath("tree/sub/b"), QByteArray(20, 'b')));
        QVERIFY(writeFile(dir.filePath("tree/.hidden"), QByteArray(5000, 'h')));
        QVERIFY(writeFile(dir.filePath("tree/.cache/c"), QByteArray(5000, 'c')));
        QCOMPARE(directorySize(dir.filePath("tree")), 120);
        QCOMPARE(directorySize(dir.filePath("tree/a")), 100);
        QCOMPARE(directorySize(dir.filePath("missing")), 0);
        QCOMPARE(fileSize(dir.filePath("tree/a")), 100);
        QCOMPARE(fileSize(dir.filePath("tree")), 0);
        QCOMPARE(fileSize(dir.filePath("missing")), 0);
    }

    void windowsEstimateCountsOnlyExecutableLibrariesAndThreePluginFolders()
    {
        QTemporaryDir dir;
        const QDir bundle(dir.filePath("win"));
        QVERIFY(writeFile(bundle.filePath("app.exe"), QByteArray(100, 'x')));
        QVERIFY(writeFile(bundle.filePath("Qt6Core.dll"), QByteArray(10, 'x')));
        QVERIFY(writeFile(bundle.filePath("platforms/qwindows.dll"), QByteArray(20, 'x')));
        QVERIFY(writeFile(bundle.filePath("imageformats/qjpeg.dll"), QByteArray(30, 'x')));
        QVERIFY(writeFile(bundle.filePath("styles/nested/qstyle.dll"), QByteArray(40, 'x')));
        QVERIFY(writeFile(bundle.filePath("tls/qopenssl.dll"), QByteArray(1000, 'x')));
        QVERIFY(writeFile(bundle.filePath("translations/qt.qm"), QByteArray(1000, 'x')));
        QVERIFY(writeFile(bundle.filePath("notes.txt"), QByteArray(1000, 'x')));

        PreparationSources sources;
        QCOMPARE(estimateWindowsBundleSize(sources), 0);
        sources.windowsExecutable = bundle.filePath("app.exe");
        QCOMPARE(estimateWindowsBundleSize(sources), 200);
        // A folder given apart from the executable is the one measured.
        QVERIFY(writeFile(dir.filePath("other/extra.dll"), QByteArray(7, 'x')));
        sources.windowsDirectory = dir.filePath("other");
        QCOMPARE(estimateWindowsBundleSize(sources), 107);
    }

    void linuxEstimateIsTheFolderWhenItHoldsMore()
    {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("lin/Tavrinox"), QByteArray(100, 'x')));
        PreparationSources sources;
        QCOMPARE(estimateLinuxBundleSize(sources), 0);
        sources.linuxExecutable = dir.filePath("lin/Tavrinox");
        QCOMPARE(estimateLinuxBundleSize(sources), 100);
        QVERIFY(writeFile(dir.filePath("lin/lib/libQt6Core.so.6"), QByteArray(50, 'x')));
        QVERIFY(writeFile(dir.filePath("lin/.hidden"), QByteArray(5000, 'x')));
        QCOMPARE(estimateLinuxBundleSize(sources), 150);
    }

    void refusesOnARealVolume()
    {
        LoopVolume volume;
        QString whyNot;
        if (!volume.mount(LoopVolume::FileSystem::ExFat, 16 * 1024 * 1024, &whyNot))
            QSKIP(qPrintable(whyNot));
        const QStorageInfo storage(volume.mountPoint());
        const qint64 total = storage.bytesTotal();
        QVERIFY(total > 0);
        const QString target = QDir(volume.mountPoint()).filePath("Tavrinox");
        QVERIFY(QDir().mkpath(target));

        QTemporaryDir sources;
        PreparationSources bundle;
        bundle.linuxExecutable = sources.filePath("lin/Tavrinox");
        PreparationResult result;

        QVERIFY(Fixture::makeSparseFile(bundle.linuxExecutable, total / 4));
        QVERIFY(checkCapacity(volume.mountPoint(), target, bundle, result));

        QVERIFY(Fixture::makeSparseFile(bundle.linuxExecutable, total / 4 + 1));
        QVERIFY(!checkCapacity(volume.mountPoint(), target, bundle, result));
        QCOMPARE(result.message, overAQuarter(total, total / 4 + 1));

        QVERIFY(Fixture::makeSparseFile(bundle.linuxExecutable, total * 2));
        QVERIFY(!checkCapacity(volume.mountPoint(), target, bundle, result));
        QCOMPARE(result.message, noSpace(total * 2, QStorageInfo(volume.mountPoint()).bytesAvailable()));
    }

    void unknownVolumeIsRefused()
    {
        QTemporaryDir dir;
        PreparationSources sources;
        PreparationResult result;
        QVERIFY(!checkCapacity(dir.filePath("pulled"), dir.filePath("pulled/Tavrinox"), sources, result));
        QCOMPARE(result.message, QStringLiteral("Nao foi possivel validar o espaco livre da unidade USB."));
    }
};

QTEST_GUILESS_MAIN(TestCapacity)
#include "tst_capacity.moc"
