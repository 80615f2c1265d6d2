// The update transaction: state file and journal, the promotion with its backups and rollback, every
// recovery rule, the window's background recovery, workspace recycling, and the failures that only real
// faults on a real volume bring about.
#include "support/support.h"

#include <QLockFile>
#include <QSemaphore>

#ifdef Q_OS_LINUX
#include <sys/stat.h>
#endif

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kId = "20260301140509", kVault = "3F2504E0-4f89-11d3-9a0c-0305e82c3301"; // either case counts
const QString kInvalid = "O journal de atualização pendente é inválido e foi preservado para diagnóstico.";
const QStringList kOutcomes = {
    "Uma atualização anterior já havia sido revertida; os arquivos de diagnóstico foram preservados.",
    "Uma atualização interrompida foi concluída com segurança.",
    "Uma atualização interrompida antes da promoção foi descartada; o staging foi preservado para "
    "diagnóstico.",
    "Uma atualização interrompida foi revertida com segurança; os arquivos de diagnóstico foram preservados.",
    kInvalid};

// A transaction's log records as "phase: detail", "+t" marking one timed from the start, one a line.
QString logOf(const QString &root, const QString &id)
{
    QString records;
    for (const QByteArray &line : read(transactionLogPath(root, id)).split('\n')) {
        const QJsonObject record = QJsonDocument::fromJson(line).object();
        records += line.isEmpty() ? ""
                                  : record["phase"].toString() + ": " + record["detail"].toString() +
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

// Holds a per-vault directory's lock as a running Tavrinox instance does, until its input closes.
int holdLock(const QStringList &arguments)
{
    QLockFile lock(arguments.value(0) + "/.tavrinox-workspace.lock");
    QFile input;
    if (!lock.tryLock(0) || !input.open(stdin, QIODevice::ReadOnly))
        return 1;
    QTextStream(stdout) << "locked" << Qt::endl;
    return input.readAll().size();
}
TAVRINOX_CHILD_MODE("hold-lock", holdLock)

bool holdLockIn(QProcess &holder, const QString &directory)
{
    holder.start(QCoreApplication::applicationFilePath(), {"hold-lock", directory});
    return holder.waitForReadyRead(60000) && holder.readAll().startsWith("locked");
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

    // A promotion that completes, stops after a phase or fails a swap leaves the drive to a recovery that
    // finishes or undoes it. Result: error|live|state|journal phase|log|after recovery.
    void promotionRunsItsPhasesInOrder_data()
    {
        QTest::addColumn<QByteArray>("fault"); // the phase to stop after, or the incoming bundle to take away
        QTest::addColumn<QString>("result");
        row("completes", QByteArray(),
            "|new new|1.1.0||staged: Pacote validado e pronto para promoção.+t\npromoting-windows: Iniciando "
            "substituição do bundle Windows.+t\n"
            "windows-promoted: Bundle Windows promovido.+t\npromoting-linux: Iniciando substituição do "
            "bundle Linux.+t\nbundles-promoted: "
            "Bundles Windows e Linux promovidos.+t\nstate-written: Estado da versão publicado com "
            "sucesso.+t\ncompleted: Transação concluída "
            "e backups removidos.\n|new new");
        row("windows-promoted", QByteArray("windows-promoted"),
            "Falha de teste injetada na fase: windows-promoted|new old|1.0.0|windows-promoted|"
            "windows-promoted: Bundle Windows promovido.+t\n|old old");
        row("bundles-promoted", QByteArray("bundles-promoted"),
            "Falha de teste injetada na fase: bundles-promoted|new new|1.0.0|bundles-promoted|"
            "bundles-promoted: Bundles Windows e Linux promovidos.+t\n|old old");
        row("state-written, among blanks", QByteArray(" state-written \t"),
            "Falha de teste injetada na fase: state-written|new new|1.1.0|"
            "state-written|state-written: Estado da versão publicado com sucesso.+t\n|new new");
        row("phase in another case", QByteArray("State-Written"),
            "|new new|1.1.0||completed: Transação concluída e backups removidos.\n|new new");
        row("no incoming Windows", QByteArray("-windows"),
            "Não foi possível aplicar novo bundle em: %1/windows|old old|1.0.0|promoting-windows|"
            "failed: Falha na promoção do bundle Windows.+t\n|old old");
        row("no incoming Linux", QByteArray("-linux"),
            "Não foi possível aplicar novo bundle em: %1/linux|old old|1.0.0|rolled-back|rolled-back: "
            "Falha na promoção Linux; bundle Windows restaurado.+t\n|old old");
    }
    void promotionRunsItsPhasesInOrder()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QString, result);
        const QString root = at("drive"), tavrinox = root + "/Tavrinox";
        QVERIFY(makeUpdateDrive(root) &&
                (!fault.startsWith('-') ||
                 QDir(packageRoot(root) + "/Tavrinox/" + fault.mid(1)).removeRecursively()));
        qputenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE", fault);
        QString error;
        const bool promoted = promoteUpdate(root, packageRoot(root), "1.1.0", "ab12", &error);
        qunsetenv("TAVRINOX_TEST_FAIL_UPDATE_PHASE");
        const QJsonObject journal = journalOf(root);
        const QString id = QDir(tavrinox).entryList({"update-log-*"}).value(0).mid(11, 14),
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
        QCOMPARE(actual + '|' + liveBundles(root), result.replace("%1", tavrinox));
        QJsonObject state = QJsonDocument::fromJson(read(updateStatePath(root))).object();
        QVERIFY(QRegularExpression("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$")
                    .match(state.take("installedAt").toString())
                    .hasMatch());
        QVERIFY(!promoted || QJsonDocument(state).toJson(QJsonDocument::Compact) ==
                                 json("{'app':'Tavrinox','bundles':{'linux-x64':{'entryPoint':'Tavrinox','"
                                      "path':'Tavrinox/linux'},'windows-x64':{"
                                      "'entryPoint':'Tavrinox.exe','path':'Tavrinox/"
                                      "windows'}},'installedVersion':'1.1.0','lastPackageSha256':'ab12',"
                                      "'schemaVersion':1,'updatedByConfigVersion':'1.0.5'}"));
    }

    // Nothing is swapped before the first log record is written, nor without the drive's Tavrinox folder.
    void promotionNeedsItsJournalAndFirstLogRecord()
    {
        const QString root = at("drive");
        QString error;
        QVERIFY(makeUpdateDrive(root) &&
                !promoteUpdate(at("bare"), packageRoot(root), "1.1.0", "ab12", &error) &&
                !QFileInfo::exists(at("bare")));
        QCOMPARE(error,
                 "Não foi possível registrar a transação de atualização: " + updateJournalPath(at("bare")));
        for (int second = 0; second < 60; ++second) // the log is named after the start second
            QVERIFY(write(transactionLogPath(root, QDateTime::currentDateTimeUtc().addSecs(second).toString(
                                                       "yyyyMMddHHmmss")) +
                          '/'));
        QVERIFY(!promoteUpdate(root, packageRoot(root), "1.1.0", "ab12", &error));
        QCOMPARE(error, "Não foi possível registrar o log da transação: " +
                            transactionLogPath(root, journalOf(root)["id"].toString()));
        QCOMPARE(journalOf(root)["phase"].toString() + ' ' + liveBundles(root), "staged old old");
    }

    // Setup: journal phase ("-": none; "none": no journal; "invalid": not JSON), its version, the swaps
    // done (W, L: a bundle swapped; M: live Linux moved to its backup only), the state ("bad": not
    // readable; "tavrinox": another application's) and "unreachable" for a Windows path that cannot be
    // restored to. Result: outcome (by its place in kOutcomes) or error | live bundles | journal phase after
    // ("gone") | log | backups left.
    void recoveryFollowsItsRulesInOrder_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("result");
        const QString complete =
            "|gone|recovered-complete: Estado publicado encontrado; limpeza concluída.\n|0";
        const QString rollback =
            "3|old old|rolled-back|recovered-rollback: Bundles restaurados a partir dos backups.+t\n|0";
        row("nothing pending", "none - - old", "-1|old old|gone||0");
        row("rolled back before", "rolled-back 1.1.0 M old", "0|old missing|rolled-back||1");
        row("published, state-written", "state-written 1.1.0 WL new", "1|new new" + complete);
        row("published, bundles-promoted", "bundles-promoted 1.1.0 WL new", "1|new new" + complete);
        row("published before the phase", "staged 1.1.0 WL new", "1|new new" + complete);
        row("same version again, mid-swap", "promoting-linux 1.1.0 M new", "1|old old" + complete);
        row("staged", "staged 1.1.0 - old",
            "2|old old|gone|recovered-staged: Staging sem promoção descartado.\n|0");
        row("before the Windows rename", "promoting-windows 1.1.0 - old", rollback);
        row("Linux moved away", "promoting-linux 1.1.0 WM old", rollback);
        row("state not written", "bundles-promoted 1.1.0 WL old", rollback);
        row("state of another version", "state-written 1.1.0 WL old", rollback);
        row("unknown phase", "mystery 1.1.0 WL old", rollback);
        row("no phase", "- 1.1.0 W old", rollback);
        row("no version, state unreadable", "promoting-linux - WL bad", rollback);
        row("state of another application", "state-written 1.1.0 WL tavrinox", rollback);
        row("journal of another schema", "schema 1.1.0 W old", "4|new old|||1");
        row("journal not JSON", "invalid - W old", "4|new old|||1");
        row("restore impossible", "promoting-linux 1.1.0 WL old unreachable",
            "Não foi possível restaurar o backup de: %1/gone/windows|new new|promoting-linux||2");
    }
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
        const QString otherState =
            s[3] == "bad" ? "{ not json" : "{'schemaVersion':1,'app':'tavrinox','installedVersion':'1.1.0'}";
        QVERIFY(s[3] == "old" || (s[3] == "new" ? writeUpdateState(root, "1.1.0", "ab")
                                                : write(updateStatePath(root), json(otherState))));
        QJsonObject journal{
            {"id", kId},
            {"startedAt", QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
            {"version", s[1]},
            {"windowsPath", s.value(4) == "unreachable" ? root + "/gone/windows" : tavrinox + "windows"},
            {"phase", s[0]},
            {"linuxPath", tavrinox + "linux"},
            {"windowsBackup", tavrinox + "windows.backup-" + kId},
            {"linuxBackup", tavrinox + "linux.backup-" + kId}};
        for (const QString key : {"phase", "version"})
            journal[key] == "-" ? journal.remove(key) : void();
        const QByteArray raw =
            s[0] == "invalid"
                ? "{ not json"
                : json("{'schemaVersion':'1','app':'Tavrinox','phase':'staged','version':'1.1.0'}");
        QVERIFY(s[0] == "none" ||
                (s[0] == "invalid" || s[0] == "schema" ? write(updateJournalPath(root), raw)
                                                       : writeUpdateJournal(root, journal)));
        QString message, error;
        const bool ok = recoverPendingUpdate(root, &message, &error);
        const QString outcome = kOutcomes.contains(ok ? message : error)
                                    ? QString::number(kOutcomes.indexOf(ok ? message : error))
                                : ok && message.isEmpty() ? "-1"
                                                          : error;
        QCOMPARE(
            QStringList(
                {outcome, liveBundles(root),
                 QFileInfo::exists(updateJournalPath(root)) ? journalOf(root)["phase"].toString() : "gone",
                 logOf(root, kId), QString::number(QDir(tavrinox).entryList({"*.backup-*"}).size())})
                .join('|'),
            result.replace("%1", root));
        QVERIFY(ok == error.isEmpty() &&
                QFileInfo::exists(packageRoot(root))); // the staging stays for diagnosis
    }

    // Every listed drive carrying a journal is recovered in the background, one task per drive at a time;
    // the update controls come back only when the last recovery ends. A failed one is shown once and is
    // not tried again.
    void windowRecoversPendingUpdatesOnePerDrive()
    {
        const QString pending = at("pending/"), emptied = at("emptied/"), broken = at("broken/");
        for (const QString &root : {pending, emptied})
            QVERIFY(makeDrive(root, "1.0.0") && writeUpdateJournal(root, {{"phase", "staged"}}));
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
        QCOMPARE(log(*shown).filter(QRegularExpression("^Rec")).join('|'),
                 QString("Recuperando atualização pendente em %1...|Recuperando "
                         "atualização pendente em %2...|Recuperando atualização pendente em %3...")
                     .arg(pending, emptied, broken));
        QVERIFY(log(*shown).contains(kOutcomes[2]) &&
                log(*shown).contains("Atualização pendente verificada em " + emptied + "."));
        QVERIFY(log(*shown).contains("Atualização pendente não recuperada em " + broken + ": " + kInvalid));
        QCOMPARE(boxes.shown,
                 QStringList{"W:A recuperação automática de uma atualização pendente falhou em " + broken +
                             ". A unidade foi preservada e nenhuma nova atualização será iniciada.\n\n" +
                             kInvalid});
        QVERIFY(read(updateJournalPath(broken)) == "{ not json" &&
                !QFileInfo::exists(updateJournalPath(pending)));
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
        QProcess holder, deadHolder;
        QVERIFY(holdLockIn(holder, workspace(order[1])) && holdLockIn(deadHolder, workspace(order[2])));
        deadHolder.kill();
        QVERIFY(deadHolder.waitForFinished() && recycleWorkspaceDirectories() == kWorkspaceInUse);
        QCOMPARE(QDir(workspace()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted),
                 order.mid(1));
        holder.closeWriteChannel();
        QVERIFY(holder.waitForFinished() && recycleWorkspaceDirectories() == kWorkspaceRecycled &&
                QDir(workspace()).isEmpty());
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

    // A link anywhere below a per-vault directory, or a file system mounted there, keeps it whole; nothing
    // a link reaches is removed. The window shows each outcome in a box.
    void recyclingNeverFollowsALink_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("box");
        const QString failed = "W:Não foi possível reciclar o espaço de trabalho.";
        row("to a folder outside", kVault + "/elsewhere", "outside", failed);
        row("hidden, nested", kVault + "/n/.cache/elsewhere", "outside", failed);
        row("to a file outside", kVault + "/n/keep.txt", "outside/keep.txt", failed);
        row("dangling", kVault + "/n/gone", "missing", failed);
        row("as the lock file", kVault + "/.tavrinox-workspace.lock", "outside/keep.txt", failed);
        row("a file system mounted inside", kVault + "/n/mounted", "bind", failed);
        row("the per-vault directory itself", "6ba7b810-9dad-11d1-80b4-00c04fd430c8", "outside",
            "I:Espaço de trabalho reciclado.");
        row("the workspace itself", "", "outside", "W:Não foi possível validar o espaço de trabalho.");
        row("held", "", "held",
            "W:Para reciclar o espaço de trabalho, bloqueie todos os cofres abertos, feche o Tavrinox e "
            "desmonte as "
            "unidades utilizadas. Em seguida, tente novamente.");
    }
    void recyclingNeverFollowsALink()
    {
        QFETCH(QString, link);
        QFETCH(QString, target);
        QFETCH(QString, box);
        QVERIFY(write(at("outside/keep.txt"), "keep") &&
                write(at("outside/6ba7b810-9dad-11d1-80b4-00c04fd430c8/secret")));
        for (int i = 0; i < 16; ++i) // siblings, so that a removal begun before the link leaves a gap
            QVERIFY(write(workspace(kVault + "/n/" + QString::number(i)), "x") &&
                    write(workspace(kVault + "/" + QString::number(i)), "x"));
        const QString path = link.isEmpty() ? at("temp/Tavrinox") : workspace(link);
        QString whyNot;
        QProcess holder;
        if (target == "bind" &&
            !(write(path + '/') && run("mount", {"--bind", at("outside"), path}, &whyNot)))
            QSKIP(qPrintable("NOT TESTED, a bind mount needs root: " + whyNot));
        const auto unmount = qScopeGuard([&] { target == "bind" ? void(run("umount", {path})) : void(); });
        QVERIFY(target == "bind" || (target == "held" ? holdLockIn(holder, workspace(kVault))
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

    // Failures that only a real fault on a real volume brings about: a file or folder made immutable, a
    // volume remounted read-only, a full one. %1 in the error stands for the drive.
    void realFaultsAreReported_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("error");
        row("bundle cannot be moved", "immutable Tavrinox/windows",
            "Não foi possível criar backup de: %1/Tavrinox/windows");
        row("state cannot be published", "immutable Tavrinox/update-state.json",
            "Não foi possível abrir o arquivo de estado: %1/Tavrinox/update-state.json");
        row("published, journal stays", "journal 1.1.0",
            "A atualização foi concluída, mas o journal não pôde ser removido.");
        row("staged, journal stays", "journal 1.0.0",
            "Não foi possível remover o journal de um staging não promovido.");
        row("read-only volume", "read-only", "Não foi possível criar área temporária na unidade USB.");
        row("full volume", "full", "Não foi possível gravar o pacote temporário na unidade USB.");
        row("work area cannot be removed", "work area", "Não foi possível remover: %1/Tavrinox/.update-");
    }
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
        QVERIFY(makeUpdateDrive(root));
        if (f[0] == "immutable" || f[0] == "journal") {
            QVERIFY(f[0] != "journal" ||
                    (writeUpdateState(root, f[1], {}) &&
                     writeUpdateJournal(root, {{"phase", "staged"}, {"version", "1.1.0"}})));
            QVERIFY(run("chattr", {"+i", f[0] == "journal" ? updateJournalPath(root) : root + '/' + f[1]}));
            QVERIFY(f[0] == "journal" ? !recoverPendingUpdate(root, nullptr, &actual)
                                      : !promoteUpdate(root, packageRoot(root), "1.1.0", "ab", &actual));
            QVERIFY(!f[1].endsWith("json") ||
                    logOf(root, journalOf(root)["id"].toString())
                        .endsWith("failed: Falha ao publicar o estado da atualização.+t\n"));
        } else {
            // A stored package of 3 MiB, made of the extracted one, which then leaves the drive.
            QVERIFY(HttpsServer::trustTestCertificateAuthority() && server.start() &&
                    write(packageRoot(root) + "/filler", QByteArray(3 << 20, 'f')));
            QVERIFY(zip(packageRoot(root), at("p.zip"), {"--options", "zip:compression=store"}) &&
                    QDir(packageRoot(root) + "/..").removeRecursively());
            server.route("/p.zip", 200, read(at("p.zip")));
            const UpdateManifest manifest{
                "1.1.0", server.url("/p.zip").toString(), sha256(read(at("p.zip"))), -1, {}, {}};
            QVERIFY(f[0] != "read-only" || run("mount", {"-o", "remount,ro", root}));
            QVERIFY(f[0] != "full" ||
                    (QDir(tavrinox).removeRecursively() && full.mount("tmpfs", 1, &whyNot, tavrinox) &&
                     makeDrive(root, "1.0.0")));
#ifdef Q_OS_LINUX
            // The transaction's first log record waits on a pipe until the work area is made immutable.
            for (int second = 0; fault == "work area" && second < 120; ++second)
                QVERIFY(!mkfifo(
                    QFile::encodeName(transactionLogPath(
                        root, QDateTime::currentDateTimeUtc().addSecs(second).toString("yyyyMMddHHmmss"))),
                    0600));
#endif
            QFuture<UpdateApplyResult> apply = QtConcurrent::run([&] { return applyUpdate(root, manifest); });
            if (fault == "work area") {
                QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(updateJournalPath(root)), 60000);
                QFile pipe(transactionLogPath(root, journalOf(root)["id"].toString()));
                QVERIFY(
                    run("chattr",
                        {"+i",
                         tavrinox +
                             QDir(tavrinox).entryList({".update-*"}, QDir::Dirs | QDir::Hidden).value(0)}) &&
                    pipe.open(QIODevice::ReadOnly));
                for (const QString &name : QDir(tavrinox).entryList({"update-log-*"}, QDir::System))
                    QFile::remove(tavrinox + name);
                pipe.readAll();
            }
            QVERIFY(QTest::qWaitFor([&] { return apply.isFinished(); }, 600000) && !apply.result().ok);
            actual = apply.result().error;
            QCOMPARE(liveBundles(root) +
                         QString::number(
                             QDir(tavrinox).entryList({".update-*"}, QDir::Dirs | QDir::Hidden).size()),
                     fault == "work area" ? "new new1" : "old old0");
        }
        QVERIFY2(actual.startsWith(error.replace("%1", root)), qPrintable(actual));
    }
};

TAVRINOX_TEST(TestTransaction)
#include "tst_transaction.moc"
