#pragma once

#include <QByteArray>

// Ed25519 signatures over raw keys, the only place that talks to OpenSSL. Keys and signatures are
// plain bytes here; their base64 text form is the callers' business.
namespace Tavrinox::Ed25519 {

constexpr qsizetype kPublicKeySize = 32;
constexpr qsizetype kPrivateKeySize = 32; // the seed the key pair is derived from
constexpr qsizetype kSignatureSize = 64;

// A fresh key pair from the system's random source.
bool generateKey(QByteArray *privateKey, QByteArray *publicKey);

// The signature of message by privateKey, or an empty array when the key is not a valid one.
QByteArray sign(const QByteArray &privateKey, const QByteArray &message);

// True only when signature is publicKey's valid signature over exactly these message bytes.
bool verify(const QByteArray &publicKey, const QByteArray &message, const QByteArray &signature);

} // namespace Tavrinox::Ed25519
