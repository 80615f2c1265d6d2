#include "update/httpget.h"

#include "errortext.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace Tavrinox {

QByteArray httpGet(const QUrl &url, int timeoutMs, QString *error)
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
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(timeoutMs);
    loop.exec();

    if (!timer.isActive()) {
        reply->abort();
        reply->deleteLater();
        setError(error, QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString()));
        return {};
    }
    timer.stop();

    if (reply->error() != QNetworkReply::NoError) {
        setError(error, reply->errorString());
        reply->deleteLater();
        return {};
    }

    // Qt flags most failing statuses as network errors already; this catches any it lets through.
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() >= 400) {
        setError(error, QStringLiteral("HTTP %1 ao acessar: %2").arg(status.toInt()).arg(url.toString()));
        reply->deleteLater();
        return {};
    }

    const QByteArray body = reply->readAll();
    reply->deleteLater();
    return body;
}

} // namespace Tavrinox
