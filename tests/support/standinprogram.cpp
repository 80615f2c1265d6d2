#include "support/standinprogram.h"

#include <QDir>
#include <QFile>

namespace {

void restore(const char *name, const QByteArray &value)
{
    if (value.isNull())
        qunsetenv(name);
    else
        qputenv(name, value);
}

QByteArray saved(const char *name)
{
    return qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray();
}

} // namespace

StandInPrograms::StandInPrograms()
    : m_savedPath(saved("PATH"))
    , m_savedMode(saved("STANDIN_MODE"))
    , m_savedRecord(saved("STANDIN_RECORD"))
{
    qputenv("PATH", QFile::encodeName(m_dir.path()) + ':' + m_savedPath);
    qputenv("STANDIN_RECORD", QFile::encodeName(m_dir.filePath(QStringLiteral("arguments.txt"))));
    qunsetenv("STANDIN_MODE");
}

StandInPrograms::~StandInPrograms()
{
    restore("PATH", m_savedPath);
    restore("STANDIN_MODE", m_savedMode);
    restore("STANDIN_RECORD", m_savedRecord);
}

bool StandInPrograms::install(const QString &name)
{
    return QFile::copy(QStringLiteral(TAVRINOX_STANDIN_DIR "/") + name, m_dir.filePath(name));
}

void StandInPrograms::setMode(const QByteArray &mode)
{
    qputenv("STANDIN_MODE", mode);
}

QStringList StandInPrograms::recordedArguments() const
{
    QFile record(m_dir.filePath(QStringLiteral("arguments.txt")));
    if (!record.open(QIODevice::ReadOnly))
        return {};
    QStringList arguments = QString::fromUtf8(record.readAll()).split(QLatin1Char('\n'));
    arguments.removeLast();
    return arguments;
}
