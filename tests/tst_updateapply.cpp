#include "buildconfig.h"
#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/workerthread.h"
#include "support/zippackage.h"
#include "transaction/updatestate.h"
#include "update/updateapply.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace Tavrinox;

namespace {

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(7);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(generator.generate());
    return bytes;
}

} // namespace

class TestUpdateApply : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
        QString why;
        QVERIFY2(HttpsServer::trustTestCertificateAuthority(&why), qPrintable(why));
        QVERIFY2(m_server.start(&why), qPrintable(why));
    }

    void init()
    {
        m_drive = std::make_unique<QTemporaryDir>();
        QVERIFY(layOutPreparedDrive(m_drive->path(), "1.0.0", "old"));
    }

    void appliesPackageAndRecordsVersionAndHash()
    {
        const QByteArray package = tavrinoxPackage("new").bytes();
        m_server.addBody("/package.zip", package);
        const UpdateApplyResult result = applyOnWorker(m_drive->path(), manifestFor(package));
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.version, QStringLiteral("1.1.0"));
        QCOMPARE(result.error, QString());

        QVERIFY(driveHoldsBundles(m_drive->path(), "new"));
        QFile stateFile(updateStatePath(m_drive->path()));
        QVERIFY(stateFile.open(QIODevice::ReadOnly));
        const QJsonObject state = QJsonDocument::fromJson(stateFile.readAll()).object();
        QCOMPARE(state.value("installedVersion").toString(), QStringLiteral("1.1.0"));
        QCOMPARE(state.value("lastPackageSha256").toString(), sha256Hex(package));
        QCOMPARE(updateLeftovers(m_drive->path()), QStringList());
    }

    void failureLeavesDriveAsItWas_data()
    {
        QTest::addColumn<QByteArray>("package");
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("error"); // a pattern; WORK stands for the work area
        const QByteArray good = tavrinoxPackage("new").bytes();

        QTest::newRow("size 0 with a package")
            << good << "size=0"
            << QStringLiteral("Tamanho do pacote divergente. Esperado: 0 bytes. Recebido: mais de 0 bytes.");
        QTest::newRow("hash of another package") << good << "sha256=other"
                                                 << "Hash SHA-256 divergente. O pacote não será aplicado.";
        QTest::newRow("hash with a blank") << good << "sha256=blank"
                                           << "Hash SHA-256 divergente. O pacote não será aplicado.";
        QTest::newRow("download refused") << good << "url=missing"
                                          << "Error transferring URL - server replied: Not Found";
        QTest::newRow("bundles at the top level")
            << tavrinoxPackage("new", "").bytes() << ""
            << "Pacote sem arquivo obrigatório: WORK/extracted/Tavrinox/windows/Tavrinox.exe";
        QTest::newRow("no libssl.so.3")
            << tavrinoxPackage("new", "Tavrinox/", {"linux/lib/libssl.so.3"}).bytes() << ""
            << "Pacote sem arquivo obrigatório: WORK/extracted/Tavrinox/linux/lib/libssl.so.3";
        QTest::newRow("two entries missing")
            << tavrinoxPackage("new", "Tavrinox/", {"linux/qt.conf", "windows/platforms/qwindows.dll"})
                   .bytes()
            << ""
            << "Pacote sem arquivo obrigatório: WORK/extracted/Tavrinox/windows/platforms/qwindows.dll";
        QTest::newRow("zip-slip") << tavrinoxPackage("new").file("../../../outside.txt", "escaped").bytes()
                                  << ""
                                  << "Falha ao extrair ZIP: entrada que sai do diretório de destino: "
                                     "../../../outside.txt";
        QTest::newRow("symbolic link")
            << tavrinoxPackage("new")
                   .symlink("Tavrinox/linux/plugins/tls/escape", "../../../../../..")
                   .bytes()
            << ""
            << "Falha ao extrair ZIP: entrada que é link simbólico: Tavrinox/linux/plugins/tls/escape";
        QTest::newRow("not a zip") << QByteArray("<html>oops</html>") << ""
                                   << "Falha ao extrair ZIP: o pacote não é um arquivo ZIP válido";
        QTest::newRow("work area blocked") << good << "block=Tavrinox"
                                           << "Não foi possível criar área temporária na unidade USB.";
    }
    void failureLeavesDriveAsItWas()
    {
        QFETCH(QByteArray, package);
        QFETCH(QString, change);
        QFETCH(QString, error);

        if (change == "block=Tavrinox") {
            // A drive whose "Tavrinox" is a file cannot hold a work area.
            QVERIFY(QDir(m_drive->filePath("Tavrinox")).removeRecursively());
            QFile blocker(m_drive->filePath("Tavrinox"));
            QVERIFY(blocker.open(QIODevice::WriteOnly));
        }
        const QMap<QString, QByteArray> before = driveSnapshot(m_drive->path());
        QVERIFY(!QFile::exists(QDir(m_drive->path()).filePath("../outside.txt")));

        m_server.addBody("/package.zip", package);
        UpdateManifest manifest = manifestFor(package);
        if (change == "size=0")
            manifest.size = 0;
        else if (change == "sha256=other")
            manifest.sha256 = sha256Hex("another package");
        else if (change == "sha256=blank")
            manifest.sha256 += QLatin1Char(' ');
        else if (change == "url=missing")
            manifest.packageUrl = m_server.url("/no-such-package.zip").toString();
        error.replace("URL", manifest.packageUrl);

        const UpdateApplyResult result = applyOnWorker(m_drive->path(), manifest);
        QVERIFY(!result.ok);
        QCOMPARE(result.version, QStringLiteral("1.1.0"));
        const QString workArea = QRegularExpression::escape(m_drive->filePath("Tavrinox/.update-"));
        const QString pattern = QRegularExpression::escape(error).replace("WORK", workArea + "\\d{17}");
        QVERIFY2(QRegularExpression("^" + pattern + "$").match(result.error).hasMatch(),
                 qPrintable(result.error));
        QCOMPARE(driveSnapshot(m_drive->path()), before);
        QVERIFY(!QFile::exists(QDir(m_drive->path()).filePath("../outside.txt")));
    }

    void missingSizeSkipsTheSizeTest()
    {
        const QByteArray package = tavrinoxPackage("new").bytes();
        m_server.addBody("/package.zip", package);
        UpdateManifest manifest = manifestFor(package);
        manifest.size = -1;
        const UpdateApplyResult result = applyOnWorker(m_drive->path(), manifest);
        QVERIFY2(result.ok, qPrintable(result.error));
    }

    void freeSpaceMustBeThreeTimesThePackage_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("2.9 times") << 2.9 << false;
        QTest::newRow("3 times exactly") << 3.0 << true;
    }
    void freeSpaceMustBeThreeTimesThePackage()
    {
        QFETCH(double, factor);
        QFETCH(bool, accepted);
        LoopVolume volume;
        QString why;
        if (!volume.mount(LoopVolume::FileSystem::ExFat, 48 * 1024 * 1024, &why))
            QSKIP(qPrintable(why));
        const QString root = volume.mountPoint();
        QVERIFY(layOutPreparedDrive(root, "1.0.0", "old"));
        const qint64 available = availableInMultiplesOfThree(root);
        QVERIFY(available > 0);

        // A package of exactly the wanted size: stored entries make the size follow the filler.
        const qint64 wanted = qint64(available / factor);
        const QByteArray probe =
            tavrinoxPackage("new").storeOnly().file("Tavrinox/windows/filler.bin", {}).bytes();
        const QByteArray package =
            tavrinoxPackage("new")
                .storeOnly()
                .file("Tavrinox/windows/filler.bin", randomBytes(wanted - probe.size()))
                .bytes();
        QCOMPARE(package.size(), wanted);
        QCOMPARE(QStorageInfo(root).bytesAvailable(), available);
        const QMap<QString, QByteArray> before = driveSnapshot(root);

        m_server.addBody("/package.zip", package);
        const UpdateApplyResult result = applyOnWorker(root, manifestFor(package));
        if (accepted) {
            QVERIFY2(result.ok, qPrintable(result.error));
            QVERIFY(driveHoldsBundles(root, "new"));
        } else {
            QCOMPARE(result.error, QStringLiteral("Espaço livre insuficiente na unidade USB para preparar a "
                                                  "atualização com segurança."));
            QCOMPARE(driveSnapshot(root), before);
        }
    }

