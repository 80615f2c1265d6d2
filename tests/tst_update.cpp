// Updates: the HTTP helper against a real HTTPS server, the manifest and its versions, the package's
// extraction and the Windows programs (through stand-ins), the apply task on folders and a real volume,
// and the window's flow from the button to the last box.
#include "support/support.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kManifestPath = "/000Updates/tavrinox/manifest.json";
const QString kHashDiffers = "Hash SHA-256 divergente. O pacote não será aplicado.";

// Runs work on the global pool, as the program does, while this thread keeps its event loop going.
template<typename Work> auto onWorker(Work work)
{
    QFuture future = QtConcurrent::run(work);
    if (!QTest::qWaitFor([&] { return future.isFinished(); }, 600000))
        qFatal("a task on the worker thread did not finish");
    return future.result();
}

} // namespace

class TestUpdate : public QObject
{
    Q_OBJECT
    HttpsServer m_server;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString at(const QString &relative) const { return m_dir->filePath(relative); }

    // The new bundles zipped from a real folder, less one file; options may rename the extra file "evil".
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
            kManifestPath, 200,
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
        m_server.route("/late", 200, "payload", {}, 200);
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

    // "body|error": the error is left untouched on success, and need not be asked for.
    void httpGetDecidesEachOutcome_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("timeoutMs");
        // %1: the URL asked for
        QTest::addColumn<QString>("outcome");
        row("body", "/body", 60000, "payload|untouched");
        row("late, within the limit", "/late", 60000, "payload|untouched");
        row("https redirect followed", "/moved", 60000, "payload|untouched");
        row("empty body", "/empty", 60000, "|untouched");
        row("too slow", "/slow", 300, "|Tempo limite excedido ao acessar: %1");
        row("404, as Qt says it", "/missing", 60000, "|Error transferring %1 - server replied: Not Found");
        row("redirect to http refused", "/to-http", 60000, "|Insecure redirect");
        row("truncated", "/cut", 60000, "|Connection closed");
    }
    void httpGetDecidesEachOutcome()
    {
        QFETCH(QString, path);
        QFETCH(int, timeoutMs);
        QFETCH(QString, outcome);
        const QUrl url = m_server.url(path);
        QString error = "untouched";
        const QByteArray body = onWorker([&] { return httpGet(url, timeoutMs, &error); });
        QCOMPARE(body + '|' + error, outcome.replace("%1", url.toString()));
        QCOMPARE(onWorker([&] { return httpGet(url, timeoutMs); }), body);
        QCOMPARE(m_server.requests().filter(
                     QRegularExpression("^https GET /.* \\| TavrinoxConfig/1.0.5 \\| \\*/\\*$")),
                 m_server.requests());
    }

    // "error|version|packageUrl|sha256|size|publishedAt|releaseNotes": every field is read before any is
    // tested, so a refused manifest keeps what was there.
    void manifestIsReadAsItsRulesSay_data()
    {
        QTest::addColumn<QString>("changes");
        QTest::addColumn<QString>("result");
        const QString notOurs = "Manifesto não pertence ao Tavrinox ou usa schema não suportado.||||-1||";
        const QString incomplete = "Manifesto sem version, packageUrl ou sha256.|";
        row("complete", "", "|1.1.0|u|ab12|1234|p|n");
        row("byte-order mark", "BOM", "|1.1.0|u|ab12|1234|p|n");
        row("fractional size, capitals", "'size':1234.9,'sha256':'AB12'", "|1.1.0|u|ab12|1234|p|n");
        row("no size", "'size':null,'publishedAt':null", "|1.1.0|u|ab12|-1||n");
        row("schema 2", "'schemaVersion':2", notOurs);
        row("no schema", "'schemaVersion':null", notOurs);
        row("app in lower case", "'app':'tavrinox'", notOurs);
        row("no version", "'version':null", incomplete + "|u|ab12|1234|p|n");
        row("hash not a string", "'sha256':5", incomplete + "1.1.0|u||1234|p|n");
        row("not an object", "[]", "Manifesto inválido: no error occurred||||-1||");
        row("not JSON", "<html>", "Manifesto inválido: illegal value||||-1||");
    }
    void manifestIsReadAsItsRulesSay()
    {
        QFETCH(QString, changes);
        QFETCH(QString, result);
        QJsonObject object =
            QJsonDocument::fromJson(
                json("{'schemaVersion':1,'app':'Tavrinox','version':'1.1.0','packageUrl':'u',"
                     "'sha256':'ab12','size':1234,'publishedAt':'p','releaseNotes':'n'}"))
                .object();
        const QJsonObject replaced = QJsonDocument::fromJson(json('{' + changes + '}')).object();
        for (auto it = replaced.begin(); it != replaced.end(); ++it)
            it->isNull() ? void(object.remove(it.key())) : void(object[it.key()] = *it);
        const QByteArray body =
            changes.startsWith('[') || changes.startsWith('<')
                ? changes.toUtf8()
                : (changes == "BOM" ? "\xEF\xBB\xBF" : "") + QJsonDocument(object).toJson();
        UpdateManifest m;
        QString error;
        QCOMPARE(parseUpdateManifest(body, &m, &error), result.startsWith('|'));
        QCOMPARE(QStringList({error, m.version, m.packageUrl, m.sha256, QString::number(m.size),
                              m.publishedAt, m.releaseNotes})
                     .join('|'),
                 result);
        QCOMPARE(updateManifestUrl("https://h:8443/site//").toString(),
                 "https://h:8443/site/000Updates/tavrinox/manifest.json");
    }

    // Only a strictly greater version is offered; a drive that records none counts as 0.0.0.
    void checkComparesWithTheInstalledVersion_data()
    {
        QTest::addColumn<QString>("remote");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("result");
        row("numeric, not textual", "1.0.10", "1.0.9", "offered 1.0.9");
        row("equal", "1.0.5", "1.0.5", "current 1.0.5");
        row("older is no downgrade", "1.0.4", "1.0.5", "current 1.0.5");
        row("shorter remote", "1.0.5", "1.0.5.0", "current 1.0.5.0");
        row("longer remote", "1.0.5.0", "1.0.5", "offered 1.0.5");
        row("suffixes ignored", "1.2.3-beta", "1.2.3", "current 1.2.3");
        row("nothing recorded", "0.0.1", "", "offered 0.0.0");
        row("manifest missing", "404", "1.0.0", "failed: Error transferring %1 - server replied: Not Found");
        row("empty manifest", "", "1.0.0", "failed: ");
    }
    void checkComparesWithTheInstalledVersion()
    {
        QFETCH(QString, remote);
        QFETCH(QString, installed);
        QFETCH(QString, result);
        m_server.route(kManifestPath, remote == "404" ? 404 : 200,
                       remote.isEmpty() ? ""
                                        : json("{'schemaVersion':1,'app':'Tavrinox',"
                                               "'version':'" +
                                               remote + "','packageUrl':'u','sha256':'ab'}"));
        QVERIFY(installed.isEmpty() ? QFile::remove(updateStatePath(at("drive")))
                                    : writeUpdateState(at("drive"), installed, {}));
        const QUrl url = m_server.url(kManifestPath);
        const UpdateCheckResult check = onWorker([&] { return checkForUpdate(at("drive"), url); });
        QCOMPARE(!check.ok ? "failed: " + check.error + check.installedVersion
                           : (check.updateAvailable ? "offered " : "current ") + check.installedVersion,
                 result.replace("%1", url.toString()));
    }

    // The extra file "evil" goes into the archive under the row's name; "link" adds a symbolic link.
    void extractionWritesTheWholePackageOrNothing_data()
    {
        QTest::addColumn<QString>("entry");
        // %1: a folder of the test's
        QTest::addColumn<QString>("refusal");
        row("good package", "Tavrinox/extra.txt", "");
        row("climbs out", "../outside.txt", "entrada que sai do diretório de destino: ../outside.txt");
        row("climbs out deeper", "Tavrinox/../../x",
            "entrada que sai do diretório de destino: Tavrinox/../../x");
        row("absolute", "%1/outside.txt", "entrada com caminho absoluto: %1/outside.txt");
        row("drive letter", "C:/outside.txt", "entrada com caminho absoluto: C:/outside.txt");
        row("link", "link", "entrada que é link simbólico: Tavrinox/linux/lib/link");
    }
    void extractionWritesTheWholePackageOrNothing()
    {
        QFETCH(QString, entry);
        QFETCH(QString, refusal);
        package();
        QVERIFY(entry != "link" || QFile::link(at("x"), at("pkg/Tavrinox/linux/lib/link")));
        QVERIFY(zip(at("pkg"), at("p.zip"),
                    {"-P", "-s", ",^evil$," + QString(entry).replace("%1", at("x")) + ","}));
        Tree expected = tree(at("pkg/Tavrinox"));
        expected["extra.txt"] = "escaped";
        QString error;
        QCOMPARE(extractZip(at("p.zip"), at("x/extracted"), &error), refusal.isEmpty());
        QCOMPARE(error, refusal.isEmpty() ? "" : "Falha ao extrair ZIP: " + refusal.replace("%1", at("x")));
        QVERIFY(refusal.size() ? tree(at("x")) == Tree({{"extracted", "/"}})
                               : tree(at("x/extracted/Tavrinox")) == expected &&
                                     QFileInfo(at("x/extracted/Tavrinox/linux/Tavrinox")).isExecutable());
        QVERIFY(!extractZip(at("p.zip"), at("drive/Tavrinox-Linux.sh/x"), &error));
        QCOMPARE(error, "Não foi possível criar staging: " + at("drive/Tavrinox-Linux.sh/x"));
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
            {"listed-failing", "1 1"},
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
            QVERIFY(mode != "manager-only" ||
                    standIns.arguments() == QStringList({"/FI", "IMAGENAME eq Tavrinox.exe"}));
        }
        QCOMPARE(read(at("it's/Tavrinox/linux/qt.conf")), "new linux/qt.conf");
        QCOMPARE(powerShellExtractArguments(at("it's/p.zip"), "'x'"),
                 QStringList({"-NoProfile", "-ExecutionPolicy", "Bypass", "-NonInteractive", "-Command",
                              "Expand-Archive -LiteralPath '" + at("it''s/p.zip") +
                                  "' -DestinationPath '''x''' -Force"}));
