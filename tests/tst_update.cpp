// Updates: the HTTP helper against a real HTTPS server, the manifest and its versions, the Windows
// programs (through stand-ins), the apply task on folders and a real volume, and the window's flow.
#include "support/support.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kManifest = "/000Updates/tavrinox/manifest.json",
              kHashDiffers = "Hash SHA-256 divergente. O pacote não será aplicado.";

// Runs work on the global pool, as the program does, while this thread keeps its event loop going.
template<typename Work> auto onWorker(Work work)
{
    QFuture future = QtConcurrent::run(work);
    if (!QTest::qWaitFor([&] { return future.isFinished(); }, 600000))
        qFatal("a task on the worker thread did not finish");
    return future.result();
}

// While this lives, directory comes first on the search path; the stand-ins for powershell and tasklist
// there (tests/standins) behave as mode says, and record the arguments they were given.
struct StandIns
{
    StandIns(const QString &directory, const QByteArray &mode)
    {
        qputenv("PATH", QFile::encodeName(directory) + ':' + path);
        qputenv("STANDIN_MODE", mode);
        qputenv("STANDIN_RECORD", QFile::encodeName(record.filePath("arguments")));
    }
    ~StandIns() { qputenv("PATH", path); }
    const QByteArray path = qgetenv("PATH");
    QTemporaryDir record;
};

} // namespace

class TestUpdate : public QObject
{
    Q_OBJECT
    HttpsServer m_server;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString at(const QString &relative) const { return m_dir->filePath(relative); }

