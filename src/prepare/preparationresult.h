#pragma once

#include <QFileInfo>
#include <QString>
#include <QStringList>

namespace Tavrinox {

// What a preparation did: every step appends the paths it produced, a failing step leaves its message.
struct PreparationResult
{
    bool success = false;     // set only by the preparer, once every step is done
    QString message;          // the last failure, or the closing text on success
    QStringList writtenPaths; // directories ensured and files copied, kept or written, in order
};

// The two builds to copy onto a drive; either pair may be empty.
struct PreparationSources
{
    QString windowsExecutable;
    QString windowsDirectory;
    QString linuxExecutable;
    QString linuxDirectory;

    // The folder to copy: the one given, else the one holding the executable.
    QString windowsBundleDirectory() const { return bundleDirectory(windowsDirectory, windowsExecutable); }
    QString linuxBundleDirectory() const { return bundleDirectory(linuxDirectory, linuxExecutable); }

private:
    static QString bundleDirectory(const QString &directory, const QString &executable)
    {
        return directory.isEmpty() ? QFileInfo(executable).absolutePath() : directory;
    }
};

} // namespace Tavrinox
