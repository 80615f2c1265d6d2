// The terminal program, run for real over the drives of a modelled Linux machine: sticks 1 and 2 mounted
// at empty folders, stick 3 attached but not mounted; the bundles to copy are named with --windows and
// --linux.
#include "buildconfig.h"
#include "support/support.h"

#include <csignal>

using namespace Fixture;
using namespace Tavrinox;

class TestCli : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    QString at(const QString &relative) const { return m_dir->filePath(relative); }
    QString root(int stick) const { return at(QString("drive%1/").arg(stick)); }
    QStringList sources() const { return {"--windows", at("windows"), "--linux", at("linux")}; }

    void start(QProcess &process, const QStringList &arguments)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TAVRINOX_SYSTEM_ROOT", at("system"));
        environment.insert("TMPDIR", at("tmp"));
        environment.insert("XDG_DATA_HOME", at("data"));
        process.setProcessEnvironment(environment);
        process.start(TAVRINOX_CLI, arguments);
    }
    // The exit code, then standard output and standard error, each on its own line.
    QStringList cli(const QStringList &arguments, const QByteArray &input = {})
    {
        QProcess process;
        start(process, arguments);
        process.write(input);
        process.closeWriteChannel();
        const bool ended = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
        return {QString::number(ended ? process.exitCode() : -1), process.readAllStandardOutput(),
                process.readAllStandardError()};
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        for (int stick : {1, 2, 3})
            QVERIFY(
                addUsbStick(at("system"), stick, QString("PEN%1").arg(stick), stick < 3 ? root(stick) : ""));
        QVERIFY(makeFiles(at("windows"),
                          QString("Tavrinox.exe Qt6Core.dll platforms/qwindows.dll vcruntime140.dll "
                                  "vcruntime140_1.dll msvcp140.dll .build-id")
                              .split(' ')) &&
                makeFiles(at("linux"), QString("Tavrinox lib/libQt6Core.so.6 qt.conf .build-id").split(' ')));
    }

    // Whatever fails or is refused leaves the drive exactly as it was.
    void answersEachCommand_data() { table("cli"); }
    void answersEachCommand()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, exit);
        QFETCH(QString, drive);
        QFETCH(QString, journal);
        QFETCH(QString, input);
        QFETCH(QString, out);
        QFETCH(QString, err);
        HttpsServer server;
        QVERIFY(server.start() && makeFiles(at("pkg/Tavrinox"), packageFiles("new"), "new") &&
                zip(at("pkg"), at("package.zip")));
        const QByteArray package = read(at("package.zip"));
        const bool hashMatches = QByteArray(QTest::currentDataTag()) != "package hash differs";
        server.route("/package.zip", 200, package);
        server.route(
            "/000Updates/tavrinox/manifest.json", 200,
            json(QString("{'schemaVersion': 1, 'app': 'Tavrinox', 'version': '1.1.0', 'packageUrl': '%1', "
                         "'sha256': '%2', 'size': %3, 'releaseNotes': 'Correções de segurança.'}")
                     .arg(server.url("/package.zip").toString(), sha256(hashMatches ? package : "x"))
                     .arg(package.size())));
        QVERIFY(drive.isEmpty() || makeDrive(root(1), "1.0.0"));
        QVERIFY(journal.isEmpty() || write(updateJournalPath(root(1)), json(journal)));
        const Tree before = tree(root(1));
        arguments.replace("ROOT", root(1)).replace("SOURCES", sources().join(' '));
        arguments.replace("SERVER", "--ca-file " TAVRINOX_TEST_DATA_DIR "/tls/ca.pem --server " +
                                        server.url("").toString());
        const QStringList outcome = cli(arguments.split(' ', Qt::SkipEmptyParts), input.toUtf8());
        const auto normal = [&](const QString &text) {
            return text.startsWith('{') ? QJsonDocument::fromJson(json(text)).toJson() : text.toUtf8();
        };
        QCOMPARE(outcome[0] + '\n' + normal(outcome[1]),
                 exit + '\n' + normal(out.replace("ROOT", root(1)).replace("DRIVE2", root(2))));
        QVERIFY2(outcome[2].contains(err.replace("ROOT", root(1))), qPrintable(outcome[2]));
        QVERIFY(exit == "0" || tree(root(1)) == before);
        QVERIFY(drive.isEmpty() ? !QFileInfo::exists(root(1) + "Tavrinox-Linux.sh")
                                : liveBundles(root(1)) == drive + ' ' + drive);
    }

    // Each drive on its own worker, each reported on its own line; one failing does not stop the others.
    // Stick 4 is a real exFAT volume where one can be mounted, a folder elsewhere.
    void preparesDrivesInParallelAndVerifiesThem()
    {
        Volume volume;
        QString whyNot;
        const QString fourth = volume.mount("exfat", 64, &whyNot) ? volume.path : at("drive4");
        QVERIFY(addUsbStick(at("system"), 4, "PEN4", fourth) &&
                write(root(2) + "Tavrinox", "a file where the folder goes"));
        const QStringList outcome =
            cli(QStringList{"prepare", "PEN1", root(2), "/dev/sde1", "--yes"} + sources());
        const QStringList reported = outcome[1].split('\n', Qt::SkipEmptyParts);
        QCOMPARE(outcome[0], "1");
        QCOMPARE(QSet<QString>(reported.begin(), reported.end()),
                 QSet<QString>(
                     {"Unidade preparada: " + root(1), "Unidade preparada: " + fourth + "/",
                      "Falha em " + root(2) + ": Nao foi possivel criar a pasta: " + root(2) + "Tavrinox"}));
        QCOMPARE(readInstalledVersion(root(1)), Build::kApplicationVersion);
        QCOMPARE(cli(QStringList{"verify", "PEN4", "--deep"} + sources())[1],
                 "Os bundles da unidade conferem com as fontes de preparação.\n");
        // Same size, other bytes: only the comparison of contents sees that one.
        QVERIFY(
            write(root(1) + "Tavrinox/linux/qt.conf", QByteArray(read(at("linux/qt.conf")).size(), 'x')) &&
            QFile::remove(root(1) + "Tavrinox/windows/msvcp140.dll") &&
            write(root(1) + "Tavrinox/linux/stray.txt", "x"));
        const QString found = "Ausente: Tavrinox/windows/msvcp140.dll\nExtra: Tavrinox/linux/stray.txt\n";
        QCOMPARE(cli(QStringList{"verify", "PEN1"} + sources()).mid(0, 2),
                 QStringList({"1", found + "2 diferença(s) entre a unidade e as fontes de preparação.\n"}));
        QCOMPARE(cli(QStringList{"verify", "PEN1", "--deep"} + sources())[1],
                 found + "Diferente: Tavrinox/linux/qt.conf\n3 diferença(s) entre a unidade e as fontes de "
                         "preparação.\n");
    }

    // Ctrl+C stops the copy between files and says what is left; every file copied is whole and counted.
    void interruptionStopsBetweenFilesAndSaysWhatIsLeft()
    {
        for (int i = 0; i < 1500; ++i) // enough that the copy still runs when Ctrl+C arrives
            QVERIFY(write(at("linux/lib/part%1.so").arg(i), QByteArray(64 * 1024, char(i))));
        QProcess process;
        start(process, QStringList{"prepare", "PEN1", "--yes"} + sources());
        QVERIFY(QTest::qWaitFor([&] { return !QDir(root(1) + "Tavrinox/linux/lib").isEmpty(); }, 120000));
        QVERIFY(::kill(pid_t(process.processId()), SIGINT) == 0 && process.waitForFinished(120000));
        QCOMPARE(process.exitCode(), 1);
        const QRegularExpressionMatch told =
            QRegularExpression(
                "^Preparação interrompida em " + QRegularExpression::escape(root(1)) +
                ": faltaram (\\d+) de (\\d+) arquivo\\(s\\) dos bundles \\(.+\\), os inicializadores "
                "e o README\\. Repita o comando para continuar\\.\n$")
                .match(process.readAllStandardOutput());
        const auto files = [](const QString &folder) {
            return int(tree(folder, false).values().count() - tree(folder, false).values().count("/"));
        };
        const int planned = told.captured(2).toInt(), onDrive = files(root(1) + "Tavrinox");
        QVERIFY(told.hasMatch() && onDrive > 0 && onDrive < planned);
        QCOMPARE(planned, files(at("windows")) + files(at("linux")));
        QCOMPARE(onDrive + told.captured(1).toInt(), planned);
        QVERIFY(!QFileInfo::exists(root(1) + "Tavrinox-Linux.sh") &&
                !QFileInfo::exists(updateStatePath(root(1))));
        QCOMPARE(cli(QStringList{"prepare", "PEN1", "--yes"} + sources())[0], "0");
        QCOMPARE(cli(QStringList{"verify", "PEN1", "--deep"} + sources())[0], "0");
    }
};

TAVRINOX_TEST(TestCli)
#include "tst_cli.moc"
