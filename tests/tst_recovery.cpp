#include "support/testfiles.h"
#include "support/updatedrive.h"
#include "transaction/updatejournal.h"
#include "transaction/updaterecovery.h"
#include "transaction/updatestate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::readFile;

namespace {

const QString kId = QStringLiteral("20260301140509");
const QString kCompleted = QStringLiteral("Uma atualização interrompida foi concluída com segurança.");
const QString kRolledBack = QStringLiteral("Uma atualização interrompida foi revertida com segurança; os "
                                           "arquivos de diagnóstico foram preservados.");

QJsonObject lastLogRecord(const UpdateDrive &drive)
{
    const QList<QJsonObject> records = Fixture::jsonLines(transactionLogPath(drive.root(), kId));
    return records.isEmpty() ? QJsonObject() : records.last();
}

QString journalPhase(const UpdateDrive &drive)
{
    QJsonObject journal;
    readPendingJournal(drive.root(), &journal);
    return journal.value("phase").toString();
}

} // namespace

class TestRecovery : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        QVERIFY(m_dir.isValid());
        QString why;
        QVERIFY2(m_drive.populate(m_dir.filePath("drive"), &why), qPrintable(why));
    }

    void cleanup() { QDir(m_drive.root()).removeRecursively(); }

    void driveWithoutJournalNeedsNothing()
    {
        QString message = "stale";
        QString error;
        QVERIFY(recoverPendingUpdate(m_drive.root(), &message, &error));
        QVERIFY(error.isEmpty());
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
    }

    void invalidJournalFailsAndStaysOnTheDrive()
    {
        QVERIFY(Fixture::writeFile(updateJournalPath(m_drive.root()), "{ not json"));

        QString error;
        QVERIFY(!recoverPendingUpdate(m_drive.root(), nullptr, &error));
        QCOMPARE(error,
                 QStringLiteral(
                     "O journal de atualização pendente é inválido e foi preservado para diagnóstico."));
        QCOMPARE(readFile(updateJournalPath(m_drive.root())), QByteArray("{ not json"));
    }

    void rolledBackJournalIsKeptForDiagnosis()
    {
        QVERIFY(writeJournal("rolled-back", UpdateDrive::newVersion));
        QVERIFY(QDir().mkpath(windowsBackup() + "/kept"));
        const QByteArray before = readFile(updateJournalPath(m_drive.root()));

        QString message;
        QVERIFY(recoverPendingUpdate(m_drive.root(), &message));
        QCOMPARE(message, QStringLiteral("Uma atualização anterior já havia sido revertida; os arquivos de "
                                         "diagnóstico foram preservados."));
        QCOMPARE(readFile(updateJournalPath(m_drive.root())), before);
        QVERIFY(QFileInfo::exists(windowsBackup() + "/kept"));
        QVERIFY(!QFile::exists(transactionLogPath(m_drive.root(), kId)));
    }

    // Both bundles swapped and the new version published: whatever the journal's phase says, only the
    // clean-up is left. A "staged" journal naming the installed version is completed too.
    void publishedVersionIsCompleted_data()
    {
        QTest::addColumn<QString>("phase");
        QTest::newRow("state-written") << "state-written";
        QTest::newRow("bundles-promoted, state write landed") << "bundles-promoted";
        QTest::newRow("staged, same version") << "staged";
    }
    void publishedVersionIsCompleted()
    {
        QFETCH(QString, phase);
        swapBothBundles();
        QVERIFY(writeUpdateState(m_drive.root(), UpdateDrive::newVersion, UpdateDrive::packageSha256));
        QVERIFY(writeJournal(phase, UpdateDrive::newVersion));

        QString message;
        QVERIFY(recoverPendingUpdate(m_drive.root(), &message));
        QCOMPARE(message, kCompleted);
        QCOMPARE(m_drive.live(), m_drive.newBundles());
        QVERIFY(!QFileInfo::exists(windowsBackup()));
        QVERIFY(!QFileInfo::exists(linuxBackup()));
        QVERIFY(!QFile::exists(updateJournalPath(m_drive.root())));
        const QJsonObject record = lastLogRecord(m_drive);
        QCOMPARE(record.value("phase").toString(), QStringLiteral("recovered-complete"));
        QCOMPARE(record.value("detail").toString(),
                 QStringLiteral("Estado publicado encontrado; limpeza concluída."));
        QVERIFY(!record.contains("elapsedMs"));
    }

    // Installing the installed version again: the state already names it, so a swap stopped between
    // its two renames must not cost the bundle whose only copy is the backup.
    void reinstallStoppedMidSwapKeepsTheBundle()
    {
        QVERIFY(writeUpdateState(m_drive.root(), UpdateDrive::newVersion, UpdateDrive::packageSha256));
        QVERIFY(writeJournal("promoting-linux", UpdateDrive::newVersion));
        const QByteArray linuxBefore = m_drive.live().linux;
        QVERIFY(QDir().rename(m_drive.linuxPath(), linuxBackup()));

        QString message;
        QVERIFY(recoverPendingUpdate(m_drive.root(), &message));
        QCOMPARE(message, kCompleted);
        QCOMPARE(m_drive.live().linux, linuxBefore);
        QVERIFY(!QFileInfo::exists(linuxBackup()));
        QVERIFY(!QFile::exists(updateJournalPath(m_drive.root())));
    }

    void unpromotedStagingIsDiscardedButKept()
    {
        QVERIFY(writeJournal("staged", UpdateDrive::newVersion));
        QString message;
        QVERIFY(recoverPendingUpdate(m_drive.root(), &message));
        QCOMPARE(message,
                 QStringLiteral("Uma atualização interrompida antes da promoção foi descartada; o staging "
                                "foi preservado para diagnóstico."));
        QVERIFY(!QFile::exists(updateJournalPath(m_drive.root())));
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
        QVERIFY(QFileInfo::exists(QDir(m_drive.packageRoot()).filePath("Tavrinox/windows")));
        const QJsonObject record = lastLogRecord(m_drive);
        QCOMPARE(record.value("phase").toString(), QStringLiteral("recovered-staged"));
        QCOMPARE(record.value("detail").toString(), QStringLiteral("Staging sem promoção descartado."));
        QVERIFY(!record.contains("elapsedMs"));
    }

    void interruptedSwapIsRolledBack_data()
    {
        QTest::addColumn<QString>("phase");
        QTest::addColumn<int>("swapped"); // 0: nothing moved yet, 1: Windows swapped, 2: both swapped
        QTest::addColumn<bool>("linuxLiveMissing");
        QTest::newRow("promoting-windows before the rename") << "promoting-windows" << 0 << false;
        QTest::newRow("promoting-linux, live Linux moved away") << "promoting-linux" << 1 << true;
        QTest::newRow("bundles-promoted, state not written") << "bundles-promoted" << 2 << false;
        QTest::newRow("state-written, state shows another version") << "state-written" << 2 << false;
        QTest::newRow("unknown phase") << "mystery" << 2 << false;
        QTest::newRow("no phase") << "" << 1 << false;
    }
    void interruptedSwapIsRolledBack()
    {
        QFETCH(QString, phase);
        QFETCH(int, swapped);
        QFETCH(bool, linuxLiveMissing);
        if (swapped == 1)
            swapWindowsBundle();
        if (swapped == 2)
            swapBothBundles();
        if (linuxLiveMissing)
            QVERIFY(QDir().rename(m_drive.linuxPath(), linuxBackup()));
        QVERIFY(writeJournal(phase, UpdateDrive::newVersion));

        QString message;
        QString error;
        QVERIFY2(recoverPendingUpdate(m_drive.root(), &message, &error), qPrintable(error));
        QCOMPARE(message, kRolledBack);
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
        QVERIFY(!QFileInfo::exists(windowsBackup()));
        QVERIFY(!QFileInfo::exists(linuxBackup()));
        QCOMPARE(journalPhase(m_drive), QStringLiteral("rolled-back"));
        const QJsonObject record = lastLogRecord(m_drive);
        QCOMPARE(record.value("phase").toString(), QStringLiteral("recovered-rollback"));
        QCOMPARE(record.value("detail").toString(),
                 QStringLiteral("Bundles restaurados a partir dos backups."));
        QVERIFY(record.contains("elapsedMs"));
        QCOMPARE(readInstalledVersion(m_drive.root()), UpdateDrive::oldVersion);

        // The rolled-back journal stays, and a later recovery leaves everything as it is.
        QVERIFY(recoverPendingUpdate(m_drive.root(), &message));
        QCOMPARE(m_drive.live(), m_drive.oldBundles());
    }

