// A USB drive is input from anyone: a crafted journal, a drive that comes back under another root, a
// restore the file system refuses, a stick pulled in the middle of an update. None of them may touch
// anything outside the drive's Tavrinox folder, nor leave a mixture of versions behind.
#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/testfiles.h"
#include "support/updatedrive.h"
#include "support/workerthread.h"
#include "support/zippackage.h"
#include "transaction/bundlepromotion.h"
#include "transaction/durability.h"
#include "transaction/updatejournal.h"
#include "transaction/updaterecovery.h"
#include "transaction/updatestate.h"
#include "update/updateapply.h"

#include <QDir>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using namespace Fixture;

namespace {

const QString kId = QStringLiteral("20260301140509");

QString journalPhase(const QString &root)
{
    QJsonObject journal;
    readPendingJournal(root, &journal);
    return journal.value("phase").toString();
}

// "old" or "new" when the drive holds that whole version, says so in its state file and has no
// unfinished journal; otherwise what is wrong.
QString wholeVersion(const QString &root)
{
    const QString phase = journalPhase(root);
    const QString state = readInstalledVersion(root);
    for (const auto &[marker, version] : {std::pair("old", "1.0.0"), std::pair("new", "1.1.0")}) {
        if ((phase.isEmpty() || phase == "rolled-back") && driveHoldsBundles(root, marker) &&
            state == version)
            return marker;
    }
    return QStringLiteral("not one whole version: journal \"%1\", state file \"%2\"").arg(phase, state);
}

// Everything a drive holds, to look for what its logs recorded.
QByteArray contentsOf(const QString &root)
{
    return QByteArrayList(driveSnapshot(root).values()).join();
}

// Runs the transaction child under the kill shim, which kills victim (when given) and then the child
// before operation killAt. The output is empty when the child was killed.
QString runChild(const QStringList &arguments, const QString &scope, int killAt, qint64 victim)
{
    QProcess process;
    process.setEnvironment(QProcess::systemEnvironment()
                           << "LD_PRELOAD=" TAVRINOX_KILLSHIM_LIBRARY
                           << "TAVRINOX_KILLSHIM_SCOPE=" + scope + '/'
                           << QStringLiteral("TAVRINOX_KILLSHIM_AT=%1").arg(killAt)
                           << QStringLiteral("TAVRINOX_KILLSHIM_VICTIM=%1").arg(victim));
    process.start(TAVRINOX_TRANSACTION_CHILD, arguments);
    process.waitForFinished(120000);
    const QString output = QString::fromUtf8(process.readAllStandardError());
    return output.contains("killshim: killed") ? QString() : output;
}

} // namespace

