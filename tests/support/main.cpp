// The main of every test program: runs the registered test classes in turn, or, given "--only Class"
// or "--skip Class" before Qt Test's own arguments, some of them; or runs a child mode.
#include "support/support.h"

#include <QApplication>

int main(int argc, char **argv)
{
    if (argc > 1 && childModes.contains(argv[1])) {
        QCoreApplication application(argc, argv);
        return childModes.value(argv[1])(QCoreApplication::arguments().mid(2));
    }
    QApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments();
    const QString choice = arguments.value(1), chosen = arguments.value(2);
    if (choice == "--only" || choice == "--skip")
        arguments.remove(1, 2);
    int failed = 0;
    for (const auto &[name, make] : testClasses) {
        if ((choice == "--only" && name != chosen) || (choice == "--skip" && name == chosen))
            continue;
        const std::unique_ptr<QObject> test(make());
        failed |= QTest::qExec(test.get(), arguments);
    }
    return failed;
}
