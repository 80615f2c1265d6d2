#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace Tavrinox {

// What the maker's server offers: the newest version and the package that carries it.
struct UpdateManifest
{
    QString version;
    QString packageUrl;
    QString sha256;   // lower case
    qint64 size = -1; // bytes; -1 when the manifest gives none
    QString publishedAt;
    QString releaseNotes;
    QString issuedAt; // as signed by the publisher; empty unless the signature was verified
};

// The background check's answer, handed to the interface thread by value.
struct UpdateCheckResult
{
    bool ok = false;
    bool updateAvailable = false;
    UpdateManifest manifest;
    QString installedVersion; // "0.0.0" when the drive records none
    QString error;
};

// The manifest's address on the update server configured at build time.
QUrl updateManifestUrl();
// The manifest's address under serverBase, with or without its trailing slash.
QUrl updateManifestUrl(const QString &serverBase);

// Reads a manifest document (UTF-8 JSON, optionally with a byte-order mark). On failure the record
// keeps whatever fields were read and *error says why.
bool parseUpdateManifest(const QByteArray &body, UpdateManifest *manifest, QString *error = nullptr);

// Fetches the manifest and compares its version with the one installed on the drive at root. With a
// publicKey (base64 Ed25519) the manifest counts only when its detached signature verifies and it is
// not older than the last one applied to the drive. Blocks for up to 30 s per request: run it on a
// worker thread. The first form uses the server and key configured at build time.
UpdateCheckResult checkForUpdate(const QString &root);
UpdateCheckResult checkForUpdate(const QString &root, const QUrl &manifestUrl,
                                 const QByteArray &publicKey = QByteArray());

} // namespace Tavrinox
