#include "prepare/windowsdeployment.h"

#include "prepare/filecopy.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>

namespace Tavrinox {

namespace {

QString sourceOrOwnDirectory(const QString &sourceDirectory)
{
    return sourceDirectory.isEmpty() ? QCoreApplication::applicationDirPath() : sourceDirectory;
}

// A folder given with a trailing separator is still the same folder.
bool samePath(const QString &a, const QString &b)
{
    return QDir::cleanPath(QFileInfo(a).absoluteFilePath()) ==
           QDir::cleanPath(QFileInfo(b).absoluteFilePath());
}

// The tool is told to leave the compiler runtime out, so those DLLs must already be beside the executable.
bool runtimeLibrariesPresent(const QDir &directory, PreparationResult &result)
{
    for (const char *library : {"vcruntime140.dll", "vcruntime140_1.dll", "msvcp140.dll"}) {
        if (!QFileInfo::exists(directory.filePath(QLatin1String(library)))) {
            result.message =
                QStringLiteral("O bundle Windows não contém %1. Use o bundle oficial preparado com as "
                               "DLLs MSVC ao lado do Tavrinox.exe.")
                    .arg(QLatin1String(library));
            return false;
        }
    }
    return true;
}

} // namespace

WindowsDeployTool WindowsDeployTool::fromQtInstallation()
{
    WindowsDeployTool tool;
    tool.program =
        QDir(QLibraryInfo::path(QLibraryInfo::BinariesPath)).filePath(QStringLiteral("windeployqt.exe"));
    return tool;
}

bool copyExecutable(const QString &sourceExecutable, const QString &targetDirectory, QString *copiedPath,
                    PreparationResult &result, const CopyObserver &observer)
{
    const QString name = sourceExecutable.endsWith(QLatin1String(".exe"), Qt::CaseInsensitive)
                             ? QStringLiteral("Tavrinox.exe")
                             : QStringLiteral("Tavrinox");
    const QString destination = QDir(targetDirectory).filePath(name);
    if (!QFileInfo::exists(sourceExecutable)) {
        result.message = QStringLiteral("Executavel do Tavrinox nao encontrado: %1").arg(sourceExecutable);
        return false;
    }
    if (!samePath(sourceExecutable, destination) &&
        !copyFile(sourceExecutable, destination, result, observer)) {
        result.message = QStringLiteral("Nao foi possivel copiar o executavel para: %1").arg(destination);
        return false;
    }
    if (copiedPath)
        *copiedPath = destination;
    result.writtenPaths.append(destination);
    return true;
}

bool deployWindowsRuntime(const QString &copiedExecutable, const QString &sourceDirectory,
                          PreparationResult &result, const WindowsDeployTool &tool,
                          const CopyObserver &observer)
{
    const QString executableDirectory = QFileInfo(copiedExecutable).absolutePath();
    if (!QFileInfo::exists(tool.program))
        return copyBundleFolder(executableDirectory, sourceDirectory, result, observer);

    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(tool.program, {QStringLiteral("--no-translations"), QStringLiteral("--no-compiler-runtime"),
                                 copiedExecutable});
    const bool finished = process.waitForFinished(tool.timeoutMs);
    if (!finished) {
        process.kill();
        process.waitForFinished();
    }
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        result.message = QStringLiteral("windeployqt falhou: %1%2")
                             .arg(QString::fromLocal8Bit(process.readAllStandardError()),
                                  QString::fromLocal8Bit(process.readAllStandardOutput()));
        return false;
    }
    if (!runtimeLibrariesPresent(QDir(executableDirectory), result))
        return false;
    result.writtenPaths.append(executableDirectory);
    return true;
}

bool copyBundleFolder(const QString &targetDirectory, const QString &sourceDirectory,
                      PreparationResult &result, const CopyObserver &observer)
{
    const QString source = sourceOrOwnDirectory(sourceDirectory);
    if (samePath(source, targetDirectory)) {
        result.writtenPaths.append(targetDirectory);
        return true;
    }
    return copyDirectory(source, targetDirectory, result, observer);
}

bool copyWindowsLibraries(const QString &targetDirectory, const QString &sourceDirectory,
                          PreparationResult &result, const CopyObserver &observer)
{
    const QDir target(targetDirectory);
    QDirIterator libraries(sourceOrOwnDirectory(sourceDirectory), {QStringLiteral("*.dll")},
                           QDir::Files | QDir::Readable);
    while (libraries.hasNext()) {
        libraries.next();
        const QFileInfo library = libraries.fileInfo();
        const QString destination = target.filePath(library.fileName());
        if (samePath(library.absoluteFilePath(), destination))
            continue;
        if (!copyFile(library.absoluteFilePath(), destination, result, observer)) {
            result.message =
                QStringLiteral("Nao foi possivel copiar a biblioteca: %1").arg(library.fileName());
            return false;
        }
    }
    return true;
}

} // namespace Tavrinox
