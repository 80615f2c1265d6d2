#pragma once

#include <QByteArray>
#include <QStringList>
#include <QTemporaryDir>

// Shell scripts that stand in for programs the code runs by name (the Windows tools powershell and
// tasklist, kept in tests/standins/): for the life of the object their folder comes first on the
// search path. A script reads the behaviour the test asks for from $STANDIN_MODE and records its
// arguments, one a line, in $STANDIN_RECORD.
class StandInPrograms
{
public:
    StandInPrograms();
    ~StandInPrograms();
    Q_DISABLE_COPY(StandInPrograms)

    bool install(const QString &name);
    void setMode(const QByteArray &mode);
    QStringList recordedArguments() const;

private:
    QTemporaryDir m_dir;
    QByteArray m_savedPath;
    QByteArray m_savedMode;
    QByteArray m_savedRecord;
};
