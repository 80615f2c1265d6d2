#pragma once

#include <QMessageBox>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>

// What a modal message box showed before the test answered it.
struct ShownBox
{
    QString title;
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QStringList buttons;
    QString defaultButton;
};

// Answers modal message boxes from the test, in the order they appear: each queued answer
// clicks the button with that text on the next box and records what the box showed.
// Other modal dialogs go to the handler given with handleDialogs().
class ModalAnswerer : public QObject
{
    Q_OBJECT
public:
    explicit ModalAnswerer(QObject *parent = nullptr);

    void answer(const QString &buttonText);
    void answer(const QStringList &buttonTexts);
    void handleDialogs(std::function<void(QWidget *dialog)> handler);

    const QList<ShownBox> &boxes() const { return m_boxes; }
    int pendingAnswers() const { return m_answers.size(); }

private:
    void poll();

    QTimer m_timer;
    QStringList m_answers;
    QList<ShownBox> m_boxes;
    std::function<void(QWidget *)> m_dialogHandler;
};
