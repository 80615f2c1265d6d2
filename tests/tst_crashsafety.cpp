// The update transaction must leave a drive whole however it is interrupted: a child process runs
// the promotion (or the recovery) and is killed with SIGKILL just before its N-th file-system
// operation, for N = 1, 2, ... until a run completes; recovery then runs here and the drive must
// hold the whole old or the whole new version, with a state file that tells the truth.
#include "support/loopvolume.h"
#include "support/updatedrive.h"
#include "transaction/updatejournal.h"
#include "transaction/updaterecovery.h"
#include "transaction/updatestate.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;

namespace {

// A guard against a shim that stops counting: the transaction on these small bundles takes well under it.
constexpr int kMaxOperations = 500;

struct ChildRun
{
    bool killed = false; // ended by the shim at the requested operation
    int exitCode = -1;   // of a run that ended by itself
    int operations = -1; // counted operations of a run that ended by itself
    QString killedAt;    // the operation that was not performed, as the shim names it
    QString output;
};

ChildRun runChild(const QStringList &arguments, const QString &driveRoot, int killAt,
                  const QString &failPhase = QString())
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(TAVRINOX_KILLSHIM_LIBRARY));
    environment.insert(QStringLiteral("TAVRINOX_KILLSHIM_SCOPE"),
                       QDir(driveRoot).absolutePath() + QLatin1Char('/'));
    environment.insert(QStringLiteral("TAVRINOX_KILLSHIM_AT"), QString::number(killAt));
    environment.insert(QStringLiteral("TAVRINOX_TEST_FAIL_UPDATE_PHASE"), failPhase);

    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(TAVRINOX_TRANSACTION_CHILD), arguments);
    ChildRun run;
    if (!process.waitForFinished(300000)) {
        process.kill();
        process.waitForFinished();
        run.output = QStringLiteral("the child did not finish");
        return run;
    }
    run.output = QString::fromUtf8(process.readAll());
    const QRegularExpressionMatch killed =
        QRegularExpression(QStringLiteral("killshim: killed at call \\d+ \\((.*)\\)")).match(run.output);
    if (process.exitStatus() == QProcess::CrashExit && killed.hasMatch()) {
        run.killed = true;
        run.killedAt = killed.captured(1);
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    const QRegularExpressionMatch completed =
        QRegularExpression(QStringLiteral("killshim: completed after (\\d+) calls")).match(run.output);
    if (completed.hasMatch())
        run.operations = completed.captured(1).toInt();
    return run;
}

QStringList promoteArguments(const UpdateDrive &drive)
{
    return {QStringLiteral("promote"), drive.root(), drive.packageRoot(), UpdateDrive::newVersion,
            UpdateDrive::packageSha256};
}

QString bundleName(const QByteArray &digest, const QByteArray &oldDigest, const QByteArray &newDigest)
{
    if (digest.isEmpty())
        return QStringLiteral("missing");
    if (digest == oldDigest)
        return QStringLiteral("old");
    if (digest == newDigest)
        return QStringLiteral("new");
    return QStringLiteral("a mixture");
}

// Why the drive is not whole after a recovery that returned ok/error, or an empty string.
QString wholenessProblem(const UpdateDrive &drive, bool recovered, const QString &recoveryError)
{
    if (!recovered)
        return QStringLiteral("recovery failed: %1").arg(recoveryError);

    const BundleDigests live = drive.live();
    QString expectedVersion;
    if (live == drive.oldBundles())
        expectedVersion = UpdateDrive::oldVersion;
    else if (live == drive.newBundles())
        expectedVersion = UpdateDrive::newVersion;
    else
        return QStringLiteral("Windows bundle is %1, Linux bundle is %2")
            .arg(bundleName(live.windows, drive.oldBundles().windows, drive.newBundles().windows),
                 bundleName(live.linux, drive.oldBundles().linux, drive.newBundles().linux));

    const QString stateVersion = readInstalledVersion(drive.root());
    if (stateVersion != expectedVersion)
        return QStringLiteral("bundles are %1 but the state file says \"%2\"")
            .arg(expectedVersion, stateVersion);

    QJsonObject journal;
    QString journalError;
    if (!readPendingJournal(drive.root(), &journal, &journalError))
        return QStringLiteral("journal unreadable: %1").arg(journalError);
    const QString phase = journal.value(QStringLiteral("phase")).toString();
    if (!journal.isEmpty() && phase != QLatin1String("rolled-back"))
        return QStringLiteral("journal left in phase \"%1\"").arg(phase);
    const QStringList backups = QDir(QDir(drive.root()).filePath(QStringLiteral("Tavrinox")))
                                    .entryList({QStringLiteral("*.backup-*")});
    if (!backups.isEmpty() && phase != QLatin1String("rolled-back"))
        return QStringLiteral("backups left without a rolled-back journal: %1")
            .arg(backups.join(QLatin1String(", ")));
    return QString();
}

