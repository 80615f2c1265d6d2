#pragma once

#include <QString>

namespace Tavrinox {

// What the update transaction must know is on the medium before its next step publishes it. Each
// platform implements these in its own file; a kind of entry a file system cannot flush counts as done.

// Puts a file's data and metadata, or a directory's list of entries, on the medium.
bool flushEntry(const QString &path);

// Puts a whole tree just written on the drive on the medium, in as few flushes as the platform allows.
bool flushTree(const QString &path);

// Renames a file or directory within one volume, never over an existing entry. On Windows the rename is
// written through before it returns; elsewhere flushing the parent directory afterwards makes it durable.
bool renameEntry(const QString &from, const QString &to);

} // namespace Tavrinox
