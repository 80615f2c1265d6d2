#include "app/licenseactivationsdialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>

namespace Tavrinox {

LicenseActivationsDialog::LicenseActivationsDialog(const QString &driveDescription, QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Licença e Ativações"));
    setModal(true);

    auto *driveLabel = new QLabel(driveDescription.isEmpty()
                                      ? QStringLiteral("Nenhuma unidade USB selecionada.")
                                      : QStringLiteral("Unidade selecionada: %1").arg(driveDescription),
                                  this);
    driveLabel->setObjectName(QStringLiteral("licenseDriveLabel"));
    auto *statusLabel =
        new QLabel(QStringLiteral("A consulta de licença e ativações não está disponível nesta versão do "
                                  "Tavrinox - Gerenciador. Nenhuma informação de licença foi consultada."),
                   this);
    statusLabel->setObjectName(QStringLiteral("licenseStatusLabel"));
    statusLabel->setWordWrap(true);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Fechar"), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(driveLabel);
    layout->addWidget(statusLabel);
    layout->addWidget(buttons);
    resize(460, 160);
}

} // namespace Tavrinox
