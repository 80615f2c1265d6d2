#include "buildconfig.h"
#include "support/httpsserver.h"
#include "support/workerthread.h"
#include "transaction/updatestate.h"
#include "update/updatemanifest.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace Tavrinox;

namespace {

const QString kManifestPath = QStringLiteral("/000Updates/tavrinox/manifest.json");
const QString kNotOurs = QStringLiteral("Manifesto não pertence ao Tavrinox ou usa schema não suportado.");
const QString kIncomplete = QStringLiteral("Manifesto sem version, packageUrl ou sha256.");

// A complete manifest with the given keys replaced and the removed ones left out.
QByteArray manifest(const QJsonObject &changes = {}, const QStringList &removed = {})
{
    QJsonObject object{{"schemaVersion", 1},
                       {"app", "Tavrinox"},
                       {"version", "1.1.0"},
                       {"packageUrl", "https://updates.example/tavrinox-1.1.0.zip"},
                       {"sha256", "ab12cd"},
                       {"size", 1234},
                       {"publishedAt", "2026-03-01T14:05:09Z"},
                       {"releaseNotes", "Correções."}};
    for (auto it = changes.begin(); it != changes.end(); ++it)
        object.insert(it.key(), it.value());
    for (const QString &key : removed)
        object.remove(key);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

class TestUpdateManifest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
        QString why;
        QVERIFY2(HttpsServer::trustTestCertificateAuthority(&why), qPrintable(why));
    }

    void init()
    {
        m_server = std::make_unique<HttpsServer>();
        QString why;
        QVERIFY2(m_server->start(&why), qPrintable(why));
    }

    void cleanup() { m_server.reset(); }

