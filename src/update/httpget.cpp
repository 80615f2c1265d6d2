#include "update/httpget.h"

#include "errortext.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace Tavrinox {

namespace {

constexpr qint64 kReadBufferSize = 4 * 1024 * 1024;

// The body of an answer that failed (an error page) or only redirects is read and dropped.
bool isSuccessfulAnswer(const QNetworkReply *reply)
{
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return !status.isValid() || status.toInt() < 300;
}

} // namespace

bool httpGetStreamed(const QUrl &url, int timeoutMs, const HttpBodyReceiver &receiver, QString *error)
{
    // A manager per call keeps every object of the exchange on the calling worker thread.
    QNetworkAccessManager manager;
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setRawHeader("User-Agent", "TavrinoxConfig/" + QCoreApplication::applicationVersion().toLatin1());
    request.setRawHeader("Accept", "*/*");

    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QNetworkReply *reply = manager.get(request);
    // Qt receives on a thread of its own; a bounded buffer makes it wait for this thread instead of
    // gathering the rest of the body in memory while the pieces before are still being taken.
    reply->setReadBufferSize(kReadBufferSize);
    QString refusal;
    bool refused = false;
    // Reading each piece as it comes keeps the reply from holding a second copy of the body.
    auto takeAvailable = [&] {
        while (!refused && reply->bytesAvailable() > 0) {
            const QByteArray piece = reply->readAll();
            if (isSuccessfulAnswer(reply) && !receiver(piece, &refusal)) {
                refused = true;
                reply->abort();
            }
        }
    };
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, takeAvailable);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(timeoutMs);
    loop.exec();

    if (!timer.isActive()) {
        reply->abort();
        reply->deleteLater();
        setError(error, QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString()));
        return false;
    }
    timer.stop();
    takeAvailable();

    if (refused) {
        reply->deleteLater();
        setError(error, refusal);
        return false;
    }
    if (reply->error() != QNetworkReply::NoError) {
        setError(error, reply->errorString());
        reply->deleteLater();
        return false;
    }

    // Qt flags most failing statuses as network errors already; this catches any it lets through.
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() >= 400) {
        setError(error, QStringLiteral("HTTP %1 ao acessar: %2").arg(status.toInt()).arg(url.toString()));
        reply->deleteLater();
        return false;
    }
    reply->deleteLater();
    return true;
}

QByteArray httpGet(const QUrl &url, int timeoutMs, QString *error)
{
    QByteArray body;
    const bool received = httpGetStreamed(
        url, timeoutMs,
        [&body](const QByteArray &piece, QString *) {
            body.append(piece);
            return true;
        },
        error);
    return received ? body : QByteArray();
}

} // namespace Tavrinox
