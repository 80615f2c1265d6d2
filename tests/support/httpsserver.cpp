#include "support/httpsserver.h"

#include <QFile>
#include <QMutexLocker>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTcpServer>
#include <QTimer>

namespace {

// Enough in flight to keep a local transfer busy, little enough that a huge body is never buffered whole.
constexpr qint64 kChunkBytes = 256 * 1024;
constexpr qint64 kInFlightBytes = 4 * kChunkBytes;

bool readTlsFile(const QString &name, QByteArray *content, QString *error)
{
    QFile file(QStringLiteral(TAVRINOX_TEST_DATA_DIR "/tls/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("cannot read %1: %2").arg(file.fileName(), file.errorString());
        return false;
    }
    *content = file.readAll();
    return true;
}

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 303:
        return "See Other";
    case 307:
        return "Temporary Redirect";
    case 308:
        return "Permanent Redirect";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}

HttpsServer::Route statusRoute(int status)
{
    HttpsServer::Route route;
    route.status = status;
    route.body = reasonPhrase(status);
    return route;
}

HttpsServer::Request parseRequestHead(const QByteArray &head, bool encrypted)
{
    HttpsServer::Request request;
    request.encrypted = encrypted;
    const QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = QUrl::fromEncoded(requestLine.value(1)).path();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines.at(i).indexOf(':');
        if (colon > 0)
            request.headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                                   lines.at(i).mid(colon + 1).trimmed());
    }
    return request;
}

} // namespace

// One accepted connection: reads one request head, answers it as its route says, then closes.
class HttpsServerConnection : public QObject
{
public:
    HttpsServerConnection(HttpsServer *owner, QTcpSocket *socket, QObject *parent)
        : QObject(parent)
        , m_owner(owner)
        , m_socket(socket)
        , m_ssl(qobject_cast<QSslSocket *>(socket))
    {
        socket->setParent(this);
        connect(socket, &QIODevice::readyRead, this, &HttpsServerConnection::readRequest);
        connect(socket, &QAbstractSocket::disconnected, this, &QObject::deleteLater);
        connect(socket, &QIODevice::bytesWritten, this, &HttpsServerConnection::sendMore);
        if (m_ssl)
            connect(m_ssl, &QSslSocket::encryptedBytesWritten, this, &HttpsServerConnection::sendMore);
        readRequest();
    }

private:
    void readRequest()
    {
        if (m_answered)
            return;
        m_received += m_socket->readAll();
        const qsizetype end = m_received.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        m_answered = true;
        const HttpsServer::Request request = parseRequestHead(m_received.left(end), m_ssl != nullptr);
        m_owner->record(request);
        m_route = m_owner->routeFor(request.path);
        if (m_route.delayMs > 0)
            QTimer::singleShot(m_route.delayMs, this, &HttpsServerConnection::answer);
        else
            answer();
    }

    void answer()
    {
        const qint64 length = qMax(m_route.declaredLength, qint64(m_route.body.size()));
        QByteArray head = "HTTP/1.1 " + QByteArray::number(m_route.status) + ' ' +
                          reasonPhrase(m_route.status) + "\r\nContent-Length: " + QByteArray::number(length) +
                          "\r\nConnection: close\r\n";
        for (const auto &header : std::as_const(m_route.headers))
            head += header.first + ": " + header.second + "\r\n";
        m_socket->write(head + "\r\n");
        m_sending = true;
        sendMore();
    }

    qint64 inFlight() const
    {
        return m_socket->bytesToWrite() + (m_ssl ? m_ssl->encryptedBytesToWrite() : 0);
    }

    // Feeds the body from the shared array a chunk at a time as the socket drains.
    void sendMore()
    {
        if (!m_sending)
            return;
        const qint64 size = m_route.body.size();
        while (m_sent < size && inFlight() < kInFlightBytes) {
            const qint64 chunk = qMin(kChunkBytes, size - m_sent);
            m_socket->write(m_route.body.constData() + m_sent, chunk);
            m_sent += chunk;
        }
        if (m_sent == size) {
            m_sending = false;
            m_socket->disconnectFromHost();
        }
    }

    HttpsServer *m_owner;
    QTcpSocket *m_socket;
    QSslSocket *m_ssl;
    QByteArray m_received;
    HttpsServer::Route m_route;
    bool m_answered = false;
    bool m_sending = false;
    qint64 m_sent = 0;
};

// Lives on the server's thread with the listeners and connections as its children.
class HttpsServerCore : public QObject
{
public:
    HttpsServerCore(HttpsServer *owner, const QSslConfiguration &tls)
        : m_owner(owner)
        , m_tlsConfiguration(tls)
    {}

