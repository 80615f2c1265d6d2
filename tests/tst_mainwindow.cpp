#include "app/backgroundwidget.h"
#include "app/configwindow.h"
#include "buildconfig.h"
#include "support/modalanswerer.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QtTest>

using namespace Tavrinox;
using Fixture::controlNamed;

namespace {

QStringList menuEntries(QMenu *menu)
{
    QStringList entries;
    for (QAction *action : menu->actions())
        entries.append(action->isSeparator() ? QStringLiteral("---") : action->text());
    return entries;
}

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName(QStringLiteral("TavrinoxConfig"));
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
        QVERIFY(m_emptyDir.isValid());
    }

    void backgroundKeepsSixteenByNine_data()
    {
        QTest::addColumn<bool>("hasScreen");
        QTest::addColumn<QSize>("available");
        QTest::addColumn<QSize>("expected");
        QTest::newRow("full HD") << true << QSize(1920, 1040) << QSize(1152, 648);
        QTest::newRow("laptop") << true << QSize(1366, 728) << QSize(900, 506);
        QTest::newRow("short screen: height wins") << true << QSize(1280, 500) << QSize(888, 500);
        QTest::newRow("no screen") << false << QSize() << QSize(960, 540);
    }
    void backgroundKeepsSixteenByNine()
    {
        QFETCH(bool, hasScreen);
        QFETCH(QSize, available);
        QFETCH(QSize, expected);
        QCOMPARE(backgroundSizeFor(hasScreen ? std::optional<QSize>(available) : std::nullopt), expected);
    }

    void menusHoldTheCommandsInOrder()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        const QList<QAction *> menus = window->menuBar()->actions();
        QCOMPARE(menus.size(), 2);
        QCOMPARE(menus.at(0)->text(), QStringLiteral("Arquivo"));
        QCOMPARE(menus.at(1)->text(), QStringLiteral("Ajuda"));
        QCOMPARE(menuEntries(menus.at(0)->menu()),
                 QStringList({"Atualizar lista", "Preparar unidade USB", "Reciclar espaço de trabalho", "---",
                              "Sair"}));
        QCOMPARE(menuEntries(menus.at(1)->menu()),
                 QStringList(
                     {"Verificar atualizações", "Verificar Licença e Ativações", "---", "Sobre o sistema"}));
    }

    void onlyQuitHasAShortcut()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        const QList<QAction *> actions = window->findChildren<QAction *>();
        QVERIFY(controlNamed<QAction>(*window, QStringLiteral("Sair")));
        for (QAction *action : actions) {
            if (action->text() == QLatin1String("Sair"))
                QCOMPARE(action->shortcuts(), QKeySequence::keyBindings(QKeySequence::Quit));
            else
                QVERIFY2(action->shortcuts().isEmpty(), qPrintable(action->text()));
        }
    }

    void quitClosesTheWindow()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        controlNamed<QAction>(*window, QStringLiteral("Sair"))->trigger();
        QVERIFY(!window->isVisible());
    }

    void buttonsSitRefreshLeftPrepareLast()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QPushButton *refresh = controlNamed<QPushButton>(*window, QStringLiteral("Atualizar lista"));
        QPushButton *update = controlNamed<QPushButton>(*window, QStringLiteral("Verificar atualizações"));
        QPushButton *prepare = controlNamed<QPushButton>(*window, QStringLiteral("Preparar unidade USB"));
        QVERIFY(refresh && update && prepare);
        QVERIFY(refresh->x() < update->x());
        QVERIFY(update->x() < prepare->x());
        QVERIFY(update->isEnabled());
        QVERIFY(controlNamed<QAction>(*window, QStringLiteral("Verificar atualizações"))->isEnabled());
    }

    void windowHasAFixedSize()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        QCOMPARE(window->minimumSize(), window->maximumSize());
        QCOMPARE(window->windowTitle(), QStringLiteral("Tavrinox - Gerenciador"));
        QVERIFY(window->findChild<BackgroundWidget *>());
        QVERIFY(window->findChild<QFrame *>(QStringLiteral("contentPanel")));
    }

    void statusBarShowsVersionThenMaker()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QLabel *version = controlNamed<QLabel>(*window->statusBar(), QStringLiteral("Versão 1.0.5"));
        QLabel *maker = controlNamed<QLabel>(*window->statusBar(), QStringLiteral("Corvane Sistemas"));
        QVERIFY(version && maker);
        QVERIFY(version->isVisible() && maker->isVisible());
        QVERIFY(version->mapTo(window.get(), QPoint()).x() < maker->mapTo(window.get(), QPoint()).x());
    }

    void aboutShowsTheApplicationVersionAndRuntimeQt()
    {
        // A version other than the build's proves the dialog asks the application object.
        QCoreApplication::setApplicationVersion(QStringLiteral("9.8.7"));
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        QStringList labelTexts;
        QString title;
        ModalAnswerer answerer;
        answerer.handleDialogs([&](QWidget *dialog) {
            title = dialog->windowTitle();
            for (QLabel *label : dialog->findChildren<QLabel *>())
                labelTexts.append(label->text());
            controlNamed<QPushButton>(*dialog, QStringLiteral("Fechar"))->click();
        });
        controlNamed<QAction>(*window, QStringLiteral("Sobre o sistema"))->trigger();
        QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));

        QCOMPARE(title, QStringLiteral("Sobre o Tavrinox - Gerenciador"));
        const QString all = labelTexts.join(QLatin1Char('\n'));
        QVERIFY2(all.contains(QStringLiteral("Versão 9.8.7<br>")), qPrintable(all));
        QVERIFY(all.contains(QStringLiteral("Ambiente de execução\n%1\nQt %2\n%3")
                                 .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                                      QSysInfo::currentCpuArchitecture())));
    }

    void licenseDialogSaysLookupIsUnavailable()
    {
        const auto window = Fixture::windowWithoutDetection(m_emptyDir.path());
        QString driveText;
        QString statusText;
        ModalAnswerer answerer;
        answerer.handleDialogs([&](QWidget *dialog) {
            driveText = dialog->findChild<QLabel *>(QStringLiteral("licenseDriveLabel"))->text();
            statusText = dialog->findChild<QLabel *>(QStringLiteral("licenseStatusLabel"))->text();
            controlNamed<QPushButton>(*dialog, QStringLiteral("Fechar"))->click();
        });
        controlNamed<QAction>(*window, QStringLiteral("Verificar Licença e Ativações"))->trigger();
        QCOMPARE(driveText, QStringLiteral("Nenhuma unidade USB selecionada."));
        QVERIFY(statusText.contains(QStringLiteral("não está disponível")));
    }

private:
    QTemporaryDir m_emptyDir;
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
