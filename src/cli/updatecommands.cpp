#include "cli/background.h"
#include "cli/commandline.h"
#include "cli/commands.h"
#include "cli/drivelookup.h"
#include "cli/output.h"
#include "errortext.h"
#include "transaction/updatejournal.h"
#include "update/manifestsignature.h"
#include "update/runningcheck.h"
#include "update/updateapply.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QStorageInfo>

#include <memory>
#include <optional>

namespace Tavrinox::Cli {

namespace {

const QString kNotMounted =
    QStringLiteral("Monte a unidade USB e atualize a lista antes de verificar atualizações.");
const QString kDriveGone =
    QStringLiteral("A unidade USB foi removida ou desmontada. A atualização foi interrompida sem gravar mais "
                   "nada nela; monte a unidade novamente e atualize a lista antes de tentar outra vez.");
const QString kCloseTavrinox =
    QStringLiteral("Feche o Tavrinox antes de atualizar os bundles da unidade USB.");

// Each phase of the apply as a line on standard error, and on a terminal a bar for the download. The
// reports come from the apply's thread and are drawn on the main thread, which owns standard error's bar.
UpdateApplyProgressHandler applyProgressPrinter(qint64 packageSize)
{
    struct Shown
    {
        explicit Shown(qint64 total)
            : bar(total)
        {}
        std::optional<UpdateApplyPhase> phase;
        qint64 received = 0;
        ProgressBar bar;
    };
    auto shown = std::make_shared<Shown>(qMax<qint64>(packageSize, 0));
    return [shown](const UpdateApplyProgress &progress) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), [shown, progress] {
            if (shown->phase != progress.phase && progress.phase != UpdateApplyPhase::Downloading)
                printNote(updateApplyProgressText(progress));
            shown->phase = progress.phase;
            if (progress.phase == UpdateApplyPhase::Downloading && progress.total > 0) {
                shown->bar.add(progress.received - shown->received);
                shown->received = progress.received;
                shown->bar.draw();
            }
        });
    };
}

QUrl manifestUrl(const CommandLine &line)
{
    return line.server.isEmpty() ? updateManifestUrl() : updateManifestUrl(line.server);
}

// The system's authorities stay trusted; those of the file are added for every later connection.
bool trustAuthorities(const QString &caFile)
{
    if (caFile.isEmpty())
        return true;
    const QList<QSslCertificate> certificates = QSslCertificate::fromPath(caFile, QSsl::Pem);
    if (certificates.isEmpty()) {
        printNote(QStringLiteral("Nenhum certificado PEM encontrado em %1").arg(caFile));
        return false;
    }
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setCaCertificates(QSslConfiguration::systemCaCertificates() + certificates);
    QSslConfiguration::setDefaultConfiguration(configuration);
    return true;
}

bool isWritableVolume(const QString &root)
{
    const QStorageInfo storage(root);
    return storage.isValid() && storage.isReady() && QFileInfo(root).isWritable();
}

// A journal left by an interrupted update is settled before anything else, as the window does when
// the drive shows up in its list; a drive whose recovery fails gets no new update.
bool settlePendingUpdate(const QString &root)
{
    if (!QFileInfo::exists(updateJournalPath(root)))
        return true;
    const UpdateRecoveryResult recovery = recoverInBackground(root);
    if (!recovery.ok) {
        printNote(QStringLiteral("Atualização pendente não recuperada em %1: %2").arg(root, recovery.error));
        printNote(QStringLiteral("Há uma atualização pendente que não pôde ser recuperada com segurança. "
                                 "Nenhuma nova atualização será iniciada para esta unidade."));
        return false;
    }
    printNote(recovery.message.isEmpty() ? QStringLiteral("Atualização pendente verificada em %1.").arg(root)
                                         : recovery.message);
    return true;
}

// Asked by the apply before it writes to the drive and again before the bundles are swapped: as in the
// window, the drive must still be in place and Tavrinox closed; here a Ctrl+C also stops it there. Once
// the swap has begun nothing is asked, so the transaction always runs to its end or its rollback.
UpdateWriteGate writeGate(const Platform::UsbDevice &drive)
{
    return [driveInPlace = driveGate(drive, kDriveGone)](QString *error) {
        if (InterruptionWatcher::requested()) {
            setError(error,
                     QStringLiteral("Atualização interrompida pelo usuário antes da troca dos bundles."));
            return false;
        }
        if (!driveInPlace(error))
            return false;
        if (!isTavrinoxRunning())
            return true;
        setError(error, kCloseTavrinox);
        return false;
    };
}

UpdateCheckResult checkInBackground(const QString &root, const QUrl &url)
{
    printNote(QStringLiteral("Consultando manifesto de atualização..."));
    return runInBackground([root, url] { return checkForUpdate(root, url, updatePublicKey()); });
}

