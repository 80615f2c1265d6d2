#include "transaction/updatejournal.h"

#include "errortext.h"
#include "transaction/durability.h"
#include "transaction/ownfiles.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>

#include <optional>

namespace Tavrinox {

namespace {

// Milliseconds since the journal's startedAt, or nothing when the journal or its time cannot be read.
std::optional<qint64> elapsedSinceTransactionStart(const QString &driveRoot)
{
    QByteArray bytes;
    if (!readOwnFile(updateJournalPath(driveRoot), kOwnFileMaxBytes, &bytes))
        return std::nullopt;
    const QString startedAtText =
        QJsonDocument::fromJson(bytes).object().value(QStringLiteral("startedAt")).toString();
    const QDateTime startedAt = QDateTime::fromString(startedAtText, Qt::ISODateWithMs);
    if (!startedAt.isValid())
        return std::nullopt;
    return startedAt.msecsTo(QDateTime::currentDateTimeUtc());
}

} // namespace

QString updateJournalPath(const QString &driveRoot)
{
    return QDir(driveRoot).filePath(QStringLiteral("Tavrinox/update-journal.json"));
}

bool isTransactionId(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9]{14}$"));
    return pattern.match(text).hasMatch();
}

TransactionPaths transactionPaths(const QString &driveRoot, const QString &transactionId)
{
    const QDir drive(driveRoot);
    return {drive.absoluteFilePath(QStringLiteral("Tavrinox/windows")),
            drive.absoluteFilePath(QStringLiteral("Tavrinox/linux")),
            drive.absoluteFilePath(QStringLiteral("Tavrinox/windows.backup-%1").arg(transactionId)),
            drive.absoluteFilePath(QStringLiteral("Tavrinox/linux.backup-%1").arg(transactionId))};
}

QString transactionLogPath(const QString &driveRoot, const QString &transactionId)
{
    return QDir(driveRoot).filePath(QStringLiteral("Tavrinox/update-log-%1.jsonl").arg(transactionId));
}

bool writeUpdateJournal(const QString &driveRoot, QJsonObject journal, QString *error)
{
    journal.insert(QStringLiteral("schemaVersion"), 1);
    journal.insert(QStringLiteral("app"), QStringLiteral("Tavrinox"));
    journal.insert(QStringLiteral("updatedAt"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    const QByteArray document = QJsonDocument(journal).toJson(QJsonDocument::Indented);

    const QString path = updateJournalPath(driveRoot);
    QSaveFile file(path);
    // The save file puts its own bytes on the medium; its rename over the old journal is made durable
    // with the folder, before the step the new phase announces may begin.
    const bool written = removeLinkInTheWay(path) && file.open(QIODevice::WriteOnly | QIODevice::Text) &&
                         file.write(document) == document.size() && file.commit() &&
                         flushEntry(QFileInfo(path).absolutePath());
    if (!written) {
        setError(error,
                 QStringLiteral("Não foi possível registrar a transação de atualização: %1").arg(path));
        return false;
    }
    return true;
}

bool readPendingJournal(const QString &driveRoot, QJsonObject *journal, QString *error)
{
    if (!journal)
        return false;
    *journal = QJsonObject();

    const QString path = updateJournalPath(driveRoot);
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return true;
    // A journal that is a link, a pipe, a device or too large for one is not this program's.
    QByteArray bytes;
    if (!readOwnFile(path, kOwnFileMaxBytes, &bytes)) {
        setError(error, QStringLiteral("Não foi possível ler o journal de atualização pendente."));
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    const QJsonObject object = document.object();
    if (!document.isObject() || object.value(QStringLiteral("schemaVersion")).toInt() != 1 ||
        object.value(QStringLiteral("app")).toString() != QLatin1String("Tavrinox") ||
        !isTransactionId(object.value(QStringLiteral("id")).toString())) {
        setError(error,
                 QStringLiteral(
                     "O journal de atualização pendente é inválido e foi preservado para diagnóstico."));
        return false;
    }
    *journal = object;
    return true;
}

bool appendTransactionLog(const QString &driveRoot, const QString &transactionId, const QString &phase,
                          const QString &detail, QString *error)
{
    QJsonObject record;
    record.insert(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    record.insert(QStringLiteral("transactionId"), transactionId);
    record.insert(QStringLiteral("phase"), phase);
    record.insert(QStringLiteral("detail"), detail);
    if (const std::optional<qint64> elapsed = elapsedSinceTransactionStart(driveRoot))
        record.insert(QStringLiteral("elapsedMs"), *elapsed);
    const QByteArray line = QJsonDocument(record).toJson(QJsonDocument::Compact) + '\n';

    const QString path = transactionLogPath(driveRoot, transactionId);
    QFile file(path);
    const bool written = removeLinkInTheWay(path) &&
                         file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text) &&
                         file.write(line) >= 0 && file.flush();
    if (!written) {
        setError(error, QStringLiteral("Não foi possível registrar o log da transação: %1").arg(path));
        return false;
    }
    return true;
}

} // namespace Tavrinox
