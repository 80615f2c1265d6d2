#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <functional>

namespace Tavrinox {

// The one blocking HTTP GET of the update feature. Call it on a worker thread: it runs its own event
// loop there for up to timeoutMs, which bounds the whole exchange (connection, redirects, body).
// Redirects are followed except from HTTPS to HTTP. Returns the body, or an empty array on failure with
// the reason in *error; an empty body from a successful answer is returned empty with *error untouched.
QByteArray httpGet(const QUrl &url, int timeoutMs, QString *error = nullptr);

// Takes the next piece of a body as it arrives. False stops the transfer, with the reason in *error.
using HttpBodyReceiver = std::function<bool(const QByteArray &piece, QString *error)>;

// httpGet for a large body: each piece of a successful answer goes to receiver as soon as it is read,
// so the body is kept once, where the receiver puts it. Same time limit, redirects, headers and failure
// texts as httpGet; a refusal of the receiver fails with the receiver's text. True on success.
bool httpGetStreamed(const QUrl &url, int timeoutMs, const HttpBodyReceiver &receiver,
                     QString *error = nullptr);

} // namespace Tavrinox