QString installedText(const UpdateCheckResult &result)
{
    return result.installedVersion.isEmpty() ? QStringLiteral("desconhecida") : result.installedVersion;
}

QString releaseNotes(const UpdateManifest &manifest)
{
    return manifest.releaseNotes.isEmpty() ? QStringLiteral("Sem notas de versão.") : manifest.releaseNotes;
}

QJsonObject checkJson(const QString &root, const UpdateCheckResult &result)
{
    QJsonObject object{{QStringLiteral("ok"), result.ok}, {QStringLiteral("root"), root}};
    if (!result.ok) {
        object.insert(QStringLiteral("error"), result.error);
        return object;
    }
    object.insert(QStringLiteral("installedVersion"), result.installedVersion);
    object.insert(QStringLiteral("availableVersion"), result.manifest.version);
    object.insert(QStringLiteral("updateAvailable"), result.updateAvailable);
    object.insert(QStringLiteral("releaseNotes"), result.manifest.releaseNotes);
    object.insert(QStringLiteral("publishedAt"), result.manifest.publishedAt);
    return object;
}

} // namespace

int checkDrive(const CommandLine &line)
{
    Platform::UsbDevice drive;
    if (const int code = resolveOneDrive(line.drives, kNotMounted, true, &drive))
        return code;
    if (!trustAuthorities(line.caFile))
        return kExitFailed;
    const UpdateCheckResult result = checkInBackground(drive.rootPath, manifestUrl(line));
    if (line.json) {
        printJson(checkJson(drive.rootPath, result));
        return result.ok ? kExitSuccess : kExitFailed;
    }
    if (!result.ok) {
        printResult(QStringLiteral("Falha ao consultar manifesto: %1").arg(oneLine(result.error)));
        return kExitFailed;
    }
    printResult(
        result.updateAvailable
            ? QStringLiteral("Atualização disponível.\n\nVersão instalada: %1\nVersão disponível: %2\n\n%3")
                  .arg(installedText(result), result.manifest.version, releaseNotes(result.manifest))
            : QStringLiteral("A unidade já está atualizada.\n\nVersão instalada: %1\nVersão disponível: %2")
                  .arg(installedText(result), result.manifest.version));
    return kExitSuccess;
}

int updateDrive(const CommandLine &line)
{
    Platform::UsbDevice drive;
    if (const int code = resolveOneDrive(line.drives, kNotMounted, true, &drive))
        return code;
    const QString root = drive.rootPath;
    if (!isWritableVolume(root)) {
        printNote(QStringLiteral("A unidade USB não está disponível para gravação. Monte-a com leitura e "
                                 "gravação antes de atualizar."));
        return kExitFailed;
    }
    if (!settlePendingUpdate(root))
        return kExitFailed;
    if (isTavrinoxRunning()) {
        printNote(kCloseTavrinox);
        return kExitFailed;
    }
    if (!trustAuthorities(line.caFile))
        return kExitFailed;

    const UpdateCheckResult check = checkInBackground(root, manifestUrl(line));
    if (!check.ok) {
        printResult(QStringLiteral("Falha ao consultar manifesto: %1").arg(oneLine(check.error)));
        return kExitFailed;
    }
    const QString installed = installedText(check);
    if (!check.updateAvailable) {
        printResult(QStringLiteral("Nenhuma atualização disponível. Instalado: %1 | Remoto: %2")
                        .arg(installed, check.manifest.version));
        return kExitSuccess;
    }
    if (!line.yes &&
        !askYesNo(
            QStringLiteral("Atualizar Tavrinox na unidade %1?\n\nVersão instalada: %2\nVersão disponível: "
                           "%3\n\n%4")
                .arg(root, installed, check.manifest.version, releaseNotes(check.manifest)))) {
        printResult(QStringLiteral("Atualização cancelada pelo usuário."));
        return kExitFailed;
    }
    if (!isStillWhereChosen(drive))
        return kExitDriveMissing;

    printNote(QStringLiteral("Baixando, validando e aplicando atualização..."));
    const UpdateManifest manifest = check.manifest;
    const UpdateApplyResult result = runInBackground(
        [root, manifest, gate = writeGate(drive), progress = applyProgressPrinter(manifest.size)] {
            return applyUpdate(root, manifest, gate, progress);
        },
        QStringLiteral(
            "Interrupção recebida: a atualização para antes da troca dos bundles ou, se a troca já "
            "começou, termina ou é revertida antes de o programa sair."));
    if (!result.ok) {
        printResult(QStringLiteral("Falha ao aplicar atualização: %1").arg(oneLine(result.error)));
        return kExitFailed;
    }
    printResult(QStringLiteral("Unidade atualizada para Tavrinox %1.").arg(result.version));
    return kExitSuccess;
}

} // namespace Tavrinox::Cli
