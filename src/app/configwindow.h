#pragma once

#include "platform/devicemanager.h"
#include "platform/driveverification.h"
#include "prepare/bundlesource.h"
#include "prepare/drivepreparer.h"
#include "update/manifestsignature.h"
#include "update/updatemanifest.h"

#include <QList>
#include <QMainWindow>
#include <QSet>
#include <QString>
#include <QUrl>

#include <memory>

class QAction;
class QComboBox;
class QLabel;
class QPushButton;
class QSpacerItem;
class QTextEdit;

namespace Tavrinox {

class BusyDialog;
struct UpdateRecoveryResult;

// The window's title, and the title of every message box it shows.
inline const QString kBoxTitle = QStringLiteral("Tavrinox - Gerenciador");

// What the window would otherwise find on its own. Tests hand in their own drives and folders.
struct ConfigWindowSetup
{
    std::unique_ptr<Platform::DeviceManager> deviceManager; // null: drive detection unavailable
    QString bundleSearchDirectory;          // searched first for bundles: the program's own directory
    QStringList bundleInstalledDirectories; // searched next, in order
    QString bundleSourceTree;               // searched last; empty: not searched
    QUrl updateManifestUrl = Tavrinox::updateManifestUrl();   // the update server configured at build time
    QByteArray updatePublicKey = Tavrinox::updatePublicKey(); // the publisher's key; empty: unsigned

    static ConfigWindowSetup platformDefaults();
};

// The program's only window: drive list, bundle sources, the drive commands and the log.
class ConfigWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit ConfigWindow(QWidget *parent = nullptr);
    explicit ConfigWindow(ConfigWindowSetup setup, QWidget *parent = nullptr);
    ~ConfigWindow() override;

public slots:
    void refreshDevices();
    void prepareSelectedDevice();
    void updateSelectedDevice();
    void recycleWorkspace();

protected:
    // Refused while a command works on a drive: the work runs on this window's behalf.
    void closeEvent(QCloseEvent *event) override;

private:
    void createActions();
    void createMenus();
    void createCentralArea();
    void createStatusBar();
    void connectSignals();
    void updateBundleSourceStatus();
    void showAboutDialog();
    void showLicenseActivationsDialog();

    // The selected drive, or nothing (after telling the user) when no valid entry is selected.
    bool selectedDevice(Platform::UsbDevice *device);
    bool askYesNo(const QString &title, const QString &text);
    void appendLog(const QString &message);
    void setUpdateControlsEnabled(bool enabled);
    void startUpdateApply(const Platform::UsbDevice &device, const UpdateManifest &manifest);
    void recoverPendingUpdateInBackground(const Platform::UsbDevice &device);

    // Whether the drive chosen from the list is still there, mounted where it was listed.
    bool isDriveInPlace(const Platform::UsbDevice &device) const;
    // The same question for a write on any thread: it keeps the device manager alive for as long as it
    // is held, and answers a refusal with the given text.
    Platform::DriveWriteGate driveGate(const Platform::UsbDevice &device, const QString &refusal) const;

    // While a command works on a drive its dialog is up, and no other command starts.
    BusyDialog *beginBusy(const QString &label, int maximum);
    void endBusy();
    bool isBusy() const { return m_busyDialog != nullptr; }
    void fitToScreen();
    void pendingUpdateRecoveryFinished(const UpdateRecoveryResult &result);

    // Destroyed in reverse order: the sets first, the drive enumerator last. Shared with the write gates
    // of background tasks, which may outlive the window.
    std::shared_ptr<const Platform::DeviceManager> m_deviceManager;
    QList<Platform::UsbDevice> m_devices;
    BundleSource m_windowsSource;
    BundleSource m_linuxSource;
    DrivePreparer m_preparer;
    QSet<QString> m_recoveringRoots;
    QSet<QString> m_failedRecoveryRoots;
    qint32 m_pendingRecoveryCount = 0;
    BusyDialog *m_busyDialog = nullptr;

    const QString m_bundleSearchDirectory;
    const QStringList m_bundleInstalledDirectories;
    const QString m_bundleSourceTree;
    const QUrl m_updateManifestUrl;
    const QByteArray m_updatePublicKey;

    QAction *m_quitAction = nullptr;
    QAction *m_refreshAction = nullptr;
    QAction *m_prepareAction = nullptr;
    QAction *m_recycleAction = nullptr;
    QAction *m_updateAction = nullptr;
    QAction *m_licenseAction = nullptr;
    QAction *m_aboutAction = nullptr;
    QComboBox *m_deviceCombo = nullptr;
    QLabel *m_windowsSourceLabel = nullptr;
    QLabel *m_linuxSourceLabel = nullptr;
    QLabel *m_versionLabel = nullptr;
    QLabel *m_makerLabel = nullptr;
    QPushButton *m_refreshButton = nullptr;
    QPushButton *m_prepareButton = nullptr;
    QPushButton *m_updateButton = nullptr;
    QTextEdit *m_log = nullptr;
    QSpacerItem *m_pictureSpacer = nullptr;
};

} // namespace Tavrinox
