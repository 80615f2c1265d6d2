#pragma once

#include "update/updatemanifest.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace Tavrinox {

// The publisher's Ed25519 public key (base64) configured at build time; empty: manifests are taken
// as the server sends them.
QByteArray updatePublicKey();

// Where the detached signature of the manifest at manifestUrl is published: beside it, ".sig" added.
QUrl manifestSignatureUrl(const QUrl &manifestUrl);

// Whether signatureFile (base64 text, surrounding white space allowed) is the signature by publicKey
// (base64) over exactly the bytes of manifest.
bool verifyManifestSignature(const QByteArray &manifest, const QByteArray &signatureFile,
                             const QByteArray &publicKey, QString *error = nullptr);

// What a configured key adds to the update check, for a manifest already parsed into *manifest:
// fetches and verifies its signature, then requires its issue time and refuses one older than the
// newest manifest applied to the drive at root. On success manifest->issuedAt carries the issue time
// to the apply, which records it on the drive. Runs on the check's worker thread.
bool acceptSignedManifest(const QString &root, const QUrl &manifestUrl, const QByteArray &body,
                          const QByteArray &publicKey, UpdateManifest *manifest, QString *error);

} // namespace Tavrinox
