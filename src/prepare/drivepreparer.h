#pragma once

#include "prepare/filecopy.h"
#include "prepare/preparationresult.h"
#include "prepare/windowsdeployment.h"

#include <QString>

#include <functional>

namespace Tavrinox {

// Told before each step: its number, the number of steps and what it does.
using PreparationProgress = std::function<void(int step, int total, const QString &message)>;

// Whether a source folder is copied whole: a Windows build with its Qt libraries, platform plugin and
// MSVC runtime, or a Linux build with any of lib/, plugins/ and qt.conf. Otherwise only the executable
// goes, with the Windows runtime assembled around it.
bool isCompleteWindowsBundle(const QString &directory);
bool isLinuxBundle(const QString &directory);

// Asked after the report of each step that writes to the drive, before it writes; false, with the reason
// in *error, ends the preparation there with that reason as its message.
using PreparationGate = std::function<bool(QString *error)>;

// Turns a mounted drive into a portable Tavrinox drive: the Tavrinox folder with both bundles, the two
// launchers at the root and the README. Nothing is formatted or deleted; a preparation that stops
// half-way leaves what it wrote, and running it again continues over it.
class DrivePreparer
{
public:
    DrivePreparer();
    explicit DrivePreparer(WindowsDeployTool deployTool);

    // fileCopied hears of every file of a bundle copied whole and may stop the preparation between
    // files; what was written stays, as after any other failure.
    PreparationResult prepare(const QString &driveRoot, const PreparationSources &sources,
                              const PreparationProgress &progress = {},
                              const PreparationGate &gate = {},
                              const FileCopiedCallback &fileCopied = {}) const;

private:
    WindowsDeployTool m_deployTool;
};

} // namespace Tavrinox
