#pragma once

#include <QString>

namespace Tavrinox {

// The drive's record of which Tavrinox version is installed: Tavrinox/update-state.json.
QString updateStatePath(const QString &driveRoot);

// Replaces the state file with a fresh document. An empty packageSha256 or manifestIssuedAt leaves its
// key out; the issue time is given only for an update from a signed manifest.
bool writeUpdateState(const QString &driveRoot, const QString &installedVersion, const QString &packageSha256,
                      QString *error = nullptr, const QString &manifestIssuedAt = QString());

// The installed version, or an empty string when none can be read.
QString readInstalledVersion(const QString &driveRoot);

// The issue time of the signed manifest the drive was last updated from, or an empty string.
QString readManifestIssuedAt(const QString &driveRoot);

} // namespace Tavrinox
