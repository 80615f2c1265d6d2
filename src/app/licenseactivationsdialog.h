#pragma once

#include <QDialog>

namespace Tavrinox {

// Licence and activations of the selected drive. This build has no licensing service to ask,
// so the dialog names the drive and says so plainly instead of showing anything invented.
class LicenseActivationsDialog : public QDialog
{
    Q_OBJECT
public:
    // driveDescription: the selected drive as the drive list shows it; empty when none is selected.
    LicenseActivationsDialog(const QString &driveDescription, QWidget *parent);
};

} // namespace Tavrinox
