#include "update/updateapply.h"

#include "transaction/bundlepromotion.h"
#include "transaction/updaterecovery.h"
#include "update/httpget.h"
#include "update/packagelayout.h"
#include "update/sha256.h"
#include "update/zipextraction.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QStorageInfo>
#include <QUrl>

namespace Tavrinox {

namespace {

constexpr int kPackageDownloadTimeoutMs = 600000;

// Room for the package file, its extracted tree and a margin, measured on what was received.
constexpr qint64 kFreeSpaceFactor = 3;

// The memory set aside before the first byte arrives. A manifest may state any size: past this, the
// buffer grows only as the bytes actually come.
constexpr qint64 kMaxReservedPackageBytes = 512 * 1024 * 1024;

// How often the download's progress is reported; more would only crowd the interface's event queue.
constexpr qint64 kProgressIntervalMs = 100;

// Passes the apply's progress to the caller, the download's a few times a second.
class ProgressReporter
{
public:
    ProgressReporter(const UpdateApplyProgressHandler &handler, qint64 total)
        : m_handler(handler)
    {
        m_progress.total = total;
        m_downloadTime.start();
        m_sinceReport.start();
    }

    void enter(UpdateApplyPhase phase)
    {
        m_progress.phase = phase;
        report();
    }

    void received(qint64 bytes)
    {
        m_progress.received = bytes;
        m_progress.bytesPerSecond = bytes * 1000 / qMax<qint64>(1, m_downloadTime.elapsed());
        if (bytes == m_progress.total || m_sinceReport.elapsed() >= kProgressIntervalMs)
            report();
    }

private:
    void report()
    {
        if (m_handler)
            m_handler(m_progress);
        m_sinceReport.restart();
    }

    const UpdateApplyProgressHandler &m_handler;
    UpdateApplyProgress m_progress;
    QElapsedTimer m_downloadTime;
    QElapsedTimer m_sinceReport;
};

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

// Receives the package into one buffer, reserved from the manifest's size, and hashes each piece as it
// arrives: the body is held once and never read again for its hash. A body that grows past the
// manifest's size is refused as soon as it does.
bool downloadPackage(const UpdateManifest &manifest, ProgressReporter *progress, QByteArray *body,
                     QString *sha256, QString *error)
{
    if (manifest.size > 0)
        body->reserve(qMin(manifest.size, kMaxReservedPackageBytes));
    Sha256 hash;
    const auto receive = [&](const QByteArray &piece, QString *refusal) {
        if (manifest.size >= 0 && body->size() + piece.size() > manifest.size) {
            *refusal = QStringLiteral(
                           "Tamanho do pacote divergente. Esperado: %1 bytes. Recebido: mais de %1 bytes.")
                           .arg(manifest.size);
            return false;
        }
        body->append(piece);
        hash.addData(piece.constData(), piece.size());
        progress->received(body->size());
        return true;
    };
    if (!httpGetStreamed(QUrl(manifest.packageUrl), kPackageDownloadTimeoutMs, receive, error) ||
        body->isEmpty())
        return false;
    if (manifest.size >= 0 && manifest.size != body->size()) {
        *error = QStringLiteral("Tamanho do pacote divergente. Esperado: %1 bytes. Recebido: %2 bytes.")
                     .arg(manifest.size)
                     .arg(body->size());
        return false;
    }
    *sha256 = hash.hexResult();
    return true;
}

// Downloads and checks the package, then writes it into a new work area on the drive; the package
// leaves memory when this returns. Nothing is left on the drive when it fails.
bool downloadIntoWorkArea(const QString &root, const UpdateManifest &manifest, const UpdateWriteGate &gate,
                          ProgressReporter *progress, QString *workArea, QString *sha256, QString *error)
{
    QByteArray body;
    if (!downloadPackage(manifest, progress, &body, sha256, error))
        return false;
    progress->enter(UpdateApplyPhase::Checking);
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

    progress->enter(UpdateApplyPhase::Writing);
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

// Extracts the package into the work area and checks its layout. The package file goes as soon as it is
// extracted, so that the flush before the promotion does not put bytes on the medium only to delete them.
bool extractIntoWorkArea(const QString &workArea, const QString &extractedDir, QString *error)
{
    if (!extractZip(packagePath(workArea), extractedDir, error) ||
        !validatePackageLayout(extractedDir, error))
        return false;
    QFile::remove(packagePath(workArea));
    return true;
}

QString megabytes(qint64 bytes)
{
    return QLocale(QLocale::Portuguese, QLocale::Brazil).toString(double(bytes) / (1024 * 1024), 'f', 1);
}

} // namespace

QString updateApplyProgressText(const UpdateApplyProgress &progress)
{
    switch (progress.phase) {
    case UpdateApplyPhase::Downloading:
        if (progress.total < 0)
            return QStringLiteral("Baixando a atualização: %1 MB (%2 MB/s)")
                .arg(megabytes(progress.received), megabytes(progress.bytesPerSecond));
        return QStringLiteral("Baixando a atualização: %1 de %2 MB (%3 MB/s)")
            .arg(megabytes(progress.received), megabytes(progress.total), megabytes(progress.bytesPerSecond));
    case UpdateApplyPhase::Checking:
        return QStringLiteral("Conferindo o pacote baixado...");
    case UpdateApplyPhase::Writing:
        return QStringLiteral("Gravando o pacote na unidade USB...");
    case UpdateApplyPhase::Extracting:
        return QStringLiteral("Extraindo o pacote na unidade USB...");
    case UpdateApplyPhase::Replacing:
        break;
    }
    return QStringLiteral("Substituindo os bundles da unidade USB...");
}

UpdateApplyResult applyUpdate(const QString &root, const UpdateManifest &manifest,
                              const UpdateWriteGate &gate, const UpdateApplyProgressHandler &progressHandler)
{
    UpdateApplyResult result;
    result.version = manifest.version;
    ProgressReporter progress(progressHandler, manifest.size);
    progress.enter(UpdateApplyPhase::Downloading);

    QString workArea;
    QString sha256;
    if (!downloadIntoWorkArea(root, manifest, gate, &progress, &workArea, &sha256, &result.error))
        return result;
    progress.enter(UpdateApplyPhase::Extracting);
    const QString extractedDir = workArea + QStringLiteral("/extracted");
    if (!extractIntoWorkArea(workArea, extractedDir, &result.error)) {
        removePathIfExists(workArea);
        return result;
    }
    // What the gate guards may have changed during the download and extraction. A refusal writes
    // nothing more, not even the work area's removal: recovery clears it later.
    if (!passesGate(gate, &result.error))
        return result;
    progress.enter(UpdateApplyPhase::Replacing);
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
