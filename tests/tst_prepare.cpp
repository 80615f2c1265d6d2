// Preparation of a drive: where the builds are found, the space rules, the file copy, the Windows
// deployment, the preparer's steps and the prepare command of the window, on folders and a real volume.
#include "support/support.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kPrepared = "USB preparado com estrutura portatil Tavrinox.";
const QString kNoRuntime =
    "O bundle Windows não contém %1. Use o bundle oficial preparado com as DLLs MSVC ao lado do "
    "Tavrinox.exe.";
const QString kQuestion =
    "?:Preparar unidade USB:Preparar a estrutura Tavrinox em %1?\n\nA unidade não será formatada. "
    "Arquivos existentes do bundle Tavrinox podem ser substituídos. [Sim/Não*]";

// The files below root, relative, whose time is the one set on them all when set was true.
QStringList untouched(const QString &root, bool set = false)
{
    static const QDateTime old(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);
    QStringList files;
    for (QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
        QFile file(it.next());
        if ((set && file.open(QIODevice::ReadWrite) &&
             file.setFileTime(old, QFileDevice::FileModificationTime)) ||
            file.fileTime(QFileDevice::FileModificationTime) == old)
            files += QDir(root).relativeFilePath(file.fileName());
    }
    return files;
}

// A program standing in for Qt's deployment tool.
QString tool(const QString &path, const QByteArray &script)
{
    write(path, "#!/bin/sh\n" + script);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
    return path;
}

} // namespace

