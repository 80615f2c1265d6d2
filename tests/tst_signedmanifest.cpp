#include "app/configwindow.h"
#include "support/httpsserver.h"
#include "support/modalanswerer.h"
#include "support/testfiles.h"
#include "support/windowfixture.h"
#include "support/zippackage.h"
#include "transaction/updatestate.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;

namespace {

const QString kManifestPath = QStringLiteral("/000Updates/tavrinox/manifest.json");
const QString kSignaturePath = kManifestPath + QStringLiteral(".sig");
const QString kInvalid = QStringLiteral("Assinatura do manifesto de atualização inválida: o manifesto foi "
                                        "alterado ou não foi assinado pelo fabricante.");
const QString kMalformed = QStringLiteral("Assinatura do manifesto de atualização malformada.");
const QString kUndated = QStringLiteral("Manifesto assinado sem data de emissão (issuedAt) válida.");
const QString kIssued = QStringLiteral("2026-03-01T12:00:00Z");

// Runs the publisher's signing tool, as the publisher would, and returns what it printed.
QByteArray signingTool(const QStringList &arguments)
{
    QProcess tool;
    tool.start(QStringLiteral(TAVRINOX_SIGN_MANIFEST), arguments);
    if (!tool.waitForFinished() || tool.exitCode() != 0)
        qFatal("sign-manifest %s: %s", qPrintable(arguments.join(' ')),
               tool.readAllStandardError().constData());
    return tool.readAllStandardOutput().trimmed();
}

} // namespace

class TestSignedManifest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(HttpsServer::trustTestCertificateAuthority());
        m_publicKey = signingTool({"keygen", m_keys.filePath("publisher.key")});
        signingTool({"keygen", m_keys.filePath("intruder.key")});
    }

    void updatesOnlyFromWhatThePublisherSigned_data()
    {
        QTest::addColumn<bool>("withKey");
        QTest::addColumn<QString>("signature"); // the signing key's file, or the .sig's text
        QTest::addColumn<QString>("issuedAt");
        QTest::addColumn<QString>("driveIssuedAt");
        QTest::addColumn<QString>("error"); // empty: the update goes through

        QTest::newRow("signed, newer than the drive's")
            << true << "publisher.key" << kIssued << "2026-01-01T00:00:00Z" << QString();
        QTest::newRow("no key: neither .sig nor dates")
            << false << "" << kIssued << "2026-06-01T00:00:00Z" << QString();
        QTest::newRow("flipped byte") << true << "publisher.key" << kIssued << "" << kInvalid;
        QTest::newRow("another key") << true << "intruder.key" << kIssued << "" << kInvalid;
        QTest::newRow("no signature")
            << true << "" << kIssued << ""
            << "Assinatura do manifesto de atualização indisponível (Error transferring URL - server "
               "replied: Not Found).";
        QTest::newRow("base64 error")
            << true << QString("*" + QByteArray(64, 's').toBase64()) << kIssued << "" << kMalformed;
        QTest::newRow("wrong length") << true << "c2lnbmF0dXJl" << kIssued << "" << kMalformed;
        QTest::newRow("older than the drive's")
            << true << "publisher.key" << kIssued << "2026-06-01T00:00:00Z"
            << "Manifesto de atualização mais antigo que o último aplicado nesta unidade (emitido em "
               "2026-03-01T12:00:00Z; a unidade já recebeu um de 2026-06-01T00:00:00Z).";
        QTest::newRow("no issue time") << true << "publisher.key" << QString() << QString() << kUndated;
    }
    void updatesOnlyFromWhatThePublisherSigned()
    {
        QFETCH(bool, withKey);
        QFETCH(QString, signature);
        QFETCH(QString, issuedAt);
        QFETCH(QString, driveIssuedAt);
        QFETCH(QString, error);
        HttpsServer server;
        QVERIFY(server.start());
        QTemporaryDir drive;
        QVERIFY(layOutPreparedDrive(drive.path(), "1.0.0", "old"));
        QVERIFY(writeUpdateState(drive.path(), "1.0.0", QString(), nullptr, driveIssuedAt));
        const QByteArray package = tavrinoxPackage("new").bytes();
        server.addBody("/package.zip", package);
        const QJsonObject fields{
            {"schemaVersion", 1},           {"app", "Tavrinox"},
            {"version", "1.1.0"},           {"packageUrl", server.url("/package.zip").toString()},
            {"sha256", sha256Hex(package)}, {"releaseNotes", "Correções."},
            {"issuedAt", issuedAt}};
        QByteArray manifest = QJsonDocument(fields).toJson();
        const QString manifestFile = m_keys.filePath("manifest.json");
        QVERIFY(Fixture::writeFile(manifestFile, manifest));
        if (signature.endsWith(".key"))
            signature = signingTool({"sign", m_keys.filePath(signature), manifestFile});
        QVERIFY(Fixture::writeFile(manifestFile + ".sig", signature.toLatin1()));
        if (!signature.isEmpty())
            server.addBody(kSignaturePath, signature.toLatin1());
        if (QByteArray(QTest::currentDataTag()) == "flipped byte")
            manifest[manifest.indexOf("Corre")] ^= 0x20;
        server.addBody(kManifestPath, manifest);
        const QMap<QString, QByteArray> before = driveSnapshot(drive.path());

        ConfigWindowSetup setup;
        setup.deviceManager = std::make_unique<Fixture::AttachedDrives>(
            QList<Platform::UsbDevice>{Fixture::mountedDrive(drive.path())});
        setup.bundleSearchDirectory = m_keys.path();
        setup.updateManifestUrl = server.url(kManifestPath);
        setup.updatePublicKey = withKey ? m_publicKey : QByteArray();
        ConfigWindow window(std::move(setup));
        ModalAnswerer answerer;
        answerer.answer(error.isEmpty() ? QStringList{"Sim", "OK"} : QStringList{"OK"});
        window.updateSelectedDevice();
        QTRY_VERIFY_WITH_TIMEOUT(answerer.pendingAnswers() == 0, 30000);

        if (error.isEmpty()) {
            QCOMPARE(answerer.boxes().last().text, "Atualização concluída.\n\nVersão instalada: 1.1.0");
            QVERIFY(driveHoldsBundles(drive.path(), "new"));
            QCOMPARE(readManifestIssuedAt(drive.path()), withKey ? issuedAt : QString());
            QCOMPARE(server.requests().size(), withKey ? 3 : 2); // the .sig only with a key
            if (withKey) // the tool's own check agrees with the program's
                signingTool({"verify", m_publicKey, manifestFile, manifestFile + ".sig"});
            return;
        }
        error = error.replace("URL", server.url(kSignaturePath).toString()) + " A atualização foi recusada.";
        QCOMPARE(answerer.boxes().last().text, error);
        QCOMPARE(Fixture::logLines(window).last(), "Falha ao consultar manifesto: " + error);
        QCOMPARE(driveSnapshot(drive.path()), before);
        QCOMPARE(server.requests().size(), 2); // the manifest and its .sig, no package
    }

private:
    QTemporaryDir m_keys;
    QByteArray m_publicKey;
};

QTEST_MAIN(TestSignedManifest)
#include "tst_signedmanifest.moc"