class TestUntrustedDrive : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QString why;
        QVERIFY2(HttpsServer::trustTestCertificateAuthority(&why) && m_server.start(&why), qPrintable(why));
        m_package = tavrinoxPackage("new").bytes();
        m_server.addBody("/package.zip", m_package);
    }

    // Whatever paths a journal names, recovery works on those derived from the drive it was given, and
    // never follows a link, even with no version to go by; an id that is not a transaction id makes the
    // journal invalid, so it never names a log elsewhere. An unfinished journal, valid or not, is never
    // overwritten by a new transaction.
    void craftedJournalNeverReachesOutside_data()
    {
        QTest::addColumn<QString>("id");
        QTest::newRow("every path outside, no version, no state") << kId;
        QTest::newRow("id climbing out") << "x/../../../out/f";
    }
    void craftedJournalNeverReachesOutside()
    {
        QFETCH(QString, id);
        QTemporaryDir top;
        const QString root = top.filePath("drive");
        // The victim beside the drive is named like a work area, so that workRoot names it as well.
        const QString victim = top.filePath("out/.update-20260301140509123");
        QVERIFY(layOutPreparedDrive(root, "1.0.0", "old") && writeFile(victim + "/keep", "x"));
        QVERIFY(QFile::link(victim, root + "/Tavrinox/.update-20260301140509124"));
        QJsonObject journal{{"id", id}, {"phase", "promoting-linux"}};
        for (const char *key : {"windowsPath", "windowsBackup", "linuxPath", "linuxBackup", "workRoot"})
            journal.insert(key, victim);
        QVERIFY(QFile::remove(updateStatePath(root)) && writeUpdateJournal(root, journal));
        const QMap<QString, QByteArray> outside = driveSnapshot(top.filePath("out"));
        const QByteArray journalBytes = readFile(updateJournalPath(root));
        const bool valid = isTransactionId(id);

        QString error;
        QVERIFY(!promoteUpdate(root, root, "1.1.0", "", &error) &&
                error.startsWith(valid ? "Há uma atualização interrompida" : "O journal"));
        QCOMPARE(recoverPendingUpdate(root, nullptr, &error), valid);
        QCOMPARE(driveSnapshot(top.filePath("out")), outside);
        QVERIFY(driveHoldsBundles(root, "old"));
        QCOMPARE(readFile(updateJournalPath(root)) == journalBytes, !valid);
        QCOMPARE(journalPhase(root), QString(valid ? "rolled-back" : ""));
    }

    // An apply killed before each of its operations in turn, then moved to another root (local disk) or
    // pulled out: its FUSE process killed too, the volume checked with fsck.exfat and mounted again.
    // Recovery must leave the whole old or the whole new version, and what the attempt left is cleared.
    void interruptedApplyEndsWhole_data()
    {
        QTest::addColumn<bool>("pulled");
        QTest::newRow("moved to another root") << false;
        QTest::newRow("pulled stick, exFAT") << true;
    }
    void interruptedApplyEndsWhole()
    {
        QFETCH(bool, pulled);
        LoopVolume volume;
        QTemporaryDir local;
        QString why;
        if (pulled && !volume.mount(LoopVolume::FileSystem::ExFat, 64 * 1024 * 1024, &why))
            QSKIP(qPrintable(why));
        const QString drive = (pulled ? volume.mountPoint() : local.path()) + "/drive";
        const QString root = pulled ? drive : local.filePath("moved");
        const QStringList apply{"apply", drive, m_server.url("/package.zip").toString(), sha256Hex(m_package),
                                QString::number(m_package.size())};
        QMap<QString, int> outcomes;
        QStringList broken;
        int killAt = 1;
        for (;; ++killAt) {
            QVERIFY(layOutPreparedDrive(drive, "1.0.0", "old") && flushTree(drive));
            const qint64 fuse = pulled ? volume.fuseProcess() : 0;
            QVERIFY(fuse > 0 || !pulled);
            const QString output = runChild(apply, drive, killAt, fuse);
            if (!output.isEmpty()) {
                QVERIFY2(output.contains("completed") && wholeVersion(drive) == "new", qPrintable(output));
                break;
            }
            QVERIFY2(pulled ? volume.remountAfterPull(&why) : QDir().rename(drive, root), qPrintable(why));
            const bool pending = !journalPhase(root).isEmpty();
            QString outcome = recoverPendingUpdate(root + '/', nullptr, &why) ? wholeVersion(root) : why;
            if (pending && !pulled && !contentsOf(root).contains("paths-rederived"))
                outcome = "the log does not say that the paths were derived again";
            ++outcomes[outcome];
            if (outcome != "old" && outcome != "new")
                broken.append(QStringLiteral("killed before operation %1: %2").arg(killAt).arg(outcome));
            // A rolled-back journal keeps its work area for diagnosis; nothing else of the attempt stays.
            QVERIFY(recoverPendingUpdate(root));
            const QStringList left =
                QDir(root + "/Tavrinox")
                    .entryList({".update-*", "update-*.json.*"}, QDir::AllEntries | QDir::Hidden);
            QVERIFY2(left.size() <= int(journalPhase(root) == "rolled-back"), qPrintable(left.join(' ')));
            QVERIFY(QDir(root).removeRecursively());
        }
        qInfo("%s: %d points, whole old %d, whole new %d, broken %d", QTest::currentDataTag(), killAt - 1,
              outcomes.value("old"), outcomes.value("new"), int(broken.size()));
        QVERIFY2(broken.isEmpty(), qPrintable(broken.join('\n')));
    }

    // A restore refused by the file system (an immutable file on ext4) never reads as rolled back; once
    // the file can go, a later recovery completes.
    void failedRestoreLeavesTheDriveForRecovery_data()
    {
        QTest::addColumn<QByteArray>("stopAt"); // empty: the Linux swap fails and the promotion undoes it
        QTest::newRow("undo of a failed Linux swap") << QByteArray();
        QTest::newRow("recovery after windows-promoted") << QByteArray("windows-promoted");
    }
    void failedRestoreLeavesTheDriveForRecovery()
    {
        QFETCH(QByteArray, stopAt);
        LoopVolume volume;
        UpdateDrive drive;
        QString why;
        if (!volume.mount(LoopVolume::FileSystem::Ext4, 32 * 1024 * 1024, &why))
            QSKIP(qPrintable(why));
        QVERIFY2(drive.populate(volume.mountPoint() + "/drive", &why), qPrintable(why));
        if (QProcess::execute("chattr", {"+i", drive.packageRoot() + "/Tavrinox/windows/Tavrinox.exe"}) != 0)
            QSKIP("chattr +i is not available here");
        QVERIFY(!stopAt.isEmpty() || QDir(drive.packageRoot() + "/Tavrinox/linux").removeRecursively());
        qputenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE", stopAt);
        QVERIFY(!promoteUpdate(drive.root(), drive.packageRoot(), "1.1.0", "", &why));
        qunsetenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE");
        QVERIFY(stopAt.isEmpty() || !recoverPendingUpdate(drive.root(), nullptr, &why));
        QVERIFY2(why.contains("Não foi possível remover: " + drive.windowsPath()), qPrintable(why));
        QCOMPARE(why.endsWith(stillNeedsRecoveryMessage()), stopAt.isEmpty());
        QCOMPARE(journalPhase(drive.root()), QString(stopAt.isEmpty() ? "promoting-linux" : stopAt));
        QVERIFY(contentsOf(drive.root()).contains("\"phase\":\"failed\""));

        QCOMPARE(QProcess::execute("chattr", {"-i", drive.windowsPath() + "/Tavrinox.exe"}), 0);
        QVERIFY2(recoverPendingUpdate(drive.root(), nullptr, &why), qPrintable(why));
        QCOMPARE(drive.live(), drive.oldBundles());
        QCOMPARE(journalPhase(drive.root()), QStringLiteral("rolled-back"));
    }

    // Nothing is written from unsafe input: the manifest comes over HTTPS, names an HTTPS package and a
    // size that JSON holds exactly; a pending journal is settled first; the window's gate is asked before
    // the work area and again right before the promotion. What a stopped apply left, the next recovery
    // clears.
    void updateStartsOnlyFromSafeInput_data()
    {
        QTest::addColumn<QByteArray>("change"); // to the manifest; "plain": the manifest comes over HTTP
        QTest::addColumn<QString>("situation"); // on the drive, or the gate's refusal
        QTest::addColumn<int>("asked");
        QTest::addColumn<QString>("error");
        const QString outOfRange = "Manifesto inválido: size fora do intervalo de 0 a 2^53 bytes.";
        const QString close = "Feche o Tavrinox antes de atualizar os bundles da unidade USB.";
        for (const char *size : {"1e300", "1e19", "-1", "9007199254740994"})
            QTest::newRow(size) << QByteArray(", \"size\": ") + size << "" << 0 << outOfRange;
        QTest::newRow("package over http") << QByteArray(", \"packageUrl\": \"http://h.example/p.zip\"") << ""
                                           << 0 << "Manifesto inválido: packageUrl não usa HTTPS.";
        QTest::newRow("manifest over http")
            << QByteArray("plain") << "" << 0 << "O endereço do manifesto de atualização não usa HTTPS: URL";
        QTest::newRow("gate refuses before the work area") << QByteArray() << "refuse at 1" << 1 << close;
        QTest::newRow("gate refuses before the promotion") << QByteArray() << "refuse at 2" << 2 << close;
        QTest::newRow("unfinished journal") << QByteArray() << "journal" << 2 << "";
        QTest::newRow("journal that cannot be recovered")
            << QByteArray() << "{ not json" << 1
            << "Há uma atualização pendente nesta unidade que não pôde ser recuperada; nenhuma nova "
               "atualização foi iniciada.\n\nO journal de atualização pendente é inválido e foi "
               "preservado para diagnóstico.";
    }
    void updateStartsOnlyFromSafeInput()
    {
        QFETCH(QByteArray, change);
        QFETCH(QString, situation);
        QFETCH(int, asked);
        QFETCH(QString, error);
        QTemporaryDir dir;
        QVERIFY(layOutPreparedDrive(dir.path(), "1.0.0", "old"));
        QVERIFY(situation != "journal" ||
                writeUpdateJournal(dir.path(), {{"id", kId}, {"phase", "windows-promoted"}}));
        QVERIFY(!situation.startsWith('{') || writeFile(updateJournalPath(dir.path()), situation.toUtf8()));
        const bool plain = change == "plain";
        m_server.addBody(
            "/manifest.json",
            "{\"schemaVersion\": 1, \"app\": \"Tavrinox\", \"version\": \"1.1.0\", \"sha256\": \"" +
                sha256Hex(m_package).toLatin1() + "\", \"packageUrl\": \"" +
                m_server.url("/package.zip").toEncoded() + "\", \"size\": " +
                QByteArray::number(m_package.size()) + (plain ? QByteArray() : change) + "}");
        const QUrl url = plain ? m_server.plainUrl("/manifest.json") : m_server.url("/manifest.json");
        int timesAsked = 0;
        // Refuses, with the row's message, at the call the row names.
        const UpdateWriteGate gate = [&](QString *gateError) {
            *gateError = error;
            return situation != QStringLiteral("refuse at %1").arg(++timesAsked);
        };
        const UpdateCheckResult check = runOnWorkerThread([&] { return checkForUpdate(dir.path(), url); });
        const QString failure =
            check.ok ? runOnWorkerThread([&] { return applyUpdate(dir.path(), check.manifest, gate); }).error
                     : check.error;
        QCOMPARE(failure, error.replace("URL", url.toString()));
        QCOMPARE(timesAsked, asked);
        recoverPendingUpdate(dir.path());
        QCOMPARE(wholeVersion(dir.path()), QString(error.isEmpty() ? "new" : "old"));
        QCOMPARE(updateLeftovers(dir.path()),
                 situation.startsWith('{') ? QStringList{"update-journal.json"} : QStringList());
    }

private:
    HttpsServer m_server;
    QByteArray m_package;
};

QTEST_GUILESS_MAIN(TestUntrustedDrive)
#include "tst_untrusteddrive.moc"
