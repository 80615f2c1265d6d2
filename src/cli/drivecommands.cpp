#include "cli/background.h"
#include "cli/commandline.h"
#include "cli/commands.h"
#include "cli/drivelookup.h"
#include "cli/output.h"
#include "transaction/updatejournal.h"
#include "transaction/updaterecovery.h"
#include "transaction/updatestate.h"
#include "transaction/workspacerecycling.h"

#include <QFileInfo>
#include <QJsonArray>

namespace Tavrinox::Cli {

namespace {

struct ListedDrive
{
    Platform::UsbDevice device;
    QString installedVersion; // empty: none recorded, or not mounted
    bool pendingUpdate = false;
};

QJsonObject driveJson(const ListedDrive &drive)
{
    const Platform::UsbDevice &device = drive.device;
    return {{QStringLiteral("id"), device.id},
            {QStringLiteral("label"), device.label},
            {QStringLiteral("device"), device.devicePath},
            {QStringLiteral("root"), device.rootPath},
            {QStringLiteral("fileSystem"), device.fileSystem},
            {QStringLiteral("removable"), device.removable},
            {QStringLiteral("mounted"), device.mounted},
            {QStringLiteral("installedVersion"),
             drive.installedVersion.isEmpty() ? QJsonValue() : QJsonValue(drive.installedVersion)},
            {QStringLiteral("pendingUpdate"), drive.pendingUpdate}};
}

QStringList driveRow(const ListedDrive &drive)
{
    const Platform::UsbDevice &device = drive.device;
    QString version = drive.installedVersion.isEmpty() ? QStringLiteral("-") : drive.installedVersion;
    if (drive.pendingUpdate)
        version += QStringLiteral(" (atualização pendente)");
    return {device.label,
            device.devicePath,
            device.mounted ? device.rootPath : QStringLiteral("não montado"),
            device.fileSystem.isEmpty() ? QStringLiteral("-") : device.fileSystem,
            device.mounted ? QStringLiteral("sim") : QStringLiteral("não"),
            version};
}

void printTable(const QList<QStringList> &rows)
{
    QList<qsizetype> widths(rows.first().size(), 0);
    for (const QStringList &row : rows) {
        for (qsizetype column = 0; column < row.size(); ++column)
            widths[column] = qMax(widths.at(column), row.at(column).size());
    }
    for (const QStringList &row : rows) {
        QString line;
        for (qsizetype column = 0; column < row.size(); ++column)
            line += row.at(column).leftJustified(widths.at(column) + 2);
        printResult(line.trimmed());
    }
}

} // namespace

int listDrives(const CommandLine &line)
{
    const std::shared_ptr<const Platform::DeviceManager> manager = platformDeviceManager();
    if (!manager) {
        printNote(QStringLiteral("Detecção de USB não disponível neste sistema."));
        return kExitFailed;
    }
    QList<ListedDrive> drives;
    for (const Platform::UsbDevice &device : manager->listUsbDevices()) {
        const bool usable = device.isUsable();
        drives.append({device, usable ? readInstalledVersion(device.rootPath) : QString(),
                       usable && QFileInfo::exists(updateJournalPath(device.rootPath))});
    }
    if (line.json) {
        QJsonArray array;
        for (const ListedDrive &drive : std::as_const(drives))
            array.append(driveJson(drive));
        printJson({{QStringLiteral("drives"), array}});
        return kExitSuccess;
    }
    if (drives.isEmpty()) {
        printResult(QStringLiteral("Nenhuma unidade USB detectada."));
        return kExitSuccess;
    }
    QList<QStringList> rows{{QStringLiteral("RÓTULO"), QStringLiteral("DISPOSITIVO"), QStringLiteral("RAIZ"),
                             QStringLiteral("SISTEMA"), QStringLiteral("MONTADA"), QStringLiteral("VERSÃO")}};
    for (const ListedDrive &drive : std::as_const(drives))
        rows.append(driveRow(drive));
    printTable(rows);
    return kExitSuccess;
}

int recoverDrive(const CommandLine &line)
{
    Platform::UsbDevice drive;
    if (const int code = resolveOneDrive(
            line.drives, QStringLiteral("A unidade USB não está montada. Monte-a e tente novamente."), false,
            &drive))
        return code;
    const QString root = drive.rootPath;
    const UpdateRecoveryResult result = recoverInBackground(root);
    if (!result.ok) {
        printResult(QStringLiteral("Atualização pendente não recuperada em %1: %2").arg(root, result.error));
        return kExitFailed;
    }
    printResult(result.message.isEmpty() ? QStringLiteral("Nenhuma atualização pendente em %1.").arg(root)
                                         : result.message);
    return kExitSuccess;
}

UpdateRecoveryResult recoverInBackground(const QString &root)
{
    printNote(QStringLiteral("Recuperando atualização pendente em %1...").arg(root));
    return runInBackground(
        [root] {
            UpdateRecoveryResult recovery;
            recovery.root = root;
            recovery.ok = recoverPendingUpdate(root, &recovery.message, &recovery.error);
            return recovery;
        },
        QStringLiteral("Interrupção recebida: a recuperação termina antes de o programa sair."));
}

int recycleWorkspace(const CommandLine &)
{
    QString error;
    switch (recycleWorkspaceDirectories(&error)) {
    case kWorkspaceRecycled:
        printResult(QStringLiteral("Espaço de trabalho reciclado."));
        return kExitSuccess;
    case kWorkspaceInUse:
        printResult(QStringLiteral("Para reciclar o espaço de trabalho, bloqueie todos os cofres abertos, "
                                   "feche o Tavrinox e desmonte as unidades utilizadas. Em seguida, tente "
                                   "novamente."));
        return kExitFailed;
    default:
        printResult(error);
        return kExitFailed;
    }
}

} // namespace Tavrinox::Cli
