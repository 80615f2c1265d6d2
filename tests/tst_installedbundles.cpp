#include "prepare/bundlesource.h"

#include <QtTest>

using namespace Tavrinox;

// The installed bundle folders: where they are, and where they rank among the other places searched.
class TestInstalledBundles : public QObject
{
    Q_OBJECT
private slots:
    void installedFoldersComeAfterTheProgramAndBeforeTheSourceTree_data()
    {
        // Under program/, user/, system/ and tree/; the last one listed is the one the search must find.
        QTest::addColumn<QStringList>("files");
        const QString user = "user/linux-x64/Tavrinox", system = "system/linux-x64/Tavrinox";
        QTest::newRow("system folder") << QStringList{system};
        QTest::newRow("user before system") << QStringList{system, user};
        QTest::newRow("program before both") << QStringList{user, "program/Tavrinox"};
        QTest::newRow("windows") << QStringList{"tree/bundles/windows-x64/Tavrinox.exe",
                                                "user/windows-x64/Tavrinox.exe"};
    }

    void installedFoldersComeAfterTheProgramAndBeforeTheSourceTree()
    {
        QFETCH(QStringList, files);
        QTemporaryDir root;
        for (const QString &file : files)
            QVERIFY(QDir().mkpath(root.filePath(file))); // existence alone counts
        const QString program = root.filePath("program"), tree = root.filePath("tree");
        const QStringList installed{root.filePath("user"), root.filePath("system")};
        const BundleSource source = files.last().endsWith(".exe")
                                        ? locateWindowsBundle(program, tree, installed)
                                        : locateLinuxBundle(program, tree, installed);
        QCOMPARE(source.executablePath, root.filePath(files.last()));
    }

    // Found from the installed program's folder, the system folder must be where the installation puts
    // the bundles; the user's own folder comes first.
    void systemFolderIsWhereTheInstallationPutsBundles()
    {
        QStandardPaths::setTestModeEnabled(true);
        const QString user = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        QCOMPARE(installedBundleDirectories(TAVRINOX_INSTALLED_PROGRAM_DIR),
                 QStringList({user + "/tavrinox/bundles", TAVRINOX_INSTALLED_BUNDLES}));
    }
};

QTEST_GUILESS_MAIN(TestInstalledBundles)
#include "tst_installedbundles.moc"
