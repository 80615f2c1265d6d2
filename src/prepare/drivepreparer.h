#pragma once

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

// How far the copy of the bundles has gone. The bytes and files done only grow, and end at those of both
// bundles together; a file counts once written or found in place.
struct CopyProgress
{
    qint64 doneBytes = 0;
    qint64 totalBytes = 0;
    qint64 doneFiles = 0;
    qint64 totalFiles = 0;
    QString bundle; // the bundle at work: "Windows" or "Linux"
};

// How a caller follows the copy of the bundles and stops it, called on the thread that prepares.
struct PreparationControl
{
    // Told as bytes are written and as files are written or found in place.
    std::function<void(const CopyProgress &progress)> copied;
    // Asked before each file; true ends the preparation there, with what was not copied in its message.
    // The files copied so far stay on the drive, each whole.
    std::function<bool()> stop;
};

// A byte count in megabytes with one decimal, written the Brazilian way: "12,3".
QString megabytesText(qint64 bytes);

// Turns a mounted drive into a portable Tavrinox drive: the Tavrinox folder with both bundles, the two
// launchers at the root and the README. Nothing is formatted or deleted; a preparation that stops
// half-way leaves what it wrote, and running it again continues over it.
class DrivePreparer
{
public:
    DrivePreparer();
    explicit DrivePreparer(WindowsDeployTool deployTool);

    PreparationResult prepare(const QString &driveRoot, const PreparationSources &sources,
                              const PreparationProgress &progress = {}, const PreparationGate &gate = {},
                              const PreparationControl &control = {}) const;

private:
    WindowsDeployTool m_deployTool;
};

} // namespace Tavrinox
