#include "app/configaboutdialog.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QTextEdit>
#include <QVBoxLayout>

namespace Tavrinox {

ConfigAboutDialog::ConfigAboutDialog(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Sobre o Tavrinox - Gerenciador"));
    setModal(true);
    resize(720, 430);

    auto *headerRow = new QHBoxLayout;
    auto *iconLabel = new QLabel(this);
    iconLabel->setFixedSize(42, 42);
    iconLabel->setAlignment(Qt::AlignCenter);
    iconLabel->setPixmap(QIcon(QStringLiteral(":/icons/Tavrinox.ico")).pixmap(42));
    auto *titleLabel = new QLabel(QStringLiteral("Tavrinox - Gerenciador"), this);
    QFont titleFont = titleLabel->font();
    titleFont.setPointSize(titleFont.pointSize() + 12);
    titleFont.setWeight(QFont::DemiBold);
    titleLabel->setFont(titleFont);
    titleLabel->setStyleSheet(QStringLiteral("color: #0B4F8A;"));
    headerRow->addWidget(iconLabel);
    headerRow->addWidget(titleLabel);
    headerRow->addStretch();

    auto *productLabel = new QLabel(this);
    productLabel->setTextFormat(Qt::RichText);
    productLabel->setText(QStringLiteral("Preparador e atualizador de unidades USB Tavrinox<br>Versão %1<br>")
                              .arg(QCoreApplication::applicationVersion()) +
                          QStringLiteral("© 2026 Corvane Sistemas. Todos os direitos reservados.<br>"
                                         "Tavrinox é uma marca da Corvane Sistemas."));

    auto *runtimeLabel = new QLabel(QStringLiteral("Ambiente de execução\n%1\nQt %2\n%3")
                                        .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                                             QSysInfo::currentCpuArchitecture()),
                                    this);

    auto *topGrid = new QGridLayout;
    topGrid->addLayout(headerRow, 0, 0, 1, 2);
    topGrid->addWidget(productLabel, 1, 0, Qt::AlignTop);
    topGrid->addWidget(runtimeLabel, 1, 1, Qt::AlignTop);
    topGrid->setColumnStretch(0, 1);
    topGrid->setColumnStretch(1, 1);

    auto *componentsTitle = new QLabel(QStringLiteral("Componentes relevantes:"), this);
    auto *componentsView = new QTextEdit(this);
    componentsView->setReadOnly(true);
    componentsView->setMinimumHeight(120);
    componentsView->setPlainText(
        QStringLiteral(
            "Qt Core/Network/Widgets - %1\n"
            "Usado para interface gráfica, acesso HTTP, JSON, hash SHA-256 e operações de arquivo.\n\n"
            "Microsoft Visual C++ Runtime\n"
            "Runtime exigido por builds produzidos com Microsoft Visual Studio/MSVC.\n\n"
            "Microsoft Windows APIs\n"
            "Usadas para detecção de unidades removíveis e integração nativa com o sistema.")
            .arg(QString::fromLatin1(qVersion())));

    auto *legalLabel = new QLabel(
        QStringLiteral(
            "Aviso: este programa de computador é protegido pela lei de direitos autorais e por "
            "tratados internacionais. A reprodução ou a distribuição não autorizada deste programa, "
            "ou de qualquer parte dele, pode resultar em severas sanções civis e criminais, e os "
            "infratores serão processados na máxima extensão permitida pela lei."),
        this);
    legalLabel->setWordWrap(true);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Fechar"), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(topGrid);
    layout->addSpacing(8);
    layout->addWidget(componentsTitle);
    layout->addWidget(componentsView);
    layout->addWidget(legalLabel);
    layout->addWidget(buttons);
}

} // namespace Tavrinox
