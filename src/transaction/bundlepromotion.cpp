#include "transaction/bundlepromotion.h"

#include "errortext.h"
#include "transaction/durability.h"
#include "transaction/updatejournal.h"
#include "transaction/updatestate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

namespace Tavrinox {

namespace {

// The journal of one promotion; every phase rewrites the same object.
class PromotionJournal
{
public:
    PromotionJournal(const QString &driveRoot, const QString &packageRoot, const QString &version,
                     const QString &packageSha256)
        : m_driveRoot(driveRoot)
    {
        const QDateTime startedAt = QDateTime::currentDateTimeUtc();
        m_id = startedAt.toString(QStringLiteral("yyyyMMddHHmmss"));
        m_paths = transactionPaths(driveRoot, m_id);
        m_journal = QJsonObject{
            {QStringLiteral("id"), m_id},
            {QStringLiteral("startedAt"), startedAt.toString(Qt::ISODateWithMs)},
            {QStringLiteral("version"), version},
            {QStringLiteral("packageSha256"), packageSha256},
            {QStringLiteral("workRoot"), QFileInfo(QDir(packageRoot).absolutePath()).absolutePath()},
            {QStringLiteral("windowsPath"), m_paths.windowsPath},
            {QStringLiteral("linuxPath"), m_paths.linuxPath},
            {QStringLiteral("windowsBackup"), m_paths.windowsBackup},
            {QStringLiteral("linuxBackup"), m_paths.linuxBackup},
        };
    }

    bool write(const QString &phase, QString *error)
    {
        m_journal.insert(QStringLiteral("phase"), phase);
        return writeUpdateJournal(m_driveRoot, m_journal, error);
    }

    bool log(const QString &phase, const QString &detail, QString *error = nullptr) const
    {
        return appendTransactionLog(m_driveRoot, m_id, phase, detail, error);
    }

