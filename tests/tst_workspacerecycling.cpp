#include "support/modalanswerer.h"
#include "support/testfiles.h"
#include "support/windowfixture.h"
#include "transaction/workspacerecycling.h"

#include <QApplication>
#include <QDirIterator>
#include <QLockFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::writeFile;

namespace {

const QString kFailed = QStringLiteral("Não foi possível reciclar o espaço de trabalho.");
const QString kInvalidWorkspace = QStringLiteral("Não foi possível validar o espaço de trabalho.");
const QString kInUse =
    QStringLiteral("Para reciclar o espaço de trabalho, bloqueie todos os cofres abertos, feche o "
                   "Tavrinox e desmonte as unidades utilizadas. Em seguida, tente novamente.");
const QString kLockName = QStringLiteral(".tavrinox-workspace.lock");
// Upper case in the first group, lower case in the others.
const QString kVault = QStringLiteral("3F2504E0-4f89-11d3-9a0c-0305e82c3301");
const QString kOtherVault = QStringLiteral("9b2f6c1e-0d4a-4e6b-8f3a-2c1d0e9f8a7b");
// A UUID-named directory outside the workspace: what a followed link would wrongly recycle.
const QString kOutsideVault = QStringLiteral("6ba7b810-9dad-11d1-80b4-00c04fd430c8");

const char kHoldLockArgument[] = "--hold-lock";

// Child mode of this program: takes the lock like a running Tavrinox instance, says so, and holds
// it until its input is closed.
int holdLock(const QString &lockPath)
{
    QLockFile lock(lockPath);
    if (!lock.tryLock(0))
        return 1;
    QTextStream(stdout) << "locked" << Qt::endl;
    QFile input;
    input.open(stdin, QIODevice::ReadOnly);
    input.readAll();
    return 0;
}

// A separate live process holding a per-vault directory's lock.
class LockHolder
{
public:
    ~LockHolder()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished(60000);
    }

    bool start(const QString &lockPath)
    {
        m_process.start(QCoreApplication::applicationFilePath(),
                        {QLatin1String(kHoldLockArgument), lockPath});
        QByteArray output;
        while (!output.contains("locked") && m_process.waitForReadyRead(60000))
            output += m_process.readAllStandardOutput();
        return output.contains("locked");
    }

    // Dies holding the lock (SIGKILL), leaving its lock file behind.
    void killHard()
    {
        m_process.kill();
        m_process.waitForFinished(60000);
    }

private:
    QProcess m_process;
};

using Tree = QMap<QString, QByteArray>;

// Every entry under a root, links not followed, with each file's bytes.
Tree treeContents(const QString &root)
{
    Tree contents;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        contents.insert(QDir(root).relativeFilePath(path),
                        it.fileInfo().isDir() || !file.open(QIODevice::ReadOnly) ? QByteArray("<directory>")
                                                                                 : file.readAll());
    }
    return contents;
}

bool bindMount(const QString &source, const QString &target)
{
    return QProcess::execute(QStringLiteral("mount"), {QStringLiteral("--bind"), source, target}) == 0;
}

} // namespace

