// Updates: the HTTP helper against a real HTTPS server, the manifest and its versions, the Windows
// programs (through stand-ins), the apply task on folders and a real volume, and the window's flow.
#include "support/support.h"
#include "update/zipdirectory.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kManifest = "/000Updates/tavrinox/manifest.json";

// Runs work on the global pool, as the program does, while this thread keeps its event loop going.
template<typename Work> auto onWorker(Work work)
{
    QFuture future = QtConcurrent::run(work);
    if (!QTest::qWaitFor([&] { return future.isFinished(); }, 600000))
        qFatal("a task on the worker thread did not finish");
    return future.result();
}

// Gives a zip's entry the Unix file type of a named pipe or a device (which zip writers refuse to
// store) by rewriting the high half of its external attributes in the central directory.
void setEntryType(QByteArray *zip, const QByteArray &path, quint16 type)
{
    for (qsizetype at = zip->indexOf("PK\x01\x02"); at >= 0; at = zip->indexOf("PK\x01\x02", at + 4)) {
        if (zip->mid(at + 46, qFromLittleEndian<quint16>(zip->constData() + at + 28)) == path)
            qToLittleEndian<quint16>(type | 0644, zip->data() + at + 40);
    }
}

} // namespace

class TestUpdate : public QObject
{
    Q_OBJECT
    HttpsServer m_server;
    Volume m_volume; // the refusals' drive, where it can be mounted
    QString m_noVolume;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString at(const QString &relative) const { return m_dir->filePath(relative); }

    // The new bundles zipped from a real folder, with an extra file "evil" that options may rename.
    QByteArray package(const QStringList &options = {})
    {
        QDir(at("pkg")).removeRecursively();
        makeFiles(at("pkg/Tavrinox"), packageFiles("new"), "new");
        QFile::setPermissions(at("pkg/Tavrinox/linux/Tavrinox"),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return write(at("pkg/evil"), "escaped") && zip(at("pkg"), at("package.zip"), options)
                   ? read(at("package.zip"))
                   : "";
    }
    // Serves a package and a manifest offering it as 1.1.0; returns the manifest as the check reads it.
    UpdateManifest publish(const QByteArray &package, const QString &notes = "Correções.")
    {
        const UpdateManifest m{"1.1.0", m_server.url("/package.zip").toString(), sha256(package), -1, {},
                               notes, {}};
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
        m_server.route("/to-http", 302, {}, "http://127.0.0.1:1/body");
        m_server.route("/cut", 200, "partial", {}, 0, 1000);
        m_volume.mount("exfat", 24, &m_noVolume);
    }
    void init()
    {
        QCoreApplication::setApplicationVersion("1.0.5");
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(makeDrive(at("drive"), "1.0.0"));
    }

    void httpGetDecidesEachOutcome_data() { table("http"); }
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
        for (const QString &request : m_server.requests())
            QVERIFY2(request.startsWith("GET /") &&
                         request.contains("\r\nUser-Agent: TavrinoxConfig/1.0.5\r\n") &&
                         request.contains("\r\nAccept: */*\r\n"),
                     qPrintable(request));
    }

