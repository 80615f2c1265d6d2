#include "prepare/drivepreparer.h"

#include "prepare/capacity.h"
#include "prepare/drivetexts.h"
#include "prepare/filecopy.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Tavrinox {

namespace {

constexpr int kStepCount = 7;

constexpr QFile::Permissions kExecuteForAll =
    QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;

void addExecutePermission(const QString &path)
{
    QFile::setPermissions(path, QFile::permissions(path) | kExecuteForAll);
}

bool allExist(const QDir &directory, std::initializer_list<const char *> names)
{
    for (const char *name : names) {
        if (!QFileInfo::exists(directory.filePath(QLatin1String(name))))
            return false;
    }
    return true;
}

bool anyExists(const QDir &directory, std::initializer_list<const char *> names)
{
    for (const char *name : names) {
        if (QFileInfo::exists(directory.filePath(QLatin1String(name))))
            return true;
    }
    return false;
}

} // namespace

bool isCompleteWindowsBundle(const QString &directory)
{
    return allExist(QDir(directory), {"Qt6Core.dll", "platforms/qwindows.dll", "vcruntime140.dll",
                                      "vcruntime140_1.dll", "msvcp140.dll"});
}

bool isLinuxBundle(const QString &directory)
{
    return anyExists(QDir(directory), {"lib", "plugins", "qt.conf"});
}

DrivePreparer::DrivePreparer()
    : m_deployTool(WindowsDeployTool::fromQtInstallation())
{}

DrivePreparer::DrivePreparer(WindowsDeployTool deployTool)
    : m_deployTool(std::move(deployTool))
{}

PreparationResult DrivePreparer::prepare(const QString &driveRoot, const PreparationSources &sources,
                                         const PreparationProgress &progress,
                                         const PreparationGate &gate,
                                         const FileCopiedCallback &fileCopied) const
{
    PreparationResult result;
    const auto report = [&progress](int step, const QString &message) {
        if (progress)
            progress(step, kStepCount, message);
    };
    const auto beginWritingStep = [&](int step, const QString &message) {
        report(step, message);
        return !gate || gate(&result.message);
    };

    report(0, QStringLiteral("Validando unidade USB..."));
    if (!QFileInfo(driveRoot).isDir()) {
        result.message = QStringLiteral("Unidade USB invalida.");
        return result;
    }
    const QDir root(driveRoot);
    const QString productFolder = root.filePath(QStringLiteral("Tavrinox"));
    const QString windowsFolder = QDir(productFolder).filePath(QStringLiteral("windows"));
    const QString linuxFolder = QDir(productFolder).filePath(QStringLiteral("linux"));

    if (!beginWritingStep(1, QStringLiteral("Criando estrutura de pastas...")) ||
        !ensureDirectory(productFolder, result) || !ensureDirectory(windowsFolder, result) ||
        !ensureDirectory(linuxFolder, result) || !checkCapacity(driveRoot, productFolder, sources, result))
        return result;

    if (!beginWritingStep(2, QStringLiteral("Copiando bundle Windows...")))
        return result;
    if (!sources.windowsExecutable.isEmpty()) {
        const QString source = sources.windowsBundleDirectory();
        removeInterruptedCopies(source, windowsFolder);
        if (isCompleteWindowsBundle(source)) {
            if (!copyDirectory(source, windowsFolder, result, fileCopied))
                return result;
        } else {
            QString copiedExecutable;
            if (!copyExecutable(sources.windowsExecutable, windowsFolder, &copiedExecutable, result) ||
                !deployWindowsRuntime(copiedExecutable, source, result, m_deployTool) ||
                !copyWindowsLibraries(windowsFolder, source, result))
                return result;
        }
    }

    if (!beginWritingStep(3, QStringLiteral("Copiando bundle Linux...")))
        return result;
    if (!sources.linuxExecutable.isEmpty()) {
        const QString source = sources.linuxBundleDirectory();
        removeInterruptedCopies(source, linuxFolder);
        if (isLinuxBundle(source)) {
            if (!copyDirectory(source, linuxFolder, result, fileCopied))
                return result;
        } else {
            QString copiedExecutable;
            if (!copyExecutable(sources.linuxExecutable, linuxFolder, &copiedExecutable, result))
                return result;
            addExecutePermission(copiedExecutable);
        }
    }

    // Step 4 is never reported; the numbering is intended and kept.
    if (!beginWritingStep(5, QStringLiteral("Criando inicializador Windows...")) ||
        !writeTextFile(root.filePath(QStringLiteral("Tavrinox-Windows.bat")), windowsLauncherText(), result))
        return result;

    if (!beginWritingStep(6, QStringLiteral("Criando arquivos auxiliares...")))
        return result;
    const QString linuxLauncher = root.filePath(QStringLiteral("Tavrinox-Linux.sh"));
    if (!writeTextFile(linuxLauncher, linuxLauncherText(), result))
        return result;
    addExecutePermission(linuxLauncher);
    if (!writeTextFile(QDir(productFolder).filePath(QStringLiteral("README.txt")), readmeText(), result))
        return result;

    report(7, QStringLiteral("Preparacao concluida."));
    result.success = true;
    result.message = QStringLiteral("USB preparado com estrutura portatil Tavrinox.");
    return result;
}

} // namespace Tavrinox
