#pragma once

#include <QDialog>

namespace Tavrinox {

// Which program and version this is, where it runs, what it relies on, and the legal notice.
class ConfigAboutDialog : public QDialog
{
    Q_OBJECT
public:
    explicit ConfigAboutDialog(QWidget *parent);
};

} // namespace Tavrinox
