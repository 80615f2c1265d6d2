#include "cli/drivelookup.h"

#include "cli/commandline.h"
#include "cli/output.h"
#include "errortext.h"
#include "platform/linux/linuxdevicemanager.h"
#include "platform/windows/windowsdevicemanager.h"

#include <QDir>

#include <algorithm>

namespace Tavrinox::Cli {

namespace {

#ifdef Q_OS_WIN
constexpr Qt::CaseSensitivity kPathCase = Qt::CaseInsensitive;
#else
constexpr Qt::CaseSensitivity kPathCase = Qt::CaseSensitive;
#endif

// "E:", "E:\" and "e:/" name one root on Windows, "/media/u/X" and "/media/u/X/" one everywhere.
QString comparablePath(const QString &path)
{
    QString clean = QDir::cleanPath(QDir::fromNativeSeparators(path));
    if (clean.size() > 1 && clean.endsWith(QLatin1Char('/')))
        clean.chop(1);
    return clean;
}

bool samePath(const QString &left, const QString &right)
{
    return !left.isEmpty() && !right.isEmpty() &&
           comparablePath(left).compare(comparablePath(right), kPathCase) == 0;
}

} // namespace

std::shared_ptr<const Platform::DeviceManager> platformDeviceManager()
{
#if defined(Q_OS_WIN)
    return std::make_shared<Platform::Windows::WindowsDeviceManager>();
#elif defined(Q_OS_LINUX)
    // Drive facts (sysfs, the mount table, udev's links) are read below this folder. A container that
    // sees the host's /sys, /dev/disk and mount table under one folder, and the host's drives at their
    // own mount points, lists the host's drives this way; the tests list drives they built.
    return std::make_shared<Platform::Linux::LinuxDeviceManager>(
        qEnvironmentVariable("TAVRINOX_SYSTEM_ROOT", QStringLiteral("/")));
#else
    return nullptr;
#endif
}

DriveMatch findDrive(const QList<Platform::UsbDevice> &devices, const QString &name,
                     Platform::UsbDevice *device)
{
    const QString absoluteName = QDir::current().absoluteFilePath(name);
    for (const Platform::UsbDevice &candidate : devices) {
        if (samePath(candidate.rootPath, name) || samePath(candidate.rootPath, absoluteName) ||
            samePath(candidate.devicePath, name)) {
            *device = candidate;
            return DriveMatch::Found;
        }
    }
    int labelled = 0;
    for (const Platform::UsbDevice &candidate : devices) {
        if (candidate.label == name) {
            *device = candidate;
            ++labelled;
        }
    }
    return labelled == 1 ? DriveMatch::Found : labelled == 0 ? DriveMatch::NotFound : DriveMatch::Ambiguous;
}

int resolveMountedDrives(const QStringList &names, const QString &notMountedText,
                         QList<Platform::UsbDevice> *drives)
{
    const std::shared_ptr<const Platform::DeviceManager> manager = platformDeviceManager();
    if (!manager) {
        printNote(QStringLiteral("Detecção de USB não disponível neste sistema."));
        return kExitFailed;
    }
    const QList<Platform::UsbDevice> devices = manager->listUsbDevices();
    for (const QString &name : names) {
        Platform::UsbDevice device;
        switch (findDrive(devices, name, &device)) {
        case DriveMatch::NotFound:
            printNote(QStringLiteral("Unidade USB não encontrada: %1").arg(name));
            return kExitDriveMissing;
        case DriveMatch::Ambiguous:
            printNote(
                QStringLiteral("Mais de uma unidade USB tem o rótulo %1; indique a raiz ou o dispositivo.")
                    .arg(name));
            return kExitDriveMissing;
        case DriveMatch::Found:
            break;
        }
        // A root that is only the folder left by an unmount counts as not mounted, as in the window.
        if (!device.isUsable() || !manager->isVolumeAtRoot(device)) {
            printNote(QStringLiteral("%1: %2").arg(name, notMountedText));
            return kExitDriveMissing;
        }
        const bool named = std::any_of(drives->cbegin(), drives->cend(), [&device](const auto &drive) {
            return drive.rootPath == device.rootPath;
        });
        if (!named)
            drives->append(device);
    }
    return kExitSuccess;
}

int resolveOneDrive(const QStringList &names, const QString &notMountedText, bool prepared,
                    Platform::UsbDevice *drive)
{
    QList<Platform::UsbDevice> drives;
    if (const int code = resolveMountedDrives(names, notMountedText, &drives))
        return code;
    *drive = drives.first();
    if (prepared && !QDir(QDir(drive->rootPath).filePath(QStringLiteral("Tavrinox"))).exists()) {
        printNote(QStringLiteral("A unidade selecionada ainda não possui uma estrutura Tavrinox preparada."));
        return kExitFailed;
    }
    return kExitSuccess;
}

bool isStillWhereChosen(const Platform::UsbDevice &chosen)
{
    const std::shared_ptr<const Platform::DeviceManager> manager = platformDeviceManager();
    if (manager && Platform::isChosenDriveInPlace(*manager, chosen))
        return true;
    printNote(
        QStringLiteral("A unidade USB %1 foi removida ou montada em outro lugar; nada foi gravado nela.")
            .arg(chosen.rootPath));
    return false;
}

Platform::DriveWriteGate driveGate(const Platform::UsbDevice &chosen, const QString &refusal)
{
    return [manager = platformDeviceManager(), chosen, refusal](QString *error) {
        if (manager && Platform::isChosenDriveInPlace(*manager, chosen))
            return true;
        setError(error, refusal);
        return false;
    };
}

} // namespace Tavrinox::Cli