class TestWorkspaceRecycling : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_sandbox.isValid());
        QVERIFY(QDir().mkpath(sandbox("temp")));
        QVERIFY(QDir().mkpath(sandbox("empty")));
        qputenv("TMPDIR", QFile::encodeName(sandbox("temp")));
        QCOMPARE(QStandardPaths::writableLocation(QStandardPaths::TempLocation),
                 QFileInfo(sandbox("temp")).canonicalFilePath());
    }

    // A fresh empty workspace and a fresh tree outside it, which no test may change.
    void init()
    {
        removeWorkspace();
        QVERIFY(QDir().mkpath(workspace()));
        QVERIFY(QDir(sandbox("outside")).removeRecursively());
        QVERIFY(writeFile(sandbox("outside/keep.txt"), "keep"));
        QVERIFY(writeFile(sandbox("outside/.hidden.txt"), "hidden"));
        QVERIFY(writeFile(sandbox("outside/dir/nested.txt"), "nested"));
        QVERIFY(writeFile(sandbox("outside/" + kOutsideVault + "/secret.txt"), "secret"));
        m_outsideBefore = treeContents(sandbox("outside"));
    }

    void cleanup() { QCOMPARE(treeContents(sandbox("outside")), m_outsideBefore); }

    void nothingToRecycleIsDone_data()
    {
        QTest::addColumn<bool>("workspaceExists");
        QTest::newRow("missing workspace") << false;
        QTest::newRow("empty workspace") << true;
    }
    void nothingToRecycleIsDone()
    {
        QFETCH(bool, workspaceExists);
        if (!workspaceExists)
            removeWorkspace();
        QString error;
        QCOMPARE(recycleWorkspaceDirectories(&error), kWorkspaceRecycled);
        QCOMPARE(error, QString());
    }

    void onlyPerVaultDirectoriesAreRemoved()
    {
        makeVault(kVault);
        makeVault(QStringLiteral("backup"));
        makeVault(QStringLiteral("3f2504e0-4f89-11d3-9a0c-0305e82c330")); // one digit short
        makeVault(QStringLiteral("x") + kOtherVault);
        QVERIFY(writeFile(workspace(kOtherVault), "a file with a UUID name"));
        QVERIFY(writeFile(workspace("notes.txt"), "notes"));
        const Tree before = treeContents(workspace());

        QCOMPARE(recycleWorkspaceDirectories(), kWorkspaceRecycled);
        QVERIFY(!QFileInfo::exists(workspace(kVault)));
        Tree expected = before;
        expected.removeIf([](Tree::iterator entry) { return entry.key().startsWith(kVault); });
        QCOMPARE(treeContents(workspace()), expected);
    }

    void heldLockStopsThePassAfterEarlierDirectories()
    {
        for (int i = 0; i < 6; ++i)
            makeVault(QStringLiteral("%1-0000-4000-8000-00000000000%2").arg(0xa0000000 + i, 8, 16).arg(i));
        // The workspace does not change before the pass lists it, so this is the order the pass sees.
        const QStringList order =
            QDir(workspace()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
        QCOMPARE(order.size(), 6);
        const QString held = order.at(2);
        {
            LockHolder holder;
            QVERIFY(holder.start(workspace(held + "/" + kLockName)));
            QString error;
            QCOMPARE(recycleWorkspaceDirectories(&error), kWorkspaceInUse);
            QCOMPARE(error, QString());
            for (int i = 0; i < order.size(); ++i)
                QCOMPARE(QFileInfo::exists(workspace(order.at(i) + "/nested/deeper/file.txt")), i >= 2);
        }
        QCOMPARE(recycleWorkspaceDirectories(), kWorkspaceRecycled);
        QCOMPARE(QDir(workspace()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void staleLockOfDeadProcessDoesNotBlock()
    {
        makeVault(kVault);
        const QString lockPath = workspace(kVault + "/" + kLockName);
        LockHolder holder;
        QVERIFY(holder.start(lockPath));
        holder.killHard();
        QVERIFY(QFileInfo::exists(lockPath));

        QCOMPARE(recycleWorkspaceDirectories(), kWorkspaceRecycled);
        QVERIFY(!QFileInfo::exists(workspace(kVault)));
    }

    // A link anywhere below a per-vault directory keeps it; nothing a link reaches is ever removed.
    void linksNeverLetTheRemovalOut_data()
    {
        QTest::addColumn<QString>("linkPath"); // in the workspace
        QTest::addColumn<QString>("target");   // in the sandbox
        QTest::addColumn<int>("expectedResult");
        const QString inVault = kVault + "/";
        const int failed = kWorkspaceRecycleFailed;
        QTest::newRow("to a directory outside") << inVault + "elsewhere"
                                                << "outside" << failed;
        QTest::newRow("hidden") << inVault + ".cache"
                                << "outside" << failed;
        QTest::newRow("in a nested folder") << inVault + "nested/deeper/elsewhere"
                                            << "outside" << failed;
        QTest::newRow("in a hidden folder") << inVault + ".config/elsewhere"
                                            << "outside" << failed;
        QTest::newRow("to a file outside") << inVault + "nested/keep.txt"
                                           << "outside/keep.txt" << failed;
        QTest::newRow("dangling") << inVault + "nested/gone"
                                  << "missing" << failed;
        QTest::newRow("back to the workspace") << inVault + "nested/up"
                                               << "temp/Tavrinox" << failed;
        QTest::newRow("as the lock file") << inVault + kLockName << "outside/keep.txt" << failed;
        QTest::newRow("per-vault directory itself")
            << kOtherVault << "outside/" + kOutsideVault << int(kWorkspaceRecycled);
    }
    void linksNeverLetTheRemovalOut()
    {
        QFETCH(QString, linkPath);
        QFETCH(QString, target);
        QFETCH(int, expectedResult);
        makeVault(kVault);
        const QString linkFolder = QFileInfo(workspace(linkPath)).absolutePath();
        QVERIFY(QDir().mkpath(linkFolder));
        QVERIFY(QFile::link(sandbox(target), workspace(linkPath)));
        // Siblings make it all but certain that, in any listing order, a removal that starts before it
        // meets the link leaves a visible gap.
        for (int i = 0; i < 16; ++i)
            QVERIFY(writeFile(QDir(linkFolder).filePath(QStringLiteral("sibling-%1").arg(i)), "sibling"));
        const Tree vaultBefore = treeContents(workspace(kVault));

        QString error;
        QCOMPARE(recycleWorkspaceDirectories(&error), expectedResult);
        const bool failed = expectedResult == kWorkspaceRecycleFailed;
        QCOMPARE(error, failed ? kFailed : QString());
        // Kept whole: a refusal removes nothing at all.
        QCOMPARE(treeContents(workspace(kVault)), failed ? vaultBefore : Tree{});
        QCOMPARE(QFileInfo::exists(workspace(kVault)), failed);
        QVERIFY(QFileInfo(workspace(linkPath)).isSymLink());
    }

    void workspaceThatIsALinkIsRefused()
    {
        removeWorkspace();
        QVERIFY(QFile::link(sandbox("outside"), workspace()));
        QString error;
        QCOMPARE(recycleWorkspaceDirectories(&error), kWorkspaceRecycleFailed);
        QCOMPARE(error, kInvalidWorkspace);
    }

    void mountedFileSystemInsideIsNeverEntered()
    {
        makeVault(kVault);
        const QString mountPoint = workspace(kVault + "/nested/mounted");
        QVERIFY(QDir().mkpath(mountPoint));
        if (!bindMount(sandbox("outside"), mountPoint))
            QSKIP("bind mounts need root");
        const auto unmount = qScopeGuard([&] { QProcess::execute(QStringLiteral("umount"), {mountPoint}); });

        QString error;
        QCOMPARE(recycleWorkspaceDirectories(&error), kWorkspaceRecycleFailed);
        QCOMPARE(error, kFailed);
        QVERIFY(QFileInfo::exists(workspace(kVault + "/nested/deeper/file.txt")));
    }

    void removalAcceptsOnlyDirectChildrenOfTheWorkspace_data()
    {
        QTest::addColumn<QString>("entry"); // in the sandbox
        QTest::addColumn<bool>("useWorkspace");
        QTest::addColumn<bool>("removed");
        const QString vault = "temp/Tavrinox/" + kVault;
        QTest::newRow("direct child") << vault << true << true;
        QTest::newRow("reached through a link to the workspace") << "toWorkspace/" + kVault << true << true;
        QTest::newRow("reached through a link to outside") << "toOutside/" + kOutsideVault << true << false;
        QTest::newRow("per-vault link with a trailing slash")
            << "temp/Tavrinox/" + kOtherVault + "/" << true << false;
        QTest::newRow("the workspace as its own entry") << "temp/Tavrinox/." << true << false;
        QTest::newRow("back out through ..") << vault + "/.." << true << false;
        QTest::newRow("nested in a per-vault directory") << vault + "/nested" << true << false;
        QTest::newRow("a file") << "temp/Tavrinox/notes.txt" << true << false;
        QTest::newRow("no workspace path") << vault << false << false;
    }
    void removalAcceptsOnlyDirectChildrenOfTheWorkspace()
    {
        QFETCH(QString, entry);
        QFETCH(bool, useWorkspace);
        QFETCH(bool, removed);
        makeVault(kVault);
        QVERIFY(writeFile(workspace("notes.txt"), "notes"));
        // Only where a row needs it: a link in the workspace would stop a wrong removal by itself.
        if (entry.contains(kOtherVault))
            QVERIFY(QFile::link(sandbox("outside/" + kOutsideVault), workspace(kOtherVault)));
        QFile::remove(sandbox("toWorkspace"));
        QFile::remove(sandbox("toOutside"));
        QVERIFY(QFile::link(workspace(), sandbox("toWorkspace")));
        QVERIFY(QFile::link(sandbox("outside"), sandbox("toOutside")));
        const Tree before = treeContents(workspace());

        const QString workspacePath = useWorkspace ? QFileInfo(workspace()).canonicalFilePath() : QString();
        QCOMPARE(removeWorkspaceEntry(sandbox(entry), workspacePath), removed);
        QCOMPARE(QFileInfo::exists(workspace(kVault)), !removed);
        if (!removed)
            QCOMPARE(treeContents(workspace()), before);
    }

    void windowShowsTheBoxForEachResult_data()
    {
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("icon");
        QTest::addColumn<QString>("text");
        QTest::newRow("recycled") << int(kWorkspaceRecycled) << int(QMessageBox::Information)
                                  << QStringLiteral("Espaço de trabalho reciclado.");
        QTest::newRow("in use") << int(kWorkspaceInUse) << int(QMessageBox::Warning) << kInUse;
        QTest::newRow("failed") << int(kWorkspaceRecycleFailed) << int(QMessageBox::Warning) << kFailed;
    }
    void windowShowsTheBoxForEachResult()
    {
        QFETCH(int, result);
        QFETCH(int, icon);
        QFETCH(QString, text);
        makeVault(kVault);
        LockHolder holder;
        if (result == kWorkspaceInUse)
            QVERIFY(holder.start(workspace(kVault + "/" + kLockName)));
        if (result == kWorkspaceRecycleFailed)
            QVERIFY(QFile::link(sandbox("outside"), workspace(kVault + "/elsewhere")));

        const auto window = Fixture::windowWithoutDetection(sandbox("empty"));
        ModalAnswerer answerer;
        answerer.answer(QStringLiteral("OK"));
        window->recycleWorkspace();

        QCOMPARE(answerer.boxes().size(), 1);
        const ShownBox &box = answerer.boxes().first();
        QCOMPARE(box.title, QStringLiteral("Tavrinox - Gerenciador"));
        QCOMPARE(box.text, text);
        QCOMPARE(int(box.icon), icon);
        QCOMPARE(box.buttons, QStringList({"OK"}));
        QCOMPARE(QFileInfo::exists(workspace(kVault)), result != kWorkspaceRecycled);
    }

private:
    QString sandbox(const QString &relative) const { return QDir(m_sandbox.path()).filePath(relative); }
    QString workspace(const QString &relative = QString()) const
    {
        return QDir(sandbox("temp/Tavrinox")).filePath(relative);
    }

    void removeWorkspace()
    {
        if (QFileInfo(workspace()).isSymLink())
            QFile::remove(workspace());
        else
            QDir(workspace()).removeRecursively();
    }

    void makeVault(const QString &name)
    {
        QVERIFY(writeFile(workspace(name + "/data.bin"), "decrypted"));
        QVERIFY(writeFile(workspace(name + "/.hidden"), "hidden"));
        QVERIFY(writeFile(workspace(name + "/nested/deeper/file.txt"), "deep"));
    }

    QTemporaryDir m_sandbox;
    Tree m_outsideBefore;
};

int main(int argc, char *argv[])
{
    if (argc == 3 && qstrcmp(argv[1], kHoldLockArgument) == 0) {
        QCoreApplication app(argc, argv);
        return holdLock(QString::fromLocal8Bit(argv[2]));
    }
    QApplication app(argc, argv);
    TestWorkspaceRecycling test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_workspacerecycling.moc"