    // The new bundles zipped from a real folder, less one file, with an extra file "evil" that options
    // may rename; top is the folder zipped.
    QByteArray package(const QStringList &options = {}, const QString &omitted = "-",
                       const QString &top = "pkg")
    {
        QDir(at("pkg")).removeRecursively();
        makeFiles(at("pkg/Tavrinox"), packageFiles("new"), "new");
        QFile::setPermissions(at("pkg/Tavrinox/linux/Tavrinox"),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile::remove(at("pkg/Tavrinox/" + omitted));
        return write(at("pkg/evil"), "escaped") && zip(at(top), at("package.zip"), options)
                   ? read(at("package.zip"))
                   : "";
    }
    // Serves a package and a manifest offering it as 1.1.0; returns the manifest as the check reads it.
    UpdateManifest publish(const QByteArray &package, const QString &notes = "Correções.")
    {
        const UpdateManifest m{"1.1.0", m_server.url("/package.zip").toString(), sha256(package), -1, {},
                               notes};
        m_server.route("/package.zip", 200, package);
        m_server.route(
            kManifest, 200,
            json(QString(
                     "{'schemaVersion':1,'app':'Tavrinox','version':'1.1.0','packageUrl':'%1','sha256':'%2',"
                     "'releaseNotes':'%3'}")
                     .arg(m.packageUrl, m.sha256, notes)));
        return m;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(HttpsServer::trustTestCertificateAuthority() && m_server.start());
        m_server.route("/body", 200, "payload");
        m_server.route("/empty", 200);
        m_server.route("/slow", 200, "payload", {}, 60000);
        m_server.route("/moved", 302, {}, m_server.url("/body").toEncoded());
        m_server.route("/to-http", 302, {}, m_server.url("/body", false).toEncoded());
        m_server.route("/cut", 200, "partial", {}, 0, 1000);
    }
    void init()
    {
        QCoreApplication::setApplicationVersion("1.0.5");
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(makeDrive(at("drive"), "1.0.0"));
    }

    // "path timeout|body|error", %1 the URL: the error is left untouched on success, and need not be
    // asked for.
    void httpGetDecidesEachOutcome_data()
    {
        QTest::addColumn<QString>("outcome");
        row("body", "/body 60000|payload|untouched");
        row("https redirect followed", "/moved 60000|payload|untouched");
        row("empty body", "/empty 60000||untouched");
        row("too slow", "/slow 300||Tempo limite excedido ao acessar: %1");
        row("404, as Qt says it", "/missing 60000||Error transferring %1 - server replied: Not Found");
        row("redirect to http refused", "/to-http 60000||Insecure redirect");
        row("truncated", "/cut 60000||Connection closed");
    }
    void httpGetDecidesEachOutcome()
    {
        QFETCH(QString, outcome);
        const QUrl url = m_server.url(outcome.section(' ', 0, 0));
        const int timeout = outcome.section(' ', 1).section('|', 0, 0).toInt();
        QString error = "untouched";
        const QByteArray body = onWorker([&] { return httpGet(url, timeout, &error); });
        QCOMPARE(outcome.section('|', 0, 0) + '|' + body + '|' + error,
                 outcome.replace("%1", url.toString()));
        QCOMPARE(onWorker([&] { return httpGet(url, timeout); }), body);
        QCOMPARE(m_server.requests().filter(
                     QRegularExpression("^https GET /.* \\| TavrinoxConfig/1.0.5 \\| \\*/\\*$")),
                 m_server.requests());
    }

    // The manifest served (changes to a complete one; a key set to null is left out) and the version the
    // drive records (none: "-") give "ok offered installed|error|version sha256 size". Every field is
    // read before any is tested, and only a strictly greater version is offered.
    void checkReadsTheManifestAndComparesVersions_data()
    {
        QTest::addColumn<QString>("changes");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("result");
        const QString notOurs = "0 0 |Manifesto não pertence ao Tavrinox ou usa schema não suportado.|  -1";
        row("byte-order mark", "BOM", "1.0.9", "1 1 1.0.9||1.0.10 ab12 1234");
        row("fractional size, capitals", "'size':1234.9,'sha256':'AB12'", "1.0.9",
            "1 1 1.0.9||1.0.10 ab12 1234");
        row("no size", "'size':null", "1.0.9", "1 1 1.0.9||1.0.10 ab12 -1");
        row("schema 2", "'schemaVersion':2", "1.0.9", notOurs);
        row("app in lower case", "'app':'tavrinox'", "1.0.9", notOurs);
        row("no version", "'version':null", "1.0.9",
            "0 0 |Manifesto sem version, packageUrl ou sha256.| ab12 1234");
        row("not JSON", "<html>", "1.0.9", "0 0 |Manifesto inválido: illegal value|  -1");
        row("missing", "404", "1.0.9", "0 0 |Error transferring %1 - server replied: Not Found|  -1");
        row("equal", "'version':'1.0.5'", "1.0.5", "1 0 1.0.5||1.0.5 ab12 1234");
        row("longer", "'version':'1.0.5.0'", "1.0.5", "1 1 1.0.5||1.0.5.0 ab12 1234");
        row("suffix ignored", "'version':'1.2.3-beta'", "1.2.3", "1 0 1.2.3||1.2.3-beta ab12 1234");
        row("nothing recorded", "'version':'0.0.1'", "-", "1 1 0.0.0||0.0.1 ab12 1234");
    }
    void checkReadsTheManifestAndComparesVersions()
    {
        QFETCH(QString, changes);
        QFETCH(QString, installed);
        QFETCH(QString, result);
        QJsonObject object =
            QJsonDocument::fromJson(json("{'schemaVersion':1,'app':'Tavrinox','version':'1.0.10','packageUrl'"
                                         ":'u','sha256':'ab12','size':1234}"))
                .object();
        const QJsonObject replaced = QJsonDocument::fromJson(json('{' + changes + '}')).object();
        for (auto it = replaced.begin(); it != replaced.end(); ++it)
            it->isNull() ? void(object.remove(it.key())) : void(object[it.key()] = *it);
        const QByteArray body = changes.startsWith('<') ? changes.toUtf8()
                                                        : (changes == "BOM" ? "\xEF\xBB\xBF" : "") +
                                                              QJsonDocument(object).toJson();
        m_server.route(kManifest, changes == "404" ? 404 : 200, body);
        QVERIFY(installed == "-" ? QFile::remove(updateStatePath(at("drive")))
                                 : writeUpdateState(at("drive"), installed, {}));
        const QUrl url = m_server.url(kManifest);
        const UpdateCheckResult check = onWorker([&] { return checkForUpdate(at("drive"), url); });
        QCOMPARE(QString("%1 %2 %3|%4|%5 %6 %7")
                     .arg(check.ok)
                     .arg(check.updateAvailable)
                     .arg(check.installedVersion, check.error, check.manifest.version, check.manifest.sha256)
                     .arg(check.manifest.size),
                 result.replace("%1", url.toString()));
    }

    void windowsProgramsAnswerAsExpected()
    {
        QString error;
        package();
#ifdef Q_OS_WIN
        // The real programs: PowerShell extracts a real package; no Tavrinox runs during the tests.
        QVERIFY2(extractZip(at("package.zip"), at("x"), &error) && !isTavrinoxRunning(), qPrintable(error));
        QCOMPARE(read(at("x/Tavrinox/linux/qt.conf")), "new linux/qt.conf");
#else
        QVERIFY(write(at("it's/")) && QFile::rename(at("package.zip"), at("it's/p.zip")));
        // "extracted tasklist-answer" and the error's detail, for each way the stand-ins behave.
        const QList<QPair<QByteArray, QString>> modes = {
            {"", "1 0"},
            {"fail", "0 0Expand-Archive: arquivo corrompido\nsaida parcial\n"},
            {"hang", "0 1iniciando\n"},
            {"listed", "1 1"},
            {"manager-only", "1 0"},
            {"missing", "0 1"}};
        for (const auto &[mode, expected] : modes) {
            StandIns standIns(mode == "missing" ? "/nowhere" : TAVRINOX_STANDIN_DIR, mode);
            error.clear();
            const bool extracted =
                runPowerShellExtraction(at("it's/p.zip"), at("it's"), mode == "hang" ? 1000 : 60000, &error);
            QCOMPARE(QString("%1 %2").arg(extracted).arg(
                         isTavrinoxListedByTasklist(mode == "hang" ? 1000 : 5000)) +
                         error.mid(22),
                     expected);
            QVERIFY(mode != "listed" ||
                    read(standIns.record.filePath("arguments")) == "/FI\nIMAGENAME eq Tavrinox.exe\n");
        }
        QCOMPARE(read(at("it's/Tavrinox/linux/qt.conf")), "new linux/qt.conf");
        QCOMPARE(powerShellExtractArguments(at("it's/p.zip"), "'x'").join(' '),
                 "-NoProfile -ExecutionPolicy Bypass -NonInteractive -Command "
                 "Expand-Archive -LiteralPath '" +
                     at("it''s/p.zip") + "' -DestinationPath '''x''' -Force");
#endif
    }

    // Every failure before the promotion leaves the drive exactly as it was. In the error, WORK stands for
    // the attempt's work area and SIZE for the package's size.
    void applyRefusesABadPackageOrDownload_data()
    {
        QTest::addColumn<QString>("variant");
        QTest::addColumn<QString>("error");
        const QString refused = "Falha ao extrair ZIP: entrada ";
        row("size 0", "size 0", "Tamanho do pacote divergente. Esperado: 0 bytes. Recebido: SIZE bytes.");
        row("another hash", "sha256 other", kHashDiffers);
        row("hash with a blank", "sha256 blank", kHashDiffers);
        row("download refused", "url missing", "Error transferring URL - server replied: Not Found");
        row("not a zip", "html", "Falha ao extrair ZIP: Unrecognized archive format");
        row("entry climbing out", "evil ../../../outside.txt",
            refused + "que sai do diretório de destino: ../../../outside.txt");
        row("entry with a drive letter", "evil C:/outside.txt",
            refused + "com caminho absoluto: C:/outside.txt");
        row("symbolic link", "link", refused + "que é link simbólico: Tavrinox/linux/lib/link");
        row("work area blocked", "block", "Não foi possível criar área temporária na unidade USB.");
        row("bundles at the top", "top",
            "Pacote sem arquivo obrigatório: WORK/extracted/Tavrinox/windows/Tavrinox.exe");
        for (const QString &file : packageFiles("new").mid(0, 7))
            row(qPrintable("without " + file), "omit " + file,
                "Pacote sem arquivo obrigatório: WORK/extracted/Tavrinox/" + file);
    }
    void applyRefusesABadPackageOrDownload()
    {
        QFETCH(QString, variant);
        QFETCH(QString, error);
        const QStringList v = (variant + " -").split(' ');
        QVERIFY(v[0] != "block" ||
                (QDir(at("drive/Tavrinox")).removeRecursively() && write(at("drive/Tavrinox"))));
        package();
        QVERIFY(v[0] != "link" || QFile::link(at("x"), at("pkg/Tavrinox/linux/lib/link")));
        QVERIFY(v[0] != "omit" || QFile::remove(at("pkg/Tavrinox/" + v[1])));
        const QStringList options = {"-P", "-s", ",^evil$," + QString(v[0] == "evil" ? v[1] : "evil") + ","};
        const QByteArray bytes = v[0] == "html" ? QByteArray("<html>")
                                 : zip(at(v[0] == "top" ? "pkg/Tavrinox" : "pkg"), at("p.zip"), options)
                                     ? read(at("p.zip"))
                                     : "";
        UpdateManifest m = publish(bytes);
        m.size = v[0] == "size" ? 0 : bytes.size();
        m.sha256 = v[0] != "sha256" ? m.sha256 : v[1] == "other" ? sha256("other") : m.sha256 + ' ';
        m.packageUrl = v[0] == "url" ? m_server.url("/missing.zip").toString() : m.packageUrl;
        const Tree before = tree(at("drive"));
        const UpdateApplyResult result = onWorker([&] { return applyUpdate(at("drive"), m); });
        const QString pattern = QRegularExpression::escape(
            error.replace("URL", m.packageUrl).replace("SIZE", QString::number(bytes.size())));
        const QString workArea = QRegularExpression::escape(at("drive/Tavrinox/.update-")) + "\\d{17}";
        QVERIFY2(!result.ok && result.version == "1.1.0" &&
                     QRegularExpression('^' + QString(pattern).replace("WORK", workArea) + '$')
                         .match(result.error)
                         .hasMatch(),
                 qPrintable(result.error));
        QVERIFY(tree(at("drive")) == before && !QFileInfo::exists(at("outside.txt")));
    }

    // The drive must have three times the package free; what was received counts, not the manifest.
    void applyNeedsThreeTimesThePackageFree()
    {
        Volume volume;
        QString whyNot;
        if (!volume.mount("exfat", 48, &whyNot))
            QSKIP(qPrintable("NOT TESTED on a real volume: " + whyNot));
        QFile filler(volume.path + "/filler.bin"); // fills the volume until its free space divides by three
        QVERIFY(makeDrive(volume.path, "1.0.0") && filler.open(QIODevice::WriteOnly));
        while (QStorageInfo(volume.path).bytesAvailable() % 3)
            QVERIFY(filler.write(QByteArray(QStorageInfo(volume.path).blockSize(), 'f')) > 0 &&
                    filler.flush());
        const qint64 available = QStorageInfo(volume.path).bytesAvailable();
        const QStringList store = {"--options", "zip:compression=store"}; // the size then follows the content
        const qint64 overhead = package(store).size() - 7;
        for (const double factor : {2.9, 3.0}) {
            const qint64 size = qint64(available / factor);
            QVERIFY(write(at("pkg/evil"), QByteArray(size - overhead, 'x')) &&
                    zip(at("pkg"), at("big.zip"), store));
            const QByteArray bytes = read(at("big.zip"));
            const Tree before = tree(volume.path);
            const UpdateApplyResult result =
                onWorker([&, m = publish(bytes)] { return applyUpdate(volume.path, m); });
            QCOMPARE(QString::number(bytes.size()) + result.error,
                     QString::number(size) + (factor < 3 ? "Espaço livre insuficiente na unidade USB para "
                                                           "preparar a atualização com segurança."
                                                         : ""));
            QVERIFY(factor == 3 ? liveBundles(volume.path) == "new new" : tree(volume.path) == before);
        }
    }

    // Each outcome of the check or the apply is shown in a box and logged once; only the accepted update
    // changes the drive.
    void windowReportsEachOutcome_data()
    {
        QTest::addColumn<QString>("variant");
        QTest::addColumn<QString>("box");
        QTest::addColumn<QString>("logged");
        const QString question = "?:Atualização disponível:Atualizar Tavrinox na unidade DRIVE?\n\nVersão "
                                 "instalada: 1.0.0\nVersão disponível: 1.1.0\n\n";
        row("accepted", "Sim",
            question + "Correções. [Sim/Não*]|I:Atualização concluída.\n\nVersão instalada: 1.1.0",
            "Unidade atualizada para Tavrinox 1.1.0.");
        row("declined, no notes", "Não", question + "Sem notas de versão. [Sim/Não*]",
            "Atualização cancelada pelo usuário.");
        row("same version", "1.0.0",
            "I:A unidade já está atualizada.\n\nVersão instalada: 1.0.0\nVersão disponível: 1.0.0",
            "Nenhuma atualização disponível. Instalado: 1.0.0 | Remoto: 1.0.0");
        row("manifest missing", "404", "W:Error transferring URL - server replied: Not Found",
            "Falha ao consultar manifesto: Error transferring URL - server replied: Not Found");
        row("hash differs", "hash", question + "Correções. [Sim/Não*]|W:" + kHashDiffers,
            "Falha ao aplicar atualização: " + kHashDiffers);
    }
    void windowReportsEachOutcome()
    {
        QFETCH(QString, variant);
        QFETCH(QString, box);
        QFETCH(QString, logged);
        const QByteArray bytes = package();
        publish(bytes, variant == "Não" ? "" : "Correções.");
        if (variant == "1.0.0" || variant == "404")
            m_server.route(
                kManifest, variant == "404" ? 404 : 200,
                json("{'schemaVersion':1,'app':'Tavrinox','version':'1.0.0','packageUrl':'u','sha256':'a'}"));
        if (variant == "hash")
            m_server.route("/package.zip", 200, "another package");
        const Tree before = tree(at("drive"));
        const auto shown = window({drive(at("drive/"))}, {}, m_server.url(kManifest));
        const QStringList earlier = log(*shown);
        Boxes boxes({variant == "Não" ? "Não" : "Sim"});
        click(*shown, "Verificar atualizações");
        QVERIFY(!updateEnabled(*shown) && shown->findChild<QProgressDialog *>()->labelText() ==
                                              "Consultando manifesto de atualização...");
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), box.count("|") + 1, 60000);
        const QString url = m_server.url(kManifest).toString();
        QCOMPARE(boxes.shown.join('|'), box.replace("URL", url).replace("DRIVE", at("drive/")));
        QCOMPARE(log(*shown).mid(earlier.size()), QStringList{logged.replace("URL", url)});
        QVERIFY(updateEnabled(*shown) &&
                (variant == "Sim" ? liveBundles(at("drive")) == "new new" : tree(at("drive")) == before));
        QVERIFY(variant != "Sim" || QJsonDocument::fromJson(read(
                                        updateStatePath(at("drive"))))["lastPackageSha256"] == sha256(bytes));
    }

    // The pre-conditions are tested in order, with Tavrinox running all along so that the last one never
    // passes; the first that fails shows its box, and nothing is logged or fetched.
    void updateRefusesUnlessEveryConditionHolds_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QString>("box");
        row("no drive selected", "none", "I:Selecione uma unidade USB primeiro.");
        row("not mounted", "unmounted",
            "I:Monte a unidade USB e atualize a lista antes de verificar atualizações.");
        row("not prepared", "unprepared",
            "I:A unidade selecionada ainda não possui uma estrutura Tavrinox preparada.");
        row("read-only", "read-only",
            "W:A unidade USB não está disponível para gravação. Monte-a com leitura e gravação antes de "
            "atualizar.");
        row("a recovery runs elsewhere", "recovering",
            "I:Aguarde a recuperação automática de atualização pendente terminar antes de iniciar outra "
            "atualização.");
        row("its recovery failed", "failed",
            "W:Há uma atualização pendente que não pôde ser recuperada com segurança. Nenhuma nova "
            "atualização será iniciada para esta unidade.");
        row("Tavrinox runs", "running", "W:Feche o Tavrinox antes de atualizar os bundles da unidade USB.");
    }
    void updateRefusesUnlessEveryConditionHolds()
    {
        QFETCH(QString, situation);
        QFETCH(QString, box);
        Volume volume;
        QString root = at("drive/"), whyNot;
        if (situation == "read-only" && !volume.mount("ext4", 16, &whyNot))
            QSKIP(qPrintable("NOT TESTED on a read-only volume: " + whyNot));
        root = volume.path.isEmpty() ? root : volume.path + '/';
        QVERIFY(volume.path.isEmpty() ||
                (makeDrive(root, "1.0.0") && run("mount", {"-o", "remount,ro", volume.path})));
        QVERIFY(situation != "unprepared" || QDir(root + "Tavrinox").removeRecursively());
        QVERIFY(situation != "failed" || write(updateJournalPath(root), "{ not json"));
        QVERIFY(situation != "recovering" ||
                (write(at("other/Tavrinox/")) && writeUpdateJournal(at("other"), {{"phase", "staged"}})));
        QProcess application; // started from a folder of its own, as a user would
#ifdef Q_OS_LINUX
        QVERIFY(QFile::copy("/bin/sleep", at("Tavrinox")) &&
                (application.start(at("Tavrinox"), {"60"}), application.waitForStarted()));
#endif
        Boxes boxes;
        const UsbDevice first =
            drive(situation == "unmounted" ? "/dev/sdz1" : root, "", situation != "unmounted");
        const auto shown =
            window(situation == "none" ? QList<UsbDevice>() : QList<UsbDevice>{first, drive(at("other/"))},
                   {}, m_server.url(kManifest));
        shown->findChild<QComboBox *>()->setCurrentIndex(situation == "none" ? -1 : 0);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), situation == "failed" ? 1 : 0, 60000);
        const QStringList earlier = log(*shown);
        const int requests = m_server.requests().size();
        shown->updateSelectedDevice();
        application.kill();
        QCOMPARE(boxes.shown.last() + QString::number(m_server.requests().size() - requests), box + '0');
        // A recovery running elsewhere may report meanwhile.
        QCOMPARE(log(*shown).mid(0, situation == "recovering" ? earlier.size() : -1), earlier);
        application.waitForFinished();
        QThreadPool::globalInstance()->waitForDone();
    }
};

TAVRINOX_TEST(TestUpdate)
#include "tst_update.moc"
