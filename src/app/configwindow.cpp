#include "app/configwindow.h"

#include "app/backgroundwidget.h"
#include "app/busydialog.h"
#include "app/configaboutdialog.h"
#include "app/licenseactivationsdialog.h"
#include "buildconfig.h"
#include "errortext.h"
#include "platform/linux/linuxdevicemanager.h"
#include "platform/windows/windowsdevicemanager.h"
#include "transaction/updatejournal.h"

#include <QAction>
#include <QCloseEvent>
#include <QComboBox>
#include <QCoreApplication>
#include <QFileInfo>
#include <QFormLayout>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QStyle>
#include <QTextEdit>
#include <QVBoxLayout>

namespace Tavrinox {

namespace {

const QString kContentPanelStyle = QStringLiteral(
    "QFrame#contentPanel {  background-color: rgba(10, 16, 28, 0);  border: 1px solid rgba(255, 255, 255, "
    "92);"
    "  border-radius: 8px;}"
    "QFrame#contentPanel QLabel {  color: #ffffff;}"
    "QFrame#contentPanel QLabel#marketingLabel {  font-size: 12px;}"
    "QFrame#contentPanel QLabel#subtitleLabel {  font-size: 12px;}"
    "QFrame#contentPanel QTextEdit {  background-color: rgba(255, 255, 255, 205);  color: #111827;"
    "  border: 1px solid rgba(31, 41, 55, 70);  border-radius: 4px;}"
    "QFrame#contentPanel QTextEdit {  padding: 8px;}"
    "QFrame#contentPanel QPushButton {  background-color: rgba(255, 255, 255, 255);  color: #111827;"
    "  border: 1px solid rgba(31, 41, 55, 85);  border-radius: 4px;  font-size: 12px;  padding: 6px 12px;}"
    "QFrame#contentPanel QPushButton:hover {  background-color: rgba(245, 248, 252, 255);}"
    "QFrame#contentPanel QPushButton:pressed {  background-color: rgba(229, 236, 246, 255);}");

const QString kStatusLabelStyle =
    QStringLiteral("QLabel {  font-size: 11px;  border-left: 1px solid #c8c8c8;  padding-left: 6px;"
                   "  padding-right: 6px;}");

constexpr int kPictureSpacing = 164;
constexpr int kLogHeight = 100;
constexpr int kLogMinimumHeight = 40; // two lines

std::optional<QSize> primaryScreenAvailableSize()
{
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        return screen->availableGeometry().size();
    return std::nullopt;
}

QFormLayout *newSourceFormLayout(int verticalSpacing)
{
    auto *form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(10);
    form->setVerticalSpacing(verticalSpacing);
    return form;
}

QLabel *newStatusBarLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setMinimumWidth(92);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(kStatusLabelStyle);
    return label;
}

} // namespace

ConfigWindowSetup ConfigWindowSetup::platformDefaults()
{
    ConfigWindowSetup setup;
#if defined(Q_OS_WIN)
    setup.deviceManager = std::make_unique<Platform::Windows::WindowsDeviceManager>();
#elif defined(Q_OS_LINUX)
    setup.deviceManager = std::make_unique<Platform::Linux::LinuxDeviceManager>();
#endif
    setup.bundleSearchDirectory = QCoreApplication::applicationDirPath();
    setup.bundleInstalledDirectories = installedBundleDirectories(setup.bundleSearchDirectory);
    setup.bundleSourceTree = QString::fromUtf8(Build::kBundleSourceTree);
    return setup;
}

ConfigWindow::ConfigWindow(QWidget *parent)
    : ConfigWindow(ConfigWindowSetup::platformDefaults(), parent)
{}

ConfigWindow::ConfigWindow(ConfigWindowSetup setup, QWidget *parent)
    : QMainWindow(parent)
    , m_deviceManager(std::move(setup.deviceManager))
    , m_bundleSearchDirectory(setup.bundleSearchDirectory)
    , m_bundleInstalledDirectories(setup.bundleInstalledDirectories)
    , m_bundleSourceTree(setup.bundleSourceTree)
    , m_updateManifestUrl(setup.updateManifestUrl)
    , m_updatePublicKey(setup.updatePublicKey)
{
    setWindowTitle(kBoxTitle);
    createActions();
    createMenus();
    createCentralArea();
    createStatusBar();
    connectSignals();
    updateBundleSourceStatus();
    refreshDevices();
}

ConfigWindow::~ConfigWindow() = default;

