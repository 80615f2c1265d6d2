#include "app/configwindow.h"
#include "buildconfig.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TavrinoxConfig"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(Tavrinox::Build::kApplicationVersion));
    QCoreApplication::setOrganizationName(QStringLiteral("Tavrinox"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/Tavrinox.ico")));

    int result = 0;
    {
        // The window and everything it owns go before the application object.
        Tavrinox::ConfigWindow window;
        window.show();
        result = QApplication::exec();
    }
    return result;
}
