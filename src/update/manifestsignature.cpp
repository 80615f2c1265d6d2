#include "update/manifestsignature.h"

#include "buildconfig.h"
#include "errortext.h"
#include "transaction/updatestate.h"
#include "update/ed25519.h"
#include "update/httpget.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

namespace Tavrinox {

namespace {

constexpr int kSignatureTimeoutMs = 30000;

QString refused(const QString &reason)
{
    return reason + QStringLiteral(" A atualização foi recusada.");
}

// The manifest's issue time as signed. The common parser does not carry it: it means something only
// for a manifest whose signature was verified.
QString signedIssueTime(const QByteArray &body)
{
    const QByteArray json = body.startsWith("\xEF\xBB\xBF") ? body.mid(3) : body;
    return QJsonDocument::fromJson(json).object().value(QStringLiteral("issuedAt")).toString();
}

} // namespace

QByteArray updatePublicKey()
{
    return QByteArray(Build::kUpdatePublicKey);
}

QUrl manifestSignatureUrl(const QUrl &manifestUrl)
{
    QUrl url = manifestUrl;
    url.setPath(manifestUrl.path() + QStringLiteral(".sig"));
    return url;
}

bool verifyManifestSignature(const QByteArray &manifest, const QByteArray &signatureFile,
                             const QByteArray &publicKey, QString *error)
{
    const auto key = QByteArray::fromBase64Encoding(publicKey, QByteArray::AbortOnBase64DecodingErrors);
    if (!key || key.decoded.size() != Ed25519::kPublicKeySize) {
        setError(error, refused(QStringLiteral("A chave pública de atualização deste programa é inválida.")));
        return false;
    }
    const auto signature =
        QByteArray::fromBase64Encoding(signatureFile.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    if (!signature || signature.decoded.size() != Ed25519::kSignatureSize) {
        setError(error, refused(QStringLiteral("Assinatura do manifesto de atualização malformada.")));
        return false;
    }
    if (!Ed25519::verify(key.decoded, manifest, signature.decoded)) {
        setError(error, refused(QStringLiteral("Assinatura do manifesto de atualização inválida: o manifesto "
                                               "foi alterado ou não foi assinado pelo fabricante.")));
        return false;
    }
    return true;
}

bool acceptSignedManifest(const QString &root, const QUrl &manifestUrl, const QByteArray &body,
                          const QByteArray &publicKey, UpdateManifest *manifest, QString *error)
{
    QString fetchError;
    const QByteArray signatureFile =
        httpGet(manifestSignatureUrl(manifestUrl), kSignatureTimeoutMs, &fetchError);
    if (signatureFile.isEmpty() && !fetchError.isEmpty()) {
        setError(
            error,
            refused(
                QStringLiteral("Assinatura do manifesto de atualização indisponível (%1).").arg(fetchError)));
        return false;
    }
    if (!verifyManifestSignature(body, signatureFile, publicKey, error))
        return false;

    const QString issuedAtText = signedIssueTime(body);
    const QDateTime issuedAt = QDateTime::fromString(issuedAtText, Qt::ISODate);
    if (!issuedAt.isValid() || issuedAt.timeSpec() == Qt::LocalTime) {
        setError(error, refused(QStringLiteral("Manifesto assinado sem data de emissão (issuedAt) válida.")));
        return false;
    }
    // The accepted issue time is recorded by the apply, with the new version in the one state-file write
    // that publishes the update, and never by a check: a check leaves the drive as it found it, and the
    // record can never name a manifest whose release the drive does not carry. A replayed manifest can
    // then neither downgrade the drive (only a strictly newer version is offered) nor bring back one
    // issued before the manifest the drive was last updated from (refused here). It can still repeat a
    // stale but genuine offer to a drive that has applied nothing newer; recording at check time would
    // narrow that only for drives that happened to be checked, at the price of writing on every check.
    const QString appliedText = readManifestIssuedAt(root);
    const QDateTime applied = QDateTime::fromString(appliedText, Qt::ISODate);
    if (applied.isValid() && issuedAt < applied) {
        setError(error,
                 refused(QStringLiteral("Manifesto de atualização mais antigo que o último aplicado nesta "
                                        "unidade (emitido em %1; a unidade já recebeu um de %2).")
                             .arg(issuedAtText, appliedText)));
        return false;
    }
    manifest->issuedAt = issuedAtText;
    return true;
}

} // namespace Tavrinox