    bool listen(quint16 *tlsPort, quint16 *plainPort, QString *error)
    {
        auto *tlsServer = new QSslServer(this);
        tlsServer->setSslConfiguration(m_tlsConfiguration);
        auto *plainServer = new QTcpServer(this);
        for (QTcpServer *server : {static_cast<QTcpServer *>(tlsServer), plainServer}) {
            connect(server, &QTcpServer::pendingConnectionAvailable, this, [this, server] {
                while (server->hasPendingConnections())
                    new HttpsServerConnection(m_owner, server->nextPendingConnection(), this);
            });
            if (!server->listen(QHostAddress::LocalHost)) {
                *error = server->errorString();
                return false;
            }
        }
        *tlsPort = tlsServer->serverPort();
        *plainPort = plainServer->serverPort();
        return true;
    }

    void shutdown() { qDeleteAll(children()); }

private:
    HttpsServer *m_owner;
    QSslConfiguration m_tlsConfiguration;
};

HttpsServer::HttpsServer()
{
    m_thread.setObjectName(QStringLiteral("HttpsServer"));
}

HttpsServer::~HttpsServer()
{
    stop();
}

bool HttpsServer::trustTestCertificateAuthority(QString *error)
{
    QByteArray pem;
    if (!readTlsFile(QStringLiteral("ca.pem"), &pem, error))
        return false;
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(QSslCertificate::fromData(pem));
    QSslConfiguration::setDefaultConfiguration(configuration);
    return true;
}

bool HttpsServer::start(QString *error)
{
    QByteArray certificate;
    QByteArray key;
    if (!readTlsFile(QStringLiteral("server.pem"), &certificate, error) ||
        !readTlsFile(QStringLiteral("server.key"), &key, error))
        return false;
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificate(QSslCertificate(certificate));
    tls.setPrivateKey(QSslKey(key, QSsl::Ec));
    tls.setPeerVerifyMode(QSslSocket::VerifyNone);

    m_core = new HttpsServerCore(this, tls);
    m_core->moveToThread(&m_thread);
    m_thread.start();
    QString why;
    bool listening = false;
    QMetaObject::invokeMethod(
        m_core, [&] { listening = m_core->listen(&m_tlsPort, &m_plainPort, &why); },
        Qt::BlockingQueuedConnection);
    if (!listening) {
        stop();
        if (error)
            *error = why;
    }
    return listening;
}

void HttpsServer::stop()
{
    if (!m_core)
        return;
    // Sockets must die on the thread that drives them; the bare core can go after the thread ends.
    QMetaObject::invokeMethod(
        m_core, [this] { m_core->shutdown(); }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    delete m_core;
    m_core = nullptr;
}

QUrl HttpsServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("https://127.0.0.1:%1%2").arg(m_tlsPort).arg(path));
}

QUrl HttpsServer::plainUrl(const QString &path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_plainPort).arg(path));
}

void HttpsServer::addRoute(const QString &path, const Route &route)
{
    QMutexLocker lock(&m_mutex);
    m_routes.insert(path, route);
}

void HttpsServer::addBody(const QString &path, const QByteArray &body)
{
    Route route;
    route.body = body;
    addRoute(path, route);
}

void HttpsServer::addStatus(const QString &path, int status)
{
    addRoute(path, statusRoute(status));
}

void HttpsServer::addDelayed(const QString &path, int delayMs, const QByteArray &body)
{
    Route route;
    route.body = body;
    route.delayMs = delayMs;
    addRoute(path, route);
}

void HttpsServer::addRedirect(const QString &path, const QUrl &target, int status)
{
    Route route;
    route.status = status;
    route.headers.append({"Location", target.toEncoded()});
    addRoute(path, route);
}

void HttpsServer::addTruncated(const QString &path, const QByteArray &sentPart, qint64 declaredLength)
{
    Route route;
    route.body = sentPart;
    route.declaredLength = declaredLength;
    addRoute(path, route);
}

QList<HttpsServer::Request> HttpsServer::requests() const
{
    QMutexLocker lock(&m_mutex);
    return m_requests;
}

HttpsServer::Route HttpsServer::routeFor(const QString &path) const
{
    QMutexLocker lock(&m_mutex);
    const auto found = m_routes.constFind(path);
    return found != m_routes.cend() ? *found : statusRoute(404);
}

void HttpsServer::record(const Request &request)
{
    QMutexLocker lock(&m_mutex);
    m_requests.append(request);
}
