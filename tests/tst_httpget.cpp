#include "buildconfig.h"
#include "support/httpsserver.h"
#include "support/workerthread.h"
#include "update/httpget.h"

#include <QtTest>

#include <memory>

using namespace Tavrinox;

namespace {

// Long enough for any loaded machine, so only the deliberately slow route can reach it.
constexpr int kGenerousTimeoutMs = 120000;
const QString kUntouched = QStringLiteral("untouched");

} // namespace

class TestHttpGet : public QObject
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
        m_server->addBody("/manifest.json", "payload");
        m_server->addBody("/empty", QByteArray());
        m_server->addStatus("/missing", 404);
        m_server->addStatus("/broken", 500);
        m_server->addDelayed("/late", 200, "payload");
        m_server->addDelayed("/slow", kGenerousTimeoutMs, "payload");
        m_server->addRedirect("/moved", m_server->url("/manifest.json"));
        m_server->addRedirect("/to-http", m_server->plainUrl("/manifest.json"));
        m_server->addTruncated("/cut", "partial", 1000);
    }

    void cleanup() { m_server.reset(); }

    void decidesEachOutcomeInOrder_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("timeoutMs");
        QTest::addColumn<QByteArray>("expectedBody");
        QTest::addColumn<QString>("expectedError"); // %1 = the URL asked for

        QTest::newRow("body") << "/manifest.json" << kGenerousTimeoutMs << QByteArray("payload")
                              << kUntouched;
        QTest::newRow("empty body") << "/empty" << kGenerousTimeoutMs << QByteArray() << kUntouched;
        QTest::newRow("late answer within the limit")
            << "/late" << kGenerousTimeoutMs << QByteArray("payload") << kUntouched;
        QTest::newRow("https redirect followed")
            << "/moved" << kGenerousTimeoutMs << QByteArray("payload") << kUntouched;
        QTest::newRow("slow answer times out")
            << "/slow" << 300 << QByteArray() << QStringLiteral("Tempo limite excedido ao acessar: %1");
        // Qt reports these statuses as network errors, which are decided before the status itself.
        QTest::newRow("404") << "/missing" << kGenerousTimeoutMs << QByteArray()
                             << QStringLiteral("Error transferring %1 - server replied: Not Found");
        QTest::newRow("500") << "/broken" << kGenerousTimeoutMs << QByteArray()
                             << QStringLiteral(
                                    "Error transferring %1 - server replied: Internal Server Error");
        QTest::newRow("redirect to http refused")
            << "/to-http" << kGenerousTimeoutMs << QByteArray() << QStringLiteral("Insecure redirect");
        QTest::newRow("truncated body")
            << "/cut" << kGenerousTimeoutMs << QByteArray() << QStringLiteral("Connection closed");
    }
    void decidesEachOutcomeInOrder()
    {
        QFETCH(QString, path);
        QFETCH(int, timeoutMs);
        QFETCH(QByteArray, expectedBody);
        QFETCH(QString, expectedError);
        const QUrl url = m_server->url(path);

        QString error = kUntouched;
        QCOMPARE(runOnWorkerThread([&] { return httpGet(url, timeoutMs, &error); }), expectedBody);
        QCOMPARE(error, QString(expectedError).replace(QStringLiteral("%1"), url.toString()));
        QCOMPARE(runOnWorkerThread([&] { return httpGet(url, timeoutMs, nullptr); }), expectedBody);

        const QList<HttpsServer::Request> requests = m_server->requests();
        QVERIFY(!requests.isEmpty());
        for (const HttpsServer::Request &request : requests)
            QVERIFY2(request.encrypted, qPrintable(request.path));
    }

    void sendsItsHeadersOnEveryHop()
    {
        QCOMPARE(runOnWorkerThread([&] { return httpGet(m_server->url("/moved"), kGenerousTimeoutMs); }),
                 QByteArray("payload"));
        const QList<HttpsServer::Request> requests = m_server->requests();
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests.at(0).path, QStringLiteral("/moved"));
        QCOMPARE(requests.at(1).path, QStringLiteral("/manifest.json"));
        for (const HttpsServer::Request &request : requests) {
            QCOMPARE(request.method, QByteArray("GET"));
            QCOMPARE(request.header("User-Agent"),
                     QByteArray("TavrinoxConfig/") + Build::kApplicationVersion);
            QCOMPARE(request.header("Accept"), QByteArray("*/*"));
        }
    }

    void closedPortGivesQtsOwnText()
    {
        const QUrl url = m_server->url("/manifest.json");
        m_server->stop();
        QString error = kUntouched;
        QCOMPARE(runOnWorkerThread([&] { return httpGet(url, kGenerousTimeoutMs, &error); }), QByteArray());
        QCOMPARE(error, QStringLiteral("Connection refused"));
        QCOMPARE(runOnWorkerThread([&] { return httpGet(url, kGenerousTimeoutMs, nullptr); }), QByteArray());
    }

    void stoppedServerReleasesAWaitingClient()
    {
        const QUrl url = m_server->url("/slow");
        QString error;
        QFuture<QByteArray> future =
            QtConcurrent::run([&] { return httpGet(url, kGenerousTimeoutMs, &error); });
        QVERIFY(QTest::qWaitFor([&] { return !m_server->requests().isEmpty(); }, kGenerousTimeoutMs));
        m_server->stop();
        QVERIFY(QTest::qWaitFor([&] { return future.isFinished(); }, kGenerousTimeoutMs));
        QCOMPARE(future.result(), QByteArray());
        QVERIFY(!error.isEmpty());
        QVERIFY2(!error.startsWith(QStringLiteral("Tempo limite")), qPrintable(error));
    }

private:
    std::unique_ptr<HttpsServer> m_server;
};

QTEST_GUILESS_MAIN(TestHttpGet)
#include "tst_httpget.moc"
