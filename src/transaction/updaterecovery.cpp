#include "transaction/updaterecovery.h"

#include "errortext.h"
#include "transaction/bundlepromotion.h"
#include "transaction/updatejournal.h"
#include "transaction/updatestate.h"

#include <QFile>
#include <QJsonObject>

namespace Tavrinox {

namespace {

void setMessage(QString *message, const QString &text)
{
    if (message)
        *message = text;
}

} // namespace

bool recoverPendingUpdate(const QString &driveRoot, QString *message, QString *error)
{
    QJsonObject journal;
    if (!readPendingJournal(driveRoot, &journal, error))
        return false;
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

    // The state file is the commit point: once it names the journal's version the new bundles are in
    // place, whatever phase the journal had reached, and only the clean-up is left.
    if (!version.isEmpty() && version == readInstalledVersion(driveRoot)) {
        if (!removePathIfExists(text("windowsBackup"), error) ||
            !removePathIfExists(text("linuxBackup"), error))
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

    if (!restoreBundleBackup(text("windowsPath"), text("windowsBackup"), error) ||
        !restoreBundleBackup(text("linuxPath"), text("linuxBackup"), error))
        return false;
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
