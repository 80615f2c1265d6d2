#include "buildconfig.h"
#include "cli/commands.h"
#include "cli/console.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tavrinox-cli"));
    // The state file records the version of the program that wrote it, as the window's does.
    QCoreApplication::setApplicationVersion(QString::fromLatin1(Tavrinox::Build::kApplicationVersion));
    QCoreApplication::setOrganizationName(QStringLiteral("Tavrinox"));
    Tavrinox::Cli::setUpConsole();
    return Tavrinox::Cli::run(QCoreApplication::arguments().mid(1));
}