QString recoverAndCheck(const UpdateDrive &drive)
{
    QString message;
    QString error;
    const bool recovered = recoverPendingUpdate(drive.root(), &message, &error);
    return wholenessProblem(drive, recovered, error);
}

bool copyTree(const QString &from, const QString &to)
{
    if (!QDir().mkpath(to))
        return false;
    QDirIterator it(from, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString source = it.next();
        const QString target = QDir(to).filePath(QDir(from).relativeFilePath(source));
        const bool copied = it.fileInfo().isDir() ? QDir().mkpath(target) : QFile::copy(source, target);
        if (!copied)
            return false;
    }
    return true;
}

// How many kill points a part of the suite exercised, and which did not end whole.
struct Tally
{
    explicit Tally(const QString &partName)
        : name(partName)
    {}

    QString name;
    int exercised = 0;
    int whole = 0;
    QStringList broken;

    void record(const QString &point, const QString &problem)
    {
        ++exercised;
        if (problem.isEmpty())
            ++whole;
        else
            broken.append(QStringLiteral("%1: %2").arg(point, problem));
    }
};

} // namespace

class TestCrashSafety : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void injectedFailureThenRecoveryEndsWhole_data();
    void injectedFailureThenRecoveryEndsWhole();
    void killDuringPromotionEndsWhole();
    void killDuringRecoveryEndsWhole();
    void killDuringPromotionOnExFatEndsWhole();
    void killDuringRecoveryOnExFatEndsWhole();

private:
    using KillLoop = void (TestCrashSafety::*)(const QString &parent, Tally *tally);
    void exercise(const QString &part, const QString &parent, KillLoop loop);
    void killPromotionAtEveryOperation(const QString &parent, Tally *tally);
    void killRecoveryAtEveryOperation(const QString &parent, Tally *tally);
    bool mountExFat();

    QList<Tally> m_tallies;
    std::unique_ptr<LoopVolume> m_exFat;
    QString m_exFatSkipReason;
};

void TestCrashSafety::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.5"));
}

void TestCrashSafety::cleanupTestCase()
{
    int exercised = 0;
    int whole = 0;
    for (const Tally &tally : std::as_const(m_tallies)) {
        qInfo("%s: %d kill points, %d ended whole", qPrintable(tally.name), tally.exercised, tally.whole);
        exercised += tally.exercised;
        whole += tally.whole;
    }
    qInfo("Kill points exercised: %d; ended whole: %d", exercised, whole);
    m_exFat.reset();
}

void TestCrashSafety::injectedFailureThenRecoveryEndsWhole_data()
{
    QTest::addColumn<QString>("phase");
    QTest::addColumn<QString>("versionAfterRecovery");
    QTest::addColumn<QString>("recoveryMessage");
    const QString rolledBack = QStringLiteral("Uma atualização interrompida foi revertida com segurança; os "
                                              "arquivos de diagnóstico foram preservados.");
    QTest::newRow("windows-promoted") << "windows-promoted" << UpdateDrive::oldVersion << rolledBack;
    QTest::newRow("bundles-promoted") << "bundles-promoted" << UpdateDrive::oldVersion << rolledBack;
    QTest::newRow("state-written") << "state-written" << UpdateDrive::newVersion
                                   << QStringLiteral(
                                          "Uma atualização interrompida foi concluída com segurança.");
}

void TestCrashSafety::injectedFailureThenRecoveryEndsWhole()
{
    QFETCH(QString, phase);
    QFETCH(QString, versionAfterRecovery);
    QFETCH(QString, recoveryMessage);
    QTemporaryDir parent;
    UpdateDrive drive;
    QString why;
    QVERIFY2(drive.populate(parent.filePath(QStringLiteral("drive")), &why), qPrintable(why));

    const ChildRun run =
        runChild(promoteArguments(drive), drive.root(), 0, QLatin1Char(' ') + phase + QLatin1Char('\t'));
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.output.contains(QStringLiteral("Falha de teste injetada na fase: %1").arg(phase)),
             qPrintable(run.output));

    QString message;
    QString error;
    const bool recovered = recoverPendingUpdate(drive.root(), &message, &error);
    const QString problem = wholenessProblem(drive, recovered, error);
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QCOMPARE(message, recoveryMessage);
    QCOMPARE(readInstalledVersion(drive.root()), versionAfterRecovery);
}

