#include "update/updatemanifest.h"

#include "buildconfig.h"
#include "errortext.h"
#include "transaction/updatestate.h"
#include "update/httpget.h"
#include "update/manifestsignature.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QVersionNumber>

namespace Tavrinox {

namespace {

constexpr int kManifestTimeoutMs = 30000;

// The largest whole number of bytes a JSON number still holds exactly: 2^53.
constexpr double kLargestPackageSize = 9007199254740992.0;

} // namespace

QUrl updateManifestUrl()
{
    return updateManifestUrl(QString::fromUtf8(Build::kUpdateServerBase));
}

QUrl updateManifestUrl(const QString &serverBase)
{
    QString base = serverBase;
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return QUrl(base + QStringLiteral("/000Updates/tavrinox/manifest.json"));
}

bool parseUpdateManifest(const QByteArray &body, UpdateManifest *manifest, QString *error)
{
    QByteArray json = body;
    if (json.startsWith("\xEF\xBB\xBF"))
        json.remove(0, 3);

    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        setError(error, QStringLiteral("Manifesto inválido: %1").arg(parseError.errorString()));
        return false;
    }

    const QJsonObject object = document.object();
    if (object.value(QStringLiteral("schemaVersion")).toInt() != 1 ||
        object.value(QStringLiteral("app")).toString() != QStringLiteral("Tavrinox")) {
        setError(error, QStringLiteral("Manifesto não pertence ao Tavrinox ou usa schema não suportado."));
        return false;
    }

    manifest->version = object.value(QStringLiteral("version")).toString();
    manifest->packageUrl = object.value(QStringLiteral("packageUrl")).toString();
    manifest->sha256 = object.value(QStringLiteral("sha256")).toString().toLower();
    const double size = object.value(QStringLiteral("size")).toDouble(-1.0);
    const bool sizeInRange =
        !object.value(QStringLiteral("size")).isDouble() || (size >= 0 && size <= kLargestPackageSize);
    manifest->size = sizeInRange ? static_cast<qint64>(size) : -1;
    manifest->publishedAt = object.value(QStringLiteral("publishedAt")).toString();
    manifest->releaseNotes = object.value(QStringLiteral("releaseNotes")).toString();
    if (manifest->version.isEmpty() || manifest->packageUrl.isEmpty() || manifest->sha256.isEmpty()) {
        setError(error, QStringLiteral("Manifesto sem version, packageUrl ou sha256."));
        return false;
    }
    if (!sizeInRange) {
        setError(error, QStringLiteral("Manifesto inválido: size fora do intervalo de 0 a 2^53 bytes."));
        return false;
    }
    if (QUrl(manifest->packageUrl).scheme() != QLatin1String("https")) {
        setError(error, QStringLiteral("Manifesto inválido: packageUrl não usa HTTPS."));
        return false;
    }
    return true;
}

UpdateCheckResult checkForUpdate(const QString &root)
{
    return checkForUpdate(root, updateManifestUrl(), updatePublicKey());
}

UpdateCheckResult checkForUpdate(const QString &root, const QUrl &manifestUrl, const QByteArray &publicKey)
{
    UpdateCheckResult result;
    if (manifestUrl.scheme() != QLatin1String("https")) {
        result.error = QStringLiteral("O endereço do manifesto de atualização não usa HTTPS: %1")
                           .arg(manifestUrl.toString());
        return result;
    }
    const QByteArray body = httpGet(manifestUrl, kManifestTimeoutMs, &result.error);
    if (body.isEmpty() && result.error.isEmpty())
        result.error = QStringLiteral("Manifesto inválido: o servidor respondeu sem conteúdo.");
    if (body.isEmpty() || !parseUpdateManifest(body, &result.manifest, &result.error))
        return result;
    if (!publicKey.isEmpty() &&
        !acceptSignedManifest(root, manifestUrl, body, publicKey, &result.manifest, &result.error))
        return result;

    result.installedVersion = readInstalledVersion(root);
    if (result.installedVersion.isEmpty())
        result.installedVersion = QStringLiteral("0.0.0");
    result.updateAvailable = QVersionNumber::compare(QVersionNumber::fromString(result.manifest.version),
                                                     QVersionNumber::fromString(result.installedVersion)) > 0;
    result.ok = true;
    return result;
}

} // namespace Tavrinox
