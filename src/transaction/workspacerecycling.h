#pragma once

#include <QString>

namespace Tavrinox {

// Results of recycleWorkspaceDirectories().
constexpr int kWorkspaceRecycled = 0;      // done, also when there was nothing to do
constexpr int kWorkspaceInUse = 1;         // a running Tavrinox instance holds a per-vault directory
constexpr int kWorkspaceRecycleFailed = 2; // the pass stopped; the error text says why

// Removes every per-vault working directory (a UUID-named directory directly in "Tavrinox" under the
// user's temporary location) that no running Tavrinox instance holds. Stops at the first directory in
// use or the first failure; directories removed before that stay removed.
int recycleWorkspaceDirectories(QString *error = nullptr);

// Removes one per-vault directory, refusing (false, nothing removed) unless it lies directly in the
// workspace and nothing under it leads elsewhere: no symbolic link or junction anywhere (hidden and
// system entries included) and no file system mounted inside it.
bool removeWorkspaceEntry(const QString &entryPath, const QString &workspaceCanonicalPath);

} // namespace Tavrinox
