#pragma once

#include <QString>
#include <QStringList>

namespace Tavrinox {

// What the update transaction and the drive preparation must know is on the medium before their next
// step publishes it. Each platform implements these in its own file; a kind of entry a file system cannot
// flush counts as done.

// Puts a file's data and metadata, or a directory's list of entries, on the medium.
bool flushEntry(const QString &path);

// Puts a whole tree just written on the drive on the medium, in as few flushes as the platform allows.
bool flushTree(const QString &path);

// Renames a file or directory within one volume, never over an existing entry. On Windows the rename is
// written through before it returns; elsewhere flushing the parent directory afterwards makes it durable.
bool renameEntry(const QString &from, const QString &to);

// Puts files just written, all on one volume, on the medium with their entries in their folders: one
// volume flush on Linux, a flush of each file on Windows.
bool flushFiles(const QStringList &files);

// Puts the file `from` in the place of `to` on the same volume, replacing `to` in one step when it exists,
// so that `to` shows either its old content or the new one.
bool replaceEntry(const QString &from, const QString &to);

// Puts the replacements just made by replaceEntry on the medium: one volume flush on Linux; nothing is
// left on Windows, where each replacement is written through before it returns.
bool flushReplacements(const QStringList &replacedFiles);

} // namespace Tavrinox
