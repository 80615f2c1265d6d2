#include "app/configwindow.h"
#include "prepare/bundlesource.h"

#include <QDir>
#include <QFile>
#include <QFormLayout>
#include <QLabel>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

using namespace Tavrinox;

namespace {

// Entries ending in "/" are made as directories, the others as empty files.
void createEntries(const QString &base, const QStringList &entries)
{
    const QDir baseDir(base);
    for (const QString &entry : entries) {
        const QString path = baseDir.filePath(entry);
        if (entry.endsWith(QLatin1Char('/'))) {
            QVERIFY(QDir().mkpath(path));
        } else {
            QVERIFY(QDir().mkpath(QFileInfo(path).path()));
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
    }
}

QLabel *sourceStatusLabel(const ConfigWindow &window, const QString &caption)
{
    for (QLabel *label : window.findChildren<QLabel *>()) {
        if (label->text() == caption)
            return qobject_cast<QLabel *>(label->buddy());
    }
    return nullptr;
}

QStringList logLines(const ConfigWindow &window)
{
    return window.findChild<QTextEdit *>()->toPlainText().split(QLatin1Char('\n'));
}

} // namespace

class TestBundleSource : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        // The program directory sits two levels deep so that its ".." candidates stay inside the test's
        // own folder, and so does the source tree's "../out".
        m_root.reset(new QTemporaryDir);
        QVERIFY(m_root->isValid());
        m_program = m_root->filePath(QStringLiteral("a/b/program"));
        m_tree = m_root->filePath(QStringLiteral("src/tree"));
        QVERIFY(QDir().mkpath(m_program));
        QVERIFY(QDir().mkpath(m_tree));
    }

    void searchTakesTheFirstCandidateInOrder_data()
    {
        QTest::addColumn<bool>("windows");
        QTest::addColumn<QStringList>("besideProgram");
        QTest::addColumn<QStringList>("inTree");
        QTest::addColumn<bool>("expectFromTree");
        QTest::addColumn<QString>("expectedCandidate"); // empty: nothing found

        const QStringList none;
        QTest::newRow("windows: bundles folder wins over the bare executable")
            << true << QStringList{"Tavrinox.exe", "bundles/windows-x64/Tavrinox.exe"} << none << false
            << "bundles/windows-x64/Tavrinox.exe";
        QTest::newRow("windows: sibling folder before the bare executable")
            << true << QStringList{"Tavrinox.exe", "../windows-x64/Tavrinox.exe"} << none << false
            << "../windows-x64/Tavrinox.exe";
        QTest::newRow("windows: anything beside the program beats the source tree")
            << true << QStringList{"Tavrinox.exe"} << QStringList{"bundles/windows-x64/Tavrinox.exe"} << false
            << "Tavrinox.exe";
        QTest::newRow("windows: tree bundles before tree builds")
            << true << none
            << QStringList{"out/install/x64-release/bin/Tavrinox.exe",
                           "../out/build/x64-release/Tavrinox/Tavrinox.exe",
                           "bundles/windows-x64/Tavrinox.exe"}
            << true << "bundles/windows-x64/Tavrinox.exe";
        QTest::newRow("windows: tree build beside the tree before the one inside")
            << true << none
            << QStringList{"out/build/x64-release/Tavrinox.exe",
                           "../out/build/x64-release/Tavrinox/Tavrinox.exe"}
            << true << "../out/build/x64-release/Tavrinox/Tavrinox.exe";
        QTest::newRow("windows: release build before the install tree")
            << true << none
            << QStringList{"out/install/x64-release/bin/Tavrinox.exe",
                           "out/build/x64-release/Release/Tavrinox.exe"}
            << true << "out/build/x64-release/Release/Tavrinox.exe";
        QTest::newRow("windows: install tree is the last resort")
            << true << none << QStringList{"out/install/x64-release/bin/Tavrinox.exe"} << true
            << "out/install/x64-release/bin/Tavrinox.exe";
        QTest::newRow("windows: a linux build is no windows source")
            << true << QStringList{"Tavrinox", "bundles/linux-x64/Tavrinox"} << none << false << "";

        QTest::newRow("linux: bundles folder wins over the bare executable")
            << false << QStringList{"Tavrinox", "bundles/linux-x64/Tavrinox"} << none << false
            << "bundles/linux-x64/Tavrinox";
        QTest::newRow("linux: one level up before two levels up")
            << false << QStringList{"../../linux-x64/Tavrinox", "../linux-x64/Tavrinox"} << none << false
            << "../linux-x64/Tavrinox";
        QTest::newRow("linux: two levels up before the bare executable")
            << false << QStringList{"Tavrinox", "../../linux-x64/Tavrinox"} << none << false
            << "../../linux-x64/Tavrinox";
        QTest::newRow("linux: a directory named Tavrinox counts")
            << false << QStringList{"Tavrinox/"} << none << false << "Tavrinox";
        QTest::newRow("linux: tree build beside the tree before tree bundles")
            << false << none
            << QStringList{"bundles/linux-x64/Tavrinox", "../out/build/linux-x64-release/Tavrinox/Tavrinox"}
            << true << "../out/build/linux-x64-release/Tavrinox/Tavrinox";
        QTest::newRow("linux: tree bundles before the build inside the tree")
            << false << none
            << QStringList{"out/build/linux-x64-release/Tavrinox", "bundles/linux-x64/Tavrinox"} << true
            << "bundles/linux-x64/Tavrinox";
        QTest::newRow("linux: a windows build is no linux source")
            << false << QStringList{"Tavrinox.exe"} << QStringList{"bundles/windows-x64/Tavrinox.exe"}
            << false << "";
    }
    void searchTakesTheFirstCandidateInOrder()
    {
        QFETCH(bool, windows);
        QFETCH(QStringList, besideProgram);
        QFETCH(QStringList, inTree);
        QFETCH(bool, expectFromTree);
        QFETCH(QString, expectedCandidate);
        createEntries(m_program, besideProgram);
        createEntries(m_tree, inTree);

        const BundleSource source =
            windows ? locateWindowsBundle(m_program, m_tree) : locateLinuxBundle(m_program, m_tree);

        if (expectedCandidate.isEmpty()) {
            QVERIFY(!source.isAvailable());
            QVERIFY(source.directory.isEmpty());
            QVERIFY(!source.fromBuildTree);
            return;
        }
        const QString expectedPath = QDir(expectFromTree ? m_tree : m_program).filePath(expectedCandidate);
        QCOMPARE(source.executablePath, expectedPath);
        QCOMPARE(source.directory, QFileInfo(QDir::cleanPath(expectedPath)).path());
        QCOMPARE(source.fromBuildTree, expectFromTree);
    }

    void directoryNamedTavrinoxMakesTheProgramDirectoryTheBundle()
    {
        createEntries(m_program, {QStringLiteral("Tavrinox/")});
        QCOMPARE(locateLinuxBundle(m_program, QString()).directory, m_program);
    }

    void emptySourceTreeIsNotSearched()
    {
        // An empty base would otherwise resolve against the current directory.
        createEntries(m_root->path(), {QStringLiteral("bundles/windows-x64/Tavrinox.exe"),
                                       QStringLiteral("bundles/linux-x64/Tavrinox")});
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_root->path()));
        const BundleSource windowsSource = locateWindowsBundle(m_program, QString());
        const BundleSource linuxSource = locateLinuxBundle(QString(), QString());
        QVERIFY(QDir::setCurrent(previous));
        QVERIFY(!windowsSource.isAvailable());
        QVERIFY(!linuxSource.isAvailable());
    }

    void windowShowsAndLogsBothSources_data()
    {
        QTest::addColumn<QStringList>("besideProgram");
        QTest::addColumn<QStringList>("inTree");
        QTest::addColumn<QString>("windowsStatus");
        QTest::addColumn<QString>("linuxStatus");
        QTest::addColumn<QStringList>("logStart");

        QTest::newRow("none") << QStringList() << QStringList() << "Ausente"
                              << "Ausente"
                              << QStringList{"Fonte Windows para preparação ausente.",
                                             "Fonte Linux para preparação ausente."};
        QTest::newRow("both beside the program")
            << QStringList{"Tavrinox.exe", "Tavrinox"} << QStringList() << "Disponível"
            << "Disponível"
            << QStringList{"Fonte Windows para preparação encontrada.",
                           "Fonte Linux para preparação encontrada."};
        QTest::newRow("linux only, from the source tree")
            << QStringList() << QStringList{"bundles/linux-x64/Tavrinox"} << "Ausente"
            << "Disponível"
            << QStringList{"Fonte Windows para preparação ausente.",
                           "Fonte Linux para preparação encontrada."};
        QTest::newRow("windows only")
            << QStringList{"bundles/windows-x64/Tavrinox.exe"} << QStringList() << "Disponível"
            << "Ausente"
            << QStringList{"Fonte Windows para preparação encontrada.",
                           "Fonte Linux para preparação ausente."};
    }
    void windowShowsAndLogsBothSources()
    {
        QFETCH(QStringList, besideProgram);
        QFETCH(QStringList, inTree);
        QFETCH(QString, windowsStatus);
        QFETCH(QString, linuxStatus);
        QFETCH(QStringList, logStart);
        createEntries(m_program, besideProgram);
        createEntries(m_tree, inTree);

        ConfigWindowSetup setup;
        setup.bundleSearchDirectory = m_program;
        setup.bundleSourceTree = m_tree;
        ConfigWindow window(std::move(setup));

        QLabel *windowsLabel = sourceStatusLabel(window, QStringLiteral("Fonte Windows:"));
        QLabel *linuxLabel = sourceStatusLabel(window, QStringLiteral("Fonte Linux:"));
        QVERIFY(windowsLabel && linuxLabel);
        QCOMPARE(windowsLabel->text(), windowsStatus);
        QCOMPARE(linuxLabel->text(), linuxStatus);
        QCOMPARE(logLines(window).mid(0, 2), logStart);
    }

private:
    std::unique_ptr<QTemporaryDir> m_root;
    QString m_program;
    QString m_tree;
};

QTEST_MAIN(TestBundleSource)
#include "tst_bundlesource.moc"
