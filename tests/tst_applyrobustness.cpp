#include "buildconfig.h"
#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/workerthread.h"
#include "support/zippackage.h"
#include "update/updateapply.h"

#include <QDir>
#include <QRandomGenerator>
#include <QStorageInfo>
#include <QtTest>

using namespace Tavrinox;

namespace {

const QString kExtractionFailed = QStringLiteral("Falha ao extrair ZIP: ");

// A file removed while still open keeps its space, and on a FUSE volume leaves a hidden file behind, so
// the drive's free space and files show that every handle was closed.
qint64 freeSpace(const QString &root)
{
    return QStorageInfo(root).bytesAvailable();
}

} // namespace

// Hostile and oversized packages against a real small exFAT volume, and what the apply reports.
class TestApplyRobustness : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
        QString why;
        QVERIFY2(HttpsServer::trustTestCertificateAuthority(&why), qPrintable(why));
        QVERIFY2(m_server.start(&why), qPrintable(why));
        m_volumeMounted = m_volume.mount(LoopVolume::FileSystem::ExFat, 24 * 1024 * 1024, &m_noVolume);
    }

    void init()
    {
        if (!m_volumeMounted)
            QSKIP(qPrintable(m_noVolume));
        m_root = m_volume.mountPoint() + "/drive";
        QVERIFY(QDir(m_root).removeRecursively());
        QVERIFY(layOutPreparedDrive(m_root, "1.0.0", "old"));
    }

    void refusesPackageAndGivesSpaceBack_data()
    {
        QTest::addColumn<QByteArray>("package");
        QTest::addColumn<QString>("reason");
        QTest::newRow("fifo") << tavrinoxPackage("new").fifo("Tavrinox/linux/pipe").bytes()
                              << "entrada que é dispositivo ou arquivo especial: Tavrinox/linux/pipe";
        QTest::newRow("device") << tavrinoxPackage("new").characterDevice("Tavrinox/linux/tty").bytes()
                                << "entrada que é dispositivo ou arquivo especial: Tavrinox/linux/tty";
        // A short second Tavrinox.exe once replaced the real one silently.
        QTest::newRow("same path")
            << tavrinoxPackage("new").file("Tavrinox/windows//Tavrinox.exe", "x").bytes()
            << "entrada repetida no pacote: Tavrinox/windows//Tavrinox.exe";
        QTest::newRow("same folder") << tavrinoxPackage("new")
                                            .directory("Tavrinox/linux/lib/")
                                            .directory("Tavrinox/./linux/lib/")
                                            .bytes()
                                     << "entrada repetida no pacote: Tavrinox/./linux/lib/";
        QTest::newRow("same path in other case")
            << tavrinoxPackage("new").file("Tavrinox/Windows/TAVRINOX.exe", "x").bytes()
            << "entradas que só diferem em maiúsculas e minúsculas, iguais para a unidade USB: "
               "Tavrinox/windows/Tavrinox.exe e Tavrinox/Windows/TAVRINOX.exe";
        QTest::newRow("unpacks past the free space")
            << tavrinoxPackage("new").file("Tavrinox/windows/zeros.bin", QByteArray(32 << 20, '\0')).bytes()
            << "o pacote descompactado ocupa 32,0 MB, mais que os ";
        // A file one byte over a cluster takes two: the package declares about two thirds of the volume,
        // which passes the check before extraction, and needs four thirds of it.
        const qint64 cluster = qMax<qint64>(512, QStorageInfo(m_volume.mountPoint()).blockSize());
        ZipBuilder filler = tavrinoxPackage("new");
        for (qint64 i = 0; i < QStorageInfo(m_volume.mountPoint()).bytesTotal() / (cluster + cluster / 2);
             ++i)
            filler.file("Tavrinox/windows/filler/" + QByteArray::number(i), QByteArray(cluster + 1, 'f'));
        QTest::newRow("drive full during extraction")
            << filler.bytes() << "a unidade USB ficou sem espaço livre ao gravar Tavrinox/windows/filler/";
    }
    void refusesPackageAndGivesSpaceBack()
    {
        QFETCH(QByteArray, package);
        QFETCH(QString, reason);
        const QMap<QString, QByteArray> before = driveSnapshot(m_root);
        const qint64 free = freeSpace(m_root);

        const UpdateApplyResult result = apply(m_root, package);
        QVERIFY2(result.error.startsWith(kExtractionFailed + reason), qPrintable(result.error));
        QCOMPARE(driveSnapshot(m_root), before);
        QCOMPARE(freeSpace(m_root), free);
        const UpdateApplyResult next = apply(m_root, tavrinoxPackage("new").bytes());
        QVERIFY2(next.ok, qPrintable(next.error));
        QVERIFY(driveHoldsBundles(m_root, "new"));
    }

    void reportsProgressInOrder_data()
    {
        QTest::addColumn<qint64>("declared");
        QTest::addColumn<QString>("error");
        QTest::newRow("whole package") << qint64(m_package.size()) << QString();
        QTest::newRow("body larger than declared")
            << qint64(m_package.size() / 2)
            << QStringLiteral("Tamanho do pacote divergente. Esperado: %1 bytes. Recebido: mais de %1 bytes.")
                   .arg(m_package.size() / 2);
    }
    void reportsProgressInOrder()
    {
        QFETCH(qint64, declared);
        QFETCH(QString, error);
        QList<UpdateApplyProgress> reports;
        const UpdateApplyResult result = apply(
            m_root, m_package, declared, [&](const UpdateApplyProgress &report) { reports.append(report); });
        QCOMPARE(result.error, error);

        QList<UpdateApplyPhase> phases;
        qint64 received = 0;
        for (const UpdateApplyProgress &report : reports) {
            if (phases.isEmpty() || phases.last() != report.phase)
                phases.append(report.phase);
            QVERIFY(report.received >= received && report.received <= declared);
            QCOMPARE(report.total, declared);
            received = report.received;
        }
        const QList<UpdateApplyPhase> all{UpdateApplyPhase::Downloading, UpdateApplyPhase::Checking,
                                          UpdateApplyPhase::Writing, UpdateApplyPhase::Extracting,
                                          UpdateApplyPhase::Replacing};
        QCOMPARE(phases, all.mid(0, error.isEmpty() ? all.size() : 1));
        QVERIFY(!error.isEmpty() || received == declared);
        QCOMPARE(updateApplyProgressText({UpdateApplyPhase::Downloading, 3 << 19, 3 << 20, 1 << 20}),
                 QStringLiteral("Baixando a atualização: 1,5 de 3,0 MB (1,0 MB/s)"));
    }

private:
    UpdateApplyResult apply(const QString &root, const QByteArray &package, qint64 declared = -2,
                            const UpdateApplyProgressHandler &progress = {})
    {
        m_server.addBody("/package.zip", package);
        UpdateManifest manifest;
        manifest.version = QStringLiteral("1.1.0");
        manifest.packageUrl = m_server.url("/package.zip").toString();
        manifest.sha256 = sha256Hex(package);
        manifest.size = declared == -2 ? package.size() : declared;
        return runOnWorkerThread([&] { return applyUpdate(root, manifest, {}, progress); });
    }

    HttpsServer m_server;
    LoopVolume m_volume;
    bool m_volumeMounted = false;
    QString m_noVolume;
    QString m_root; // a prepared drive on the volume, laid out anew for every test
    // Incompressible, so that it arrives in many pieces.
    const QByteArray m_package = [] {
        QByteArray noise(4 << 20, Qt::Uninitialized);
        QRandomGenerator(14).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        return tavrinoxPackage("new").file("Tavrinox/windows/noise.bin", noise).bytes();
    }();
};

QTEST_GUILESS_MAIN(TestApplyRobustness)
#include "tst_applyrobustness.moc"
