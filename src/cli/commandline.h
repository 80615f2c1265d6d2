#pragma once

#include <QString>
#include <QStringList>

namespace Tavrinox::Cli {

// What the program answers to the shell: distinct, so that scripts can tell the cases apart.
enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailed = 1,       // the operation ran and failed, was refused, declined or interrupted
    kExitUsage = 2,        // the command line is wrong; nothing was done
    kExitDriveMissing = 3, // a named drive is not listed, not mounted or no longer where it was
};

// One command line, read. Options that the command does not take are usage errors, never ignored.
struct CommandLine
{
    QString command; // list, prepare, check, update, recover, recycle, verify; empty for the program itself
    QStringList drives;
    bool help = false;
    bool version = false;
    bool json = false;
    bool yes = false;
    bool deep = false;
    QString windowsFolder; // --windows: the folder holding Tavrinox.exe
    QString linuxFolder;   // --linux: the folder holding Tavrinox
    QString server;        // --server: the update server's https base address
    QString caFile;        // --ca-file: further certificate authorities to trust, PEM
    QString error;         // why the line is wrong; empty when it is fine
};

// Reads the arguments that follow the program's name.
CommandLine parseCommandLine(const QStringList &arguments);

// "Uso: tavrinox-cli ..." for the command, or for the program when command is empty.
QString usageLine(const QString &command);

// The whole help of the command, or of the program when command is empty.
QString helpText(const QString &command);

} // namespace Tavrinox::Cli
