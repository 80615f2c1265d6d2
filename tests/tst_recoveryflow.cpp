#include "app/configwindow.h"
#include "support/modalanswerer.h"
#include "support/testfiles.h"
#include "support/windowfixture.h"
#include "transaction/updatejournal.h"

#include <QAction>
#include <QDir>
#include <QPushButton>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QThreadPool>
#include <QtTest>

using namespace Tavrinox;
using namespace Fixture;

namespace {

// How long a recovery of a tiny drive may take on a loaded machine before the test gives up.
constexpr int kPatienceMs = 60000;

const QString kDiscarded = QStringLiteral("Uma atualização interrompida antes da promoção foi descartada; o "
                                          "staging foi preservado para diagnóstico.");

// A drive in the test's own directory, as the bus would report it mounted.
Platform::UsbDevice driveAt(const QTemporaryDir &dir)
{
    return mountedDrive(dir.path() + QLatin1Char('/'));
}

void writeStagedJournal(const QTemporaryDir &drive)
{
    QVERIFY(QDir(drive.path()).mkpath(QStringLiteral("Tavrinox")));
    QVERIFY(writeUpdateJournal(
        drive.path(), QJsonObject{{"id", "20260301140509"}, {"phase", "staged"}, {"version", "9.9.9"}}));
}

int startsLogged(const ConfigWindow &window, const QString &root)
{
    return int(logLines(window).count(QStringLiteral("Recuperando atualização pendente em %1...").arg(root)));
}

QAction *updateAction(const ConfigWindow &window)
{
    return controlNamed<QAction>(window, QStringLiteral("Verificar atualizações"));
}

QPushButton *updateButton(const ConfigWindow &window)
{
    return controlNamed<QPushButton>(window, QStringLiteral("Verificar atualizações"));
}

// A window that started without drives; the drive was plugged in after and shows up at the next refresh.
std::unique_ptr<ConfigWindow> windowBeforePlugging(const QTemporaryDir &drive, const QTemporaryDir &emptyDir)
{
    AttachedDrives *bus = nullptr;
    auto window = windowWith({}, emptyDir.path(), &bus);
    bus->drives.append(driveAt(drive));
    return window;
}

bool updateControlsEnabled(const ConfigWindow &window)
{
    return updateAction(window)->isEnabled() && updateButton(window)->isEnabled();
}

bool updateControlsDisabled(const ConfigWindow &window)
{
    return !updateAction(window)->isEnabled() && !updateButton(window)->isEnabled();
}

// Occupies every thread of the global pool, so a recovery started meanwhile waits its turn for as
// long as the test needs, whatever the machine's speed. The window must exist before: building it
// converts images on the same pool.
class BusyThreadPool
{
public:
    BusyThreadPool()
        : m_threads(QThreadPool::globalInstance()->maxThreadCount())
    {
        for (int i = 0; i < m_threads; ++i)
            QThreadPool::globalInstance()->start([this] { m_release.acquire(); });
    }
    ~BusyThreadPool() { release(); }
    Q_DISABLE_COPY(BusyThreadPool)

    void release()
    {
        m_release.release(m_threads);
        m_threads = 0;
    }

private:
    int m_threads;
    QSemaphore m_release;
};

} // namespace

