#include "update/updateapply.h"

#include "transaction/bundlepromotion.h"
#include "transaction/updaterecovery.h"
#include "update/httpget.h"
#include "update/packagelayout.h"
#include "update/zipextraction.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QStorageInfo>
#include <QUrl>

namespace Tavrinox {

namespace {

constexpr int kPackageDownloadTimeoutMs = 600000;

// Room for the package file, its extracted tree and a margin, measured on what was received.
constexpr qint64 kFreeSpaceFactor = 3;

bool hasRoomForUpdate(const QString &root, qint64 packageSize)
{
    const QStorageInfo storage(root);
    return storage.isValid() && storage.isReady() &&
           storage.bytesAvailable() >= kFreeSpaceFactor * packageSize;
}

QString packagePath(const QString &workArea)
{
    return workArea + QStringLiteral("/package.zip");
}

bool passesGate(const UpdateWriteGate &gate, QString *error)
{
    return !gate || gate(error);
}

bool writePackage(const QString &path, const QByteArray &body)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const bool written = file.write(body) == body.size() && file.flush();
    file.close();
    return written;
}

// Downloads and checks the package, then writes it into a new work area on the drive; the package
// leaves memory when this returns. Nothing is left on the drive when it fails.
bool downloadIntoWorkArea(const QString &root, const UpdateManifest &manifest, const UpdateWriteGate &gate,
                          QString *workArea, QString *sha256, QString *error)
{
    const QByteArray body = httpGet(QUrl(manifest.packageUrl), kPackageDownloadTimeoutMs, error);
    if (body.isEmpty())
        return false;
    if (manifest.size >= 0 && manifest.size != body.size()) {
        *error = QStringLiteral("Tamanho do pacote divergente. Esperado: %1 bytes. Recebido: %2 bytes.")
                     .arg(manifest.size)
                     .arg(body.size());
        return false;
    }
    *sha256 = QString::fromLatin1(QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex());
    if (*sha256 != manifest.sha256) {
        *error = QStringLiteral("Hash SHA-256 divergente. O pacote não será aplicado.");
        return false;
    }
    if (!passesGate(gate, error))
        return false;
    // A transaction left unfinished owns the drive until it is settled; recovery also clears what
    // earlier interrupted attempts left, before the free space is measured.
    QString recoveryError;
    if (!recoverPendingUpdate(root, nullptr, &recoveryError)) {
        *error = QStringLiteral("Há uma atualização pendente nesta unidade que não pôde ser recuperada; "
                                "nenhuma nova atualização foi iniciada.\n\n%1")
                     .arg(recoveryError);
        return false;
    }
    if (!hasRoomForUpdate(root, body.size())) {
        *error = QStringLiteral(
            "Espaço livre insuficiente na unidade USB para preparar a atualização com segurança.");
        return false;
    }

    // A fresh folder per attempt: one left by an interrupted attempt is never reused.
    *workArea =
        QDir(root).filePath(QStringLiteral("Tavrinox/.update-") +
                            QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMddHHmmsszzz")));
    if (!QDir().mkpath(*workArea)) {
        *error = QStringLiteral("Não foi possível criar área temporária na unidade USB.");
        return false;
    }
    if (!writePackage(packagePath(*workArea), body)) {
        removePathIfExists(*workArea);
        *error = QStringLiteral("Não foi possível gravar o pacote temporário na unidade USB.");
        return false;
    }
    return true;
}

} // namespace

UpdateApplyResult applyUpdate(const QString &root, const UpdateManifest &manifest,
                              const UpdateWriteGate &gate)
{
    UpdateApplyResult result;
    result.version = manifest.version;

    QString workArea;
    QString sha256;
    if (!downloadIntoWorkArea(root, manifest, gate, &workArea, &sha256, &result.error))
        return result;
    const QString extractedDir = workArea + QStringLiteral("/extracted");
    if (!extractZip(packagePath(workArea), extractedDir, &result.error) ||
        !validatePackageLayout(extractedDir, &result.error)) {
        removePathIfExists(workArea);
        return result;
    }
    // What the gate guards may have changed during the download and extraction. A refusal writes
    // nothing more, not even the work area's removal: recovery clears it later.
    if (!passesGate(gate, &result.error))
        return result;
    if (!promoteUpdate(root, extractedDir, manifest.version, sha256, &result.error, manifest.issuedAt)) {
        removePathIfExists(workArea);
        return result;
    }
    // A work area left behind would read as an unfinished update, so failing to remove it fails the
    // update even though the new bundles are already in place.
    result.ok = removePathIfExists(workArea, &result.error);
    return result;
}

} // namespace Tavrinox
