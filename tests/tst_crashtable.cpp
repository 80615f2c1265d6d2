// The transaction must leave a drive whole however it is interrupted. A child process runs the
// promotion, or the recovery of a promotion killed earlier, and the kill shim ends it with SIGKILL just
// before its N-th file-system operation (with writes counted, also before each write to a file it
// opened), for N = 1, 2, ... until a run completes. Recovery then runs here, and the drive must hold the
// whole old or the whole new version, with a state file that tells the truth. The same holds for a whole
// apply, killed the same way and then moved to another root or pulled out with its stick; and a
// preparation killed the same way leaves each file its old or its new self.
#include "support/support.h"
#include "transaction/durability.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

// The child: "transaction promote|recover <drive>", "transaction apply <drive> <url> <sha256> <size>" (of
// version 1.1.0, from the test's server) or "transaction prepare <drive> <Windows build> <Linux build>".
int transactionStep(const QStringList &arguments)
{
    const QString root = arguments.value(1), step = arguments[0];
    QString error;
    QCoreApplication::setApplicationVersion("1.0.5");
    bool ok = false;
    if (step == "apply" && HttpsServer::trustTestCertificateAuthority()) {
        const UpdateApplyResult result =
            applyUpdate(root, {"1.1.0", arguments[2], arguments[3], arguments[4].toLongLong(), {}, {}, {}});
        ok = result.ok, error = result.error;
    } else if (step == "prepare") {
        const PreparationResult result = DrivePreparer().prepare(
            root, {arguments[2] + "/Tavrinox.exe", arguments[2], arguments[3] + "/Tavrinox", arguments[3]});
        ok = result.success, error = result.message;
    } else {
        ok = step == "promote" ? promoteUpdate(root, packageRoot(root), "1.1.0", "ab", &error)
                               : recoverPendingUpdate(root, nullptr, &error);
    }
    QTextStream(stderr) << error << '\n';
    return !ok;
}
TAVRINOX_CHILD_MODE("transaction", transactionStep)

// Runs a step in a child that the shim kills, after victim if one is given, before operation killAt in
// the step's drive; what it said, then "exit N".
QString child(const QStringList &step, int killAt, bool writes, qint64 victim = 0)
{
    QProcess child;
    child.setEnvironment(QProcess::systemEnvironment() +
                         QStringList{"LD_PRELOAD=" TAVRINOX_KILLSHIM_LIBRARY,
                                     "TAVRINOX_KILLSHIM_SCOPE=" + step[1] + '/',
                                     "TAVRINOX_KILLSHIM_AT=" + QString::number(killAt),
                                     "TAVRINOX_KILLSHIM_VICTIM=" + QString::number(victim),
                                     QString("TAVRINOX_KILLSHIM_WRITES=") + (writes ? "1" : "")});
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(), QStringList{"transaction"} + step);
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
    bool noExfat() // the exFAT volume the tests share, mounted by the first that needs it
    {
        return m_exfat.path.isEmpty() && (!m_noExfat.isEmpty() || !m_exfat.mount("exfat", 64, &m_noExfat));
    }

