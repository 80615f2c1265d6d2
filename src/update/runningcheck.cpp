#include "update/runningcheck.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace Tavrinox {

namespace {

const QString kImageName = QStringLiteral("Tavrinox");

// The kernel's short name of the process: the name of the file it executed.
QString commandName(const QString &processDir)
{
    QFile comm(processDir + QStringLiteral("/comm"));
    if (!comm.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLocal8Bit(comm.readAll()).trimmed();
}

// The executable's file name, when this process may read the link.
QString executableName(const QString &processDir)
{
    QString name = QFileInfo(QFileInfo(processDir + QStringLiteral("/exe")).symLinkTarget()).fileName();
    name.remove(QStringLiteral(" (deleted)"));
    return name;
}

} // namespace

bool isTavrinoxListedByTasklist(int timeoutMs)
{
    QProcess process;
    process.start(QStringLiteral("tasklist"),
                  {QStringLiteral("/FI"), QStringLiteral("IMAGENAME eq Tavrinox.exe")});
    if (!process.waitForFinished(timeoutMs)) {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
        return true;
    }
    return QString::fromLocal8Bit(process.readAllStandardOutput())
        .contains(QStringLiteral("Tavrinox.exe"), Qt::CaseInsensitive);
}

bool isTavrinoxProcessRunning()
{
    const QString self = QString::number(QCoreApplication::applicationPid());
    const QDir proc(QStringLiteral("/proc"));
    for (const QString &entry : proc.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        entry.toLongLong(&numeric);
        if (!numeric || entry == self)
            continue;
        const QString processDir = proc.filePath(entry);
        if (commandName(processDir) == kImageName || executableName(processDir) == kImageName)
            return true;
    }
    return false;
}

bool isTavrinoxRunning()
{
#ifdef Q_OS_WIN
    return isTavrinoxListedByTasklist(kTasklistTimeoutMs);
#else
    return isTavrinoxProcessRunning();
#endif
}

} // namespace Tavrinox