void ConfigWindow::createActions()
{
    m_quitAction = new QAction(QStringLiteral("Sair"), this);
    m_quitAction->setShortcut(QKeySequence::Quit);
    m_refreshAction = new QAction(QStringLiteral("Atualizar lista"), this);
    m_prepareAction = new QAction(QStringLiteral("Preparar unidade USB"), this);
    m_recycleAction = new QAction(QStringLiteral("Reciclar espaço de trabalho"), this);
    m_updateAction = new QAction(QStringLiteral("Verificar atualizações"), this);
    m_licenseAction = new QAction(QStringLiteral("Verificar Licença e Ativações"), this);
    m_aboutAction = new QAction(QStringLiteral("Sobre o sistema"), this);
}

void ConfigWindow::createMenus()
{
    QMenu *fileMenu = menuBar()->addMenu(QStringLiteral("Arquivo"));
    fileMenu->addAction(m_refreshAction);
    fileMenu->addAction(m_prepareAction);
    fileMenu->addAction(m_recycleAction);
    fileMenu->addSeparator();
    fileMenu->addAction(m_quitAction);

    QMenu *helpMenu = menuBar()->addMenu(QStringLiteral("Ajuda"));
    helpMenu->addAction(m_updateAction);
    helpMenu->addAction(m_licenseAction);
    helpMenu->addSeparator();
    helpMenu->addAction(m_aboutAction);
}

void ConfigWindow::createCentralArea()
{
    auto *background = new BackgroundWidget(this);
    background->setFixedSize(backgroundSizeFor(primaryScreenAvailableSize()));

    auto *marketingLabel = new QLabel(QStringLiteral(
        "Suas informações merecem proteção.\nO Tavrinox - Gerenciador prepara sua unidade USB "
        "para armazenar e acessar arquivos\ncom segurança, em um ambiente portátil e pronto para "
        "uso."));
    marketingLabel->setObjectName(QStringLiteral("marketingLabel"));
    marketingLabel->setMaximumWidth(560);
    marketingLabel->setWordWrap(true);

    auto *subtitleLabel =
        new QLabel(QStringLiteral("Preparador de unidade USB para o ambiente portátil Tavrinox."));
    subtitleLabel->setObjectName(QStringLiteral("subtitleLabel"));
    subtitleLabel->setWordWrap(true);

    m_deviceCombo = new QComboBox;
    m_deviceCombo->setFixedWidth(340);
    m_windowsSourceLabel = new QLabel;
    m_windowsSourceLabel->setWordWrap(true);
    m_linuxSourceLabel = new QLabel;
    m_linuxSourceLabel->setWordWrap(true);

    m_refreshButton = new QPushButton(QStringLiteral("Atualizar lista"));
    m_prepareButton = new QPushButton(QStringLiteral("Preparar unidade USB"));
    m_updateButton = new QPushButton(QStringLiteral("Verificar atualizações"));

    m_log = new QTextEdit;
    m_log->setReadOnly(true);
    m_log->setFixedHeight(kLogHeight);

    QFormLayout *driveForm = newSourceFormLayout(0);
    driveForm->addRow(QStringLiteral("Unidade USB:"), m_deviceCombo);
    QFormLayout *sourceForm = newSourceFormLayout(8);
    sourceForm->addRow(QStringLiteral("Fonte Windows:"), m_windowsSourceLabel);
    sourceForm->addRow(QStringLiteral("Fonte Linux:"), m_linuxSourceLabel);

    auto *buttonRow = new QHBoxLayout;
    buttonRow->addWidget(m_refreshButton);
    buttonRow->addStretch();
    buttonRow->addWidget(m_updateButton);
    buttonRow->addWidget(m_prepareButton);

    auto *panel = new QFrame(background);
    panel->setObjectName(QStringLiteral("contentPanel"));
    auto *panelLayout = new QVBoxLayout(panel);
    panelLayout->setContentsMargins(18, 16, 18, 18);
    panelLayout->setSpacing(0);
    // Leaves the top of the picture in view.
    m_pictureSpacer = new QSpacerItem(0, kPictureSpacing, QSizePolicy::Minimum, QSizePolicy::Fixed);
    panelLayout->addSpacerItem(m_pictureSpacer);
    panelLayout->addWidget(marketingLabel);
    panelLayout->addSpacing(38);
    panelLayout->addWidget(subtitleLabel);
    panelLayout->addSpacing(18);
    panelLayout->addLayout(driveForm);
    panelLayout->addSpacing(16);
    panelLayout->addLayout(sourceForm);
    panelLayout->addSpacing(18);
    panelLayout->addLayout(buttonRow);
    panelLayout->addStretch(1);
    panelLayout->addSpacing(14);
    panelLayout->addWidget(m_log);

    auto *backgroundLayout = new QVBoxLayout(background);
    backgroundLayout->setContentsMargins(22, 22, 22, 22);
    backgroundLayout->addWidget(panel);

    panel->setStyleSheet(kContentPanelStyle);
    setCentralWidget(background);
}

