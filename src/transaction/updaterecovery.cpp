#include "transaction/updaterecovery.h"

#include "errortext.h"
#include "transaction/bundlepromotion.h"
#include "transaction/ownfiles.h"
#include "transaction/updatejournal.h"
#include "transaction/updatestate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>

namespace Tavrinox {

namespace {

void setMessage(QString *message, const QString &text)
{
    if (message)
        *message = text;
}

// A work area is named after its creation time, "yyyyMMddHHmmsszzz" in UTC.
bool isWorkAreaName(const QString &name)
{
    static const QRegularExpression pattern(QStringLiteral("^\\.update-[0-9]{17}$"));
    return pattern.match(name).hasMatch();
}

// What a save file killed while writing the journal or the state file leaves beside it.
bool isSaveFileTemporaryName(const QString &name)
{
    static const QRegularExpression pattern(
        QStringLiteral("^update-(journal|state)\\.json\\.[A-Za-z0-9]{6}$"));
    return pattern.match(name).hasMatch();
}

// The work area of the journal's transaction, as a name in the drive's Tavrinox folder; empty when the
// recorded path does not end in a work area's name.
QString journalWorkAreaName(const QJsonObject &journal)
{
    const QString name = QFileInfo(journal.value(QStringLiteral("workRoot")).toString()).fileName();
    return isWorkAreaName(name) ? name : QString();
}

// Interrupted downloads and updates leave their work areas (often hundreds of megabytes) and save-file
// temporaries behind. Only direct entries of the Tavrinox folder with those exact names are removed,
// never through a link; the work area of the pending journal stays for diagnosis. Failures are left for
// the next pass: nothing depends on these entries being gone.
void removeLeftovers(const QString &tavrinoxFolder, const QString &keptWorkArea)
{
    const QFileInfoList entries =
        QDir(tavrinoxFolder)
            .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        const QString name = entry.fileName();
        if (entry.isSymLink() || name == keptWorkArea)
            continue;
        if (entry.isDir() && isWorkAreaName(name))
            removePathIfExists(entry.filePath());
        else if (entry.isFile() && isSaveFileTemporaryName(name))
            QFile::remove(entry.filePath());
    }
}

// Keys whose recorded path is not the one derived from the drive it is on now: the drive came back under
// another root, or the journal was written by someone else.
QStringList keysRecordedElsewhere(const QJsonObject &journal, const TransactionPaths &paths)
{
    const QList<QPair<QString, QString>> derived{{QStringLiteral("windowsPath"), paths.windowsPath},
                                                 {QStringLiteral("linuxPath"), paths.linuxPath},
                                                 {QStringLiteral("windowsBackup"), paths.windowsBackup},
                                                 {QStringLiteral("linuxBackup"), paths.linuxBackup}};
    QStringList keys;
    for (const auto &[key, path] : derived) {
        if (QDir::cleanPath(journal.value(key).toString()) != QDir::cleanPath(path))
            keys.append(key);
    }
    return keys;
}

// Clean-up of a published update. A backup is only redundant while its live bundle exists: when the
// same version was being installed again, the published state can predate a swap that stopped
// between its two renames, and then the backup is the only copy of that bundle, so it goes back.
bool settleBackup(const QString &livePath, const QString &backupPath, QString *error)
{
    if (!QFileInfo::exists(livePath))
        return restoreBundleBackup(livePath, backupPath, error);
    return removePathIfExists(backupPath, error);
}

} // namespace

