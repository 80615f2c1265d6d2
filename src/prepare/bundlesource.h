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

} // namespace Tavrinox
