#include "support/updatedrive.h"
#include "transaction/bundlepromotion.h"
#include "transaction/updatejournal.h"
#include "transaction/updatestate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;

namespace {

QJsonObject journalOf(const UpdateDrive &drive)
{
    QJsonObject journal;
    readPendingJournal(drive.root(), &journal);
    return journal;
}

// Each log record as "phase: detail", in order.
QStringList logOf(const UpdateDrive &drive, const QString &transactionId)
{
    QFile file(transactionLogPath(drive.root(), transactionId));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList records;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.isEmpty())
            continue;
        const QJsonObject record = QJsonDocument::fromJson(line).object();
        records.append(QStringLiteral("%1: %2").arg(record.value("phase").toString(),
                                                    record.value("detail").toString()));
    }
    return records;
}

QStringList backupsOn(const UpdateDrive &drive)
{
    return QDir(QDir(drive.root()).filePath("Tavrinox"))
        .entryList({"*.backup-*"}, QDir::AllEntries, QDir::Name);
}

void writeFile(const QString &path, const QByteArray &content)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

class FailPhase
{
public:
    explicit FailPhase(const QByteArray &value) { qputenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE", value); }
    ~FailPhase() { qunsetenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE"); }
    Q_DISABLE_COPY(FailPhase)
};

} // namespace

class TestPromotion : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QCoreApplication::setApplicationVersion(QStringLiteral("1.0.5")); }

    void init()
    {
        QVERIFY(m_dir.isValid());
        QString why;
        QVERIFY2(m_drive.populate(m_dir.filePath("drive"), &why), qPrintable(why));
    }

    void cleanup() { QDir(m_drive.root()).removeRecursively(); }

    void promotionSwapsBothBundlesPublishesAndCleansUp()
    {
        QString error;
        QVERIFY2(promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                               UpdateDrive::packageSha256, &error),
                 qPrintable(error));

        QCOMPARE(m_drive.live(), m_drive.newBundles());
        QCOMPARE(readInstalledVersion(m_drive.root()), UpdateDrive::newVersion);
        QFile state(updateStatePath(m_drive.root()));
        QVERIFY(state.open(QIODevice::ReadOnly));
        QCOMPARE(QJsonDocument::fromJson(state.readAll()).object().value("lastPackageSha256").toString(),
                 UpdateDrive::packageSha256);
        QVERIFY(backupsOn(m_drive).isEmpty());
        QVERIFY(!QFile::exists(updateJournalPath(m_drive.root())));
        // The work area is the caller's to remove.
        QVERIFY(QFileInfo::exists(m_drive.packageRoot()));

        const QStringList logs =
            QDir(QDir(m_drive.root()).filePath("Tavrinox")).entryList({"update-log-*.jsonl"});
        QCOMPARE(logs.size(), 1);
        const QString id = logs.first().mid(11, 14);
        QCOMPARE(logOf(m_drive, id),
                 QStringList({"staged: Pacote validado e pronto para promoção.",
                              "promoting-windows: Iniciando substituição do bundle Windows.",
                              "windows-promoted: Bundle Windows promovido.",
                              "promoting-linux: Iniciando substituição do bundle Linux.",
                              "bundles-promoted: Bundles Windows e Linux promovidos.",
                              "state-written: Estado da versão publicado com sucesso.",
                              "completed: Transação concluída e backups removidos."}));
    }

    void injectedFailureStopsAfterItsPhase_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QString>("phase");
        QTest::addColumn<bool>("linuxPromoted");
        QTest::addColumn<QString>("stateVersion");
        QTest::newRow("windows-promoted")
            << QByteArray("windows-promoted") << "windows-promoted" << false << UpdateDrive::oldVersion;
        QTest::newRow("bundles-promoted")
            << QByteArray("bundles-promoted") << "bundles-promoted" << true << UpdateDrive::oldVersion;
        QTest::newRow("state-written among blanks")
            << QByteArray("  state-written \t\n") << "state-written" << true << UpdateDrive::newVersion;
    }
    void injectedFailureStopsAfterItsPhase()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QString, phase);
        QFETCH(bool, linuxPromoted);
        QFETCH(QString, stateVersion);
        const FailPhase failPhase(variable);

        QString error;
        QVERIFY(!promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                               UpdateDrive::packageSha256, &error));
        QCOMPARE(error, QStringLiteral("Falha de teste injetada na fase: %1").arg(phase));

        const QJsonObject journal = journalOf(m_drive);
        QCOMPARE(journal.value("phase").toString(), phase);
        const QString id = journal.value("id").toString();
        const QString tavrinox = QDir(m_drive.root()).filePath("Tavrinox");
        QCOMPARE(journal.value("windowsBackup").toString(), tavrinox + "/windows.backup-" + id);
        QCOMPARE(journal.value("linuxBackup").toString(), tavrinox + "/linux.backup-" + id);
        QCOMPARE(journal.value("workRoot").toString(), m_drive.workRoot());
        QCOMPARE(logOf(m_drive, id).last().section(':', 0, 0), phase);

        QCOMPARE(treeDigest(m_drive.windowsPath()), m_drive.newBundles().windows);
        QCOMPARE(treeDigest(journal.value("windowsBackup").toString()), m_drive.oldBundles().windows);
        QCOMPARE(treeDigest(m_drive.linuxPath()),
                 linuxPromoted ? m_drive.newBundles().linux : m_drive.oldBundles().linux);
        QCOMPARE(treeDigest(journal.value("linuxBackup").toString()),
                 linuxPromoted ? m_drive.oldBundles().linux : QByteArray());
        QCOMPARE(readInstalledVersion(m_drive.root()), stateVersion);
    }

    void injectedPhaseIsCaseSensitive()
    {
        const FailPhase failPhase("State-Written");
        QVERIFY(promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                              UpdateDrive::packageSha256));
    }

    void failedLinuxSwapRestoresWindowsAndRecordsRollBack()
    {
        QVERIFY(QDir(QDir(m_drive.packageRoot()).filePath("Tavrinox/linux")).removeRecursively());
        QString error;
        QVERIFY(!promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                               UpdateDrive::packageSha256, &error));
        QCOMPARE(error,
                 QStringLiteral("Não foi possível aplicar novo bundle em: %1").arg(m_drive.linuxPath()));
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
        QVERIFY(backupsOn(m_drive).isEmpty());
        QCOMPARE(readInstalledVersion(m_drive.root()), UpdateDrive::oldVersion);
        const QJsonObject journal = journalOf(m_drive);
        QCOMPARE(journal.value("phase").toString(), QStringLiteral("rolled-back"));
        QCOMPARE(logOf(m_drive, journal.value("id").toString()).last(),
                 QStringLiteral("rolled-back: Falha na promoção Linux; bundle Windows restaurado."));
    }

    void failedWindowsSwapLeavesJournalForRecovery()
    {
        QVERIFY(QDir(QDir(m_drive.packageRoot()).filePath("Tavrinox/windows")).removeRecursively());
        QString error;
        QVERIFY(!promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                               UpdateDrive::packageSha256, &error));
        QCOMPARE(error,
                 QStringLiteral("Não foi possível aplicar novo bundle em: %1").arg(m_drive.windowsPath()));
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
        const QJsonObject journal = journalOf(m_drive);
        QCOMPARE(journal.value("phase").toString(), QStringLiteral("promoting-windows"));
        QCOMPARE(logOf(m_drive, journal.value("id").toString()).last(),
                 QStringLiteral("failed: Falha na promoção do bundle Windows."));
    }

    void unwritableFirstLogRecordStopsBeforeAnySwap()
    {
        // The log is named after the start second; occupying the names of the coming minute with
        // directories makes the first record impossible to append.
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (int second = 0; second < 60; ++second) {
            const QString id = now.addSecs(second).toString("yyyyMMddHHmmss");
            QVERIFY(QDir().mkpath(transactionLogPath(m_drive.root(), id)));
        }
        QString error;
        QVERIFY(!promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                               UpdateDrive::packageSha256, &error));
        const QString id = journalOf(m_drive).value("id").toString();
        QCOMPARE(error, QStringLiteral("Não foi possível registrar o log da transação: %1")
                            .arg(transactionLogPath(m_drive.root(), id)));
        QCOMPARE(journalOf(m_drive).value("phase").toString(), QStringLiteral("staged"));
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
    }

    void driveWithoutTavrinoxFolderFailsAtTheJournal()
    {
        QTemporaryDir empty;
        QString error;
        QVERIFY(!promoteUpdate(empty.path(), m_drive.packageRoot(), UpdateDrive::newVersion,
                               UpdateDrive::packageSha256, &error));
        QCOMPARE(error, QStringLiteral("Não foi possível registrar a transação de atualização: %1")
                            .arg(updateJournalPath(empty.path())));
        QVERIFY(QDir(empty.path()).isEmpty());
    }

    void driveWithoutLinuxBundleGetsTheNewOne()
    {
        QVERIFY(QDir(m_drive.linuxPath()).removeRecursively());
        QVERIFY(promoteUpdate(m_drive.root(), m_drive.packageRoot(), UpdateDrive::newVersion,
                              UpdateDrive::packageSha256));
        QCOMPARE(m_drive.live(), m_drive.newBundles());
    }

    void leftoverBackupIsReplacedByTheLiveBundle()
    {
        const QString backup = m_drive.windowsPath() + ".backup-1";
        writeFile(backup + "/stale/file.dll", "stale");
        const QString incoming = QDir(m_drive.packageRoot()).filePath("Tavrinox/windows");
        QVERIFY(replaceBundle(m_drive.windowsPath(), incoming, backup));
        QCOMPARE(treeDigest(backup), m_drive.oldBundles().windows);
        QCOMPARE(treeDigest(m_drive.windowsPath()), m_drive.newBundles().windows);
        QVERIFY(!QFileInfo::exists(incoming));
    }

    void missingIncomingBundleMovesTheBackupBack()
    {
        const QString backup = m_drive.windowsPath() + ".backup-1";
        QString error;
        QVERIFY(!replaceBundle(m_drive.windowsPath(), m_dir.filePath("nowhere"), backup, &error));
        QCOMPARE(error,
                 QStringLiteral("Não foi possível aplicar novo bundle em: %1").arg(m_drive.windowsPath()));
        QCOMPARE(treeDigest(m_drive.windowsPath()), m_drive.oldBundles().windows);
        QVERIFY(!QFileInfo::exists(backup));
    }

    void restorePutsTheBackupInPlace_data()
    {
        QTest::addColumn<bool>("liveExists");
        QTest::newRow("over a live bundle") << true;
        QTest::newRow("where the live bundle is missing") << false;
    }
    void restorePutsTheBackupInPlace()
    {
        QFETCH(bool, liveExists);
        const QString backup = m_drive.windowsPath() + ".backup-1";
        QVERIFY(QDir().rename(m_drive.windowsPath(), backup));
        if (liveExists)
            writeFile(m_drive.windowsPath() + "/half/written.dll", "partial");
        QVERIFY(restoreBundleBackup(m_drive.windowsPath(), backup));
        QCOMPARE(treeDigest(m_drive.windowsPath()), m_drive.oldBundles().windows);
        QVERIFY(!QFileInfo::exists(backup));
    }

    void restoreWithoutBackupKeepsTheLiveBundle()
    {
        QVERIFY(restoreBundleBackup(m_drive.windowsPath(), m_drive.windowsPath() + ".backup-1"));
        QCOMPARE(treeDigest(m_drive.windowsPath()), m_drive.oldBundles().windows);
    }

    void removalTakesTreesAndFilesButNeverFollowsLinks()
    {
        QVERIFY(removePathIfExists(m_dir.filePath("never-there")));

        const QString file = m_dir.filePath("loose.txt");
        writeFile(file, "x");
        QVERIFY(removePathIfExists(file));
        QVERIFY(!QFileInfo::exists(file));

        const QString link = m_dir.filePath("link-to-windows");
        QVERIFY(QFile::link(m_drive.windowsPath(), link));
        QVERIFY(removePathIfExists(link));
        QVERIFY(!QFileInfo(link).isSymLink());
        QCOMPARE(treeDigest(m_drive.windowsPath()), m_drive.oldBundles().windows);

        QVERIFY(removePathIfExists(m_drive.windowsPath()));
        QVERIFY(!QFileInfo::exists(m_drive.windowsPath()));
    }

private:
    QTemporaryDir m_dir;
    UpdateDrive m_drive;
};

QTEST_GUILESS_MAIN(TestPromotion)
#include "tst_promotion.moc"