#endif
    }

    // Every failure before the promotion leaves the drive exactly as it was.
    void applyRefusesABadPackageOrDownload_data()
    {
        QTest::addColumn<QString>("variant");
        // WORK: the attempt's work area; SIZE: the package's size
        QTest::addColumn<QString>("error");
        row("size 0", "size 0", "Tamanho do pacote divergente. Esperado: 0 bytes. Recebido: SIZE bytes.");
        row("another hash", "sha256 other", kHashDiffers);
        row("hash with a blank", "sha256 blank", kHashDiffers);
        row("download refused", "url missing", "Error transferring URL - server replied: Not Found");
        row("not a zip", "html", "Falha ao extrair ZIP: Unrecognized archive format");
        row("zip-slip", "evil ../../../outside.txt",
            "Falha ao extrair ZIP: entrada que sai do diretório de destino: ../../../outside.txt");
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
        const QStringList v = variant.split(' ');
        QVERIFY(v[0] != "block" ||
                (QDir(at("drive/Tavrinox")).removeRecursively() && write(at("drive/Tavrinox"))));
        const QByteArray bytes =
            v[0] == "html"
                ? QByteArray("<html>")
                : package(v[0] == "evil" ? QStringList{"-P", "-s", ",^evil$," + v[1] + ","} : QStringList(),
                          v[0] == "omit" ? v[1] : "-", v[0] == "top" ? "pkg/Tavrinox" : "pkg");
        UpdateManifest m = publish(bytes);
        m.size = v[0] == "size" ? 0 : bytes.size();
        m.sha256 = v[0] != "sha256" ? m.sha256 : v[1] == "other" ? sha256("other") : m.sha256 + ' ';
        m.packageUrl = v[0] == "url" ? m_server.url("/missing.zip").toString() : m.packageUrl;
        const Tree before = tree(at("drive"));
        const UpdateApplyResult result = onWorker([&] { return applyUpdate(at("drive"), m); });
        const QString work = QRegularExpression::escape(at("drive/Tavrinox/.update-")) + "\\d{17}";
        QVERIFY2(
            !result.ok && result.version == "1.1.0" &&
                QRegularExpression(
                    '^' +
                    QRegularExpression::escape(
                        error.replace("URL", m.packageUrl).replace("SIZE", QString::number(bytes.size())))
                        .replace("WORK", work) +
                    '$')
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
            QCOMPARE(bytes.size(), size);
            QCOMPARE(
                result.error,
                factor < 3
                    ? "Espaço livre insuficiente na unidade USB para preparar a atualização com segurança."
                    : "");
            QVERIFY(factor == 3 ? liveBundles(volume.path) == "new new" : tree(volume.path) == before);
        }
    }

    void updateFromTheWindow()
    {
        const QByteArray bytes = package();
        publish(bytes);
        m_server.route("/package.zip", 200, bytes, {}, 1000); // late enough to see the apply's dialog
        const auto shown = window({drive(at("drive/"))}, {}, m_server.url(kManifestPath));
        const auto busy = [&](const QString &label) {
            for (QProgressDialog *dialog : shown->findChildren<QProgressDialog *>()) {
                if (dialog->isVisible() && dialog->labelText() == label && !dialog->maximum() &&
                    dialog->isModal() && !dialog->findChild<QPushButton *>())
                    return !updateEnabled(*shown);
            }
            return false;
        };
        Boxes boxes({"Sim"});
        click(*shown, "Verificar atualizações");
        QVERIFY(busy("Consultando manifesto de atualização..."));
        QTRY_VERIFY_WITH_TIMEOUT(busy("Baixando, validando e aplicando atualização..."), 60000);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), 2, 60000);
        QCOMPARE(boxes.shown,
                 QStringList({"?:Atualização disponível:Atualizar Tavrinox na unidade " + at("drive/") +
                                  "?\n\nVersão "
                                  "instalada: 1.0.0\nVersão disponível: 1.1.0\n\nCorreções. [Sim/Não*]",
                              "I:Atualização concluída.\n\nVersão instalada: 1.1.0"}));
        QVERIFY(updateEnabled(*shown) && log(*shown).last() == "Unidade atualizada para Tavrinox 1.1.0.");
        QCOMPARE(liveBundles(at("drive")) + readInstalledVersion(at("drive")), "new new1.1.0");
        QCOMPARE(QJsonDocument::fromJson(read(updateStatePath(at("drive"))))["lastPackageSha256"].toString(),
                 sha256(bytes));
        QCOMPARE(QDir(at("drive/Tavrinox"))
                     .entryList({".update-*", "*.backup-*", "update-journal.json"},
                                QDir::AllEntries | QDir::Hidden),
                 QStringList());
    }

    // Each outcome of the check or the apply is logged once and shown once; the drive stays as it was.
    void windowReportsEachOutcome_data()
    {
        QTest::addColumn<QString>("variant");
        QTest::addColumn<QString>("box");
        QTest::addColumn<QString>("logged");
        row("same version", "1.0.0",
            "I:A unidade já está atualizada.\n\nVersão instalada: 1.0.0\nVersão disponível: 1.0.0",
            "Nenhuma atualização disponível. Instalado: 1.0.0 | Remoto: 1.0.0");
        row("manifest missing", "404", "W:Error transferring URL - server replied: Not Found",
            "Falha ao consultar manifesto: Error transferring URL - server replied: Not Found");
        row("declined, no notes", "",
            "?:Atualização disponível:Atualizar Tavrinox na unidade DRIVE?\n\nVersão instalada: "
            "1.0.0\nVersão disponível: "
            "1.1.0\n\nSem notas de versão. [Sim/Não*]",
            "Atualização cancelada pelo usuário.");
        row("hash differs", "hash", "W:" + kHashDiffers, "Falha ao aplicar atualização: " + kHashDiffers);
    }
    void windowReportsEachOutcome()
    {
        QFETCH(QString, variant);
        QFETCH(QString, box);
        QFETCH(QString, logged);
        publish(package(), variant == "" ? "" : "Correções.");
        if (variant == "1.0.0" || variant == "404")
            m_server.route(
                kManifestPath, variant == "404" ? 404 : 200,
                json("{'schemaVersion':1,'app':'Tavrinox','version':'1.0.0','packageUrl':'u','sha256':'a'}"));
        if (variant == "hash")
            m_server.route("/package.zip", 200, "another package");
        const Tree before = tree(at("drive"));
        const auto shown = window({drive(at("drive/"))}, {}, m_server.url(kManifestPath));
        const QStringList earlier = log(*shown);
        Boxes boxes({variant == "hash" ? "Sim" : "Não"});
        shown->updateSelectedDevice();
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), variant == "hash" ? 2 : 1, 60000);
        const QString url = m_server.url(kManifestPath).toString();
        QCOMPARE(boxes.shown.last(), box.replace("URL", url).replace("DRIVE", at("drive/")));
        QCOMPARE(log(*shown).mid(earlier.size()), QStringList{logged.replace("URL", url)});
        QVERIFY(updateEnabled(*shown) && tree(at("drive")) == before);
    }

    // The pre-conditions are tested in order; the first that fails shows its box, and nothing is logged
    // or fetched.
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
        // The application started from a folder of its own, as a user would.
        QProcess application;
        QVERIFY(situation != "running" ||
                (QFile::copy("/bin/sleep", at("Tavrinox")) &&
                 (application.start(at("Tavrinox"), {"60"}), application.waitForStarted())));
        Boxes boxes;
        const auto shown =
            window(situation == "none"        ? QList<UsbDevice>()
                   : situation == "unmounted" ? QList<UsbDevice>{drive("/dev/sdz1", "", false)}
                                              : QList<UsbDevice>{drive(root), drive(at("other/"))},
                   {}, m_server.url(kManifestPath));
        shown->findChild<QComboBox *>()->setCurrentIndex(situation == "none" ? -1 : 0);
        if (situation == "failed")
            QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), 1, 60000);
        const QStringList earlier = log(*shown);
        const int requests = m_server.requests().size();
        shown->updateSelectedDevice();
        application.kill();
        application.waitForFinished();
        QCOMPARE(boxes.shown.last(), box);
        // A recovery running elsewhere may report meanwhile.
        QCOMPARE(log(*shown).mid(0, situation == "recovering" ? earlier.size() : -1), earlier);
        QCOMPARE(m_server.requests().size(), requests);
        QThreadPool::globalInstance()->waitForDone();
    }
};

TAVRINOX_TEST(TestUpdate)
#include "tst_update.moc"
