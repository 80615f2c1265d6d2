// Preparation of a drive: where the builds are found, the space rules, the file copy, the Windows
// deployment, the preparer's steps and the prepare command of the window, on folders and a real volume.
#include "support/support.h"

using namespace Fixture;
using namespace Tavrinox;

namespace {

const QString kPrepared = "USB preparado com estrutura portatil Tavrinox.";
const QString kNoRuntime = "O bundle Windows não contém %1. Use o bundle oficial preparado com as DLLs MSVC "
                           "ao lado do Tavrinox.exe.";

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
    QStringList m_steps; // those of the last preparation, as "step/total text"
    PreparationResult prepare(const PreparationSources &sources, const QString &root,
                              const QString &deployTool = "/nowhere/windeployqt.exe")
    {
        m_steps.clear();
        return DrivePreparer({deployTool, 60000})
            .prepare(root, sources, [&](int step, int total, const QString &text) {
                m_steps += QString("%1/%2 %3").arg(step).arg(total).arg(text);
            });
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QCoreApplication::setApplicationVersion("1.0.5");
        const QString windows = "Tavrinox.exe Qt6Core.dll platforms/qwindows.dll vcruntime140.dll "
                                "vcruntime140_1.dll msvcp140.dll";
        QVERIFY(makeFiles(at("build/windows"), (windows + " imageformats/j.dll .build-id").split(' ')));
        QVERIFY(makeFiles(at("build/linux"),
                          QString("Tavrinox lib/libQt6Core.so.6 plugins/x.so qt.conf .build-id").split(' ')));
        QVERIFY(QFile::setPermissions(at("build/linux/Tavrinox"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(write(at("drive/tavrinox.susb"), "the user's container"));
    }

    // The first candidate that exists wins, whatever it is; each round removes the winner, so the whole
    // order shows.
    void searchTakesTheFirstExistingCandidate_data() { table("search"); }
    void searchTakesTheFirstExistingCandidate()
    {
        QFETCH(QString, candidates);
        const QString base[4] = {at("a/b/program/"), at("src/tree/"), at("user/"), at("system/")};
        const auto baseOf = [&](const QString &candidate) {
            return base[qMax(0, int(QString("PTUS").indexOf(candidate[0])))];
        };
        for (const QString &candidate : ("P: T: U: S: " + candidates).split(' '))
            QVERIFY(write(baseOf(candidate) + candidate.mid(2)));
        for (const QString &candidate : (candidates + " -").split(' ')) {
            const bool tree = candidate[0] == 'T';
            const QStringList installed = {base[2], base[3]};
            const BundleSource found = candidates.contains(".exe")
                                           ? locateWindowsBundle(base[0], base[1], installed)
                                           : locateLinuxBundle(base[0], base[1], installed);
            const QString path =
                QDir(baseOf(candidate)).filePath(candidate.mid(2).remove(QRegularExpression("/$")));
            const QString expected =
                path + '|' + QFileInfo(QDir::cleanPath(path)).path() + '|' + QString::number(tree);
            QCOMPARE(found.executablePath + '|' + found.directory + '|' +
                         QString::number(found.fromBuildTree),
                     candidate == "-" ? "||0" : expected);
            QVERIFY(QFile::remove(path) || QDir().rmdir(path) || candidate == "-");
        }
    }

    // Found from the installed program's folder, the system's folder is where the installation puts the
    // bundles; the user's own folder comes first.
    void installedBundleFolders()
    {
        QCOMPARE(installedBundleDirectories(TAVRINOX_INSTALLED_PROGRAM_DIR),
                 QStringList({QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                  "/tavrinox/bundles",
                              TAVRINOX_INSTALLED_BUNDLES}));
    }

    void capacityRules_data() { table("capacity"); }
    void capacityRules()
    {
        QFETCH(QString, numbers);
        QFETCH(QString, refusal);
        const QStringList n = numbers.split(' ');
        QString message;
        const bool allowed = capacityAllows(n[0].toLongLong(), n[1].toLongLong(), n[2].toLongLong(),
                                            n[3].toLongLong(), &message);
        QCOMPARE(message + QString::number(allowed), refusal + QString::number(refusal.isEmpty()));
    }

    // The Windows estimate is narrower than what is copied; the Linux one is the folder when it holds more.
    void estimates()
    {
        QVERIFY(makeFiles(at("w"), QString("app.exe a.dll platforms/p.dll imageformats/i.dll styles/s/s.dll "
                                           "tls/t.dll .h.dll")
                                       .split(' ')) &&
                makeFiles(at("l"), {"Tavrinox"}) && makeFiles(at("l2"), {"Tavrinox", "lib/a.so", ".c"}));
        QCOMPARE(estimateWindowsBundleSize({at("w/app.exe"), {}, {}, {}}), 11 + 9 + 19 + 22 + 18);
        QCOMPARE(estimateLinuxBundleSize({{}, {}, at("l/Tavrinox"), {}}), 12);
        QCOMPARE(estimateLinuxBundleSize({{}, {}, at("l2/Tavrinox"), {}}),
                 12 + 12); // hidden entries left out
    }

    // A link back into the bundle (plugins/up -> ..) is neither counted nor followed. Of what an
    // interrupted copy or text write may have left, only names of the atomic writer's temporary form
    // beside a file of the bundle, a launcher or the README go.
    void linkCyclesAndInterruptedCopies()
    {
        const QString target = at("drive/Tavrinox/linux/");
        Tree expected = tree(at("build/linux"), false);
        const qint64 size = directorySize(at("build/linux"));
        QVERIFY(QFile::link("..", at("build/linux/plugins/up")));
        QCOMPARE(directorySize(at("build/linux")), size);
        const QStringList gone{"linux/plugins/x.so.AbCdEf", "../Tavrinox-Linux.sh.QwErTy",
                               "README.txt.aBcDeF"},
            kept{"linux/notes.txt.AbCdEf", "linux/qt.conf.Ab3dEf", "../Tavrinox-Windows.bat.AbCdE",
                 "../Tavrinox-Linux.sh.QwErTy.AbCdEf"};
        for (const QString &name : gone + kept)
            QVERIFY(write(target + "../" + name, "left here"));
        expected["notes.txt.AbCdEf"] = expected["qt.conf.Ab3dEf"] = "left here";
        QVERIFY(prepare({{}, {}, at("build/linux/Tavrinox"), at("build/linux")}, at("drive")).success);
        QCOMPARE(tree(target), expected);
        for (const QString &name : gone + kept)
            QVERIFY2(QFileInfo::exists(target + "../" + name) == kept.contains(name), qPrintable(name));
    }

    // A link where the preparation writes (a launcher, the README, a bundle's folder or file, even one
    // leading to a file of the very size) is replaced, never written through; a Tavrinox folder that is
    // a link is left alone and the drive refused.
    void linksOnTheDriveAreReplacedNeverFollowed()
    {
        const QString drive = at("drive/");
        QVERIFY(write(at("outside/kept"), "the user's") && write(at("outside/lib/"), "") &&
                write(at("outside/Qt6Core.dll"), read(at("build/windows/Qt6Core.dll"))) &&
                write(drive + "Tavrinox/windows/"));
        for (const auto &[link, target] : {std::pair{"Tavrinox-Linux.sh", "outside/kept"},
                                           {"Tavrinox/README.txt", "outside/new"},
                                           {"Tavrinox/linux", "outside/lib"},
                                           {"Tavrinox/windows/platforms", "outside/lib"},
                                           {"Tavrinox/windows/Qt6Core.dll", "outside/Qt6Core.dll"}})
            QVERIFY(QFile::link(at(target), drive + link));
        const Tree outside = tree(at("outside"));
        QCOMPARE(prepare(builds(), drive).message, kPrepared);
        QCOMPARE(tree(at("outside")), outside);
        for (const QString bundle : {"windows", "linux"})
            QCOMPARE(tree(drive + "Tavrinox/" + bundle), tree(at("build/" + bundle), false));
        QVERIFY(!QFileInfo(drive + "Tavrinox-Linux.sh").isSymLink() &&
                !QFileInfo(drive + "Tavrinox/README.txt").isSymLink());
        QVERIFY(QDir(drive + "Tavrinox").removeRecursively() &&
                QFile::link(at("outside"), drive + "Tavrinox"));
        QCOMPARE(prepare(builds(), drive).message,
                 "A pasta Tavrinox da unidade é um link; a unidade foi preservada.");
        QCOMPARE(tree(at("outside")), outside);
    }

    void copyFile_data() { table("copy"); }
    void copyFile()
    {
        QFETCH(QString, source);
        QFETCH(QString, message);
        QByteArray big(3 << 20, 0);
        for (int i = 0; i < big.size(); ++i)
            big[i] = char(i * 31 % 251);
        QVERIFY(write(at("qt.dll"), "new content") && write(at("same.dll"), "old content") &&
                write(at("big.bin"), big) && write(at("drive/d"), "v1"));
        QVERIFY(QFile::setPermissions(at("qt.dll"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                        QFile::ReadGroup));
        const QString from = source.startsWith('/') ? source : at(source),
                      target = source == "same.dll" ? "qt.dll" : "drive/d";
        Tree expected = tree(m_dir->path());
        expected[target] = message.isEmpty() ? read(from) : expected[target];
        PreparationResult result{false, {}, {"earlier"}};
        QCOMPARE(Tavrinox::copyFile(from, at(target), result), message.size() < 5);
        QCOMPARE(result.message + result.writtenPaths.join('|'),
                 message.size() < 5 ? "earlier|" + at(target) : message + "earlier");
        QVERIFY(tree(m_dir->path()) == expected &&
                (!message.isEmpty() || QFile::permissions(at(target)) == QFile::permissions(from)));
    }

    // The tool runs on the copied executable without the compiler runtime, which the drive must hold;
    // without the tool the folder is copied. The libraries are the build's top-level DLLs only.
    void windowsDeployment()
    {
        PreparationResult result;
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
                 "--no-translations\n--no-compiler-runtime\n" + at("d/Tavrinox.exe\n") + at("d"));
        QVERIFY(!deployWindowsRuntime(at("d/Tavrinox.exe"), {}, result,
                                      {tool(at("t2"), "echo saida; echo erro >&2; exit 1"), 60000}));
        QCOMPARE(result.message, "windeployqt falhou: erro\nsaida\n");
        QVERIFY(
            deployWindowsRuntime(at("d2/Tavrinox.exe"), at("build/windows"), result, {at("none"), 60000}));
        QVERIFY(write(at("d3/")) && copyWindowsLibraries(at("d3"), at("build/windows"), result));
        QCOMPARE(tree(at("d2")), tree(at("build/windows"), false));
        QCOMPARE(tree(at("d3")).keys().join(' '),
                 "Qt6Core.dll msvcp140.dll vcruntime140.dll vcruntime140_1.dll");
    }

    void buildIsCopiedWholeOnlyWhenComplete_data() { table("builds"); }
    void buildIsCopiedWholeOnlyWhenComplete()
    {
        QFETCH(QString, removed);
        QFETCH(QString, whole);
        for (const QString &file : removed.split(' '))
            QVERIFY(QFile::remove(at("build/" + file)) || QDir(at("build/" + file)).removeRecursively());
        const QString bundle = removed.section('/', 0, 0);
        PreparationSources sources = builds();
        (bundle == "linux" ? sources.windowsExecutable : sources.linuxExecutable).clear();
        const QString message =
            prepare(sources, at("drive"), tool(at("qt/windeployqt.exe"), "exit 0")).message;
        QCOMPARE(message, whole == "1" || bundle == "linux" ? kPrepared : kNoRuntime.arg("vcruntime140.dll"));
        const QStringList copied = whole == "1"
                                       ? tree(at("build/" + bundle), false).keys()
                                       : QStringList{bundle == "linux" ? "Tavrinox" : "Tavrinox.exe"};
        QCOMPARE(tree(at("drive/Tavrinox/" + bundle)).keys(), copied);
        const QFile::Permissions all = QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;
        QVERIFY(bundle == "windows" || (QFile::permissions(at("drive/Tavrinox/linux/Tavrinox")) & all) ==
                                           (whole == "1" ? all & 0x7700 : all));
    }

    void preparerReportsItsSteps()
    {
        PreparationResult result = prepare({{}, {}, at("build/linux/Tavrinox"), {}}, at("drive"));
        QCOMPARE(result.message + QString::number(result.success) + m_steps.join('|'),
                 kPrepared + "10/7 Validando unidade USB...|1/7 Criando estrutura de pastas...|2/7 Copiando "
                             "bundle Windows...|3/7 Copiando "
                             "bundle Linux...|5/7 Criando inicializador Windows...|6/7 Criando arquivos "
                             "auxiliares...|7/7 Preparacao concluida.");
        result = prepare(builds(), at("pulled"));
        QCOMPARE(result.message + m_steps.join(""), "Unidade USB invalida.0/7 Validando unidade USB...");
        QVERIFY(!result.success && !QFileInfo::exists(at("pulled")));
    }

    // On a real exFAT volume: refused for want of space, or for a bundle over a quarter of the volume,
    // with the empty folders left; a full volume still takes a copy the size of the one it holds.
    void realVolume()
    {
        Volume exfat;
        QString whyNot;
        if (!exfat.mount("exfat", 16, &whyNot))
            QSKIP(qPrintable("NOT TESTED on a real exFAT volume: " + whyNot));
        const qint64 total = QStorageInfo(exfat.path).bytesTotal();
        QFile big(at("big/Tavrinox"));
        QVERIFY(write(big.fileName()) && big.resize(total * 2));
        const QString refusal = prepare({{}, {}, big.fileName(), {}}, exfat.path).message;
        QCOMPARE(refusal,
                 QString("Espaco insuficiente na unidade USB.\n\nNecessario: %1 bytes\nDisponivel: %2 bytes")
                     .arg(total * 2)
                     .arg(QStorageInfo(exfat.path).bytesAvailable()));
        QVERIFY(big.resize(total / 4 + 1));
        const QString quarter =
            QString("Capacidade: %1 bytes\nBundle estimado: %2").arg(total).arg(total / 4 + 1);
        QVERIFY(prepare({{}, {}, big.fileName(), {}}, exfat.path).message.contains(quarter));
        QCOMPARE(tree(exfat.path).keys().join(' '), "Tavrinox Tavrinox/linux Tavrinox/windows");
        QFile filler(exfat.path + "/filler");
        QVERIFY(write(at("build/linux/lib/big.so"), QByteArray(1 << 20, 'x')) &&
                prepare(builds(), exfat.path).success && filler.open(QIODevice::WriteOnly));
        QVERIFY(filler.resize(QStorageInfo(exfat.path).bytesAvailable() - (256 << 10)) &&
                QStorageInfo(exfat.path).bytesAvailable() < (512 << 10));
        QCOMPARE(prepare(builds(), exfat.path).message, kPrepared);
    }

    void commandStopsOrReports_data() { table("command"); }
    void commandStopsOrReports()
    {
        QFETCH(QString, situation);
        QFETCH(QString, reported);
        const QString root = at("drive/");
        QVERIFY(situation == "nobuild" ||
                (write(at("program/bundles/")) &&
                 QDir().rename(at("build/windows"), at("program/bundles/windows-x64")) &&
                 QDir().rename(at("build/linux"), at("program/bundles/linux-x64"))));
        QVERIFY(!situation.startsWith("Tavrinox") || write(root + situation, "earlier"));
        const Tree before = tree(root);
        const bool none = situation == "nobuild" || situation == "twodrives";
        const UsbDevice only =
            drive(situation == "unmounted" ? "/dev/sdz1" : root, "", situation != "unmounted");
        const auto shown =
            window(none ? QList<UsbDevice>{drive(root), drive(at("other/"))} : QList<UsbDevice>{only},
                   at("program"));
        shown->findChild<QComboBox *>()->setCurrentIndex(none ? -1 : 0);
        const int earlier = log(*shown).size();
        Boxes boxes({situation == "Não" ? "Não" : "Sim"});
        click(*shown, "Preparar unidade USB");
        QCOMPARE(boxes.shown.last() + '|' + log(*shown).mid(earlier).join('|'), reported.replace("%1", root));
        for (auto it = before.cbegin(); it != before.cend(); ++it) // what the drive held before stays
            QCOMPARE(tree(root).value(it.key()), it.value());
        if (situation != "Sim") {
            QVERIFY(!QFileInfo(updateStatePath(root)).isFile() &&
                    (reported.contains("Falha") || reported.contains("Aviso") || tree(root) == before));
            return;
        }
        const auto status = [&](const char *caption) {
            return qobject_cast<QLabel *>(control<QLabel>(*shown, caption)->buddy())->text();
        };
        QCOMPARE(status("Fonte Windows:") + status("Fonte Linux:"), "DisponívelDisponível");
        QCOMPARE(stateFile(root), golden("prepared-state.json"));
        for (const QString file : {"Tavrinox-Windows.bat", "Tavrinox-Linux.sh", "Tavrinox/README.txt"})
            QCOMPARE(read(root + file), golden(file.section('/', -1)));
        QCOMPARE(tree(root + "Tavrinox/windows"), tree(at("program/bundles/windows-x64"), false));
        QCOMPARE(tree(root + "Tavrinox/linux"), tree(at("program/bundles/linux-x64"), false));
        QCOMPARE(QFile::permissions(root + "Tavrinox/linux/Tavrinox"),
                 QFile::permissions(at("program/bundles/linux-x64/Tavrinox")));
        QVERIFY(QFile::permissions(root + "Tavrinox-Linux.sh") & QFile::ExeOther);
    }

    // Asked before each file, the caller stops at the row's question (never at 0). The bytes told, out of
    // those of both bundles, only grow, up to those of the bundles copied, naming each bundle at work; what
    // was copied stays, whole.
    void copyFollowsBytesAndStopsBetweenFiles_data() { table("stops"); }
    void copyFollowsBytesAndStopsBetweenFiles()
    {
        QFETCH(QString, stop);
        QFETCH(QString, copied);
        QFETCH(QString, message);
        const auto bytes = [&](const QString &folder) {
            qint64 sum = 0;
            for (const QByteArray &content : tree(at(folder), false))
                sum += content == "/" ? 0 : content.size();
            return sum;
        };
        QVERIFY(write(at("build/linux/lib/big.so"), QByteArray(1 << 20, 'x')) &&
                write(at("build/windows/Qt6Core.dll"), QByteArray(3 << 19, 'w')));
        int asked = 0;
        QList<qint64> done{0};
        QStringList named;
        const auto told = [&](const CopyProgress &progress) {
            done += progress.doneBytes;
            named += progress.bundle.toLower();
            QCOMPARE(progress.totalBytes, bytes("build"));
        };
        QCOMPARE(DrivePreparer()
                     .prepare(at("drive"), builds(), {}, {}, {told, [&] { return ++asked == stop.toInt(); }})
                     .message,
                 message);
        named.removeDuplicates();
        QCOMPARE(named.join(' '), copied);
        // The bytes are told as they are copied, not at the end: the Windows bundle's count shows whole.
        QVERIFY(std::is_sorted(done.begin(), done.end()) &&
                (!copied.contains("windows") || done.contains(bytes("build/windows"))));
        for (const QString bundle : {"windows", "linux"}) {
            QCOMPARE(tree(at("drive/Tavrinox/" + bundle)),
                     copied.contains(bundle) ? tree(at("build/" + bundle), false) : Tree());
            done.last() -= copied.contains(bundle) ? bytes("build/" + bundle) : 0;
        }
        QCOMPARE(done.last(), 0);
    }

    // While a large file copies, the window keeps running and the dialog, naming the bundle, shows the
    // megabytes copied of those to copy and moves its bar with them.
    void dialogFollowsTheBytesOfALargeCopy()
    {
        QFile big(at("program/bundles/linux-x64/lib/big.so"));
        QVERIFY(write(at("program/bundles/")) &&
                QDir().rename(at("build/linux"), at("program/bundles/linux-x64")) &&
                big.open(QIODevice::WriteOnly) && big.resize(128 << 20));
        big.close();
        const auto shown = window({drive(at("drive/"))}, at("program"));
        Boxes boxes({"Sim"});
        QList<int> values;
        QTimer watch;
        connect(&watch, &QTimer::timeout, this, [&] {
            const auto *dialog = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget());
            if (dialog && dialog->labelText().contains(
                              QRegularExpression("^Copiando bundle Linux...\n[0-9,]+ de 128,0 MB$")))
                values += dialog->value();
        });
        watch.start(0);
        click(*shown, "Preparar unidade USB");
        QCOMPARE(boxes.shown.last(), "I:" + kPrepared);
        QVERIFY2(QSet<int>(values.cbegin(), values.cend()).size() > 3 &&
                     std::is_sorted(values.cbegin(), values.cend()) && values.last() < 1000,
                 qPrintable(QString::number(values.size())));
    }
};

TAVRINOX_TEST(TestPrepare)
#include "tst_prepare.moc"
