// The transaction must leave a drive whole however it is interrupted. A child process runs the
// promotion, or the recovery of a promotion killed earlier, and the kill shim ends it with SIGKILL just
// before its N-th file-system operation (with writes counted, also before each write to a file it
// opened), for N = 1, 2, ... until a run completes. Recovery then runs here, and the drive must hold the
// whole old or the whole new version, with a state file that tells the truth.
#include "support/support.h"

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
    child.setEnvironment(QProcess::systemEnvironment() +
                         QStringList{"LD_PRELOAD=" TAVRINOX_KILLSHIM_LIBRARY,
                                     "TAVRINOX_KILLSHIM_SCOPE=" + root + '/',
                                     "TAVRINOX_KILLSHIM_AT=" + QString::number(killAt),
                                     QString("TAVRINOX_KILLSHIM_WRITES=") + (writes ? "1" : "")});
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
    const QString live = liveBundles(root), phase = journal["phase"].toString(),
                  version = readInstalledVersion(root);
    const bool backups = !QDir(root + "/Tavrinox").entryList({"*.backup-*"}).isEmpty();
    return recovered &&
                   version == (live == "old old"   ? "1.0.0"
                               : live == "new new" ? "1.1.0"
                                                   : "-") &&
                   (phase == "rolled-back" || (phase.isEmpty() && !backups))
               ? QString()
               : QString("bundles %1, state %2, journal \"%3\", backups %4 %5")
                     .arg(live, version, phase)
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
    void killAtEveryOperationEndsWhole_data() { table("crash"); }
    void killAtEveryOperationEndsWhole()
    {
        QFETCH(QString, recovery);
        QFETCH(QString, exfat);
        QFETCH(QString, floor);
        if (!*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        if (exfat == "1" && m_exfat.path.isEmpty() &&
            (!m_noExfat.isEmpty() || !m_exfat.mount("exfat", 64, &m_noExfat)))
            QSKIP(qPrintable("NOT TESTED on exFAT: " + m_noExfat));
        QTemporaryDir local;
        const QString root = (exfat == "1" ? m_exfat.path : local.path()) + "/drive", copy = root + "-copy";
        QStringList broken;
        int points = 0;
        for (int kill = 1;; ++kill) {
            QVERIFY(QDir(root).removeRecursively() && makeUpdateDrive(root));
            QString output = child("promote", root, kill, recovery == "0");
            if (!output.contains("killshim: killed at")) {
                // The run that was not stopped succeeded, counting one operation fewer than this point.
                QVERIFY2(output.endsWith(QString("completed after %1 calls\nexit 0").arg(kill - 1)),
                         qPrintable(output));
                QCOMPARE(liveBundles(root) + recoveredWhole(root), "new new");
                break;
            }
            for (int recoveryKill = 1; recovery == "1"; ++recoveryKill, ++points) {
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
            points += recovery == "0";
        }
        qInfo("%d kill points, %d not whole", points, int(broken.size()));
        QVERIFY2(broken.isEmpty() && points >= floor.toInt(),
                 qPrintable(broken.join('\n') + QString("\n%1 kill points").arg(points)));
    }
};

TAVRINOX_TEST(TestCrashTable)
#include "tst_crashtable.moc"