class TestRecoveryFlow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(m_emptyDir.isValid()); }
    void cleanup() { QThreadPool::globalInstance()->waitForDone(); }

    void refreshRecoversOnlyMountedDrivesWithAJournal()
    {
        QTemporaryDir pending, clean, unmounted;
        writeStagedJournal(pending);
        writeStagedJournal(unmounted);
        Platform::UsbDevice notMounted = driveAt(unmounted);
        notMounted.mounted = false;
        const auto window = windowWith({driveAt(clean), driveAt(pending), notMounted}, m_emptyDir.path());
        const QString root = driveAt(pending).rootPath;

        QVERIFY(updateControlsDisabled(*window));
        QTRY_VERIFY_WITH_TIMEOUT(updateControlsEnabled(*window), kPatienceMs);
        QCOMPARE(logLines(*window).mid(2),
                 QStringList({"3 unidade(s) USB detectada(s).",
                              "Recuperando atualização pendente em " + root + "...", kDiscarded}));
        QVERIFY(!QFile::exists(updateJournalPath(pending.path())));
        QVERIFY(QFile::exists(updateJournalPath(unmounted.path())));
    }

    void refreshDuringARunningRecoveryStartsNoSecond()
    {
        QTemporaryDir pending;
        writeStagedJournal(pending);
        const QString root = driveAt(pending).rootPath;
        const auto window = windowBeforePlugging(pending, m_emptyDir);
        BusyThreadPool busy;
        window->refreshDevices();

        // Refreshes from the button and from the program, with the event loop running in between.
        QTest::qWait(50);
        controlNamed<QPushButton>(*window, QStringLiteral("Atualizar lista"))->click();
        QTest::qWait(50);
        window->refreshDevices();
        QTest::qWait(50);
        QCOMPARE(startsLogged(*window, root), 1);
        QVERIFY(updateControlsDisabled(*window));
        QVERIFY(QFile::exists(updateJournalPath(pending.path())));

        busy.release();
        QTRY_VERIFY_WITH_TIMEOUT(logLines(*window).contains(kDiscarded), kPatienceMs);
        QVERIFY(updateControlsEnabled(*window));
        window->refreshDevices();
        QCOMPARE(startsLogged(*window, root), 1);
    }

    void failedRecoveryWarnsOnceAndIsNotRetried()
    {
        QTemporaryDir broken;
        QVERIFY(writeFile(updateJournalPath(broken.path()), "{ not json"));
        const QString root = driveAt(broken).rootPath;
        ModalAnswerer answerer;
        answerer.answer(QStringLiteral("OK"));
        const auto window = windowWith({driveAt(broken)}, m_emptyDir.path());

        QTRY_COMPARE_WITH_TIMEOUT(answerer.boxes().size(), 1, kPatienceMs);
        const QString reason =
            QStringLiteral("O journal de atualização pendente é inválido e foi preservado para diagnóstico.");
        const ShownBox box = answerer.boxes().first();
        QCOMPARE(box.title, QStringLiteral("Tavrinox - Gerenciador"));
        QCOMPARE(box.icon, QMessageBox::Warning);
        QCOMPARE(box.text,
                 QStringLiteral("A recuperação automática de uma atualização pendente falhou em %1. A "
                                "unidade foi preservada e nenhuma nova atualização será iniciada.\n\n%2")
                     .arg(root, reason));
        QVERIFY(logLines(*window).contains(
            QStringLiteral("Atualização pendente não recuperada em %1: %2").arg(root, reason)));
        QVERIFY(updateControlsEnabled(*window));

        window->refreshDevices();
        window->refreshDevices();
        QTest::qWait(100);
        QCOMPARE(startsLogged(*window, root), 1);
        QCOMPARE(answerer.boxes().size(), 1);
        QCOMPARE(readFile(updateJournalPath(broken.path())), QByteArray("{ not json"));
    }

    void updateControlsReturnOnlyWhenTheLastRecoveryEnds()
    {
        QTemporaryDir first, second;
        writeStagedJournal(first);
        writeStagedJournal(second);
        const auto window = windowWith({driveAt(first), driveAt(second)}, m_emptyDir.path());

        // The controls' state at the moment each outcome reaches the log.
        QList<bool> enabledAtOutcome;
        QList<bool> disabledAtOutcome;
        connect(window->findChild<QTextEdit *>(), &QTextEdit::textChanged, this, [&] {
            if (logLines(*window).constLast() == kDiscarded) {
                enabledAtOutcome.append(updateControlsEnabled(*window));
                disabledAtOutcome.append(updateControlsDisabled(*window));
            }
        });
        QTRY_COMPARE_WITH_TIMEOUT(enabledAtOutcome.size(), 2, kPatienceMs);
        QCOMPARE(enabledAtOutcome, QList<bool>({false, true}));
        QCOMPARE(disabledAtOutcome, QList<bool>({true, false}));
    }

    void journalGoneBeforeTheTaskRunsIsReportedAsChecked()
    {
        QTemporaryDir pending;
        writeStagedJournal(pending);
        const QString root = driveAt(pending).rootPath;
        const auto window = windowBeforePlugging(pending, m_emptyDir);
        BusyThreadPool busy;
        window->refreshDevices();
        QVERIFY(QFile::remove(updateJournalPath(pending.path())));
        busy.release();
        QTRY_COMPARE_WITH_TIMEOUT(logLines(*window).constLast(),
                                  QStringLiteral("Atualização pendente verificada em %1.").arg(root),
                                  kPatienceMs);
    }

    void rolledBackJournalIsReportedOnEveryRefresh()
    {
        QTemporaryDir drive;
        QVERIFY(QDir(drive.path()).mkpath(QStringLiteral("Tavrinox")));
        QVERIFY(writeUpdateJournal(drive.path(),
                                   QJsonObject{{"id", "20260301140509"}, {"phase", "rolled-back"}}));
        const auto window = windowWith({driveAt(drive)}, m_emptyDir.path());
        const QString message = QStringLiteral("Uma atualização anterior já havia sido revertida; os "
                                               "arquivos de diagnóstico foram preservados.");
        QTRY_COMPARE_WITH_TIMEOUT(logLines(*window).constLast(), message, kPatienceMs);
        window->refreshDevices();
        QTRY_COMPARE_WITH_TIMEOUT(logLines(*window).count(message), 2, kPatienceMs);
        QCOMPARE(startsLogged(*window, driveAt(drive).rootPath), 2);
    }

private:
    QTemporaryDir m_emptyDir;
};

QTEST_MAIN(TestRecoveryFlow)
#include "tst_recoveryflow.moc"
