#pragma once

#include <QJsonObject>
#include <QString>

namespace Tavrinox {

// The durable record of an update in progress: Tavrinox/update-journal.json.
QString updateJournalPath(const QString &driveRoot);

// A transaction id is its start time, "yyyyMMddHHmmss" in UTC; it names the log and the backups, so
// nothing else is accepted from a journal.
bool isTransactionId(const QString &text);

// Where one transaction keeps the live bundles and their backups, all under <driveRoot>/Tavrinox/.
struct TransactionPaths
{
    QString windowsPath;
    QString linuxPath;
    QString windowsBackup;
    QString linuxBackup;
};
TransactionPaths transactionPaths(const QString &driveRoot, const QString &transactionId);

// The append-only diagnostic log of one transaction: Tavrinox/update-log-<id>.jsonl.
QString transactionLogPath(const QString &driveRoot, const QString &transactionId);

// Stamps schemaVersion, app and updatedAt into the journal and replaces the file atomically and durably,
// so a reader always finds either the previous phase or the new one, even after the drive was pulled.
bool writeUpdateJournal(const QString &driveRoot, QJsonObject journal, QString *error = nullptr);

// The pending journal, or an empty object when there is none. An unreadable or invalid journal (one
// whose id is not a transaction id included) is a failure and is left on the drive untouched.
bool readPendingJournal(const QString &driveRoot, QJsonObject *journal, QString *error = nullptr);

// Appends one compact record to the transaction's log.
bool appendTransactionLog(const QString &driveRoot, const QString &transactionId, const QString &phase,
                          const QString &detail, QString *error = nullptr);

} // namespace Tavrinox
