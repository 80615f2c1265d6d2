#pragma once

#include "prepare/filecopy.h"
#include "prepare/preparationresult.h"

#include <QString>

namespace Tavrinox {

// Qt's deployment tool and how long it may run. Tests put a stand-in program in its place.
struct WindowsDeployTool
{
    QString program;
    int timeoutMs = 120000;

    // windeployqt.exe in the binaries folder of the Qt installation this program runs against.
    static WindowsDeployTool fromQtInstallation();
};

// The copies below tell observer of what they copy, as the copies of filecopy.h do.

// Copies an executable under its fixed name, Tavrinox.exe or Tavrinox, chosen by its extension.
bool copyExecutable(const QString &sourceExecutable, const QString &targetDirectory, QString *copiedPath,
                    PreparationResult &result, const CopyObserver &observer = {});

// Makes the Qt runtime present beside a copied executable: with the deployment tool when the Qt
// installation has one, else by copying the source folder.
bool deployWindowsRuntime(const QString &copiedExecutable, const QString &sourceDirectory,
                          PreparationResult &result,
                          const WindowsDeployTool &tool = WindowsDeployTool::fromQtInstallation(),
                          const CopyObserver &observer = {});

// Copies the source folder (this program's own folder when empty) into the target.
bool copyBundleFolder(const QString &targetDirectory, const QString &sourceDirectory,
                      PreparationResult &result, const CopyObserver &observer = {});

// Copies the *.dll files lying directly in the source folder (this program's own folder when empty).
bool copyWindowsLibraries(const QString &targetDirectory, const QString &sourceDirectory,
                          PreparationResult &result, const CopyObserver &observer = {});

} // namespace Tavrinox