class TestPrepare : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    QString at(const QString &relative) const { return m_dir->filePath(relative); }
    PreparationSources builds() const
    {
        return {at("build/windows/Tavrinox.exe"), at("build/windows"), at("build/linux/Tavrinox"),
                at("build/linux")};
    }
    PreparationResult prepare(const PreparationSources &sources, const QString &root,
                              QStringList *steps = nullptr,
                              const QString &deployTool = "/nowhere/windeployqt.exe")
    {
        QStringList ignored;
        return DrivePreparer({deployTool, 60000})
            .prepare(root, sources, [&](int step, int total, const QString &text) {
                (steps ? *steps : ignored) += QString("%1/%2 %3").arg(step).arg(total).arg(text);
            });
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QCoreApplication::setApplicationVersion("1.0.5");
        QVERIFY(makeFiles(at("build/windows"),
                          QString("Tavrinox.exe Qt6Core.dll platforms/qwindows.dll vcruntime140.dll "
                                  "vcruntime140_1.dll msvcp140.dll imageformats/qjpeg.dll .build-id")
                              .split(' ')));
        QVERIFY(
            makeFiles(at("build/linux"),
                      QString("Tavrinox lib/libQt6Core.so.6 plugins/qxcb.so qt.conf .build-id").split(' ')));
        QVERIFY(QFile::setPermissions(at("build/linux/Tavrinox"), QFile::ReadOwner | QFile::WriteOwner |
                                                                      QFile::ExeOwner | QFile::ReadOther));
        QVERIFY(write(at("drive/tavrinox.susb"), "the user's container"));
    }

    // Beside the program (P) first, then in the source tree (T); the first candidate that exists wins,
    // whatever it is. Each round removes the winner, so the whole order shows.
    void searchTakesTheFirstExistingCandidate_data()
    {
        QTest::addColumn<QString>("candidates");
        row("windows",
            "P:bundles/windows-x64/Tavrinox.exe P:../windows-x64/Tavrinox.exe P:Tavrinox.exe "
            "T:bundles/windows-x64/Tavrinox.exe "
            "T:../out/build/x64-release/Tavrinox/Tavrinox.exe T:out/build/x64-release/Tavrinox.exe "
            "T:out/build/x64-release/Release/Tavrinox.exe T:out/install/x64-release/bin/Tavrinox.exe");
        row("linux",
            "P:bundles/linux-x64/Tavrinox P:../linux-x64/Tavrinox P:../../linux-x64/Tavrinox P:Tavrinox/ "
            "T:../out/build/linux-x64-release/Tavrinox/Tavrinox T:bundles/linux-x64/Tavrinox "
            "T:out/build/linux-x64-release/Tavrinox");
    }
    void searchTakesTheFirstExistingCandidate()
    {
        QFETCH(QString, candidates);
        const QString base[2] = {at("a/b/program/"), at("src/tree/")};
        for (const QString &candidate : ("P: T: " + candidates).split(' '))
            QVERIFY(write(base[candidate[0] == 'T'] + candidate.mid(2)));
        for (const QString &candidate : (candidates + " -").split(' ')) {
            const BundleSource found = candidates.contains(".exe") ? locateWindowsBundle(base[0], base[1])
                                                                   : locateLinuxBundle(base[0], base[1]);
            const QString path =
                QDir(base[candidate[0] == 'T']).filePath(candidate.mid(2).remove(QRegularExpression("/$")));
            QCOMPARE(found.executablePath + '|' + found.directory + '|' +
                         QString::number(found.fromBuildTree),
                     candidate == "-" ? "||0"
                                      : path + '|' + QFileInfo(QDir::cleanPath(path)).path() + '|' +
                                            QString::number(candidate[0] == 'T'));
            QVERIFY(QFile::remove(path) || QDir().rmdir(path) || candidate == "-");
        }
    }

    void capacityRules_data()
    {
        QTest::addColumn<QString>("totalAvailableReclaimableEstimate");
        QTest::addColumn<QString>("refusal");
        const QString space =
            "Espaco insuficiente na unidade USB.\n\nNecessario: %1 bytes\nDisponivel: %2 bytes";
        const QString quarter =
            "A unidade USB nao e recomendada para Tavrinox.\n\nCapacidade: %1 bytes\nBundle estimado: %2 "
            "bytes\n\nO bundle ocuparia mais de 25% da unidade.";
        row("nothing to copy", "4000 4000 0 0",
            "Nenhum bundle valido foi encontrado para preparar a unidade USB.");
        row("short of space", "100000 500 400 1000", space.arg(1000).arg(900));
        row("exactly enough, reusing the old copy", "4000 600 400 1000", "");
        row("exactly a quarter", "4000 4000 0 1000", "");
        row("a byte over a quarter", "4003 4003 0 1001", quarter.arg(4003).arg(1001));
        row("space before size", "4000 10 0 2000", space.arg(2000).arg(10));
        row("no total reported", "0 5000 0 2000", "");
        row("beyond 32 bits", "68719476736 60000000000 0 17179869185",
            quarter.arg(68719476736).arg(17179869185));
    }
    void capacityRules()
    {
        QFETCH(QString, totalAvailableReclaimableEstimate);
        QFETCH(QString, refusal);
        const QStringList n = totalAvailableReclaimableEstimate.split(' ');
        QString message;
        const bool allowed = capacityAllows(n[0].toLongLong(), n[1].toLongLong(), n[2].toLongLong(),
                                            n[3].toLongLong(), &message);
        QCOMPARE(message + QString::number(allowed), refusal + QString::number(refusal.isEmpty()));
    }

    // The Windows estimate is narrower than what is copied; the Linux one is the folder when it holds more.
    void estimates()
    {
        for (const QString file : {"app.exe", "a.dll", "platforms/p.dll", "imageformats/i.dll",
                                   "styles/s/s.dll", "tls/t.dll", "n.txt", ".h.dll"})
            QVERIFY(write(at("w/" + file), file.toUtf8()));
        QVERIFY(write(at("l/Tavrinox"), "x") && write(at("l2/Tavrinox"), "x") &&
                write(at("l2/lib/a.so"), "xy") && write(at("l2/.c"), "hid"));
        QCOMPARE(estimateWindowsBundleSize({at("w/app.exe"), {}, {}, {}}) + estimateWindowsBundleSize({}),
                 7 + 5 + 15 + 18 + 14);
        QCOMPARE(estimateWindowsBundleSize({at("w/app.exe"), at("w/platforms"), {}, {}}), 7 + 15);
        QCOMPARE(estimateLinuxBundleSize({{}, {}, at("l/Tavrinox"), {}}) +
                     estimateLinuxBundleSize({{}, {}, at("l2/Tavrinox"), {}}),
                 1 + 3);
        PreparationResult result;
        QVERIFY(!checkCapacity(at("pulled"), at("pulled/Tavrinox"), builds(), result));
        QCOMPARE(result.message, "Nao foi possivel validar o espaco livre da unidade USB.");
    }

    // A destination that is the source itself, or of the same size, stays as it is; a failure names what
    // failed and leaves the destination as it was.
    void copyFile_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("destination");
        // "": copied; "kept": left as it was; %1: the test's folder
        QTest::addColumn<QString>("message");
        row("same size, other bytes", "qt.dll", "drive/same.dll", "kept");
        row("same file", "qt.dll", "drive/../qt.dll", "kept");
        row("other size", "qt.dll", "drive/other.dll", "");
        row("big, in chunks", "big.bin", "drive/big.bin", "");
        row("source unopenable", "drive", "drive/other.dll", "Nao foi possivel copiar o arquivo: drive");
        row("source unreadable", "/proc/self/mem", "drive/other.dll", "Nao foi possivel ler o arquivo: mem");
        row("destination is a folder", "qt.dll", "drive/x", "Nao foi possivel criar o arquivo: %1/drive/x");
    }
    void copyFile()
    {
        QFETCH(QString, source);
        QFETCH(QString, destination);
        QFETCH(QString, message);
        QByteArray big(3 * 1024 * 1024 + 17, 0);
        for (int i = 0; i < big.size(); ++i)
            big[i] = char(i * 31 % 251);
        QVERIFY(write(at("qt.dll"), "new content") && write(at("big.bin"), big) &&
                write(at("drive/same.dll"), "old content") && write(at("drive/other.dll"), "v1") &&
                write(at("drive/x/kept")));
        QVERIFY(QFile::setPermissions(at("qt.dll"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                        QFile::ReadGroup));
        const QString from = source.startsWith('/') ? source : at(source), to = at(destination);
        const int files = untouched(m_dir->path(), true).size();
        const Tree before = tree(m_dir->path());
        bool eventsRan = false; // the window keeps painting while a copy runs
        QObject scope;
        QTimer::singleShot(0, &scope, [&] { eventsRan = true; });
        PreparationResult result{false, {}, {"earlier"}};
        QCOMPARE(Tavrinox::copyFile(from, to, result), message.size() < 5);
        QCOMPARE(result.message + '|' + result.writtenPaths.join('|') + QString::number(eventsRan),
                 (message.size() < 5 ? "|earlier|" + to : message.arg(m_dir->path()) + "|earlier") +
                     QString::number(message.isEmpty()));
        QVERIFY(message.isEmpty()
                    ? read(to) == read(from) && QFile::permissions(to) == QFile::permissions(from) &&
                          !untouched(m_dir->path()).contains(destination)
                    : tree(m_dir->path()) == before && untouched(m_dir->path()).size() == files);
    }

    void windowsDeployment()
    {
        QString copied;
        PreparationResult result;
        // The executable lands under its fixed name, chosen by its extension in any case.
        QVERIFY(write(at("out/APP.EXE"), "win") && write(at("out/app.exe.bak"), "lin") &&
                write(at("d/"), ""));
        QVERIFY(copyExecutable(at("out/APP.EXE"), at("d"), &copied, result) &&
                copyExecutable(at("out/app.exe.bak"), at("d"), &copied, result));
        QCOMPARE(read(at("d/Tavrinox.exe")) + read(copied) + result.writtenPaths.join('|'),
                 "winlin" + QStringList({at("d/Tavrinox.exe"), at("d/Tavrinox.exe"), at("d/Tavrinox"),
                                         at("d/Tavrinox")})
                                .join('|'));
        QVERIFY(!copyExecutable(at("missing.exe"), at("d"), &copied, result));
        QCOMPARE(result.message, "Executavel do Tavrinox nao encontrado: " + at("missing.exe"));
        QVERIFY(write(at("x/Tavrinox.exe/kept")) &&
                !copyExecutable(at("out/APP.EXE"), at("x"), &copied, result));
        QCOMPARE(result.message, "Nao foi possivel copiar o executavel para: " + at("x/Tavrinox.exe"));
        // The tool runs on the copied executable without the compiler runtime, which the drive must hold.
        const QString recorder = tool(at("t1"), "printf '%s\\n' \"$@\" > " + at("arguments").toUtf8());
        for (const QString dll : {"vcruntime140.dll", "vcruntime140_1.dll", "msvcp140.dll"}) {
            QVERIFY(
                !deployWindowsRuntime(at("d/Tavrinox.exe"), at("build/windows"), result, {recorder, 60000}) &&
                write(at("d/") + dll));
            QCOMPARE(result.message, kNoRuntime.arg(dll));
        }
        result = {};
        QVERIFY(deployWindowsRuntime(at("d/Tavrinox.exe"), at("build/windows"), result, {recorder, 60000}));
        QCOMPARE(read(at("arguments")) + result.writtenPaths.join(""),
                 "--no-translations\n--no-compiler-runtime\n" + at("d/Tavrinox.exe") + '\n' + at("d"));
        QVERIFY(!deployWindowsRuntime(at("d/Tavrinox.exe"), {}, result,
                                      {tool(at("t2"), "echo saida; echo erro >&2; exit 1"), 60000}));
        QCOMPARE(result.message, "windeployqt falhou: erro\nsaida\n");
        QVERIFY(!deployWindowsRuntime(at("d/Tavrinox.exe"), {}, result,
                                      {tool(at("t3"), "echo antes; exec sleep 60"), 300}));
        QCOMPARE(result.message, "windeployqt falhou: antes\n");
        // Without the tool the folder is copied; the libraries are the top-level DLLs only.
        QVERIFY(
            deployWindowsRuntime(at("d2/Tavrinox.exe"), at("build/windows"), result, {at("none"), 60000}));
        QVERIFY(write(at("d3/")) && copyWindowsLibraries(at("d3"), at("build/windows"), result));
        QCOMPARE(tree(at("d2")), tree(at("build/windows"), false));
        QCOMPARE(tree(at("d3")).keys().join(' '),
                 "Qt6Core.dll msvcp140.dll vcruntime140.dll vcruntime140_1.dll");
        QVERIFY(write(at("d4/Qt6Core.dll/kept")) &&
                !copyWindowsLibraries(at("d4"), at("build/windows"), result));
        QCOMPARE(result.message, "Nao foi possivel copiar a biblioteca: Qt6Core.dll");
    }

    // A Windows build is copied whole only when it holds the Qt core, the platform plugin and the three
    // runtime DLLs; otherwise it is assembled, and the tool, which runs first, finds no runtime on a new
    // drive. A Linux build is copied whole when it holds any of lib, plugins, qt.conf; otherwise only its
    // executable goes, made executable for all.
    void buildIsCopiedWholeOnlyWhenComplete_data()
    {
        QTest::addColumn<QString>("removed");
        QTest::addColumn<bool>("whole");
        row("windows complete", "windows/none", true);
        for (const QString file : {"Qt6Core.dll", "platforms/qwindows.dll", "vcruntime140.dll",
                                   "vcruntime140_1.dll", "msvcp140.dll"})
            row(qPrintable("windows without " + file), "windows/" + file, false);
        row("linux with lib only", "linux/plugins linux/qt.conf", true);
        row("linux with plugins only", "linux/lib linux/qt.conf", true);
        row("linux with qt.conf only", "linux/lib linux/plugins", true);
        row("linux with none", "linux/lib linux/plugins linux/qt.conf", false);
    }
    void buildIsCopiedWholeOnlyWhenComplete()
    {
        QFETCH(QString, removed);
        QFETCH(bool, whole);
        for (const QString &file : removed.split(' '))
            QVERIFY(QFile::remove(at("build/" + file)) || QDir(at("build/" + file)).removeRecursively());
        const QString bundle = removed.section('/', 0, 0);
        PreparationSources sources = builds();
        (bundle == "linux" ? sources.windowsExecutable : sources.linuxExecutable).clear();
        QCOMPARE(prepare(sources, at("drive"), nullptr, tool(at("qt/windeployqt.exe"), "exit 0")).message,
                 whole || bundle == "linux" ? kPrepared : kNoRuntime.arg("vcruntime140.dll"));
        QCOMPARE(tree(at("drive/Tavrinox/" + bundle)).keys(),
                 whole ? tree(at("build/" + bundle), false).keys()
                       : QStringList{bundle == "linux" ? "Tavrinox" : "Tavrinox.exe"});
        const QFile::Permissions all = QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;
        QCOMPARE(QFile::permissions(at("drive/Tavrinox/linux/Tavrinox")) & all,
                 bundle == "windows" ? QFile::Permissions()
                 : whole             ? QFile::ExeOwner | QFile::ExeUser
                                     : all);
    }

    void preparerReportsItsStepsAndWhatItWrote()
    {
        QStringList steps;
        PreparationResult result = prepare({{}, {}, at("build/linux/Tavrinox"), {}}, at("drive"), &steps);
        QCOMPARE(result.message + QString::number(result.success) + '|' + steps.join('|'),
                 kPrepared + "1|0/7 Validando unidade USB...|1/7 Criando estrutura de pastas...|2/7 Copiando "
                             "bundle Windows...|3/7 "
                             "Copiando bundle Linux...|5/7 Criando inicializador Windows...|6/7 Criando "
                             "arquivos auxiliares...|7/7 "
                             "Preparacao concluida.");
        QCOMPARE(result.writtenPaths.mid(0, 3) + result.writtenPaths.mid(result.writtenPaths.size() - 3) +
                     tree(at("drive/Tavrinox/windows")).keys(),
                 QStringList({at("drive/Tavrinox"), at("drive/Tavrinox/windows"), at("drive/Tavrinox/linux"),
                              at("drive/Tavrinox-Windows.bat"), at("drive/Tavrinox-Linux.sh"),
                              at("drive/Tavrinox/README.txt")}));
        // Preparing again rewrites the generated files only.
        const QStringList before = untouched(at("drive"), true);
        QVERIFY(prepare({{}, {}, at("build/linux/Tavrinox"), {}}, at("drive")).success);
        QCOMPARE(before.size() -
                     untouched(at("drive")).filter(QRegularExpression("^Tavrinox/linux/|\\.susb$")).size(),
                 3);
        steps.clear();
        result = prepare(builds(), at("pulled"), &steps);
        QCOMPARE(result.message + steps.join("") + result.writtenPaths.join(""),
                 "Unidade USB invalida.0/7 Validando unidade USB...");
        QVERIFY(!result.success && !QFileInfo::exists(at("pulled")));
    }

    void realVolumeRefusesWhatItCannotHold()
    {
        Volume exfat;
        QString whyNot;
        if (!exfat.mount("exfat", 16, &whyNot))
            QSKIP(qPrintable("NOT TESTED on a real exFAT volume: " + whyNot));
        const qint64 total = QStorageInfo(exfat.path).bytesTotal();
        QFile big(at("big/Tavrinox"));
        QVERIFY(write(big.fileName()) && big.resize(total * 2) &&
                write(exfat.path + "/Tavrinox-Windows.bat", "earlier"));
        const QString refusal = prepare({{}, {}, big.fileName(), {}}, exfat.path).message;
        QCOMPARE(refusal,
                 QString("Espaco insuficiente na unidade USB.\n\nNecessario: %1 bytes\nDisponivel: %2 bytes")
                     .arg(total * 2)
                     .arg(QStorageInfo(exfat.path).bytesAvailable()));
        QVERIFY(big.resize(total / 4 + 1));
        QVERIFY(prepare({{}, {}, big.fileName(), {}}, exfat.path)
                    .message.contains(
                        QString("Capacidade: %1 bytes\nBundle estimado: %2").arg(total).arg(total / 4 + 1)));
        QCOMPARE(tree(exfat.path).keys().join(' ') + read(exfat.path + "/Tavrinox-Windows.bat"),
                 "Tavrinox Tavrinox-Windows.bat Tavrinox/linux Tavrinox/windowsearlier");
        QVERIFY(prepare(builds(), exfat.path).success);
        QCOMPARE(tree(exfat.path + "/Tavrinox/linux"), tree(at("build/linux"), false));
    }

    void prepareFromTheWindow()
    {
        QVERIFY(write(at("program/bundles/")) &&
                QDir().rename(at("build/windows"), at("program/bundles/windows-x64")) &&
                QDir().rename(at("build/linux"), at("program/bundles/linux-x64")));
        const QString root = at("drive/");
        const auto shown = window({drive(root)}, at("program"));
        Boxes boxes({"Sim"});
        click(*shown, "Preparar unidade USB");
        QCOMPARE(boxes.shown, QStringList({kQuestion.arg(root), "I:" + kPrepared}));
        QCOMPARE(log(*shown).join('\n'), "Fonte Windows para preparação encontrada.\nFonte Linux para "
                                         "preparação encontrada.\n1 unidade(s) "
                                         "USB detectada(s).\nUnidade preparada: " +
                                             root + "\nEstado de atualização registrado: " + root +
                                             "Tavrinox/update-state.json");
        const auto status = [&](const char *caption) {
            return qobject_cast<QLabel *>(control<QLabel>(*shown, caption)->buddy())->text();
        };
        QCOMPARE(status("Fonte Windows:") + status("Fonte Linux:"), "DisponívelDisponível");
        for (const QString file : {"Tavrinox-Windows.bat", "Tavrinox-Linux.sh", "README.txt"})
            QCOMPARE(read(root + (file.startsWith('R') ? "Tavrinox/" : "") + file), golden(file));
        QVERIFY(QFile::permissions(root + "Tavrinox-Linux.sh") & QFile::ExeOther);
        QCOMPARE(tree(root + "Tavrinox/windows"), tree(at("program/bundles/windows-x64"), false));
        QCOMPARE(tree(root + "Tavrinox/linux"), tree(at("program/bundles/linux-x64"), false));
        QCOMPARE(QFile::permissions(root + "Tavrinox/linux/Tavrinox"),
                 QFile::permissions(at("program/bundles/linux-x64/Tavrinox")));
        QCOMPARE(read(root + "tavrinox.susb") + readInstalledVersion(root), "the user's container1.0.5");
    }

    // The checks come in order before the question; each stop shows one box and changes nothing. A
    // preparation that fails is logged and shown and records no state; a failed state write only warns.
    void commandStopsOrReports_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QString>("box");
        // %1: the drive's root
        QTest::addColumn<QString>("logged");
        row("no build, before the selection", "nobuild",
            "W:Compile pelo menos um bundle do Tavrinox antes de preparar a unidade.", "");
        row("no drive selected", "twodrives", "I:Selecione uma unidade USB primeiro.", "");
        row("not mounted", "unmounted",
            "I:Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar.", "");
        row("answered Não", "Não", kQuestion, "");
        row("bundle folder blocked", "Tavrinox/linux", "W:Nao foi possivel criar a pasta: %1Tavrinox/linux",
            "Falha: Nao foi possivel criar a pasta: %1Tavrinox/linux");
        row("launcher blocked", "Tavrinox-Linux.sh/",
            "W:Nao foi possivel criar o arquivo: %1Tavrinox-Linux.sh",
            "Falha: Nao foi possivel criar o arquivo: %1Tavrinox-Linux.sh");
        row("state blocked", "Tavrinox/update-state.json/", "I:" + kPrepared,
            "Unidade preparada: %1|Aviso: Não foi possível abrir o arquivo de estado: "
            "%1Tavrinox/update-state.json");
    }
    void commandStopsOrReports()
    {
        QFETCH(QString, situation);
        QFETCH(QString, box);
        QFETCH(QString, logged);
        const QString root = at("drive/");
        QVERIFY(situation == "nobuild" ||
                (write(at("program/bundles/")) &&
                 QDir().rename(at("build/linux"), at("program/bundles/linux-x64"))));
        QVERIFY(!situation.startsWith("Tavrinox") || write(root + situation, "earlier"));
        const Tree before = tree(root);
        const auto shown = window(situation == "twodrives"
                                      ? QList<UsbDevice>{drive(root), drive(at("other/"))}
                                      : QList<UsbDevice>{drive(situation == "unmounted" ? "/dev/sdz1" : root,
                                                               "", situation != "unmounted")},
                                  at("program"));
        shown->findChild<QComboBox *>()->setCurrentIndex(situation == "twodrives" ? -1 : 0);
        const QStringList earlier = log(*shown);
        Boxes boxes({situation == "Não" ? "Não" : "Sim"});
        click(*shown, "Preparar unidade USB");
        QCOMPARE(boxes.shown.last() + '|' + log(*shown).mid(earlier.size()).join('|'),
                 box.replace("%1", root) + '|' + logged.replace("%1", root));
        QVERIFY(!QFileInfo(updateStatePath(root)).isFile() && (logged.size() || tree(root) == before));
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            QCOMPARE(tree(root).value(it.key()), it.value());
    }
};

TAVRINOX_TEST(TestPrepare)
#include "tst_prepare.moc"
