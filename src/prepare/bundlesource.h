#pragma once

#include <QString>

namespace Tavrinox {

// Where, on this computer, one build of Tavrinox to copy onto drives lies.
struct BundleSource
{
    QString executablePath; // as the candidate was formed; empty when nothing was found
    QString directory;      // absolute directory holding the executable: the bundle
    bool fromBuildTree = false;

    bool isAvailable() const { return !executablePath.isEmpty(); }
};

// The first existing candidate beside the program, else the first one in the Tavrinox source tree
// the program was built against. Absence is the empty record.
BundleSource locateWindowsBundle();
BundleSource locateLinuxBundle();

// The same searches from explicit bases. An empty base directory is not searched at all, so that a
// build without a configured source tree never looks into the current directory.
BundleSource locateWindowsBundle(const QString &programDirectory, const QString &sourceTree);
BundleSource locateLinuxBundle(const QString &programDirectory, const QString &sourceTree);

} // namespace Tavrinox
