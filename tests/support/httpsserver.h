#pragma once

// A real HTTP server on 127.0.0.1 for tests of the network code: TLS on url(), plain HTTP on plainUrl(),
// both ports free ones chosen at start and both serving the same routes. It runs on its own thread, so a
// test may block its main thread (QFuture::result(), a modal loop) while the code under test talks to it.
//
//   HttpsServer::trustTestCertificateAuthority();         // once, e.g. in initTestCase()
//   HttpsServer server;
//   QString why;
//   QVERIFY2(server.start(&why), qPrintable(why));
//   server.addBody("/pkg.zip", bytes);                    // routes may be added before or after start()
//   httpGet(server.url("/pkg.zip"), ...);                  // from a worker thread, as the program does
//   QCOMPARE(server.requests().first().header("User-Agent"), ...);
//
// A body is shared, never copied per request, and streamed in chunks, so a route can serve hundreds of
// megabytes. Unknown paths answer 404. Every answer closes its connection. The server stops in stop() or
// its destructor: listeners, connections and pending delayed answers are gone when either returns.

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QString>
#include <QThread>
#include <QUrl>

class HttpsServerCore;

class HttpsServer
{
public:
    struct Request
    {
        QByteArray method;
        QString path;
        bool encrypted = false;
        QHash<QByteArray, QByteArray> headers; // names in lower case

        QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    };

    // The answer to one path; the add*() helpers below build the usual ones.
    struct Route
    {
        int status = 200;
        QByteArray body;
        QList<QPair<QByteArray, QByteArray>> headers;
        int delayMs = 0;
        // Larger than the body: announce this length, send the body, then close.
        qint64 declaredLength = -1;
    };

    HttpsServer();
    ~HttpsServer();
    Q_DISABLE_COPY(HttpsServer)

    // Adds the test CA to QSslConfiguration::defaultConfiguration(), which every later request copies.
    static bool trustTestCertificateAuthority(QString *error = nullptr);

    bool start(QString *error = nullptr);
    void stop();

    QUrl url(const QString &path) const;
    QUrl plainUrl(const QString &path) const;

    void addRoute(const QString &path, const Route &route);
    void addBody(const QString &path, const QByteArray &body);
    void addStatus(const QString &path, int status);
    void addDelayed(const QString &path, int delayMs, const QByteArray &body);
    void addRedirect(const QString &path, const QUrl &target, int status = 302);
    void addTruncated(const QString &path, const QByteArray &sentPart, qint64 declaredLength);

    // Every request received so far, in order of arrival.
    QList<Request> requests() const;

private:
    friend class HttpsServerConnection;
    Route routeFor(const QString &path) const;
    void record(const Request &request);

    mutable QMutex m_mutex;
    QHash<QString, Route> m_routes;
    QList<Request> m_requests;
    QThread m_thread;
    HttpsServerCore *m_core = nullptr;
    quint16 m_tlsPort = 0;
    quint16 m_plainPort = 0;
};