    // Every field is read before any is tested, and only a strictly greater version is offered.
    void checkReadsTheManifestAndComparesVersions_data() { table("check"); }
    void checkReadsTheManifestAndComparesVersions()
    {
        QFETCH(QString, manifest);
        QFETCH(QString, installed);
        QFETCH(QString, result);
        const QByteArray body = (manifest.startsWith("BOM") ? "\xEF\xBB\xBF" : "") +
                                json(manifest).mid(3 * manifest.startsWith("BOM"));
        m_server.route(kManifest, manifest == "404" ? 404 : 200, body);
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

    void applyRefusesABadPackageOrDownload_data() { table("refusals"); }
    // On a small real volume where one can be mounted, which must also get all its space back and take
    // a good package right after; the refusals that depend on its size are tested there only.
    void applyRefusesABadPackageOrDownload()
    {
        QFETCH(QString, variant);
        QFETCH(QString, error);
        const QStringList v = (variant + " -").split(' ');
        const QString root = m_volume.path.isEmpty() ? at("drive") : m_volume.path + "/drive";
        if (root == at("drive") && (v[0] == "zeros" || v[0] == "filler"))
            QSKIP(qPrintable("NOT TESTED without a real volume: " + m_noVolume));
        QVERIFY(QDir(root).removeRecursively() && makeDrive(root, "1.0.0"));
        QVERIFY(v[0] != "block" ||
                (QDir(root + "/Tavrinox").removeRecursively() && write(root + "/Tavrinox")));
        package();
        QVERIFY(v[0] != "link" || QFile::link(at("x"), at("pkg/Tavrinox/linux/lib/link")));
        QVERIFY(v[0] != "omit" || QFile::remove(at("pkg/Tavrinox/" + v[1])));
        QVERIFY(v[0] != "zeros" || write(at("pkg/evil"), QByteArray(32 << 20, '\0')));
        QVERIFY(v[0] != "folder" || (QFile::remove(at("pkg/evil")) && write(at("pkg/evil/"))));
        // Files one byte over a cluster, two clusters each: declared, two thirds of the volume, which
        // passes the check before extraction; written, four thirds of it.
        const qint64 cluster = qMax<qint64>(512, QStorageInfo(root).blockSize());
        for (qint64 i = 0; v[0] == "filler" && i < QStorageInfo(root).bytesTotal() / (cluster + cluster / 2);
             ++i)
            QVERIFY(write(at("pkg/Tavrinox/windows/filler/%1").arg(i), QByteArray(cluster + 1, 'f')));
        const bool renamed = QString("evil fifo device folder zeros").split(' ').contains(v[0]);
        const QStringList options = {"-P", "-s", ",^evil$," + QString(renamed ? v[1] : "evil") + ","};
        QByteArray bytes = v[0] == "html" ? QByteArray("<html>")
                           : zip(at(v[0] == "top" ? "pkg/Tavrinox" : "pkg"), at("p.zip"), options)
                               ? read(at("p.zip"))
                               : "";
        if (v[0] == "fifo" || v[0] == "device")
            setEntryType(&bytes, v[1].toUtf8(), v[0] == "fifo" ? 0010000 : 0020000);
        if (v[0] == "evil")
            bytes.replace(v[1].toUtf8(), v[1].toUtf8().replace('%', '\x82'));
        UpdateManifest m = publish(bytes);
        m.size = v[0] == "size" ? 0 : bytes.size();
        m.sha256 = v[0] != "sha256" ? m.sha256 : v[1] == "other" ? sha256("other") : m.sha256 + ' ';
        m.packageUrl = v[0] == "url" ? m_server.url("/missing.zip").toString() : m.packageUrl;
        const Tree before = tree(root);
        const qint64 free = QStorageInfo(root).bytesAvailable();
        const UpdateApplyResult result = onWorker([&] { return applyUpdate(root, m); });
        const QRegularExpression workArea(QRegularExpression::escape(root + "/Tavrinox/.update-") +
                                          "\\d{17}");
        error.replace("URL", m.packageUrl).replace("SIZE", QString::number(bytes.size()));
        const qsizetype compared =
            error.indexOf('*'); // a free space or file name past it depends on the volume
        QCOMPARE(QString(result.error).replace(workArea, "WORK").left(compared) + QString::number(result.ok) +
                     result.version,
                 error.remove('*') + "01.1.0");
        QVERIFY(tree(root) == before && !QFileInfo::exists(at("outside.txt")));
        // The check before extraction refuses a bad entry by itself: on Windows the system extracts.
        QString reason;
        QVERIFY(!error.startsWith("Falha ao extrair ZIP: entrada") ||
                (write(at("q.zip"), bytes) && !inspectZipBeforeExtraction(at("q.zip"), root, &reason) &&
                 "Falha ao extrair ZIP: " + reason == error));
        // A file removed while still open keeps its space, and on FUSE leaves a hidden file behind.
        QVERIFY(root == at("drive") || QStorageInfo(root).bytesAvailable() == free);
        QVERIFY(v[0] == "block" || onWorker([&, m = publish(package())] { return applyUpdate(root, m); }).ok);
        QVERIFY(v[0] == "block" || liveBundles(root) == "new new");
    }

    // The phases in order, the bytes received growing up to the total; a body larger than the size
    // declared stops the download.
    void applyReportsProgressInOrder()
    {
        QByteArray noise(4 << 20, Qt::Uninitialized); // incompressible, so that it arrives in many pieces
        QRandomGenerator(14).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        package();
        QVERIFY(write(at("pkg/evil"), noise) && zip(at("pkg"), at("p.zip")));
        const QByteArray bytes = read(at("p.zip"));
        for (const qint64 total : {bytes.size(), bytes.size() / 2}) {
            UpdateManifest m = publish(bytes);
            m.size = total;
            QString phases;
            qint64 received = 0;
            const UpdateApplyResult result = onWorker([&] {
                return applyUpdate(at("drive"), m, {}, [&](const UpdateApplyProgress &report) {
                    const QChar phase('0' + int(report.phase));
                    phases += phases.endsWith(phase) ? QString() : QString(phase);
                    const bool grows = received >= 0 && report.received >= received && report.total == total;
                    received = grows && report.received <= total ? report.received : -1;
                });
            });
            QVERIFY(received >= 0 && (total < bytes.size() || received == total));
            QCOMPARE(phases + ' ' + result.error,
                     total == bytes.size() ? "01234 "
                                           : QString("0 Tamanho do pacote divergente. Esperado: %1 bytes. "
                                                     "Recebido: mais de %1 bytes.")
                                                 .arg(total));
        }
        QCOMPARE(updateApplyProgressText({UpdateApplyPhase::Downloading, 3 << 19, 3 << 20, 1 << 20}),
                 "Baixando a atualização: 1,5 de 3,0 MB (1,0 MB/s)");
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

    void windowUpdatesTheSelectedDrive_data() { table("update"); }
    void windowUpdatesTheSelectedDrive()
    {
        QFETCH(QString, situation);
        QFETCH(QString, box);
        QFETCH(QString, logged);
        Volume volume;
        QString whyNot;
        if (situation == "read-only" && !volume.mount("ext4", 16, &whyNot))
            QSKIP(qPrintable("NOT TESTED on a read-only volume: " + whyNot));
        const QString root = volume.path.isEmpty() ? at("drive/") : volume.path + '/';
        QVERIFY(volume.path.isEmpty() ||
                (makeDrive(root, "1.0.0") && run("mount", {"-o", "remount,ro", volume.path})));
        QVERIFY(situation != "unprepared" || QDir(root + "Tavrinox").removeRecursively());
        QVERIFY(situation != "failed" || write(updateJournalPath(root), "{ not json"));
        QVERIFY(situation != "recovering" ||
                (write(at("other/Tavrinox/")) &&
                 writeUpdateJournal(at("other"), {{"phase", "staged"}, {"id", "20260301140509"}})));
        const QByteArray bytes = package();
        publish(bytes, situation == "Não" ? "" : "Correções.");
        if (situation == "1.0.0" || situation == "404")
            m_server.route(kManifest, situation == "404" ? 404 : 200,
                           json("{'schemaVersion':1,'app':'Tavrinox','version':'1.0.0','packageUrl':'https://"
                                "h/p','sha256':'a'}"));
        if (situation == "hash")
            m_server.route("/package.zip", 200, "another package");
        QProcess application; // while pre-conditions are tested, started from a folder of its own
#ifdef Q_OS_LINUX
        QVERIFY(!logged.isEmpty() ||
                (QFile::copy("/bin/sleep", at("Tavrinox")) &&
                 (application.start(at("Tavrinox"), {"60"}), application.waitForStarted())));
#endif
        const auto stop = qScopeGuard([&] {
            application.kill();
            application.waitForFinished();
            QThreadPool::globalInstance()->waitForDone();
        });
        Boxes boxes({situation == "Não" ? "Não" : "Sim"});
        const UsbDevice first =
            drive(situation == "unmounted" ? "/dev/sdz1" : root, "", situation != "unmounted");
        const auto shown =
            window(situation == "none" ? QList<UsbDevice>() : QList<UsbDevice>{first, drive(at("other/"))},
                   {}, m_server.url(kManifest));
        shown->findChild<QComboBox *>()->setCurrentIndex(situation == "none" ? -1 : 0);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), situation == "failed" ? 1 : 0, 60000);
        const Tree before = tree(root);
        const QStringList earlier = log(*shown);
        const int requests = m_server.requests().size();
        shown->updateSelectedDevice();
        QVERIFY(logged.isEmpty() ||
                (!updateEnabled(*shown) && shown->findChild<QProgressDialog *>()->labelText() ==
                                               "Consultando manifesto de atualização..."));
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), (situation == "failed") + box.count('|') + 1, 60000);
        const QString url = m_server.url(kManifest).toString();
        QCOMPARE(boxes.shown.mid(situation == "failed").join('|'),
                 box.replace("URL", url).replace("DRIVE", root));
        // A recovery running elsewhere may report meanwhile.
        QCOMPARE(log(*shown).mid(0, situation == "recovering" ? earlier.size() : -1),
                 earlier + QStringList(logged.replace("URL", url)).filter(QRegularExpression(".")));
        QVERIFY(logged.isEmpty() ? m_server.requests().size() == requests : updateEnabled(*shown));
        QVERIFY(situation == "Sim" ? liveBundles(root) == "new new" : tree(root) == before);
        QVERIFY(situation != "Sim" ||
                QJsonDocument::fromJson(read(updateStatePath(root)))["lastPackageSha256"] == sha256(bytes));
    }

    // A drive unmounted after the list was read ("click") or while a busy dialog whose label starts so is
    // up is not written: its empty mount point is the computer's own disk. Meanwhile the user presses
    // Escape, closes the busy dialog and asks for every command, Sair too: all refused.
    void windowNeverWritesADriveNoLongerMounted_data()
    {
        table("unmounted");
    }
    void windowNeverWritesADriveNoLongerMounted()
    {
        QFETCH(QString, command);
        QFETCH(QString, unmount);
        QFETCH(QString, logged);
        QVERIFY(makeFiles(at("program/bundles/linux-x64"), {"Tavrinox", "qt.conf"}) &&
                write(at("program/bundles/linux-x64/lib/big.so"), QByteArray(8 << 20, 'b')));
        publish(package()); // the package arrives late, so that the busy dialog is seen at work
        m_server.route("/package.zip", 200, read(at("package.zip")), {}, 1500);
        Bus *bus = nullptr;
        const auto shown = window({drive(at("drive/"))}, at("program"), m_server.url(kManifest), &bus);
        shown->show();
        const QStringList earlier = log(*shown);
        const Tree before = tree(at("drive"));
        bus->unmounted = unmount == "click";
        QString seen;
        QTimer user;
        user.callOnTimeout([&] {
            auto *dialog = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget());
            if (dialog && seen.isEmpty()) {
                QTest::keyClick(dialog, Qt::Key_Escape);
                dialog->close();
                for (const QString action :
                     {"Preparar unidade USB", "Verificar atualizações", "Atualizar lista", "Sair"})
                    control<QAction>(*shown, action)->trigger();
                seen = dialog->isVisible() && shown->isVisible() ? dialog->windowTitle() : "closed";
            }
            bus->unmounted = bus->unmounted || (dialog && dialog->labelText().startsWith(unmount));
        });
        user.start(0);
        Boxes boxes({"Sim"});
        click(*shown, command);
        const QStringList lines = QString(logged).split('\n', Qt::SkipEmptyParts);
        QTRY_COMPARE_WITH_TIMEOUT(log(*shown).size(), earlier.size() + lines.size(), 60000);
        QCOMPARE(log(*shown).mid(earlier.size()), lines);
        QCOMPARE(boxes.shown.size(), 1 + !lines.isEmpty()); // no second command
        QCOMPARE(boxes.shown.last().mid(2),
                 lines.isEmpty()
                     ? "Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de "
                       "preparar."
                     : lines.last().section(": ", 1));
        QCOMPARE(seen, lines.isEmpty() ? "" : kBoxTitle);
        QVERIFY(tree(at("drive")) == before);
    }

    // Keys and signatures come from the publisher's own signing tool.
    void windowUpdatesOnlyFromWhatThePublisherSigned_data()
    {
        table("signatures");
    }
    void windowUpdatesOnlyFromWhatThePublisherSigned()
    {
        QFETCH(QString, key);
        QFETCH(QString, signature);
        QFETCH(QString, issued);
        QFETCH(QString, drive);
        QFETCH(QString, box);
        const QString tool = TAVRINOX_SIGN_MANIFEST, manifestFile = at("manifest.json");
        QString publicKey, why;
        QVERIFY2(run(tool, {"keygen", at("publisher.key")}, &why, &publicKey) &&
                     run(tool, {"keygen", at("intruder.key")}, &why) &&
                     writeUpdateState(at("drive"), "1.0.0", {}, nullptr, drive),
                 qPrintable(why));
        const QByteArray bytes = package();
        QByteArray manifest =
            json(QString("{'schemaVersion':1,'app':'Tavrinox','version':'1.1.0','packageUrl':"
                         "'%1','sha256':'%2','releaseNotes':'Correções.','issuedAt':'%3'}")
                     .arg(m_server.url("/package.zip").toString(), sha256(bytes), issued));
        QVERIFY(write(manifestFile, manifest) &&
                (!signature.endsWith(".key") ||
                 run(tool, {"sign", at(signature), manifestFile}, &why, &signature)) &&
                write(manifestFile + ".sig", signature.toLatin1()));
        if (QByteArray(QTest::currentDataTag()) == "flipped byte")
            manifest[manifest.indexOf("Corre")] ^= 0x20;
        m_server.route(kManifest, 200, manifest);
        m_server.route(kManifest + ".sig", signature.isEmpty() ? 404 : 200, signature.toLatin1());
        m_server.route("/package.zip", 200, bytes);
        Tavrinox::ConfigWindowSetup setup{std::make_unique<Bus>(),
                                          {},
                                          {},
                                          {},
                                          m_server.url(kManifest),
                                          key == "yes" ? publicKey.toLatin1() : QByteArray()};
        static_cast<Bus *>(setup.deviceManager.get())->drives = {Fixture::drive(at("drive/"))};
        ConfigWindow shown(std::move(setup));
        const Tree before = tree(at("drive"));
        const int requests = m_server.requests().size();
        Boxes boxes({"Sim"});
        shown.updateSelectedDevice();
        const bool done = box.startsWith("I:");
        QTRY_COMPARE_WITH_TIMEOUT(boxes.shown.size(), 1 + done, 30000);
        QCOMPARE(boxes.shown.last(), box.replace("URL", m_server.url(kManifest + ".sig").toString()));
        QCOMPARE(log(shown).last(), done ? "Unidade atualizada para Tavrinox 1.1.0."
                                         : "Falha ao consultar manifesto: " + box.mid(2));
        QCOMPARE(m_server.requests().size() - requests, 2 + (done && key == "yes")); // a .sig only with a key
        QVERIFY(done ? liveBundles(at("drive")) == "new new" : tree(at("drive")) == before);
        QCOMPARE(readManifestIssuedAt(at("drive")), !done ? drive : key == "yes" ? issued : "");
        // The tool's own check agrees with the program's.
        QVERIFY(!done || key == "no" ||
                run(tool, {"verify", publicKey, manifestFile, manifestFile + ".sig"}));
    }

    void windowsProgramsAnswerAsExpected_data()
    {
        table("standins");
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
        QFETCH(QString, mode);
        QFETCH(QString, result);
        // The stand-ins come first on the search path, behave as the mode says and record their arguments.
        const QByteArray path = qgetenv("PATH");
        const auto restore = qScopeGuard([&] { qputenv("PATH", path); });
        QVERIFY(write(at("it's/")) && QFile::rename(at("package.zip"), at("it's/p.zip")) &&
                qputenv("STANDIN_RECORD", QFile::encodeName(at("arguments"))) &&
                qputenv("STANDIN_MODE", mode.toUtf8()) &&
                qputenv("PATH", (mode == "missing" ? "/nowhere:" : TAVRINOX_STANDIN_DIR ":") + path));
        const bool extracted =
            runPowerShellExtraction(at("it's/p.zip"), at("it's"), mode == "hang" ? 1000 : 60000, &error);
        QCOMPARE(
            QString("%1 %2").arg(extracted).arg(isTavrinoxListedByTasklist(mode == "hang" ? 1000 : 5000)) +
                error.mid(22),
            result);
        QVERIFY(mode != "listed" || read(at("arguments")) == "/FI\nIMAGENAME eq Tavrinox.exe\n");
        QVERIFY(!extracted || read(at("it's/Tavrinox/linux/qt.conf")) == "new linux/qt.conf");
        QCOMPARE(powerShellExtractArguments(at("it's/p.zip"), "'x'").join(' '),
                 "-NoProfile -ExecutionPolicy Bypass -NonInteractive -Command Expand-Archive -LiteralPath '" +
                     at("it''s/p.zip") + "' -DestinationPath '''x''' -Force");
#endif
    }
};

TAVRINOX_TEST(TestUpdate)
#include "tst_update.moc"
