#include "support/modalanswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QProgressDialog>
#include <QPushButton>

ModalAnswerer::ModalAnswerer(QObject *parent)
    : QObject(parent)
{
    m_timer.setInterval(10);
    connect(&m_timer, &QTimer::timeout, this, &ModalAnswerer::poll);
    m_timer.start();
}

void ModalAnswerer::answer(const QString &buttonText)
{
    m_answers.append(buttonText);
}

void ModalAnswerer::answer(const QStringList &buttonTexts)
{
    m_answers.append(buttonTexts);
}

void ModalAnswerer::handleDialogs(std::function<void(QWidget *)> handler)
{
    m_dialogHandler = std::move(handler);
}

void ModalAnswerer::poll()
{
    QWidget *modal = QApplication::activeModalWidget();
    // A handled box may still be closing; a later box can reuse its address, so mark it instead.
    static const char handledProperty[] = "modalAnswererHandled";
    if (!modal || modal->property(handledProperty).toBool() || qobject_cast<QProgressDialog *>(modal))
        return;

    auto *box = qobject_cast<QMessageBox *>(modal);
    if (!box) {
        if (m_dialogHandler) {
            modal->setProperty(handledProperty, true);
            m_dialogHandler(modal);
        }
        return;
    }
    if (m_answers.isEmpty())
        return;

    ShownBox shown;
    shown.title = box->windowTitle();
    shown.text = box->text();
    shown.icon = box->icon();
    for (QAbstractButton *button : box->buttons())
        shown.buttons.append(button->text());
    if (box->defaultButton())
        shown.defaultButton = box->defaultButton()->text();
    m_boxes.append(shown);

    const QString wanted = m_answers.takeFirst();
    modal->setProperty(handledProperty, true);
    for (QAbstractButton *button : box->buttons()) {
        if (button->text().remove(QLatin1Char('&')) == wanted) {
            button->click();
            return;
        }
    }
    qWarning("ModalAnswerer: no button \"%s\" on the box \"%s\"; closing it", qPrintable(wanted),
             qPrintable(shown.text));
    box->reject();
}