bool recoverPendingUpdate(const QString &driveRoot, QString *message, QString *error)
{
    // Everything below happens inside this folder; through a link it would happen somewhere else.
    const QString tavrinoxFolder = QDir(driveRoot).absoluteFilePath(QStringLiteral("Tavrinox"));
    const QFileInfo folder(tavrinoxFolder);
    if (isLink(folder)) {
        setError(error, QStringLiteral("A pasta Tavrinox da unidade é um link; a unidade foi preservada."));
        return false;
    }
    QJsonObject journal;
    if (!readPendingJournal(driveRoot, &journal, error))
        return false;
    removeLeftovers(tavrinoxFolder, journalWorkAreaName(journal));
    if (journal.isEmpty())
        return true;

    const auto text = [&journal](const char *key) { return journal.value(QLatin1String(key)).toString(); };
    const QString phase = text("phase");
    const QString version = text("version");
    const QString id = text("id");

    if (phase == QLatin1String("rolled-back")) {
        setMessage(message, QStringLiteral("Uma atualização anterior já havia sido revertida; os arquivos de "
                                           "diagnóstico foram preservados."));
        return true;
    }

    // The journal's paths are never used: a drive is untrusted, and one that came back under another
    // root still names the old one. Every path comes from this root and the checked id.
    const TransactionPaths paths = transactionPaths(driveRoot, id);
    const QStringList moved = keysRecordedElsewhere(journal, paths);
    if (!moved.isEmpty())
        appendTransactionLog(driveRoot, id, QStringLiteral("paths-rederived"),
                             QStringLiteral("Os caminhos do journal (%1) não correspondem a esta unidade; a "
                                            "recuperação usou os caminhos derivados de %2.")
                                 .arg(moved.join(QStringLiteral(", ")), driveRoot));

    // The state file is the commit point: once it names the journal's version the new bundles are in
    // place, whatever phase the journal had reached, and only the clean-up is left.
    if (!version.isEmpty() && version == readInstalledVersion(driveRoot)) {
        if (!settleBackup(paths.windowsPath, paths.windowsBackup, error) ||
            !settleBackup(paths.linuxPath, paths.linuxBackup, error) ||
            !flushTavrinoxFolder(driveRoot, error))
            return false;
        if (!QFile::remove(updateJournalPath(driveRoot))) {
            setError(error,
                     QStringLiteral("A atualização foi concluída, mas o journal não pôde ser removido."));
            return false;
        }
        appendTransactionLog(driveRoot, id, QStringLiteral("recovered-complete"),
                             QStringLiteral("Estado publicado encontrado; limpeza concluída."));
        setMessage(message, QStringLiteral("Uma atualização interrompida foi concluída com segurança."));
        return true;
    }

    if (phase == QLatin1String("staged")) {
        if (!QFile::remove(updateJournalPath(driveRoot))) {
            setError(error,
                     QStringLiteral("Não foi possível remover o journal de um staging não promovido."));
            return false;
        }
        appendTransactionLog(driveRoot, id, QStringLiteral("recovered-staged"),
                             QStringLiteral("Staging sem promoção descartado."));
        setMessage(message,
                   QStringLiteral("Uma atualização interrompida antes da promoção foi descartada; o staging "
                                  "foi preservado para diagnóstico."));
        return true;
    }

    // Only bundles that are back, on the medium, may be recorded as rolled back; a failed restore keeps
    // the phase, so the next recovery tries again.
    QString restoreError;
    if (!restoreBundleBackup(paths.windowsPath, paths.windowsBackup, &restoreError) ||
        !restoreBundleBackup(paths.linuxPath, paths.linuxBackup, &restoreError) ||
        !flushTavrinoxFolder(driveRoot, &restoreError)) {
        appendTransactionLog(
            driveRoot, id, QStringLiteral("failed"),
            QStringLiteral("Falha ao restaurar os bundles a partir dos backups: %1").arg(restoreError));
        setError(error, restoreError);
        return false;
    }
    journal.insert(QStringLiteral("phase"), QStringLiteral("rolled-back"));
    if (!writeUpdateJournal(driveRoot, journal, error))
        return false;
    appendTransactionLog(driveRoot, id, QStringLiteral("recovered-rollback"),
                         QStringLiteral("Bundles restaurados a partir dos backups."));
    setMessage(message,
               QStringLiteral("Uma atualização interrompida foi revertida com segurança; os arquivos de "
                              "diagnóstico foram preservados."));
    return true;
}

} // namespace Tavrinox
