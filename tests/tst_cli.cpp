#include "buildconfig.h"
#include "support/bundlefixture.h"
#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/testfiles.h"
#include "support/usbmachine.h"
#include "support/zippackage.h"
#include "transaction/updatejournal.h"
#include "transaction/updatestate.h"

#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>

using namespace Tavrinox;

namespace {

struct Outcome
{
    int exitCode;
    QString out, err;
};

// One run over stick 1, ROOT standing for its root in every text: the whole standard output (compared
// as JSON when it is JSON), a part of standard error, and whose bundles the drive holds afterwards ("old":
// prepared at 1.0.0 before the run, "new": updated to the 1.1.0 that the server offers, "": never prepared).
struct Case
{
    QString arguments;
    int exitCode;
    QString out, err;
    // The standard input, and the journal left on the drive before the run.
    QByteArray bundles = "old", input = QByteArray(), journal = QByteArray();
    bool hashMatches = true; // whether the manifest gives the package's own SHA-256
};

} // namespace

Q_DECLARE_METATYPE(Case)

// tavrinox-cli run for real, listing the drives of a modelled machine: sticks 1 and 2 mounted at empty
// folders, stick 3 attached but not mounted; the bundles to copy are named with --windows and --linux.
class TestCli : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;

    QString path(const QString &relative) const { return m_dir->filePath(relative); }
    QString root(int stick) const { return path(QStringLiteral("drive%1/").arg(stick)); }

    void start(QProcess &process, const QStringList &arguments)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TAVRINOX_SYSTEM_ROOT", path("system"));
        environment.insert("TMPDIR", path("tmp"));
        environment.insert("XDG_DATA_HOME", path("data"));
        process.setProcessEnvironment(environment);
        process.start(TAVRINOX_CLI, arguments);
    }

    Outcome cli(const QStringList &arguments, const QByteArray &input = QByteArray())
    {
        QProcess process;
        start(process, arguments);
        process.write(input);
        process.closeWriteChannel();
        const bool ended = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
        return {ended ? process.exitCode() : -1, QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QStringList withSources(QStringList arguments) const
    {
        return arguments << "--windows" << path("windows") << "--linux" << path("linux");
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        for (int stick : {1, 2, 3})
            QVERIFY(addUsbStick(path("system"), stick, QStringLiteral("PEN%1").arg(stick),
                                stick < 3 ? root(stick) : ""));
        QVERIFY(Fixture::makeWindowsBundle(path("windows")) && Fixture::makeLinuxBundle(path("linux")));
    }

    void answersEachCommand_data()
    {
        QTest::addColumn<Case>("run");
        const QString updated = "Unidade atualizada para Tavrinox 1.1.0.\n";
        const QString notPrepared =
            "A unidade selecionada ainda não possui uma estrutura Tavrinox preparada.";
        const QByteArray journal = R"({"schemaVersion":1,"app":"Tavrinox","id":"20260101000000","phase":)";
        const QByteArray staged = journal + R"("staged"})";
        const QString drives = R"({"drives": [
            {"id": "/dev/sdb1", "label": "PEN1", "device": "/dev/sdb1", "root": "ROOT", "fileSystem": "exfat",
             "removable": true, "mounted": true, "installedVersion": "1.0.0", "pendingUpdate": true},
            {"id": "/dev/sdc1", "label": "PEN2", "device": "/dev/sdc1", "root": "DRIVE2", "fileSystem": "exfat",
             "removable": true, "mounted": true, "installedVersion": null, "pendingUpdate": false},
            {"id": "/dev/sdd1", "label": "PEN3", "device": "/dev/sdd1", "root": "", "fileSystem": "",
             "removable": true, "mounted": false, "installedVersion": null, "pendingUpdate": false}]})";
        // clang-format off
        const QList<QPair<const char *, Case>> cases{
            {"no command", {"", 2, "", "tavrinox-cli: falta o comando.\nUso: tavrinox-cli COMANDO"}},
            {"option of another command", {"prepare PEN1 --deep SOURCES", 2, "",
                "o comando prepare não aceita a opção --deep.\nUso: tavrinox-cli prepare UNIDADE... [--yes]"}},
            {"server without TLS", {"update PEN1 SERVER --server http://127.0.0.1", 2, "",
                "o servidor de atualização precisa ser um endereço https://: http://127.0.0.1\nUso: "}},
            {"list", {"list --json", 0, drives, "", "old", "", staged}},
            {"unknown drive", {"prepare NOPE -y SOURCES", 3, "", "Unidade USB não encontrada: NOPE"}},
            {"drive not mounted", {"prepare /dev/sdd1 -y SOURCES", 3, "",
                "/dev/sdd1: Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar."}},
            {"preparation declined", {"prepare ROOT SOURCES", 1, "Preparação cancelada pelo usuário.\n",
                "Preparar a estrutura Tavrinox em ROOT?", "old", "não\n"}},
            {"verify before preparing", {"verify PEN1 SOURCES", 1, "", notPrepared, ""}},
            {"nothing to recover", {"recover PEN1", 0, "Nenhuma atualização pendente em ROOT.\n", ""}},
            {"staging discarded", {"recover /dev/sdb1", 0, "Uma atualização interrompida antes da promoção foi "
                "descartada; o staging foi preservado para diagnóstico.\n", "Recuperando atualização pendente em "
                "ROOT...", "old", "", staged}},
            {"journal unreadable", {"recover PEN1", 1, "Atualização pendente não recuperada em ROOT: O journal de "
                "atualização pendente é inválido e foi preservado para diagnóstico.\n", "", "old", "", "{"}},
            {"workspace recycled", {"recycle", 0, "Espaço de trabalho reciclado.\n", ""}},
            {"check", {"check PEN1 SERVER", 0, "Atualização disponível.\n\nVersão instalada: 1.0.0\nVersão disponível: "
                "1.1.0\n\nCorreções de segurança.\n", "Consultando manifesto de atualização..."}},
            {"check as JSON", {"check PEN1 SERVER --json", 0, R"({"ok": true, "root": "ROOT", "installedVersion": "1.0.0",
                "availableVersion": "1.1.0", "updateAvailable": true, "releaseNotes": "Correções de segurança.",
                "publishedAt": ""})", ""}},
            {"update", {"update ROOT SERVER --yes", 0, updated, "Baixando, validando e aplicando atualização...", "new"}},
            {"update declined", {"update PEN1 SERVER", 1, "Atualização cancelada pelo usuário.\n",
                "Atualizar Tavrinox na unidade ROOT?\n\nVersão instalada: 1.0.0\nVersão disponível: 1.1.0",
                "old", "n\n"}},
            {"package hash differs", {"update PEN1 SERVER -y", 1, "Falha ao aplicar atualização: Hash SHA-256 divergente. "
                "O pacote não será aplicado.\n", "", "old", "", "", false}},
            {"interrupted update rolled back first", {"update PEN1 SERVER -y", 0, updated,
                "Uma atualização interrompida foi revertida com segurança", "new", "", journal + R"("promoting-windows"})"}},
            {"unrecoverable journal refuses", {"update PEN1 SERVER -y", 1, "",
                "Há uma atualização pendente que não pôde ser recuperada com segurança.", "old", "", "[]"}},
        };
        // clang-format on
        for (const auto &[name, run] : cases)
            QTest::newRow(name) << run;
    }
    void answersEachCommand()
    {
        QFETCH(Case, run);
        HttpsServer server;
        QString why;
        QVERIFY2(server.start(&why), qPrintable(why));
        const QByteArray package = tavrinoxPackage("new").bytes();
        server.addBody("/package.zip", package);
        server.addBody(
            "/000Updates/tavrinox/manifest.json",
            QStringLiteral(R"({"schemaVersion": 1, "app": "Tavrinox", "version": "1.1.0", "packageUrl":
                           "%1", "sha256": "%2", "size": %3, "releaseNotes": "Correções de segurança."})")
                .arg(server.url("/package.zip").toString(), sha256Hex(run.hashMatches ? package : "x"))
                .arg(package.size())
                .toUtf8());
        if (!run.bundles.isEmpty())
            QVERIFY(layOutPreparedDrive(root(1), "1.0.0", "old"));
        if (!run.journal.isEmpty())
            QVERIFY(Fixture::writeFile(updateJournalPath(root(1)), run.journal));
        const QMap<QString, QByteArray> before = driveSnapshot(root(1));

        run.arguments.replace("ROOT", root(1)).replace("SOURCES", withSources({}).join(' '));
        run.arguments.replace("SERVER",
                              "--ca-file " TAVRINOX_TLS_CA " --server " + server.url("").toString());
        const Outcome outcome = cli(run.arguments.split(' ', Qt::SkipEmptyParts), run.input);

        QCOMPARE(outcome.exitCode, run.exitCode);
        const auto normal = [](const QString &text) {
            return text.startsWith('{') ? QString::fromUtf8(QJsonDocument::fromJson(text.toUtf8()).toJson())
                                        : text;
        };
        QCOMPARE(normal(outcome.out), normal(run.out.replace("ROOT", root(1)).replace("DRIVE2", root(2))));
        QVERIFY2(outcome.err.contains(run.err.replace("ROOT", root(1))), qPrintable(outcome.err));
        // Whatever fails or is refused leaves the drive exactly as it was.
        if (run.exitCode != 0)
            QCOMPARE(driveSnapshot(root(1)), before);
        QVERIFY(run.bundles.isEmpty() ? !QFileInfo::exists(root(1) + "Tavrinox-Linux.sh")
                                      : driveHoldsBundles(root(1), run.bundles));
    }

    void preparesDrivesInParallelAndVerifiesThem()
    {
        // Stick 4 is a real exFAT volume where root and FUSE allow it, a folder elsewhere.
        LoopVolume volume;
        QString whyNot;
        const bool onVolume = volume.mount(LoopVolume::FileSystem::ExFat, 64 << 20, &whyNot);
        const QString fourth = onVolume ? volume.mountPoint() : path("drive4");
        QVERIFY(addUsbStick(path("system"), 4, "PEN4", fourth));
        QVERIFY(Fixture::writeFile(root(2) + "Tavrinox", "a file where the folder goes"));

        const Outcome outcome = cli(withSources({"prepare", "PEN1", root(2), "/dev/sde1", "--yes"}));
        QCOMPARE(outcome.exitCode, 1);
        const QStringList reported = outcome.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(QSet<QString>(reported.cbegin(), reported.cend()),
                 QSet<QString>(
                     {"Unidade preparada: " + root(1), "Unidade preparada: " + fourth + "/",
                      "Falha em " + root(2) + ": Nao foi possivel criar a pasta: " + root(2) + "Tavrinox"}));
        QCOMPARE(readInstalledVersion(root(1)), QString::fromLatin1(Build::kApplicationVersion));
        QCOMPARE(cli(withSources({"verify", "PEN4", "--deep"})).out,
                 "Os bundles da unidade conferem com as fontes de preparação.\n");

        // Same size, other bytes: only the comparison of contents sees that one.
        QVERIFY(Fixture::writeFile(root(1) + "Tavrinox/linux/qt.conf", QByteArray(30, 'x')));
        QVERIFY(QFile::remove(root(1) + "Tavrinox/windows/msvcp140.dll"));
        QVERIFY(Fixture::writeFile(root(1) + "Tavrinox/linux/stray.txt", "x"));
        const QStringList found{"Ausente: Tavrinox/windows/msvcp140.dll", "Extra: Tavrinox/linux/stray.txt"};
        const Outcome shallow = cli(withSources({"verify", "PEN1"}));
        QCOMPARE(shallow.exitCode, 1);
        QCOMPARE(shallow.out.split('\n', Qt::SkipEmptyParts),
                 found + QStringList{"2 diferença(s) entre a unidade e as fontes de preparação."});
        const QStringList deep{"Diferente: Tavrinox/linux/qt.conf",
                               "3 diferença(s) entre a unidade e as fontes de preparação."};
        QCOMPARE(cli(withSources({"verify", "PEN1", "--deep"})).out.split('\n', Qt::SkipEmptyParts),
                 found + deep);
    }

    void interruptionStopsBetweenFilesAndSaysWhatIsLeft()
    {
        // Enough files that the copy still runs when Ctrl+C arrives, after the first few landed.
        for (int i = 0; i < 1500; ++i)
            QVERIFY(Fixture::writeFile(path("linux/lib/part%1.so").arg(i), QByteArray(64 * 1024, char(i))));
        QProcess process;
        start(process, withSources({"prepare", "PEN1", "--yes"}));
        QVERIFY(QTest::qWaitFor([&] { return !QDir(root(1) + "Tavrinox/linux/lib").isEmpty(); }, 120000));
        QCOMPARE(::kill(pid_t(process.processId()), SIGINT), 0);
        QVERIFY(process.waitForFinished(120000));
        QCOMPARE(process.exitCode(), 1);

        const QRegularExpressionMatch told =
            QRegularExpression(
                "^Preparação interrompida em " + QRegularExpression::escape(root(1)) +
                ": faltaram (\\d+) de (\\d+) arquivo\\(s\\) dos bundles \\(.+\\), os inicializadores e "
                "o README\\. Repita o comando para continuar\\.\n$")
                .match(QString::fromUtf8(process.readAllStandardOutput()));
        QVERIFY(told.hasMatch());
        const int planned = told.captured(2).toInt();
        QCOMPARE(planned, Fixture::visibleTreeContents(path("windows")).size() +
                              Fixture::visibleTreeContents(path("linux")).size());
        // Every file copied is whole and counted: nothing half-written, nothing beyond what was told.
        const int onDrive = Fixture::treeContents(root(1) + "Tavrinox").size();
        QVERIFY(onDrive > 0 && onDrive < planned);
        QCOMPARE(onDrive + told.captured(1).toInt(), planned);
        QVERIFY(!QFileInfo::exists(root(1) + "Tavrinox-Linux.sh") &&
                !QFileInfo::exists(updateStatePath(root(1))));

        QCOMPARE(cli(withSources({"prepare", "PEN1", "--yes"})).exitCode, 0);
        QCOMPARE(cli(withSources({"verify", "PEN1", "--deep"})).exitCode, 0);
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
