#pragma once

#include "prepare/preparationresult.h"

#include <QList>
#include <QMap>
#include <QString>

namespace Tavrinox::Cli {

struct CommandLine;

// One bundle as a preparation lays it out on a drive.
struct PlannedBundle
{
    QString platform;             // "Windows" or "Linux", as the window's texts name it
    QString driveFolder;          // relative to the drive root: "Tavrinox/windows" or "Tavrinox/linux"
    bool copiedWhole = false;     // false: the bundle is built around the bare executable
    QMap<QString, QString> files; // path under driveFolder -> the source file it is copied from
};

// The builds to copy: the folders named on the command line, else those the window would find. Tells on
// standard error which were found, in the window's words, with their folders; or, false, why a named
// folder cannot serve (it does not hold its executable).
bool findPreparationSources(const CommandLine &line, PreparationSources *sources);

// What a preparation copies from each available source. For a bundle copied whole that is every
// file it holds; for one built around a bare executable only the executable is known in advance.
QList<PlannedBundle> planBundles(const PreparationSources &sources);

// Every file under folder as a bundle copy sees it (hidden entries left out): path under folder ->
// absolute path.
QMap<QString, QString> bundleFiles(const QString &folder);

} // namespace Tavrinox::Cli
