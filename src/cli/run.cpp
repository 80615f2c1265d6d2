#include "cli/commandline.h"
#include "cli/commands.h"
#include "cli/output.h"

#include <QCoreApplication>

namespace Tavrinox::Cli {

int run(const QStringList &arguments)
{
    const CommandLine line = parseCommandLine(arguments);
    if (!line.error.isEmpty()) {
        printNote(QStringLiteral("tavrinox-cli: %1\n%2").arg(line.error, usageLine(line.command)));
        return kExitUsage;
    }
    if (line.help) {
        printResult(helpText(line.command).trimmed());
        return kExitSuccess;
    }
    if (line.version) {
        printResult(QStringLiteral("tavrinox-cli %1").arg(QCoreApplication::applicationVersion()));
        return kExitSuccess;
    }
    using Command = int (*)(const CommandLine &);
    const QList<QPair<QString, Command>> commands{
        {QStringLiteral("list"), listDrives},      {QStringLiteral("prepare"), prepareDrives},
        {QStringLiteral("check"), checkDrive},     {QStringLiteral("update"), updateDrive},
        {QStringLiteral("recover"), recoverDrive}, {QStringLiteral("recycle"), recycleWorkspace},
        {QStringLiteral("verify"), verifyDrive},
    };
    for (const auto &[name, command] : commands) {
        if (name == line.command)
            return command(line);
    }
    return kExitUsage;
}

} // namespace Tavrinox::Cli
