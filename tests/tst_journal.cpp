#include "support/testfiles.h"
#include "transaction/updatejournal.h"

#include <QDateTime>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::readFile;
using Fixture::writeFile;

namespace {

const QRegularExpression
    kIsoWithMilliseconds(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z$"));

} // namespace

class TestJournal : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_drive = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir(m_drive->path()).mkdir("Tavrinox"));
    }

    void journalIsStampedIndentedAndKeepsCallerKeys()
    {
        const QJsonObject given{{"schemaVersion", 7}, {"app", "Other"}, {"phase", "staged"}, {"extra", true}};
        QVERIFY(writeUpdateJournal(m_drive->path(), given));

        const QByteArray bytes = readFile(updateJournalPath(m_drive->path()));
        QCOMPARE(updateJournalPath(m_drive->path()), m_drive->filePath("Tavrinox/update-journal.json"));
        QVERIFY2(bytes.startsWith("{\n    \"app\": \"Tavrinox\",\n    \"extra\": true,\n"),
                 bytes.constData());
        const QJsonObject journal = QJsonDocument::fromJson(bytes).object();
        QCOMPARE(journal.keys(), QStringList({"app", "extra", "phase", "schemaVersion", "updatedAt"}));
        QCOMPARE(journal.value("schemaVersion").toInt(), 1);
        QVERIFY(kIsoWithMilliseconds.match(journal.value("updatedAt").toString()).hasMatch());
    }

    void journalIsNotWrittenWithoutTheTavrinoxFolder()
    {
        QTemporaryDir bare;
        QString error;
        QVERIFY(!writeUpdateJournal(bare.path(), QJsonObject{{"phase", "staged"}}, &error));
        QCOMPARE(error, QStringLiteral("Não foi possível registrar a transação de atualização: %1")
                            .arg(updateJournalPath(bare.path())));
        QVERIFY(QDir(bare.path()).isEmpty());
    }

    void missingJournalMeansNothingPending()
    {
        QJsonObject journal{{"stale", 1}};
        QVERIFY(readPendingJournal(m_drive->path(), &journal));
        QVERIFY(journal.isEmpty());
        QVERIFY(!readPendingJournal(m_drive->path(), nullptr));
    }

    void validJournalIsReadWhole()
    {
        QVERIFY(writeUpdateJournal(m_drive->path(),
                                   QJsonObject{{"phase", "promoting-linux"}, {"id", "20260301140509"}}));
        QJsonObject journal;
        QVERIFY(readPendingJournal(m_drive->path(), &journal));
        QCOMPARE(journal.value("phase").toString(), QStringLiteral("promoting-linux"));
        QCOMPARE(journal.value("id").toString(), QStringLiteral("20260301140509"));
    }

    void invalidJournalIsRefusedAndPreserved_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("schemaVersion as a string") << QByteArray(R"({"schemaVersion":"1","app":"Tavrinox"})");
        QTest::newRow("schemaVersion 2") << QByteArray(R"({"schemaVersion":2,"app":"Tavrinox"})");
        QTest::newRow("app in other case") << QByteArray(R"({"schemaVersion":1,"app":"tavrinox"})");
        QTest::newRow("app missing") << QByteArray(R"({"schemaVersion":1})");
        QTest::newRow("an array") << QByteArray(R"([{"schemaVersion":1,"app":"Tavrinox"}])");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("not JSON") << QByteArray("{\"schemaVersion\":1,\"app\":\"Tavr");
    }
    void invalidJournalIsRefusedAndPreserved()
    {
        QFETCH(QByteArray, content);
        QVERIFY(writeFile(updateJournalPath(m_drive->path()), content));
        QJsonObject journal{{"stale", 1}};
        QString error;
        QVERIFY(!readPendingJournal(m_drive->path(), &journal, &error));
        QCOMPARE(error,
                 QStringLiteral(
                     "O journal de atualização pendente é inválido e foi preservado para diagnóstico."));
        QVERIFY(journal.isEmpty());
        QCOMPARE(readFile(updateJournalPath(m_drive->path())), content);
    }

    void unreadableJournalIsReported()
    {
        QVERIFY(QDir().mkpath(updateJournalPath(m_drive->path())));
        QJsonObject journal;
        QString error;
        QVERIFY(!readPendingJournal(m_drive->path(), &journal, &error));
        QCOMPARE(error, QStringLiteral("Não foi possível ler o journal de atualização pendente."));
    }

    void logRecordsAreCompactLinesTimedFromTheJournalStart()
    {
        const QDateTime startedAt = QDateTime::currentDateTimeUtc().addSecs(-5);
        QVERIFY(writeUpdateJournal(m_drive->path(),
                                   QJsonObject{{"startedAt", startedAt.toString(Qt::ISODateWithMs)}}));
        QVERIFY(appendTransactionLog(m_drive->path(), "20260301140509", "staged", "Pacote validado."));
        QVERIFY(appendTransactionLog(m_drive->path(), "20260301140509", "promoting-windows", "Iniciando."));

        const QByteArray bytes = readFile(transactionLogPath(m_drive->path(), "20260301140509"));
        QCOMPARE(bytes.count('\n'), 2);
        QVERIFY(bytes.endsWith("}\n"));
        const QList<QJsonObject> records =
            Fixture::jsonLines(transactionLogPath(m_drive->path(), "20260301140509"));
        QCOMPARE(records.size(), 2);
        const QJsonObject first = records.first();
        QCOMPARE(first.keys(), QStringList({"detail", "elapsedMs", "phase", "timestamp", "transactionId"}));
        QCOMPARE(first.value("transactionId").toString(), QStringLiteral("20260301140509"));
        QCOMPARE(first.value("phase").toString(), QStringLiteral("staged"));
        QCOMPARE(first.value("detail").toString(), QStringLiteral("Pacote validado."));
        QVERIFY(kIsoWithMilliseconds.match(first.value("timestamp").toString()).hasMatch());
        const qint64 elapsed = first.value("elapsedMs").toInteger();
        QVERIFY2(elapsed >= 5000 && elapsed < 600000, qPrintable(QString::number(elapsed)));
        QCOMPARE(records.last().value("phase").toString(), QStringLiteral("promoting-windows"));
    }

    void logRecordHasNoElapsedTimeWithoutAReadableStart_data()
    {
        QTest::addColumn<QByteArray>("journal");
        QTest::newRow("no journal") << QByteArray();
        QTest::newRow("start not a date")
            << QByteArray(R"({"schemaVersion":1,"app":"Tavrinox","startedAt":"ontem"})");
        QTest::newRow("journal not JSON") << QByteArray("garbage");
    }
    void logRecordHasNoElapsedTimeWithoutAReadableStart()
    {
        QFETCH(QByteArray, journal);
        if (!journal.isEmpty())
            QVERIFY(writeFile(updateJournalPath(m_drive->path()), journal));
        QVERIFY(appendTransactionLog(m_drive->path(), "1", "completed", "Feito."));
        const QList<QJsonObject> records = Fixture::jsonLines(transactionLogPath(m_drive->path(), "1"));
        QCOMPARE(records.size(), 1);
        QVERIFY(!records.first().contains("elapsedMs"));
    }

    void unwritableLogIsReported()
    {
        QTemporaryDir bare;
        QString error;
        QVERIFY(!appendTransactionLog(bare.path(), "1", "staged", "x", &error));
        QCOMPARE(error, QStringLiteral("Não foi possível registrar o log da transação: %1")
                            .arg(transactionLogPath(bare.path(), "1")));
    }

private:
    std::unique_ptr<QTemporaryDir> m_drive;
};

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
