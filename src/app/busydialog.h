#pragma once

#include <QProgressDialog>

namespace Tavrinox {

// The dialog shown while a command works on a drive: application-modal, with no cancel button, and deaf
// to Escape and to the close button, so that it stays up exactly as long as the work runs and nothing
// behind it can be used meanwhile. Only its owner hides it, when the work is done. The quit key is passed
// on to the window, which answers it.
class BusyDialog : public QProgressDialog
{
    Q_OBJECT
public:
    BusyDialog(const QString &label, int maximum, QWidget *window);

    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
};

} // namespace Tavrinox
