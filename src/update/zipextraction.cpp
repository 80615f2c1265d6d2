#include "update/zipextraction.h"

#include "errortext.h"
#include "update/zipdirectory.h"

#include <QDir>
#include <QProcess>

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

bool runPowerShellExtraction(const QString &zipPath, const QString &destDir, int timeoutMs, QString *error)
{
    QProcess process;
    process.start(QStringLiteral("powershell"), powerShellExtractArguments(zipPath, destDir));
    const bool finished = process.waitForFinished(timeoutMs);
    if (!finished && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
    if (finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return true;

    setError(error, QStringLiteral("Falha ao extrair ZIP: %1%2")
                        .arg(QString::fromLocal8Bit(process.readAllStandardError()),
                             QString::fromLocal8Bit(process.readAllStandardOutput())));
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
