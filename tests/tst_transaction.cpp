// The update transaction: state file and journal, the promotion with its backups and rollback, every
// recovery rule, the window's background recovery, workspace recycling, and the failures that only real
// faults on a real volume bring about.
#include "support/support.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kId = "20260301140509", kVault = "3F2504E0-4f89-11d3-9a0c-0305e82c3301"; // either case counts
const QString kInvalid = "O journal de atualização pendente é inválido e foi preservado para diagnóstico.";

// A transaction's log records as "phase: detail", "+t" marking one timed from the start, one a line.
QString logOf(const QString &root, const QString &id)
{
    QString records;
    for (const QString &line : QString(read(transactionLogPath(root, id))).split('\n', Qt::SkipEmptyParts)) {
        const QJsonObject record = QJsonDocument::fromJson(line.toUtf8()).object();
        records += record["phase"].toString() + ": " + record["detail"].toString() +
                   (record.contains("elapsedMs") ? "+t\n" : "\n");
    }
    return records;
}

QJsonObject journalOf(const QString &root)
{
    QJsonObject journal;
    readPendingJournal(root, &journal);
    return journal;
}

} // namespace

class TestTransaction : public QObject
{
    Q_OBJECT
    const QString m_systemTemp = QDir::tempPath(); // TMPDIR points into each test's folder
    std::unique_ptr<QTemporaryDir> m_dir;
    QString at(const QString &relative) const { return m_dir->filePath(relative); }
    QString workspace(const QString &relative = {}) const { return at("temp/Tavrinox/" + relative); }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>(m_systemTemp + "/tst_transaction-XXXXXX");
        QCoreApplication::setApplicationVersion("1.0.5");
        QVERIFY(write(at("temp/")) && qputenv("TMPDIR", QFile::encodeName(at("temp"))));
    }

    void promotionRunsItsPhasesInOrder_data() { table("promotion"); }
    void promotionRunsItsPhasesInOrder()
    {
        QFETCH(QString, fault);
        QFETCH(QString, result);
        const QString root = at("drive"), tavrinox = root + "/Tavrinox";
        QVERIFY(makeUpdateDrive(root) &&
                (!fault.startsWith('-') ||
                 QDir(QDir::cleanPath(packageRoot(root) + "/Tavrinox/" + fault.mid(1))).removeRecursively()));
        for (int second = 0; fault == "log" && second < 60; ++second) // a log is named after its start second
            QVERIFY(write(transactionLogPath(root, QDateTime::currentDateTimeUtc().addSecs(second).toString(
                                                       "yyyyMMddHHmmss")) +
                          '/'));
        qputenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE", fault.toUtf8());
        QString error;
        const bool promoted = promoteUpdate(root, packageRoot(root), "1.1.0", "ab12", &error);
        qunsetenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE");
        const QJsonObject journal = journalOf(root);
        const QString id = journal.value("id").toString(
                          QDir(tavrinox).entryList({"update-log-*"}).value(0).mid(11, 14)),
                      log = logOf(root, id);
        const QString actual =
            QStringList{error, liveBundles(root), readInstalledVersion(root), journal["phase"].toString(),
                        fault.isEmpty() ? log : log.section('\n', -2)}
                .join('|');
        // The journal says where the backups are, which hold the replaced bundles until the end.
        QVERIFY(journal.isEmpty() || (journal["windowsBackup"] == tavrinox + "/windows.backup-" + id &&
                                      journal["linuxBackup"] == tavrinox + "/linux.backup-" + id &&
                                      journal["workRoot"] == QFileInfo(packageRoot(root)).path() &&
                                      journal["version"] == "1.1.0" && journal["id"] == id));
        QCOMPARE(QDir(tavrinox).entryList({"*.backup-*"}).size(),
                 promoted ? 0 : actual.section('|', 1, 1).count("new"));
        QVERIFY2(recoverPendingUpdate(root, nullptr, &error), qPrintable(error));
        QCOMPARE(actual + '|' + liveBundles(root), result.replace("%1", tavrinox).replace("ID", id));
        QCOMPARE(promoted ? stateFile(root) : "", promoted ? golden("update-state.json") : "");
    }

    void recoveryFollowsItsRulesInOrder_data() { table("recovery"); }
    void recoveryFollowsItsRulesInOrder()
    {
        QFETCH(QString, setup);
        QFETCH(QString, result);
        const QStringList s = setup.split(' ');
        const QString root = at("drive"), tavrinox = root + "/Tavrinox/";
        const auto move = [&](const QString &bundle, bool swap) {
            return QDir().rename(tavrinox + bundle, tavrinox + bundle + ".backup-" + kId) &&
                   (!swap || QDir().rename(packageRoot(root) + "/Tavrinox/" + bundle, tavrinox + bundle));
        };
        QVERIFY(makeUpdateDrive(root) && (!s[2].contains('W') || move("windows", true)) &&
                (!s[2].contains('L') || move("linux", true)) &&
                (!s[2].contains('M') || move("linux", false)));
        // A crafted journal names folders outside the drive, beside a link on it named like a work area.
        const bool outside = s.value(4) == "outside" || s.value(4) == "climbing";
        const QString out = at("out/"), id = s.value(4) == "climbing" ? "x/../../../out/f" : kId;
        for (const QString &victim : QStringList{"windows/f", "linux/f", "windows.backup-" + kId + "/f",
                                                 "linux.backup-" + kId + "/f", ".update-20260301140509123/f"})
            QVERIFY(!outside || write(out + victim, "keep"));
        QVERIFY(!outside ||
                (QFile::link(out + ".update-20260301140509123", tavrinox + ".update-20260301140509124") &&
                 write(tavrinox + "update-log-x/")));
        const QString otherState =
            s[3] == "bad" ? "{ not json" : "{'schemaVersion':1,'app':'tavrinox','installedVersion':'1.1.0'}";
        QVERIFY(s[3] == "old" || (s[3] == "none"  ? QFile::remove(updateStatePath(root))
                                  : s[3] == "new" ? writeUpdateState(root, "1.1.0", "ab")
                                                  : write(updateStatePath(root), json(otherState))));
        const QString journal =
            s[0] == "invalid" ? "{ not json"
            : s[0] == "schema"
                ? "{'schemaVersion':'1','app':'Tavrinox','id':'" + kId +
                      "','phase':'staged','version':'1.1.0'}"
                : QString("{'schemaVersion':1,'app':'Tavrinox','id':'%1','startedAt':'%2','version':'%3',"
                          "'phase':'%4','windowsPath':'%5','linuxPath':'%6linux',"
                          "'windowsBackup':'%6windows.backup-%1','linuxBackup':'%6linux.backup-%1',"
                          "'workRoot':'%7'}")
                      .arg(id, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs), s[1], s[0],
                           s.value(4) == "unreachable" ? root + "/gone/windows"
                           : outside                   ? out + "windows"
                                                       : tavrinox + "windows",
                           outside ? out : tavrinox,
                           outside ? out + ".update-20260301140509123" : QFileInfo(packageRoot(root)).path())
                      .remove("'version':'-',")
                      .remove("'phase':'-',");
        QVERIFY(s[0] == "none" || write(updateJournalPath(root), json(journal)));
        // An unfinished journal, valid or not, is never replaced by a new transaction.
        const Tree outsideBefore = tree(out);
        const QByteArray journalBefore = read(updateJournalPath(root));
        const bool pending = s[0] != "none" && s[0] != "rolled-back";
        QString message, error, refusal;
        QVERIFY(!pending || !promoteUpdate(root, packageRoot(root), "1.1.0", "", &refusal));
        QVERIFY(read(updateJournalPath(root)) == journalBefore);
        const bool ok = recoverPendingUpdate(root, &message, &error);
        QCOMPARE(
            QStringList(
                {ok ? message : error, liveBundles(root),
                 QFileInfo::exists(updateJournalPath(root)) ? journalOf(root)["phase"].toString() : "gone",
                 logOf(root, kId), QString::number(QDir(tavrinox).entryList({"*.backup-*"}).size())})
                .join('|'),
            result.replace("%1", root));
        QVERIFY(!pending || refusal.startsWith(ok ? "Há uma atualização interrompida" : "O journal"));
        // Nothing outside the drive is touched; a journal that cannot be recovered stays as it was.
        QVERIFY(tree(out) == outsideBefore && (ok || read(updateJournalPath(root)) == journalBefore));
        // The staging of a pending journal stays for diagnosis; one that no journal names is removed.
        QVERIFY(ok == error.isEmpty() && QFileInfo::exists(packageRoot(root)) == (s[0] != "none"));
    }

    // Every listed drive carrying a journal is recovered in the background, one task per drive at a time;
    // the update controls come back only when the last recovery ends. A failed one is shown once and is
    // not tried again.
    void windowRecoversPendingUpdatesOnePerDrive()
    {
        const QString pending = at("pending/"), emptied = at("emptied/"), broken = at("broken/");
        for (const QString &root : {pending, emptied})
            QVERIFY(makeDrive(root, "1.0.0") && writeUpdateJournal(root, {{"phase", "staged"}, {"id", kId}}));
        QVERIFY(write(updateJournalPath(broken), "{ not json") &&
                write(updateJournalPath(at("unmounted/")), "{ not json"));
        Bus *bus = nullptr;
        Boxes boxes;
        const auto shown = window({}, {}, {}, &bus);
        bus->drives = {drive(pending), drive(emptied), drive(at("clean/")), drive(broken),
                       drive(at("unmounted/"), "", false)};
        QList<bool> enabledAtOutcome; // the update controls as each recovery reports
        connect(shown->findChild<QTextEdit *>(), &QTextEdit::textChanged, this, [&] {
            if (log(*shown).last().contains(QRegularExpression("^Uma |^Atualização pendente")))
                enabledAtOutcome += updateEnabled(*shown);
        });
        {
            // Every pool thread waits, so the recoveries wait their turn while the list is refreshed.
            QSemaphore release;
            const int threads = QThreadPool::globalInstance()->maxThreadCount();
            const auto done = qScopeGuard([&] {
                release.release(threads);
                QThreadPool::globalInstance()->waitForDone();
            });
            for (int i = 0; i < threads; ++i)
                QThreadPool::globalInstance()->start([&release] { release.acquire(); });
            for (int i = 0; i < 2; ++i, QTest::qWait(20))
                click(*shown, "Atualizar lista");
            QVERIFY(!updateEnabled(*shown) && QFile::remove(updateJournalPath(emptied)));
        }
        QTRY_COMPARE_WITH_TIMEOUT(enabledAtOutcome, QList<bool>({false, false, true}), 60000);
        click(*shown, "Atualizar lista");
        QTest::qWait(100);
        QStringList reports = log(*shown).filter(QRegularExpression("^(Rec|Uma|Atualização pendente)"));
        reports.sort(); // the drives recover side by side
        QCOMPARE(reports.join('\n'),
                 QString("Atualização pendente não recuperada em %3: %4\nAtualização pendente "
                         "verificada em %2.\nRecuperando atualização pendente em %3...\n"
                         "Recuperando atualização pendente em %2...\nRecuperando atualização "
                         "pendente em %1...\nUma atualização interrompida antes da promoção "
                         "foi descartada; o staging foi preservado para diagnóstico.")
                     .arg(pending, emptied, broken, kInvalid));
        QCOMPARE(boxes.shown,
                 QStringList{"W:A recuperação automática de uma atualização pendente falhou em " + broken +
                             ". A unidade foi preservada e nenhuma nova atualização será iniciada.\n\n" +
                             kInvalid});
        QVERIFY(read(updateJournalPath(broken)) == "{ not json" &&
                !QFileInfo::exists(updateJournalPath(pending)));
    }

    // The state file, the journal and its log are written in the drive's place, never through a link
    // found there; read, a link to a device or a pipe under their names is refused without waiting on it.
    void ownFilesNeverGoThroughALink()
    {
        const QString root = at("drive"), own = root + "/Tavrinox/";
        const QStringList names{"update-state.json", "update-journal.json", "update-log-" + kId + ".jsonl"};
        QVERIFY(write(at("outside/kept"), "the user's") && write(own));
        for (const QString &name : names)
            QVERIFY(QFile::link(at(name == names[0] ? "outside/kept" : "outside/" + name), own + name));
        const Tree outside = tree(at("outside"));
        QVERIFY(writeUpdateState(root, "1.1.0", "ab") && writeUpdateJournal(root, {{"id", kId}}) &&
                appendTransactionLog(root, kId, "staged", "x"));
        QCOMPARE(tree(at("outside")), outside);
        QVERIFY(readInstalledVersion(root) == "1.1.0" && journalOf(root)["id"] == kId &&
                logOf(root, kId) == "staged: x\n");
        QVERIFY(QFile::remove(own + names[0]) && run("mkfifo", {own + names[0]}) &&
                QFile::remove(own + names[1]) && QFile::link("/dev/zero", own + names[1]));
        QString error;
        QJsonObject journal;
        QVERIFY(readInstalledVersion(root).isEmpty() && !readPendingJournal(root, &journal, &error));
        QCOMPARE(error, "Não foi possível ler o journal de atualização pendente.");
    }

    // Only UUID-named directories directly in the workspace go, and only when no instance holds them; a
    // held lock ends the pass, a stale one does not.
    void recyclingRemovesOnlyUnheldPerVaultDirectories()
    {
        QCOMPARE(recycleWorkspaceDirectories(), kWorkspaceRecycled); // no workspace yet
        const QStringList kept = {"backup/", "3f2504e0-4f89-11d3-9a0c-0305e82c330/",
                                  "x3f2504e0-4f89-11d3-9a0c-0305e82c3301/",
                                  "9b2f6c1e-0d4a-4e6b-8f3a-2c1d0e9f8a7b", "notes.txt"};
        for (const QString &name : kept + QStringList{kVault + "/data", kVault + "/.hidden/x"})
            QVERIFY(write(workspace(name), "x"));
        QVERIFY(recycleWorkspaceDirectories() == kWorkspaceRecycled &&
                QDir(workspace()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size() == 5);
        QVERIFY(QDir(workspace()).removeRecursively());
        for (int i = 0; i < 4; ++i)
            QVERIFY(write(workspace(QString("a000000%1-0000-4000-8000-000000000000/f").arg(i))));
        const QStringList order =
            QDir(workspace()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
        // A lock held here, as a running instance holds it, and one left by a process that no longer runs.
        QLockFile held(workspace(order[1]) + "/.tavrinox-workspace.lock");
        QVERIFY(held.tryLock(0) &&
                write(workspace(order[2]) + "/.tavrinox-workspace.lock", "2147483646\nx\n\n"));
        QVERIFY(recycleWorkspaceDirectories() == kWorkspaceInUse);
        QCOMPARE(QDir(workspace()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted),
                 order.mid(1));
        held.unlock();
        QVERIFY(recycleWorkspaceDirectories() == kWorkspaceRecycled && QDir(workspace()).isEmpty());
        // Only the workspace's own direct children are ever removed.
        QVERIFY(write(workspace(kVault + "/n/f")) && write(at("outside/" + kVault + "/f")) &&
                QFile::link(at("outside"), at("toOutside")));
        for (const QString &entry :
             {at("toOutside/") + kVault, workspace("."), workspace(kVault + "/n"), workspace(kVault + "/..")})
            QVERIFY(!removeWorkspaceEntry(entry, QFileInfo(workspace()).canonicalFilePath()) &&
                    !removeWorkspaceEntry(workspace(kVault), {}));
        QVERIFY(QFileInfo::exists(workspace(kVault + "/n/f")) &&
                QFileInfo::exists(at("outside/" + kVault + "/f")));
    }

    void recyclingNeverFollowsALink_data() { table("recycling"); }
    void recyclingNeverFollowsALink()
    {
        QFETCH(QString, link);
        QFETCH(QString, target);
        QFETCH(QString, box);
        link.replace("VAULT", kVault);
        QVERIFY(write(at("outside/keep.txt"), "keep") &&
                write(at("outside/6ba7b810-9dad-11d1-80b4-00c04fd430c8/secret")));
        for (int i = 0; i < 16; ++i) // siblings, so that a removal begun before the link leaves a gap
            QVERIFY(write(workspace(kVault + "/n/" + QString::number(i)), "x") &&
                    write(workspace(kVault + "/" + QString::number(i)), "x"));
        const QString path = link.isEmpty() ? at("temp/Tavrinox") : workspace(link);
        QString whyNot;
        QLockFile held(workspace(kVault) + "/.tavrinox-workspace.lock");
        if (target == "bind" &&
            !(write(path + '/') && run("mount", {"--bind", at("outside"), path}, &whyNot)))
            QSKIP(qPrintable("NOT TESTED, a bind mount needs root: " + whyNot));
        const auto unmount = qScopeGuard([&] { target == "bind" ? void(run("umount", {path})) : void(); });
        QVERIFY(target == "bind" || (target == "held" ? held.tryLock(0)
                                                      : (!link.isEmpty() || QDir(path).removeRecursively()) &&
                                                            write(QFileInfo(path).path() + '/') &&
                                                            QFile::link(at(target), path)));
        const Tree outside = tree(at("outside")), vault = tree(workspace(kVault));
        Boxes boxes;
        window({})->recycleWorkspace();
        QCOMPARE(boxes.shown, QStringList{box});
        QCOMPARE(tree(at("outside")), outside);
        QCOMPARE(tree(workspace(kVault)) == vault, !box.startsWith('I')); // a refusal removes nothing at all
    }

    // An update starts only over a settled drive and from an HTTPS manifest: a pending journal is recovered
    // first (the update refused when it cannot be), and the caller's gate is asked before the work area and
    // again right before the promotion, a refusal stopping it there. What a stopped apply left, the next
    // recovery clears.
    void updateStartsOnlyOverASettledDrive_data() { table("settled"); }
    void updateStartsOnlyOverASettledDrive()
    {
        QFETCH(QString, situation);
        QFETCH(QString, asked);
        QFETCH(QString, error);
        HttpsServer server;
        const QString root = at("drive");
        QVERIFY(makeDrive(root, "1.0.0") && makeFiles(at("p/Tavrinox"), packageFiles("new"), "new") &&
                zip(at("p"), at("p.zip")) && HttpsServer::trustTestCertificateAuthority() && server.start());
        QVERIFY(situation != "journal" ||
                writeUpdateJournal(root, {{"id", kId}, {"phase", "windows-promoted"}}));
        QVERIFY(!situation.startsWith('{') || write(updateJournalPath(root), situation.toUtf8()));
        QVERIFY(situation != "link" || (QDir().rename(root + "/Tavrinox", at("elsewhere")) &&
                                        QFile::link(at("elsewhere"), root + "/Tavrinox")));
        const QByteArray package = read(at("p.zip"));
        server.route("/p.zip", 200, package);
        server.route("/m.json", 200,
                     json(QString("{'schemaVersion':1,'app':'Tavrinox','version':'1.1.0','packageUrl':'%1',"
                                  "'sha256':'%2'}")
                              .arg(server.url("/p.zip").toString(), sha256(package))));
        QUrl url = server.url("/m.json");
        url.setScheme(situation == "plain" ? "http" : "https");
        int timesAsked = 0;
        const UpdateWriteGate gate = [&](QString *gateError) {
            *gateError = error;
            return situation != QString("refuse at %1").arg(++timesAsked);
        };
        QFuture<QString> failure = QtConcurrent::run([&] {
            const UpdateCheckResult check = checkForUpdate(root, url);
            return check.ok ? applyUpdate(root, check.manifest, gate).error : check.error;
        });
        QVERIFY(QTest::qWaitFor([&] { return failure.isFinished(); }, 600000));
        QCOMPARE(failure.result() + QString::number(timesAsked),
                 error.replace("URL", url.toString()) + asked);
        recoverPendingUpdate(root);
        QCOMPARE(liveBundles(root) + ' ' + readInstalledVersion(root),
                 error.isEmpty() ? "new new 1.1.0" : "old old 1.0.0");
        QCOMPARE(QDir(root + "/Tavrinox")
                     .entryList({"*.backup-*", ".update-*", "update-journal.json"},
                                QDir::AllEntries | QDir::Hidden),
                 situation.startsWith('{') ? QStringList{"update-journal.json"} : QStringList());
    }

    void realFaultsAreReported_data() { table("faults"); }
    void realFaultsAreReported()
    {
        QFETCH(QString, fault);
        QFETCH(QString, error);
        Volume volume, full;
        HttpsServer server;
        QString whyNot, actual;
        if (!volume.mount("ext4", 32, &whyNot))
            QSKIP(qPrintable("NOT TESTED, real faults need a real volume: " + whyNot));
        const QString root = volume.path, tavrinox = root + "/Tavrinox/";
        const QStringList f = fault.split(' ');
        const auto workAreas = [&] {
            return QDir(tavrinox).entryList({".update-*"}, QDir::Dirs | QDir::Hidden);
        };
        QVERIFY(makeUpdateDrive(root));
        if (f[0] == "immutable" || f[0] == "journal") {
            QVERIFY(f[0] != "journal" ||
                    (writeUpdateState(root, f[1], {}) &&
                     writeUpdateJournal(root, {{"phase", "staged"}, {"version", "1.1.0"}, {"id", kId}})));
            QVERIFY(run("chattr", {"+i", f[0] == "journal" ? updateJournalPath(root) : root + '/' + f[1]}));
            QVERIFY(f[0] == "journal" ? !recoverPendingUpdate(root, nullptr, &actual)
                                      : !promoteUpdate(root, packageRoot(root), "1.1.0", "ab", &actual));
            QVERIFY(!f[1].endsWith("json") ||
                    logOf(root, journalOf(root)["id"].toString())
                        .endsWith("failed: Falha ao publicar o estado da atualização.+t\n"));
        } else if (f[0] == "restore") {
            // The incoming Windows bundle cannot be removed once live, so putting the old one back fails;
            // the journal keeps a phase recovery retries from, and once the file can go, recovery completes.
            QVERIFY(run("chattr", {"+i", packageRoot(root) + "/Tavrinox/windows/Tavrinox.exe"}) &&
                    (f.size() > 1 || QDir(packageRoot(root) + "/Tavrinox/linux").removeRecursively()));
            qputenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE", f.value(1).toUtf8());
            QVERIFY(!promoteUpdate(root, packageRoot(root), "1.1.0", "", &actual) &&
                    (f.size() == 1 || !recoverPendingUpdate(root, nullptr, &actual)));
            qunsetenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE");
            const QJsonObject journal = journalOf(root);
            actual = journal["phase"].toString() + ": " +
                     actual.replace(stillNeedsRecoveryMessage(), "STILL") + '|';
            QVERIFY(logOf(root, journal["id"].toString()).contains("failed: ") &&
                    run("chattr", {"-i", tavrinox + "windows/Tavrinox.exe"}) && recoverPendingUpdate(root) &&
                    liveBundles(root) == "old old" && journalOf(root)["phase"] == "rolled-back");
        } else {
            // A stored package of 3 MiB, made of the extracted one, which then leaves the drive.
            QVERIFY(HttpsServer::trustTestCertificateAuthority() && server.start() &&
                    write(packageRoot(root) + "/filler", QByteArray(3 << 20, 'f')) &&
                    zip(packageRoot(root), at("p.zip"), {"--options", "zip:compression=store"}) &&
                    QDir(packageRoot(root) + "/..").removeRecursively());
            server.route("/p.zip", 200, read(at("p.zip")));
            const UpdateManifest manifest{
                "1.1.0", server.url("/p.zip").toString(), sha256(read(at("p.zip"))), -1, {}, {}, {}};
            QVERIFY(f[0] != "read-only" || run("mount", {"-o", "remount,ro", root}));
            QVERIFY(f[0] != "full" ||
                    (QDir(tavrinox).removeRecursively() && full.mount("tmpfs", 1, &whyNot, tavrinox) &&
                     makeDrive(root, "1.0.0")));
            // The transaction's first log record waits on a pipe until the work area is made immutable.
            QStringList pipes;
            for (int second = 0; second < 120; ++second)
                pipes += transactionLogPath(
                    root, QDateTime::currentDateTimeUtc().addSecs(second).toString("yyyyMMddHHmmss"));
            QVERIFY(fault != "work area" || run("mkfifo", pipes));
            QFuture<UpdateApplyResult> apply = QtConcurrent::run([&] { return applyUpdate(root, manifest); });
            if (fault == "work area") {
                QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(updateJournalPath(root)), 60000);
                QFile pipe(transactionLogPath(root, journalOf(root)["id"].toString()));
                QVERIFY(run("chattr", {"+i", tavrinox + workAreas().value(0)}) &&
                        pipe.open(QIODevice::ReadOnly));
                for (const QString &name : QDir(tavrinox).entryList({"update-log-*"}, QDir::System))
                    QFile::remove(tavrinox + name); // later records go to plain files
                pipe.readAll();
            }
            QVERIFY(QTest::qWaitFor([&] { return apply.isFinished(); }, 600000) && !apply.result().ok);
            actual = apply.result().error;
            QCOMPARE(liveBundles(root) + QString::number(workAreas().size()),
                     fault == "work area" ? "new new1" : "old old0");
        }
        QVERIFY2(actual.startsWith(error.replace("%1", root)), qPrintable(actual));
    }
};

TAVRINOX_TEST(TestTransaction)
#include "tst_transaction.moc"
