#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace Tavrinox {

// The one blocking HTTP GET of the update feature. Call it on a worker thread: it runs its own event
// loop there for up to timeoutMs, which bounds the whole exchange (connection, redirects, body).
// Redirects are followed except from HTTPS to HTTP. Returns the body, or an empty array on failure with
// the reason in *error; an empty body from a successful answer is returned empty with *error untouched.
QByteArray httpGet(const QUrl &url, int timeoutMs, QString *error = nullptr);

} // namespace Tavrinox
