#include "support/standinprogram.h"
#include "update/runningcheck.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;

class TestRunningCheck : public QObject
{
    Q_OBJECT
private slots:
    void readsTasklistAnswer_data()
    {
        QTest::addColumn<QByteArray>("mode");
        QTest::addColumn<bool>("running");
        QTest::newRow("listed in capitals") << QByteArray("listed") << true;
        QTest::newRow("listed, exit code ignored") << QByteArray("listed-failing") << true;
        QTest::newRow("no such task") << QByteArray("absent") << false;
        QTest::newRow("only the manager") << QByteArray("manager-only") << false;
        QTest::newRow("hangs past the limit") << QByteArray("hang") << true;
    }
    void readsTasklistAnswer()
    {
        QFETCH(QByteArray, mode);
        QFETCH(bool, running);
        StandInPrograms programs;
        QVERIFY(programs.install(QStringLiteral("tasklist")));
        programs.setMode(mode);
        QCOMPARE(isTavrinoxListedByTasklist(mode == "hang" ? 1000 : kTasklistTimeoutMs), running);
        QCOMPARE(programs.recordedArguments(), QStringList({"/FI", "IMAGENAME eq Tavrinox.exe"}));
    }

    void missingTasklistCountsAsRunning()
    {
        QVERIFY(QStandardPaths::findExecutable(QStringLiteral("tasklist")).isEmpty());
        QVERIFY(isTavrinoxListedByTasklist(kTasklistTimeoutMs));
    }

    void findsProcessNamedExactlyTavrinox_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("running");
        QTest::newRow("the application") << "Tavrinox" << true;
        QTest::newRow("the manager") << "TavrinoxConfig" << false;
        QTest::newRow("other case") << "tavrinox" << false;
        QTest::newRow("the launcher") << "Tavrinox-Linux.sh" << false;
    }
    void findsProcessNamedExactlyTavrinox()
    {
        QFETCH(QString, name);
        QFETCH(bool, running);
        if (isTavrinoxRunning())
            QSKIP("a process named Tavrinox already runs on this machine");

        // A real program started from a file of that name, from an arbitrary folder.
        QTemporaryDir temp;
        const QString program = temp.filePath(name);
        QVERIFY(QFile::copy(QStringLiteral("/bin/sleep"), program));
        QProcess child;
        child.start(program, {QStringLiteral("60")});
        QVERIFY(child.waitForStarted());
        const bool found = isTavrinoxRunning();
        child.kill();
        child.waitForFinished();
        QCOMPARE(found, running);
    }
};

QTEST_GUILESS_MAIN(TestRunningCheck)
#include "tst_runningcheck.moc"