private:
    UpdateManifest manifestFor(const QByteArray &package)
    {
        UpdateManifest manifest;
        manifest.version = QStringLiteral("1.1.0");
        manifest.packageUrl = m_server.url("/package.zip").toString();
        manifest.sha256 = sha256Hex(package);
        manifest.size = package.size();
        return manifest;
    }

    static UpdateApplyResult applyOnWorker(const QString &root, const UpdateManifest &manifest)
    {
        return runOnWorkerThread([&] { return applyUpdate(root, manifest); });
    }

    // Fills the volume block by block until its free space divides by three, so that a package of a
    // third of it meets the free-space rule exactly. -1 when that cannot be reached.
    static qint64 availableInMultiplesOfThree(const QString &root)
    {
        QFile filler(QDir(root).filePath("filler.bin"));
        if (!filler.open(QIODevice::WriteOnly))
            return -1;
        for (int block = 0; block < 8; ++block) {
            const QStorageInfo storage(root);
            if (storage.bytesAvailable() % 3 == 0)
                return storage.bytesAvailable();
            if (filler.write(QByteArray(storage.blockSize(), 'f')) < 0 || !filler.flush())
                return -1;
        }
        return -1;
    }

    HttpsServer m_server;
    std::unique_ptr<QTemporaryDir> m_drive;
};

QTEST_GUILESS_MAIN(TestUpdateApply)
#include "tst_updateapply.moc"