    void joinsManifestPathToServerBase_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("expected");
        QTest::newRow("host") << "https://h.example"
                              << "https://h.example/000Updates/tavrinox/manifest.json";
        QTest::newRow("host/") << "https://h.example/"
                               << "https://h.example/000Updates/tavrinox/manifest.json";
        QTest::newRow("folder") << "https://h.example:8443/site"
                                << "https://h.example:8443/site/000Updates/tavrinox/manifest.json";
        QTest::newRow("folder/") << "https://h.example:8443/site/"
                                 << "https://h.example:8443/site/000Updates/tavrinox/manifest.json";
    }
    void joinsManifestPathToServerBase()
    {
        QFETCH(QString, base);
        QFETCH(QString, expected);
        QCOMPARE(updateManifestUrl(base), QUrl(expected));
    }

    void readsTheManifest_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expectedError"); // empty: accepted
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("sha256");
        QTest::addColumn<qint64>("size");

        QTest::newRow("complete") << manifest() << ""
                                  << "1.1.0"
                                  << "ab12cd" << qint64(1234);
        QTest::newRow("byte-order mark") << "\xEF\xBB\xBF" + manifest() << ""
                                         << "1.1.0"
                                         << "ab12cd" << qint64(1234);
        QTest::newRow("fractional size") << manifest({{"size", 1234.9}}) << ""
                                         << "1.1.0"
                                         << "ab12cd" << qint64(1234);
        QTest::newRow("size absent") << manifest({}, {"size"}) << ""
                                     << "1.1.0"
                                     << "ab12cd" << qint64(-1);
        QTest::newRow("upper-case sha256") << manifest({{"sha256", "AB12CD"}}) << ""
                                           << "1.1.0"
                                           << "ab12cd" << qint64(1234);
        QTest::newRow("schema 2") << manifest({{"schemaVersion", 2}}) << kNotOurs << ""
                                  << "" << qint64(-1);
        QTest::newRow("schema absent") << manifest({}, {"schemaVersion"}) << kNotOurs << ""
                                       << "" << qint64(-1);
        QTest::newRow("app in lower case") << manifest({{"app", "tavrinox"}}) << kNotOurs << ""
                                           << "" << qint64(-1);
        // Every field is read before any is tested, so the record keeps what was there.
        QTest::newRow("version missing") << manifest({{"sha256", "EF"}}, {"version"}) << kIncomplete << ""
                                         << "ef" << qint64(1234);
        QTest::newRow("packageUrl empty") << manifest({{"packageUrl", ""}}) << kIncomplete << "1.1.0"
                                          << "ab12cd" << qint64(1234);
        QTest::newRow("sha256 not a string") << manifest({{"sha256", 5}}) << kIncomplete << "1.1.0"
                                             << "" << qint64(1234);
        QTest::newRow("not an object") << QByteArray("[" + manifest() + "]")
                                       << QStringLiteral("Manifesto inválido: no error occurred") << ""
                                       << "" << qint64(-1);
        QTest::newRow("not JSON") << QByteArray("<html>")
                                  << QStringLiteral("Manifesto inválido: illegal value") << ""
                                  << "" << qint64(-1);
    }
    void readsTheManifest()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, expectedError);
        QFETCH(QString, version);
        QFETCH(QString, sha256);
        QFETCH(qint64, size);
        m_server->addBody(kManifestPath, body);
        QTemporaryDir drive;

        const UpdateCheckResult result = checkOnWorkerThread(drive);
        QCOMPARE(result.error, expectedError);
        QCOMPARE(result.ok, expectedError.isEmpty());
        QCOMPARE(result.manifest.version, version);
        QCOMPARE(result.manifest.sha256, sha256);
        QCOMPARE(result.manifest.size, size);

        UpdateManifest parsed;
        QCOMPARE(parseUpdateManifest(body, &parsed, nullptr), expectedError.isEmpty());
    }

    void keepsEveryFieldOfAGoodManifest()
    {
        m_server->addBody(kManifestPath, manifest());
        QTemporaryDir drive;
        const UpdateCheckResult result = checkOnWorkerThread(drive);
        QVERIFY(result.ok);
        QCOMPARE(result.manifest.packageUrl, QStringLiteral("https://updates.example/tavrinox-1.1.0.zip"));
        QCOMPARE(result.manifest.publishedAt, QStringLiteral("2026-03-01T14:05:09Z"));
        QCOMPARE(result.manifest.releaseNotes, QStringLiteral("Correções."));
    }

    void reportsAFailedFetchWithoutParsing_data()
    {
        QTest::addColumn<int>("status");            // 0: an empty body answered with 200
        QTest::addColumn<QString>("expectedError"); // %1 = the manifest URL
        QTest::newRow("empty body") << 0 << "Manifesto inválido: o servidor respondeu sem conteúdo.";
        QTest::newRow("404") << 404 << "Error transferring %1 - server replied: Not Found";
    }
    void reportsAFailedFetchWithoutParsing()
    {
        QFETCH(int, status);
        QFETCH(QString, expectedError);
        if (status == 0)
            m_server->addBody(kManifestPath, QByteArray());
        else
            m_server->addStatus(kManifestPath, status);
        QTemporaryDir drive;
        QVERIFY(writeUpdateState(drive.path(), QStringLiteral("1.0.0"), QString()));

        const UpdateCheckResult result = checkOnWorkerThread(drive);
        QVERIFY(!result.ok);
        QVERIFY(!result.updateAvailable);
        QCOMPARE(result.error,
                 QString(expectedError).replace(QStringLiteral("%1"), manifestUrl().toString()));
        QCOMPARE(result.installedVersion, QString());
        QCOMPARE(result.manifest.size, qint64(-1));
    }

    void comparesWithTheInstalledVersion_data()
    {
        QTest::addColumn<QString>("remote");
        QTest::addColumn<QString>("installed"); // empty: the drive records none
        QTest::addColumn<bool>("updateAvailable");
        QTest::addColumn<QString>("shownInstalled");

        QTest::newRow("numeric, not textual") << "1.0.10"
                                              << "1.0.9" << true << "1.0.9";
        QTest::newRow("equal") << "1.0.5"
                               << "1.0.5" << false << "1.0.5";
        QTest::newRow("older remote is no downgrade") << "1.0.4"
                                                      << "1.0.5" << false << "1.0.5";
        QTest::newRow("shorter remote") << "1.0.5"
                                        << "1.0.5.0" << false << "1.0.5.0";
        QTest::newRow("longer remote") << "1.0.5.0"
                                       << "1.0.5" << true << "1.0.5";
        QTest::newRow("remote suffix ignored") << "1.2.3-beta"
                                               << "1.2.3" << false << "1.2.3";
        QTest::newRow("installed suffix ignored") << "1.2.3"
                                                  << "1.2.3-beta" << false << "1.2.3-beta";
        QTest::newRow("nothing recorded") << "0.0.1"
                                          << "" << true << "0.0.0";
    }
    void comparesWithTheInstalledVersion()
    {
        QFETCH(QString, remote);
        QFETCH(QString, installed);
        QFETCH(bool, updateAvailable);
        QFETCH(QString, shownInstalled);
        m_server->addBody(kManifestPath, manifest({{"version", remote}}));
        QTemporaryDir drive;
        if (!installed.isEmpty())
            QVERIFY(writeUpdateState(drive.path(), installed, QString()));

        const UpdateCheckResult result = checkOnWorkerThread(drive);
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.updateAvailable, updateAvailable);
        QCOMPARE(result.installedVersion, shownInstalled);
    }

private:
    QUrl manifestUrl() const { return updateManifestUrl(m_server->url(QString()).toString()); }

    UpdateCheckResult checkOnWorkerThread(const QTemporaryDir &drive) const
    {
        return runOnWorkerThread([&] { return checkForUpdate(drive.path(), manifestUrl()); });
    }

    std::unique_ptr<HttpsServer> m_server;
};

QTEST_GUILESS_MAIN(TestUpdateManifest)
#include "tst_updatemanifest.moc"
