#pragma once

#include <QString>
#include <QStringList>

namespace Tavrinox {

// Where, on this computer, one build of Tavrinox to copy onto drives lies.
struct BundleSource
{
    QString executablePath; // as the candidate was formed; empty when nothing was found
    QString directory;      // absolute directory holding the executable: the bundle
    bool fromBuildTree = false;

    bool isAvailable() const { return !executablePath.isEmpty(); }
};

// The folders where bundles are installed for a program living in programDirectory, in search order:
// the user's own "<data>/tavrinox/bundles" (filled without administrator rights, so it can override),
// then the system's "<prefix>/share/tavrinox/bundles" beside the installed program. Each holds
// "windows-x64/Tavrinox.exe" and "linux-x64/Tavrinox" with everything that goes with them.
QStringList installedBundleDirectories(const QString &programDirectory);

// The first existing candidate beside the program, else in the installed folders, else in the Tavrinox
// source tree the program was built against. Absence is the empty record.
BundleSource locateWindowsBundle();
BundleSource locateLinuxBundle();

// The same searches from explicit bases. An empty base directory is not searched at all, so that a
// build without a configured source tree never looks into the current directory.
BundleSource locateWindowsBundle(const QString &programDirectory, const QString &sourceTree,
                                 const QStringList &installedDirectories = {});
BundleSource locateLinuxBundle(const QString &programDirectory, const QString &sourceTree,
                               const QStringList &installedDirectories = {});

} // namespace Tavrinox
