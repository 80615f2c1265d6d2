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
    manifest->size = static_cast<qint64>(object.value(QStringLiteral("size")).toDouble(-1.0));
    manifest->publishedAt = object.value(QStringLiteral("publishedAt")).toString();
    manifest->releaseNotes = object.value(QStringLiteral("releaseNotes")).toString();
    if (manifest->version.isEmpty() || manifest->packageUrl.isEmpty() || manifest->sha256.isEmpty()) {
        setError(error, QStringLiteral("Manifesto sem version, packageUrl ou sha256."));
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
    const QByteArray body = httpGet(manifestUrl, kManifestTimeoutMs, &result.error);
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
