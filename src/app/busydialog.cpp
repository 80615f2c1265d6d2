#include "app/busydialog.h"

#include "app/configwindow.h"

#include <QCloseEvent>
#include <QKeyEvent>

namespace Tavrinox {

BusyDialog::BusyDialog(const QString &label, int maximum, QWidget *window)
    : QProgressDialog(label, QString(), 0, maximum, window)
{
    setWindowTitle(kBoxTitle);
    setCancelButton(nullptr);
    setWindowModality(Qt::ApplicationModal);
    setMinimumDuration(0);
}

// Escape ends up here; there is nothing to cancel.
void BusyDialog::reject() {}

// The base class would take a close for a cancel and hide the dialog while the work goes on.
void BusyDialog::closeEvent(QCloseEvent *event)
{
    event->ignore();
}

void BusyDialog::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Quit) && parentWidget())
        parentWidget()->close();
    else
        QProgressDialog::keyPressEvent(event);
}

} // namespace Tavrinox