void ConfigWindow::createStatusBar()
{
    m_versionLabel =
        newStatusBarLabel(QStringLiteral("Versão %1").arg(QCoreApplication::applicationVersion()), this);
    m_makerLabel = newStatusBarLabel(QStringLiteral("Corvane Sistemas"), this);
    statusBar()->addPermanentWidget(m_versionLabel);
    statusBar()->addPermanentWidget(m_makerLabel);
    adjustSize();
    fitToScreen();
}

// On a screen too small for the window the picture area gives up what the window has too much. Then the
// panel's content is made to fit the panel, whose room the picture's shape decides: the space above the
// text gives way first and the log's height after it, so that nothing is cut off.
void ConfigWindow::fitToScreen()
{
    QWidget *background = centralWidget();
    if (const std::optional<QSize> available = primaryScreenAvailableSize()) {
        // The frame is not part of the window's size, nor known before the window is first shown; the
        // style's measures of one stand in for it.
        const int border = style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth, nullptr, this);
        const int titleBar = style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, this);
        const QSize room = *available - QSize(2 * border, titleBar + border);
        const QSize excess = (sizeHint() - room).expandedTo(QSize(0, 0));
        background->setFixedSize(background->minimumSize() - excess);
    }
    QWidget *panel = background->findChild<QFrame *>(QStringLiteral("contentPanel"));
    const QMargins margins = background->layout()->contentsMargins();
    const int deficit =
        panel->minimumSizeHint().height() - (background->height() - margins.top() - margins.bottom());
    const int spacing = qBound(0, kPictureSpacing - deficit, kPictureSpacing);
    m_pictureSpacer->changeSize(0, spacing, QSizePolicy::Minimum, QSizePolicy::Fixed);
    m_log->setFixedHeight(
        qBound(kLogMinimumHeight, kLogHeight - (deficit - (kPictureSpacing - spacing)), kLogHeight));
    panel->layout()->invalidate();
    setFixedSize(sizeHint());
}

void ConfigWindow::connectSignals()
{
    connect(m_quitAction, &QAction::triggered, this, [this] { close(); });
    connect(m_refreshAction, &QAction::triggered, this, [this] { refreshDevices(); });
    connect(m_refreshButton, &QPushButton::clicked, this, [this] { refreshDevices(); });
    connect(m_prepareAction, &QAction::triggered, this, [this] { prepareSelectedDevice(); });
    connect(m_prepareButton, &QPushButton::clicked, this, [this] { prepareSelectedDevice(); });
    connect(m_recycleAction, &QAction::triggered, this, [this] { recycleWorkspace(); });
    connect(m_updateAction, &QAction::triggered, this, [this] { updateSelectedDevice(); });
    connect(m_updateButton, &QPushButton::clicked, this, [this] { updateSelectedDevice(); });
    connect(m_licenseAction, &QAction::triggered, this, [this] { showLicenseActivationsDialog(); });
    connect(m_aboutAction, &QAction::triggered, this, [this] { showAboutDialog(); });
}

void ConfigWindow::updateBundleSourceStatus()
{
    m_windowsSource =
        locateWindowsBundle(m_bundleSearchDirectory, m_bundleSourceTree, m_bundleInstalledDirectories);
    m_linuxSource =
        locateLinuxBundle(m_bundleSearchDirectory, m_bundleSourceTree, m_bundleInstalledDirectories);

    const bool windowsFound = m_windowsSource.isAvailable();
    m_windowsSourceLabel->setText(windowsFound ? QStringLiteral("Disponível") : QStringLiteral("Ausente"));
    appendLog(windowsFound ? QStringLiteral("Fonte Windows para preparação encontrada.")
                           : QStringLiteral("Fonte Windows para preparação ausente."));

    const bool linuxFound = m_linuxSource.isAvailable();
    m_linuxSourceLabel->setText(linuxFound ? QStringLiteral("Disponível") : QStringLiteral("Ausente"));
    appendLog(linuxFound ? QStringLiteral("Fonte Linux para preparação encontrada.")
                         : QStringLiteral("Fonte Linux para preparação ausente."));
}

