#include "transaction/updatestate.h"

#include "errortext.h"
#include "transaction/durability.h"
#include "transaction/ownfiles.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace Tavrinox {

namespace {

QJsonObject bundleEntry(const QString &path, const QString &entryPoint)
{
    return QJsonObject{{QStringLiteral("path"), path}, {QStringLiteral("entryPoint"), entryPoint}};
}

QJsonObject stateDocument(const QString &installedVersion, const QString &packageSha256,
                          const QString &manifestIssuedAt)
{
    QJsonObject state;
    state.insert(QStringLiteral("schemaVersion"), 1);
    state.insert(QStringLiteral("app"), QStringLiteral("Tavrinox"));
    state.insert(QStringLiteral("installedVersion"), installedVersion);
    state.insert(QStringLiteral("installedAt"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
    state.insert(QStringLiteral("updatedByConfigVersion"), QCoreApplication::applicationVersion());
    if (!packageSha256.isEmpty())
        state.insert(QStringLiteral("lastPackageSha256"), packageSha256);
    if (!manifestIssuedAt.isEmpty())
        state.insert(QStringLiteral("manifestIssuedAt"), manifestIssuedAt);
    state.insert(QStringLiteral("bundles"),
                 QJsonObject{
                     {QStringLiteral("windows-x64"),
                      bundleEntry(QStringLiteral("Tavrinox/windows"), QStringLiteral("Tavrinox.exe"))},
                     {QStringLiteral("linux-x64"),
                      bundleEntry(QStringLiteral("Tavrinox/linux"), QStringLiteral("Tavrinox"))},
                 });
    return state;
}

// The drive's state, or an empty object when it cannot be read or belongs to another application.
QJsonObject readState(const QString &driveRoot)
{
    QByteArray bytes;
    if (!readOwnFile(updateStatePath(driveRoot), kOwnFileMaxBytes, &bytes))
        return {};
    const QJsonObject state = QJsonDocument::fromJson(bytes).object();
    if (state.value(QStringLiteral("app")).toString() != QLatin1String("Tavrinox"))
        return {};
    return state;
}

} // namespace

QString updateStatePath(const QString &driveRoot)
{
    return QDir(driveRoot).filePath(QStringLiteral("Tavrinox/update-state.json"));
}

bool writeUpdateState(const QString &driveRoot, const QString &installedVersion, const QString &packageSha256,
                      QString *error, const QString &manifestIssuedAt)
{
    const QString path = updateStatePath(driveRoot);
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        setError(error, QStringLiteral("Não foi possível criar a pasta de estado da atualização."));
        return false;
    }

    const QByteArray document =
        QJsonDocument(stateDocument(installedVersion, packageSha256, manifestIssuedAt))
            .toJson(QJsonDocument::Indented);

    QSaveFile file(path);
    if (!removeLinkInTheWay(path) || !file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        setError(error, QStringLiteral("Não foi possível abrir o arquivo de estado: %1").arg(path));
        return false;
    }
    if (file.write(document) != document.size()) {
        file.cancelWriting();
        setError(error, QStringLiteral("Não foi possível gravar o arquivo de estado: %1").arg(path));
        return false;
    }
    // The state file is the update's commit point: its rename must be on the medium before the backups
    // that could still undo the update are removed.
    if (!file.commit() || !flushEntry(QFileInfo(path).absolutePath())) {
        setError(error, QStringLiteral("Não foi possível salvar o arquivo de estado: %1").arg(path));
        return false;
    }
    return true;
}

QString readInstalledVersion(const QString &driveRoot)
{
    return readState(driveRoot).value(QStringLiteral("installedVersion")).toString();
}

QString readManifestIssuedAt(const QString &driveRoot)
{
    return readState(driveRoot).value(QStringLiteral("manifestIssuedAt")).toString();
}

} // namespace Tavrinox