    const QString &windowsPath() const { return m_paths.windowsPath; }
    const QString &linuxPath() const { return m_paths.linuxPath; }
    const QString &windowsBackup() const { return m_paths.windowsBackup; }
    const QString &linuxBackup() const { return m_paths.linuxBackup; }

private:
    QString m_driveRoot;
    QString m_id;
    TransactionPaths m_paths;
    QJsonObject m_journal;
};

QString notDurableMessage(const QString &path)
{
    return QStringLiteral("Não foi possível confirmar a gravação na unidade USB: %1").arg(path);
}

// A transaction that did not finish owns the drive until recovery settles it: a new one would overwrite
// its journal and orphan its backups. Only a rolled-back journal, kept for diagnosis, may be replaced.
bool noUnfinishedTransaction(const QString &driveRoot, QString *error)
{
    QJsonObject pending;
    if (!readPendingJournal(driveRoot, &pending, error))
        return false;
    if (pending.isEmpty() ||
        pending.value(QStringLiteral("phase")).toString() == QLatin1String("rolled-back"))
        return true;
    setError(error, QStringLiteral("Há uma atualização interrompida nesta unidade que ainda não foi "
                                   "recuperada; nenhuma nova atualização será iniciada antes disso."));
    return false;
}

} // namespace

QString stillNeedsRecoveryMessage()
{
    return QStringLiteral("A unidade ainda precisa de recuperação: a atualização interrompida será revertida "
                          "automaticamente na próxima listagem das unidades, e nenhuma nova atualização será "
                          "iniciada antes disso.");
}

bool flushTavrinoxFolder(const QString &driveRoot, QString *error)
{
    const QString folder = QDir(driveRoot).absoluteFilePath(QStringLiteral("Tavrinox"));
    if (flushEntry(folder))
        return true;
    setError(error, notDurableMessage(folder));
    return false;
}

bool promoteUpdate(const QString &driveRoot, const QString &packageRoot, const QString &version,
                   const QString &packageSha256, QString *error, const QString &manifestIssuedAt)
{
    if (!noUnfinishedTransaction(driveRoot, error))
        return false;
    // The package's files become the live bundles by renames alone, so they must be on the medium before
    // the transaction begins.
    if (!flushTree(packageRoot)) {
        setError(error, notDurableMessage(packageRoot));
        return false;
    }
    PromotionJournal journal(driveRoot, packageRoot, version, packageSha256);
    const QDir package(packageRoot);

    if (!journal.write(QStringLiteral("staged"), error))
        return false;
    if (!journal.log(QStringLiteral("staged"), QStringLiteral("Pacote validado e pronto para promoção."),
                     error))
        return false;

    journal.log(QStringLiteral("promoting-windows"),
                QStringLiteral("Iniciando substituição do bundle Windows."));
    if (!journal.write(QStringLiteral("promoting-windows"), error))
        return false;
    if (!replaceBundle(journal.windowsPath(), package.filePath(QStringLiteral("Tavrinox/windows")),
                       journal.windowsBackup(), error)) {
        journal.log(QStringLiteral("failed"), QStringLiteral("Falha na promoção do bundle Windows."));
        return false;
    }
    if (!journal.write(QStringLiteral("windows-promoted"), error))
        return false;
    journal.log(QStringLiteral("windows-promoted"), QStringLiteral("Bundle Windows promovido."));
    if (injectedTestFailure(QStringLiteral("windows-promoted"), error))
        return false;

    if (!journal.write(QStringLiteral("promoting-linux"), error))
        return false;
    journal.log(QStringLiteral("promoting-linux"), QStringLiteral("Iniciando substituição do bundle Linux."));
    QString swapError;
    if (!replaceBundle(journal.linuxPath(), package.filePath(QStringLiteral("Tavrinox/linux")),
                       journal.linuxBackup(), &swapError)) {
        // Only a drive whose old bundles are both back, on the medium, may be recorded as rolled back;
        // otherwise the journal keeps its phase and recovery retries at the next listing.
        QString restoreError;
        if (!restoreBundleBackup(journal.windowsPath(), journal.windowsBackup(), &restoreError) ||
            !restoreBundleBackup(journal.linuxPath(), journal.linuxBackup(), &restoreError) ||
            !flushTavrinoxFolder(driveRoot, &restoreError)) {
            journal.log(QStringLiteral("failed"),
                        QStringLiteral("Falha na promoção Linux; os backups não puderam ser restaurados."));
            setError(
                error,
                QStringLiteral("%1\n\n%2\n\n%3").arg(swapError, restoreError, stillNeedsRecoveryMessage()));
            return false;
        }
        journal.write(QStringLiteral("rolled-back"), nullptr);
        journal.log(QStringLiteral("rolled-back"),
                    QStringLiteral("Falha na promoção Linux; bundle Windows restaurado."));
        setError(error, swapError);
        return false;
    }
    if (!journal.write(QStringLiteral("bundles-promoted"), error))
        return false;
    journal.log(QStringLiteral("bundles-promoted"), QStringLiteral("Bundles Windows e Linux promovidos."));
    if (injectedTestFailure(QStringLiteral("bundles-promoted"), error))
        return false;

    if (!writeUpdateState(driveRoot, version, packageSha256, error, manifestIssuedAt)) {
        journal.log(QStringLiteral("failed"), QStringLiteral("Falha ao publicar o estado da atualização."));
        return false;
    }
    if (!journal.write(QStringLiteral("state-written"), error))
        return false;
    journal.log(QStringLiteral("state-written"), QStringLiteral("Estado da versão publicado com sucesso."));
    if (injectedTestFailure(QStringLiteral("state-written"), error))
        return false;

    // The backups go before the journal, and durably: a journal lost first would leave them orphaned.
    if (!removePathIfExists(journal.windowsBackup(), error) ||
        !removePathIfExists(journal.linuxBackup(), error) || !flushTavrinoxFolder(driveRoot, error))
        return false;
    if (!QFile::remove(updateJournalPath(driveRoot))) {
        setError(error,
                 QStringLiteral(
                     "A atualização foi aplicada, mas não foi possível finalizar o journal de transação."));
        return false;
    }
    journal.log(QStringLiteral("completed"), QStringLiteral("Transação concluída e backups removidos."));
    return true;
}

bool replaceBundle(const QString &livePath, const QString &incomingPath, const QString &backupPath,
                   QString *error)
{
    if (!removePathIfExists(backupPath, error))
        return false;
    if (QFileInfo::exists(livePath) && !renameEntry(livePath, backupPath)) {
        setError(error, QStringLiteral("Não foi possível criar backup de: %1").arg(livePath));
        return false;
    }
    if (renameEntry(incomingPath, livePath))
        return true;
    if (QFileInfo::exists(backupPath))
        renameEntry(backupPath, livePath);
    setError(error, QStringLiteral("Não foi possível aplicar novo bundle em: %1").arg(livePath));
    return false;
}

bool restoreBundleBackup(const QString &livePath, const QString &backupPath, QString *error)
{
    if (!QFileInfo::exists(backupPath))
        return true;
    if (!removePathIfExists(livePath, error))
        return false;
    if (!renameEntry(backupPath, livePath)) {
        setError(error, QStringLiteral("Não foi possível restaurar o backup de: %1").arg(livePath));
        return false;
    }
    return true;
}

bool removePathIfExists(const QString &path, QString *error)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return true;
    // A directory is removed with everything in it; a file or a link is removed as itself, never followed.
    const bool removed =
        info.isDir() && !info.isSymLink() ? QDir(path).removeRecursively() : QFile::remove(path);
    if (!removed) {
        setError(error, QStringLiteral("Não foi possível remover: %1").arg(path));
        return false;
    }
    return true;
}

bool injectedTestFailure(const QString &phase, QString *error)
{
    if (qEnvironmentVariable("TAVRINOX_TEST_FAIL_UPDATE_PHASE").trimmed() != phase)
        return false;
    setError(error, QStringLiteral("Falha de teste injetada na fase: %1").arg(phase));
    return true;
}

} // namespace Tavrinox