void TestCrashSafety::killPromotionAtEveryOperation(const QString &parent, Tally *tally)
{
    for (int killAt = 1; killAt <= kMaxOperations; ++killAt) {
        UpdateDrive drive;
        QString why;
        QVERIFY2(drive.populate(QDir(parent).filePath(QStringLiteral("promote-%1").arg(killAt)), &why),
                 qPrintable(why));
        const ChildRun run = runChild(promoteArguments(drive), drive.root(), killAt);
        if (!run.killed) {
            // The uninterrupted run: it counted one operation fewer than this kill point.
            QVERIFY2(run.exitCode == 0, qPrintable(run.output));
            QCOMPARE(run.operations, killAt - 1);
            QCOMPARE(drive.live(), drive.newBundles());
            const QString problem = recoverAndCheck(drive);
            QVERIFY2(problem.isEmpty(), qPrintable(problem));
            return;
        }
        tally->record(
            QStringLiteral("promotion killed before operation %1 (%2)").arg(killAt).arg(run.killedAt),
            recoverAndCheck(drive));
        QDir(drive.root()).removeRecursively();
    }
    QFAIL("the promotion never completed under the shim");
}

void TestCrashSafety::killRecoveryAtEveryOperation(const QString &parent, Tally *tally)
{
    const QString snapshot = QDir(parent).filePath(QStringLiteral("snapshot"));
    for (int promotionKill = 1; promotionKill <= kMaxOperations; ++promotionKill) {
        UpdateDrive drive;
        QString why;
        QVERIFY2(drive.populate(QDir(parent).filePath(QStringLiteral("recover-%1").arg(promotionKill)), &why),
                 qPrintable(why));
        const ChildRun promotion = runChild(promoteArguments(drive), drive.root(), promotionKill);
        if (!promotion.killed)
            return;
        QVERIFY(copyTree(drive.root(), snapshot));

        for (int recoveryKill = 1; recoveryKill <= kMaxOperations; ++recoveryKill) {
            if (recoveryKill > 1)
                QVERIFY(QDir(drive.root()).removeRecursively() && copyTree(snapshot, drive.root()));
            const ChildRun recovery =
                runChild({QStringLiteral("recover"), drive.root()}, drive.root(), recoveryKill);
            const QString point =
                QStringLiteral("promotion killed before operation %1 (%2), recovery before %3 (%4)")
                    .arg(promotionKill)
                    .arg(promotion.killedAt)
                    .arg(recoveryKill)
                    .arg(recovery.killedAt);
            if (!recovery.killed) {
                const QString problem = wholenessProblem(drive, recovery.exitCode == 0, recovery.output);
                if (!problem.isEmpty())
                    tally->broken.append(
                        QStringLiteral("%1 (uninterrupted recovery): %2").arg(point, problem));
                break;
            }
            tally->record(point, recoverAndCheck(drive));
        }
        QVERIFY(QDir(drive.root()).removeRecursively() && QDir(snapshot).removeRecursively());
    }
    QFAIL("the promotion never completed under the shim");
}

void TestCrashSafety::exercise(const QString &part, const QString &parent, KillLoop loop)
{
    Tally tally(part);
    (this->*loop)(parent, &tally);
    m_tallies.append(tally);
    QVERIFY2(tally.broken.isEmpty(), qPrintable(tally.broken.join(QLatin1Char('\n'))));
}

void TestCrashSafety::killDuringPromotionEndsWhole()
{
    QTemporaryDir parent;
    exercise(QStringLiteral("Promotion, local disk"), parent.path(),
             &TestCrashSafety::killPromotionAtEveryOperation);
}

void TestCrashSafety::killDuringRecoveryEndsWhole()
{
    QTemporaryDir parent;
    exercise(QStringLiteral("Recovery, local disk"), parent.path(),
             &TestCrashSafety::killRecoveryAtEveryOperation);
}

bool TestCrashSafety::mountExFat()
{
    if (!m_exFat && m_exFatSkipReason.isEmpty()) {
        auto volume = std::make_unique<LoopVolume>();
        if (volume->mount(LoopVolume::FileSystem::ExFat, 64 * 1024 * 1024, &m_exFatSkipReason))
            m_exFat = std::move(volume);
    }
    return m_exFat != nullptr;
}

void TestCrashSafety::killDuringPromotionOnExFatEndsWhole()
{
    if (!mountExFat())
        QSKIP(qPrintable(QStringLiteral("no exFAT volume: %1").arg(m_exFatSkipReason)));
    exercise(QStringLiteral("Promotion, exFAT"), m_exFat->mountPoint(),
             &TestCrashSafety::killPromotionAtEveryOperation);
}

void TestCrashSafety::killDuringRecoveryOnExFatEndsWhole()
{
    if (!mountExFat())
        QSKIP(qPrintable(QStringLiteral("no exFAT volume: %1").arg(m_exFatSkipReason)));
    exercise(QStringLiteral("Recovery, exFAT"), m_exFat->mountPoint(),
             &TestCrashSafety::killRecoveryAtEveryOperation);
}

QTEST_GUILESS_MAIN(TestCrashSafety)
#include "tst_crashsafety.moc"
