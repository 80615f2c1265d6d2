#pragma once

#include <QString>

namespace Tavrinox {

// The drive's record of which Tavrinox version is installed: Tavrinox/update-state.json.
QString updateStatePath(const QString &driveRoot);

// Replaces the state file with a fresh document. An empty packageSha256 leaves its key out.
bool writeUpdateState(const QString &driveRoot, const QString &installedVersion, const QString &packageSha256,
                      QString *error = nullptr);

// The installed version, or an empty string when none can be read.
QString readInstalledVersion(const QString &driveRoot);

} // namespace Tavrinox