private slots:
    // Durable means on the medium before a later step relies on it: the incoming bundles before they
    // replace the live ones, every journal phase and the state before the next change, the replaced
    // bundles before the state that names their version, the backups' removal before the journal's.
    void flushesComeBeforeWhatReliesOnThem()
    {
        if (!*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        QTemporaryDir local;
        const QString root = local.path() + "/drive";
        QVERIFY(makeUpdateDrive(root));
        qputenv("TAVRINOX_KILLSHIM_TRACE", "1");
        const QStringList events = child({"promote", root}, 0, false).split('\n').filter("killshim: ");
        qunsetenv("TAVRINOX_KILLSHIM_TRACE");
        const auto at = [&](const QString &pattern, int from = 0) { // the first whole line matching
            return int(events.indexOf(QRegularExpression("killshim: " + pattern), from));
        };
        const QString flush = "(fsync|syncfs) " + QRegularExpression::escape(root + "/Tavrinox/");
        const int linux = at("renameat2 .*/Tavrinox/linux"), state = at("rename .*/update-state.json"),
                  removed =
                      int(events.lastIndexOf(QRegularExpression("killshim: (unlink|rmdir) .*backup-.*")));
        const QList<int> order{at("(fsync|syncfs) .*/extracted/"),
                               at("renameat2 .*/windows.backup-.*"),
                               linux,
                               at(flush, linux),
                               state,
                               at("(unlink|rmdir) .*backup-.*"),
                               removed,
                               at(flush, removed),
                               at("unlink .*/update-journal.json")};
        QVERIFY2(order[0] >= 0 &&
                     std::adjacent_find(order.begin(), order.end(), std::greater_equal<>()) == order.end(),
                 qPrintable(events.join('\n')));
        for (int i = 0; (i = at("rename .*/update-(journal|state).json", i) + 1) > 0;)
            QVERIFY2(at(flush, i) == i, qPrintable(events.mid(0, i + 1).join('\n')));
    }

    // A preparation flushes a bundle's copies before any takes its file's place, and each batch of
    // renames before its next change; the end of the trace is a flush. A large copy is flushed on the way
    // as well, so that the medium works alongside it: its temporary is flushed once more than at the end.
    // Prepared again, the unchanged drive is not written at all.
    void preparationFlushesBeforeWhatReliesOnIt()
    {
        if (!*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        QTemporaryDir local;
        const QString build = local.filePath("build/"), drive = local.filePath("drive");
        QVERIFY(makeFiles(build + "windows",
                          QString("Tavrinox.exe Qt6Core.dll platforms/qwindows.dll vcruntime140.dll "
                                  "vcruntime140_1.dll msvcp140.dll")
                              .split(' ')) &&
                makeFiles(build + "linux", {"Tavrinox", "qt.conf"}) &&
                write(build + "linux/big.so", QByteArray(24 << 20, 'b')) && QDir().mkpath(drive));
        qputenv("TAVRINOX_KILLSHIM_TRACE", "1");
        const QStringList events = child({"prepare", drive, build + "windows", build + "linux"}, 0, true)
                                       .split('\n')
                                       .filter(QRegularExpression("^killshim: (?!completed)"));
        qunsetenv("TAVRINOX_KILLSHIM_TRACE");
        const QString trace = events.join('\n');
        const auto next = [&](const QString &pattern, int from) { // the first whole line matching
            return int(events.indexOf(QRegularExpression("killshim: " + pattern), from));
        };
        const QString flush = "(fsync|fdatasync|syncfs) .*";
        for (const QString bundle : {"windows", "linux"}) {
            const int placed = next("rename .*/Tavrinox/" + bundle + "/.*", 0);
            const int written = int(events.lastIndexOf(QRegularExpression(".* a file"), placed));
            QVERIFY2(written >= 0 && next(flush, written) < placed, qPrintable(trace));
        }
        for (int i = 0; (i = next("(rename|linkat) .*", i) + 1) > 0;) {
            const int change = next("(?!rename |linkat |fsync|fdatasync|syncfs).*", i);
            QVERIFY2(next(flush, i) > 0 && (change < 0 || next(flush, i) < change), qPrintable(trace));
        }
        const int big = int(events.filter(QRegularExpression("syncfs .*/big\\.so\\.[A-Za-z]{6}/$")).size());
        const bool bigFirst = events.filter(QRegularExpression("open.* .*/linux/.*\\.[A-Za-z]{6}$"))
                                  .value(0)
                                  .contains("/big.so.");
        QVERIFY2(big > int(bigFirst) && next(flush, events.size() - 1) >= 0, qPrintable(trace));
        qputenv("TAVRINOX_KILLSHIM_TRACE", "1");
        const QString again = child({"prepare", drive, build + "windows", build + "linux"}, 0, true);
        qunsetenv("TAVRINOX_KILLSHIM_TRACE");
        QVERIFY2(again.endsWith("\nexit 0") && !again.contains(QRegularExpression(
                                                   "killshim: (open|rename|link|write|copy_file|unlink)")),
                 qPrintable(again));
    }

    void killAtEveryOperationEndsWhole_data() { table("crash"); }
    void killAtEveryOperationEndsWhole()
    {
        QFETCH(QString, recovery);
        QFETCH(QString, exfat);
        QFETCH(QString, floor);
        if (!*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        if (exfat == "1" && noExfat())
            QSKIP(qPrintable("NOT TESTED on exFAT: " + m_noExfat));
        QTemporaryDir local;
        const QString root = (exfat == "1" ? m_exfat.path : local.path()) + "/drive", copy = root + "-copy";
        QStringList broken;
        int points = 0;
        for (int kill = 1;; ++kill) {
            QVERIFY(QDir(root).removeRecursively() && makeUpdateDrive(root));
            QString output = child({"promote", root}, kill, recovery == "0");
            if (!output.contains("killshim: killed at")) {
                // The run that was not stopped succeeded, counting one operation fewer than this point.
                QVERIFY2(output.endsWith(QString("completed after %1 calls\nexit 0").arg(kill - 1)),
                         qPrintable(output));
                QCOMPARE(liveBundles(root) + recoveredWhole(root), "new new");
                break;
            }
            for (int recoveryKill = 1; recovery == "1"; ++recoveryKill, ++points) {
                QVERIFY(QDir(copy).removeRecursively() && run("cp", {"-r", root, copy}));
                output = child({"recover", root}, recoveryKill, false);
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

    // An apply killed before each of its operations in turn, its drive then moved to another root or its
    // stick pulled (the FUSE process killed first, the volume checked and mounted again), ends whole once
    // recovered where the drive now is; the attempt leaves nothing but the work area of a rolled-back
    // journal.
    void interruptedApplyEndsWhole_data()
    {
        QTest::addColumn<bool>("pulled");
        QTest::newRow("moved to another root") << false;
        QTest::newRow("pulled stick, exFAT") << true;
    }
    void interruptedApplyEndsWhole()
    {
        QFETCH(bool, pulled);
        if (!*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        if (pulled && noExfat())
            QSKIP(qPrintable("NOT TESTED on exFAT: " + m_noExfat));
        QTemporaryDir local;
        HttpsServer server;
        const QString drive = (pulled ? m_exfat.path : local.path()) + "/drive",
                      root = pulled ? drive : local.filePath("moved");
        QVERIFY(makeFiles(local.filePath("p/Tavrinox"), packageFiles("new"), "new") &&
                zip(local.filePath("p"), local.filePath("p.zip")) &&
                HttpsServer::trustTestCertificateAuthority() && server.start());
        const QByteArray package = read(local.filePath("p.zip"));
        server.route("/p.zip", 200, package);
        const QStringList apply = {"apply", drive, server.url("/p.zip").toString(), sha256(package),
                                   QString::number(package.size())};
        QMap<QString, int> outcomes;
        QStringList broken;
        int kill = 1;
        for (QString device, why;; ++kill) {
            QVERIFY(QDir(drive).removeRecursively() && makeDrive(drive, "1.0.0") && flushTree(drive));
            const qint64 fuse = pulled ? fuseProcess(m_exfat.path, &device) : 0;
            const QString output = child(apply, kill, false, fuse);
            if (!output.contains("killshim: killed at")) {
                QVERIFY2(output.endsWith("\nexit 0") &&
                             liveBundles(drive) + recoveredWhole(drive) == "new new",
                         qPrintable(output));
                break;
            }
            // The FUSE process is dead (gone, or a zombie nobody reaps) before the stick is plugged back in.
            const auto gone = [&] {
                const QString state = QString(read(QString("/proc/%1/stat").arg(fuse))).section(' ', 2, 2);
                return state.isEmpty() || state == "Z";
            };
            QVERIFY2(pulled ? fuse > 0 && QTest::qWaitFor(gone, 5000) &&
                                  remountAfterPull(m_exfat.path, device, &why)
                            : QDir().rename(drive, root),
                     qPrintable(why));
            const bool pending = QFileInfo::exists(updateJournalPath(root));
            QString problem = recoveredWhole(root + '/');
            if (pending && !pulled && !QByteArrayList(tree(root).values()).join().contains("paths-rederived"))
                problem += "the log does not say that the paths were derived again";
            ++outcomes[problem.isEmpty() ? liveBundles(root) : "broken"];
            if (!problem.isEmpty())
                broken += QString("killed at %1: %2").arg(kill).arg(problem);
            QJsonObject journal;
            QVERIFY(recoverPendingUpdate(root)); // a second time, with nothing left to do
            readPendingJournal(root, &journal);
            const QStringList left =
                QDir(root + "/Tavrinox")
                    .entryList({".update-*", "update-*.json.*"}, QDir::AllEntries | QDir::Hidden);
            QVERIFY2(left.size() <= int(journal["phase"] == "rolled-back"), qPrintable(left.join(' ')));
            QVERIFY(QDir(root).removeRecursively());
        }
        qInfo("%d kill points: whole old %d, whole new %d, broken %d", kill - 1, outcomes["old old"],
              outcomes["new new"], int(broken.size()));
        QVERIFY2(broken.isEmpty(), qPrintable(broken.join('\n')));
    }

    // A preparation over older bundles (each file 20 KiB longer) killed before each of its operations in
    // turn, writes counted too, or run out of room on a small real volume, leaves each file its old or its
    // new self; the next preparation then leaves exactly the new bundles, no temporary beside them.
    void interruptedPreparationLeavesEachFileOldOrNew_data()
    {
        QTest::addColumn<bool>("full");
        QTest::newRow("killed") << false;
        QTest::newRow("volume full") << true;
    }
    void interruptedPreparationLeavesEachFileOldOrNew()
    {
        QFETCH(bool, full);
        Volume volume;
        QTemporaryDir local;
        QString whyNot;
        if (!full && !*TAVRINOX_KILLSHIM_LIBRARY)
            QSKIP("NOT TESTED: the kill shim is built on Linux only");
        if (full && !volume.mount("ext4", 16, &whyNot))
            QSKIP(qPrintable("NOT TESTED on a full volume: " + whyNot));
        const QString build = local.filePath("build/"), drive = full ? volume.path : local.filePath("drive");
        const QByteArray older(20480, 'o');
        QVERIFY(makeFiles(build + "windows",
                          QString("Tavrinox.exe Qt6Core.dll platforms/qwindows.dll vcruntime140.dll "
                                  "vcruntime140_1.dll msvcp140.dll")
                              .split(' ')) &&
                makeFiles(build + "linux", {"Tavrinox", "lib/libQt6Core.so.6", "qt.conf"}) &&
                write(build + "linux/lib/big.so", QByteArray(1 << 20, 'b')));
        Tree fresh = tree(build, false);
        fresh.removeIf([](Tree::iterator entry) { return *entry == "/"; });
        int kill = 1;
        for (QString output;; ++kill) {
            QVERIFY(QDir(drive + "/Tavrinox").removeRecursively());
            for (auto [file, bytes] : fresh.asKeyValueRange())
                QVERIFY(write(drive + "/Tavrinox/" + file, bytes + older));
            const PreparationSources sources{build + "windows/Tavrinox.exe", build + "windows",
                                             build + "linux/Tavrinox", build + "linux"};
            if (full) {
                QVERIFY(write(drive + "/filler",
                              QByteArray(QStorageInfo(drive).bytesAvailable() - (256 << 10), 'f')));
                output = DrivePreparer().prepare(drive, sources).message;
                QVERIFY2(output.startsWith("Nao foi possivel gravar o arquivo: ") &&
                             QFile::remove(drive + "/filler"),
                         qPrintable(output));
            } else {
                output = child({"prepare", drive, build + "windows", build + "linux"}, kill, true);
                QVERIFY2(output.contains("killshim: killed at") || output.endsWith("\nexit 0"),
                         qPrintable(output));
            }
            for (auto [file, bytes] : fresh.asKeyValueRange())
                QVERIFY2((QList{bytes, bytes + older}.contains(read(drive + "/Tavrinox/" + file))),
                         qPrintable(file));
            QVERIFY(DrivePreparer().prepare(drive, sources).success);
            for (const QString bundle : {"windows", "linux"})
                QCOMPARE(tree(drive + "/Tavrinox/" + bundle), tree(build + bundle, false));
            if (full || !output.contains("killshim: killed at"))
                break;
        }
        qInfo("%d kill points", kill - 1);
        QVERIFY(full || kill > 50); // fewer would mean the shim misses calls of the copy
    }
};

TAVRINOX_TEST(TestCrashTable)
#include "tst_crashtable.moc"
