#include "buildconfig.h"
#include "support/testfiles.h"
#include "transaction/updatestate.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;

using Fixture::readFile;
using Fixture::writeFile;

class TestUpdateState : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
    }

    void preparedDriveGetsFreshStateWithoutHash()
    {
        QTemporaryDir drive;
        // An older writer's file, with a hash and an unknown key: neither survives.
        QVERIFY(writeFile(drive.filePath("Tavrinox/update-state.json"),
                          R"({"app":"Tavrinox","lastPackageSha256":"abc","extra":1})"));
        QString error;
        QVERIFY(writeUpdateState(drive.path(), QStringLiteral("1.0.5"), QString(), &error));

        const QByteArray bytes = readFile(updateStatePath(drive.path()));
        const QJsonObject state = QJsonDocument::fromJson(bytes).object();
        QCOMPARE(state.keys(), QStringList({"app", "bundles", "installedAt", "installedVersion",
                                            "schemaVersion", "updatedByConfigVersion"}));
        QCOMPARE(state.value("schemaVersion").toInt(), 1);
        QCOMPARE(state.value("app").toString(), QStringLiteral("Tavrinox"));
        QCOMPARE(state.value("installedVersion").toString(), QStringLiteral("1.0.5"));
        QCOMPARE(state.value("updatedByConfigVersion").toString(), QStringLiteral("1.0.5"));
        QVERIFY(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$"))
                    .match(state.value("installedAt").toString())
                    .hasMatch());
        const QJsonObject bundles = state.value("bundles").toObject();
        QCOMPARE(bundles.value("windows-x64").toObject(),
                 QJsonObject({{"path", "Tavrinox/windows"}, {"entryPoint", "Tavrinox.exe"}}));
        QCOMPARE(bundles.value("linux-x64").toObject(),
                 QJsonObject({{"path", "Tavrinox/linux"}, {"entryPoint", "Tavrinox"}}));
        // Indented, keys in sorted order as the serialiser writes them.
        QVERIFY(bytes.startsWith("{\n    \"app\": \"Tavrinox\",\n    \"bundles\": {\n        \"linux-x64\""));
    }

    void updatedDriveRecordsThePackageHash()
    {
        QTemporaryDir drive;
        QVERIFY(writeUpdateState(drive.path(), QStringLiteral("1.1.0"), QStringLiteral("ab12"), nullptr));
        const QJsonObject state = QJsonDocument::fromJson(readFile(updateStatePath(drive.path()))).object();
        QCOMPARE(state.value("lastPackageSha256").toString(), QStringLiteral("ab12"));
        QCOMPARE(readInstalledVersion(drive.path()), QStringLiteral("1.1.0"));
        QCOMPARE(updateStatePath(drive.path()), drive.path() + QStringLiteral("/Tavrinox/update-state.json"));
    }

    void failedWriteReportsAndKeepsThePreviousState_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::addColumn<QString>("expected");
        QTest::newRow("Tavrinox is a file")
            << "Tavrinox" << QStringLiteral("Não foi possível criar a pasta de estado da atualização.");
        QTest::newRow("state path is a directory")
            << "Tavrinox/update-state.json/"
            << QStringLiteral("Não foi possível abrir o arquivo de estado: %1");
    }
    void failedWriteReportsAndKeepsThePreviousState()
    {
        QFETCH(QString, obstacle);
        QFETCH(QString, expected);
        QTemporaryDir drive;
        if (obstacle.endsWith(QLatin1Char('/'))) {
            QVERIFY(QDir().mkpath(drive.filePath(obstacle + "keep")));
        } else {
            QVERIFY(writeFile(drive.filePath(obstacle), "not a folder"));
        }
        QString error;
        QVERIFY(!writeUpdateState(drive.path(), QStringLiteral("1.0.5"), QString(), &error));
        QCOMPARE(error, expected.arg(updateStatePath(drive.path())));
        QVERIFY(!writeUpdateState(drive.path(), QStringLiteral("1.0.5"), QString(), nullptr));
        if (!obstacle.endsWith(QLatin1Char('/')))
            QCOMPARE(readFile(drive.filePath(obstacle)), QByteArray("not a folder"));
        else
            QVERIFY(QFileInfo(drive.filePath(obstacle + "keep")).isDir());
    }

    void readerIsTolerant_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("expected");
        QTest::newRow("valid") << QByteArray(R"({"app":"Tavrinox","installedVersion":"1.2.3"})") << "1.2.3";
        QTest::newRow("newer schema, right app")
            << QByteArray(R"({"schemaVersion":2,"app":"Tavrinox","installedVersion":"2.0"})") << "2.0";
        QTest::newRow("app in other case")
            << QByteArray(R"({"app":"tavrinox","installedVersion":"1.2.3"})") << "";
        QTest::newRow("app missing") << QByteArray(R"({"installedVersion":"1.2.3"})") << "";
        QTest::newRow("version not a string")
            << QByteArray(R"({"app":"Tavrinox","installedVersion":5})") << "";
        QTest::newRow("array") << QByteArray(R"([{"app":"Tavrinox","installedVersion":"1"}])") << "";
        QTest::newRow("empty") << QByteArray() << "";
        QTest::newRow("not json") << QByteArray("{app: Tavrinox") << "";
    }
    void readerIsTolerant()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        QTemporaryDir drive;
        QVERIFY(writeFile(updateStatePath(drive.path()), content));
        QCOMPARE(readInstalledVersion(drive.path()), expected);
    }

    void missingOrUnreadableStateReadsAsNoVersion()
    {
        QTemporaryDir drive;
        QCOMPARE(readInstalledVersion(drive.path()), QString());
        QVERIFY(QDir().mkpath(updateStatePath(drive.path())));
        QCOMPARE(readInstalledVersion(drive.path()), QString());
    }
};

QTEST_GUILESS_MAIN(TestUpdateState)
#include "tst_updatestate.moc"
