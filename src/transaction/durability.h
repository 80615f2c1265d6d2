#pragma once

#include <QString>
#include <QStringList>

#include <future>

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

// Starts putting a copy's data on the medium while the copy goes on, so that the medium works alongside
// it instead of after it, and the flush that must follow the copy finds little left. Told of the bytes
// as they are written; once enough came since the last, one flush of their volume runs in another
// thread, never two at once (on Windows, where a USB drive is written through by default, nothing is
// done). Its outcome is not relied on: the flushes that follow the copy decide what is durable. Waits for
// the flush running, if any, when destroyed.
class WriteBehind
{
public:
    // file: written on the volume to flush.
    void written(const QString &file, qint64 bytes);

private:
    qint64 m_unflushed = 0;
    std::future<void> m_flush;
};

} // namespace Tavrinox