private:
    QString windowsBackup() const { return m_drive.windowsPath() + ".backup-" + kId; }
    QString linuxBackup() const { return m_drive.linuxPath() + ".backup-" + kId; }

    QJsonObject journalObject(const QString &phase, const QString &version) const
    {
        QJsonObject journal{{"id", kId},
                            {"startedAt", QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
                            {"version", version},
                            {"packageSha256", UpdateDrive::packageSha256},
                            {"workRoot", m_drive.workRoot()},
                            {"windowsPath", m_drive.windowsPath()},
                            {"linuxPath", m_drive.linuxPath()},
                            {"windowsBackup", windowsBackup()},
                            {"linuxBackup", linuxBackup()}};
        if (!phase.isEmpty())
            journal.insert("phase", phase);
        return journal;
    }

    bool writeJournal(const QString &phase, const QString &version)
    {
        return writeUpdateJournal(m_drive.root(), journalObject(phase, version));
    }

    void swapWindowsBundle()
    {
        QVERIFY(QDir().rename(m_drive.windowsPath(), windowsBackup()));
        QVERIFY(
            QDir().rename(QDir(m_drive.packageRoot()).filePath("Tavrinox/windows"), m_drive.windowsPath()));
    }

    void swapBothBundles()
    {
        swapWindowsBundle();
        QVERIFY(QDir().rename(m_drive.linuxPath(), linuxBackup()));
        QVERIFY(QDir().rename(QDir(m_drive.packageRoot()).filePath("Tavrinox/linux"), m_drive.linuxPath()));
    }

    QTemporaryDir m_dir;
    UpdateDrive m_drive;
};

QTEST_GUILESS_MAIN(TestRecovery)
#include "tst_recovery.moc"
