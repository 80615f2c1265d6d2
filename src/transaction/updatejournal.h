#pragma once

#include <QJsonObject>
#include <QString>

namespace Tavrinox {

// The durable record of an update in progress: Tavrinox/update-journal.json.
QString updateJournalPath(const QString &driveRoot);

// The append-only diagnostic log of one transaction: Tavrinox/update-log-<id>.jsonl.
QString transactionLogPath(const QString &driveRoot, const QString &transactionId);

// Stamps schemaVersion, app and updatedAt into the journal and replaces the file atomically,
// so a reader always finds either the previous phase or the new one.
bool writeUpdateJournal(const QString &driveRoot, QJsonObject journal, QString *error = nullptr);

// The pending journal, or an empty object when there is none. An unreadable or invalid journal
// is a failure and is left on the drive untouched for diagnosis.
bool readPendingJournal(const QString &driveRoot, QJsonObject *journal, QString *error = nullptr);

// Appends one compact record to the transaction's log.
bool appendTransactionLog(const QString &driveRoot, const QString &transactionId, const QString &phase,
                          const QString &detail, QString *error = nullptr);

} // namespace Tavrinox
