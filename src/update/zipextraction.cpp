#include "update/zipextraction.h"

#include "errortext.h"
#include "update/zipdirectory.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStorageInfo>

namespace Tavrinox {

QString quoteForPowerShell(const QString &text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QLatin1String("''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QStringList powerShellExtractArguments(const QString &zipPath, const QString &destDir)
{
    return {QStringLiteral("-NoProfile"),
            QStringLiteral("-ExecutionPolicy"),
            QStringLiteral("Bypass"),
            QStringLiteral("-NonInteractive"),
            QStringLiteral("-Command"),
            QStringLiteral("Expand-Archive -LiteralPath %1 -DestinationPath %2 -Force")
                .arg(quoteForPowerShell(zipPath), quoteForPowerShell(destDir))};
}

namespace {

// Below this much room left, a failed extraction is taken as one that filled the drive.
constexpr qint64 kNearlyFullBytes = 1024 * 1024;

bool nearlyFull(const QString &directory)
{
    const QStorageInfo volume(directory);
    return volume.isValid() && volume.bytesAvailable() >= 0 && volume.bytesAvailable() < kNearlyFullBytes;
}

// Why a run that started and finished failed: a full drive, as the error says in English or Portuguese
// or as the room left shows; else the first line of the error without the command's name (the lines after
// it only point into the command line), or of the output when the error is empty.
QString failedRunReason(const QString &errorOutput, const QString &output, int exitCode, bool nearlyFull)
{
    static const QRegularExpression fullDisk(
        QStringLiteral("not enough space on the disk|espa.o suficiente no disco|0x80070070"),
        QRegularExpression::CaseInsensitiveOption);
    if (nearlyFull || fullDisk.match(errorOutput).hasMatch())
        return QStringLiteral("a unidade USB ficou sem espaço livre");
    static const QRegularExpression commandName(QStringLiteral("^\\s*Expand-Archive\\s*:\\s*"));
    for (const QString &text : {errorOutput, output}) {
        const QString line = text.trimmed().section(QLatin1Char('\n'), 0, 0).trimmed();
        if (!line.isEmpty())
            return QString(line).remove(commandName);
    }
    return QStringLiteral("o PowerShell terminou com o código %1").arg(exitCode);
}

} // namespace

bool runPowerShellExtraction(const QString &zipPath, const QString &destDir, int timeoutMs, QString *error)
{
    QProcess process;
    process.start(QStringLiteral("powershell"), powerShellExtractArguments(zipPath, destDir));
    const bool finished = process.waitForFinished(timeoutMs);
    const bool started = process.error() != QProcess::FailedToStart;
    if (!finished && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
    if (finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return true;

    QString reason;
    if (!started)
        reason = QStringLiteral("o PowerShell não pôde ser iniciado");
    else if (!finished)
        reason = QStringLiteral("o PowerShell não terminou a extração em %1 s").arg(timeoutMs / 1000);
    else if (process.exitStatus() != QProcess::NormalExit)
        reason = QStringLiteral("o PowerShell parou de forma inesperada");
    else
        reason = failedRunReason(QString::fromLocal8Bit(process.readAllStandardError()),
                                 QString::fromLocal8Bit(process.readAllStandardOutput()), process.exitCode(),
                                 nearlyFull(destDir));
    setError(error, QStringLiteral("Falha ao extrair ZIP: %1").arg(reason));
    return false;
}

bool extractZip(const QString &zipPath, const QString &destDir, QString *error)
{
    if (!QDir().mkpath(destDir)) {
        setError(error, QStringLiteral("Não foi possível criar staging: %1").arg(destDir));
        return false;
    }
    QString reason;
    if (!inspectZipBeforeExtraction(zipPath, destDir, &reason)) {
        setError(error, QStringLiteral("Falha ao extrair ZIP: %1").arg(reason));
        return false;
    }
#ifdef Q_OS_WIN
    return runPowerShellExtraction(zipPath, destDir, kPowerShellExtractTimeoutMs, error);
#else
    return extractZipInProcess(zipPath, destDir, error);
#endif
}

} // namespace Tavrinox