void ConfigWindow::refreshDevices()
{
    if (isBusy())
        return;
    m_deviceCombo->clear();
    m_devices.clear();
    if (!m_deviceManager) {
        appendLog(QStringLiteral("Detecção de USB não disponível neste sistema."));
        return;
    }

    m_devices = m_deviceManager->listUsbDevices();
    int usableCount = 0;
    int lastUsableIndex = -1;
    for (const Platform::UsbDevice &device : std::as_const(m_devices)) {
        const QString location = device.mounted                ? device.rootPath
                                 : device.devicePath.isEmpty() ? QStringLiteral("não montado")
                                                               : device.devicePath;
        QString text =
            QStringLiteral("%1 (%2)").arg(device.label.isEmpty() ? location : device.label, location);
        if (!device.mounted)
            text += QStringLiteral(" | não montado");
        m_deviceCombo->addItem(text);
        if (device.isUsable()) {
            ++usableCount;
            lastUsableIndex = m_deviceCombo->count() - 1;
        }
    }
    m_deviceCombo->setCurrentIndex(usableCount == 1 ? lastUsableIndex : -1);

    appendLog(m_devices.isEmpty() ? QStringLiteral("Nenhuma unidade USB detectada.")
                                  : QStringLiteral("%1 unidade(s) USB detectada(s).").arg(m_devices.size()));

    // An interrupted update is recovered as soon as its drive shows up, once per root at a time;
    // a root whose recovery failed is left alone for the rest of the session.
    for (const Platform::UsbDevice &device : std::as_const(m_devices)) {
        if (device.isUsable() && QFileInfo::exists(updateJournalPath(device.rootPath)) &&
            !m_recoveringRoots.contains(device.rootPath) && !m_failedRecoveryRoots.contains(device.rootPath))
            recoverPendingUpdateInBackground(device);
    }
}

bool ConfigWindow::selectedDevice(Platform::UsbDevice *device)
{
    const int index = m_deviceCombo->currentIndex();
    if (index < 0 || index >= m_devices.size()) {
        QMessageBox::information(this, kBoxTitle, QStringLiteral("Selecione uma unidade USB primeiro."));
        return false;
    }
    *device = m_devices.at(index);
    return true;
}

bool ConfigWindow::askYesNo(const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, this);
    QPushButton *yes = box.addButton(QStringLiteral("Sim"), QMessageBox::AcceptRole);
    QPushButton *no = box.addButton(QStringLiteral("Não"), QMessageBox::RejectRole);
    box.setDefaultButton(no);
    box.exec();
    return box.clickedButton() == yes;
}

bool ConfigWindow::isDriveInPlace(const Platform::UsbDevice &device) const
{
    return m_deviceManager && Platform::isChosenDriveInPlace(*m_deviceManager, device);
}

Platform::DriveWriteGate ConfigWindow::driveGate(const Platform::UsbDevice &device,
                                                 const QString &refusal) const
{
    return [manager = m_deviceManager, device, refusal](QString *error) {
        if (manager && Platform::isChosenDriveInPlace(*manager, device))
            return true;
        setError(error, refusal);
        return false;
    };
}

BusyDialog *ConfigWindow::beginBusy(const QString &label, int maximum)
{
    m_busyDialog = new BusyDialog(label, maximum, this);
    return m_busyDialog;
}

// Deleted at once rather than later: the result boxes that follow run event loops that do not delete.
void ConfigWindow::endBusy()
{
    delete m_busyDialog;
    m_busyDialog = nullptr;
}

void ConfigWindow::closeEvent(QCloseEvent *event)
{
    if (isBusy()) {
        event->ignore();
        appendLog(QStringLiteral("Aguarde o fim da operação em andamento antes de fechar o programa."));
        return;
    }
    QMainWindow::closeEvent(event);
}

void ConfigWindow::appendLog(const QString &message)
{
    m_log->append(message);
}

void ConfigWindow::setUpdateControlsEnabled(bool enabled)
{
    m_updateAction->setEnabled(enabled);
    m_updateButton->setEnabled(enabled);
}

void ConfigWindow::showAboutDialog()
{
    ConfigAboutDialog dialog(this);
    dialog.exec();
}

void ConfigWindow::showLicenseActivationsDialog()
{
    const int index = m_deviceCombo->currentIndex();
    const QString drive = index >= 0 && index < m_devices.size() ? m_deviceCombo->itemText(index) : QString();
    LicenseActivationsDialog dialog(drive, this);
    dialog.exec();
}

} // namespace Tavrinox
