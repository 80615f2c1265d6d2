// The transaction must leave a drive whole however it is interrupted. A child process runs the
// promotion, or the recovery of a promotion killed earlier, and the kill shim ends it with SIGKILL just
// before its N-th file-system operation (with writes counted, also before each write to a file it
// opened), for N = 1, 2, ... until a run completes. Recovery then runs here, and the drive must hold the
// whole old or the whole new version, with a state file that tells the truth.
#include "support/support.h"
#include "transaction/bundlepromotion.h"
#include "transaction/updatejournal.h"
#include "transaction/updaterecovery.h"
#include "transaction/updatestate.h"

#include <QJsonObject>
#include <QProcess>

using namespace Fixture;
using namespace Tavrinox;

namespace {

// The child: "transaction promote <drive>" or "transaction recover <drive>".
int transactionStep(const QStringList &arguments)
{
    const QString root = arguments.value(1);
    QString error;
    QCoreApplication::setApplicationVersion("1.0.5");
    const bool ok = arguments[0] == "promote" ? promoteUpdate(root, packageRoot(root), "1.1.0", "ab", &error)
                                              : recoverPendingUpdate(root, nullptr, &error);
    QTextStream(stderr) << error << '\n';
    return !ok;
}
TAVRINOX_CHILD_MODE("transaction", transactionStep)

// Runs a step in a child that the shim kills before operation killAt; what it said, then "exit N".
QString child(const QString &step, const QString &root, int killAt, bool writes)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LD_PRELOAD", TAVRINOX_KILLSHIM_LIBRARY);
    environment.insert("TAVRINOX_KILLSHIM_SCOPE", root + '/');
    environment.insert("TAVRINOX_KILLSHIM_AT", QString::number(killAt));
    environment.insert("TAVRINOX_KILLSHIM_WRITES", writes ? "1" : "");
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(), {"transaction", step, root});
    child.waitForFinished(300000);
    return child.readAll() + "exit " + QString::number(child.exitStatus() ? -1 : child.exitCode());
}

// Recovers the drive here; empty when it is then whole: one version throughout, as the state file says,
// with nothing pending but a rolled-back journal and its backups.
QString recoveredWhole(const QString &root)
{
    QString error;
    QJsonObject journal;
    const bool recovered =
        recoverPendingUpdate(root, nullptr, &error) && readPendingJournal(root, &journal, &error);
    const QString live = liveBundles(root), phase = journal["phase"].toString();
    const bool backups = !QDir(root + "/Tavrinox").entryList({"*.backup-*"}).isEmpty();
    if (recovered &&
        readInstalledVersion(root) == (live == "old old"   ? "1.0.0"
                                       : live == "new new" ? "1.1.0"
                                                           : "-") &&
        (phase == "rolled-back" || (phase.isEmpty() && !backups)))
        return {};
    return QString("bundles %1, state %2, journal \"%3\", backups %4 %5")
        .arg(live, readInstalledVersion(root), phase)
        .arg(backups)
        .arg(error);
}

} // namespace

class TestCrashTable : public QObject
{
    Q_OBJECT
    Volume m_exfat;
    QString m_noExfat;

private slots:
    void killAtEveryOperationEndsWhole_data()
    {
        QTest::addColumn<bool>(
            "recovery"); // kill the recovery of each killed promotion at every operation too
        QTest::addColumn<bool>("exfat");
        QTest::addColumn<int>("floor"); // fewer kill points means the shim stopped counting
        row("promotion, writes counted too, local disk", false, false, 60);
        row("recovery, local disk", true, false, 300);
        row("promotion, writes counted too, exFAT", false, true, 60);
        row("recovery, exFAT", true, true, 300);
    }
    void killAtEveryOperationEndsWhole()
    {
        QFETCH(bool, recovery);
        QFETCH(bool, exfat);
        QFETCH(int, floor);
        if (!*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        if (exfat && m_exfat.path.isEmpty() &&
            (!m_noExfat.isEmpty() || !m_exfat.mount("exfat", 64, &m_noExfat)))
            QSKIP(qPrintable("NOT TESTED on exFAT: " + m_noExfat));
        QTemporaryDir local;
        const QString root = (exfat ? m_exfat.path : local.path()) + "/drive", copy = root + "-copy";
        QStringList broken;
        int points = 0;
        for (int kill = 1;; ++kill) {
            QVERIFY(QDir(root).removeRecursively() && makeUpdateDrive(root));
            QString output = child("promote", root, kill, !recovery);
            if (!output.contains("killshim: killed at")) {
                // The run that was not stopped succeeded, counting one operation fewer than this point.
                QVERIFY2(output.endsWith(QString("completed after %1 calls\nexit 0").arg(kill - 1)),
                         qPrintable(output));
                QCOMPARE(liveBundles(root) + recoveredWhole(root), "new new");
                break;
            }
            for (int recoveryKill = 1; recovery; ++recoveryKill, ++points) {
                QVERIFY(QDir(copy).removeRecursively() && run("cp", {"-r", root, copy}));
                output = child("recover", root, recoveryKill, false);
                if (!output.contains("killshim: killed at")) {
                    QVERIFY2(output.endsWith("\nexit 0") && recoveredWhole(root).isEmpty(),
                             qPrintable(output));
                    break;
                }
                if (const QString problem = recoveredWhole(root); !problem.isEmpty())
                    broken += QString("promotion killed at %1, recovery at %2: %3")
                                  .arg(kill)
                                  .arg(recoveryKill)
                                  .arg(problem);
                QVERIFY(QDir(root).removeRecursively() && QDir().rename(copy, root));
            }
            if (const QString problem = recoveredWhole(root); !problem.isEmpty())
                broken += QString("promotion killed at %1: %2").arg(kill).arg(problem);
            points += !recovery;
        }
        qInfo("%d kill points, %d not whole", points, int(broken.size()));
        QVERIFY2(broken.isEmpty() && points >= floor,
                 qPrintable(broken.join('\n') + QString("\n%1 kill points").arg(points)));
    }
};

TAVRINOX_TEST(TestCrashTable)
#include "tst_crashtable.moc"
