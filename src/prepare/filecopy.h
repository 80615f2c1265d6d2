#pragma once

#include "prepare/preparationresult.h"

#include <QDir>
#include <QString>

#include <functional>

namespace Tavrinox {

// The writes of a drive preparation. Each returns false with its message in result.message, and
// appends the path it produced to result.writtenPaths on success. Nothing is ever rolled back, but a
// failed file write leaves the destination's earlier content intact: a file is written to a temporary
// beside it and put in its place by a rename, and the drive holds what a copy wrote when it returns.

// Follows a copy on the thread that runs it.
struct CopyObserver
{
    // Told of the bytes as they are written (files 0), and of each file once written or found in place
    // (files 1, with the file's whole size when it was found in place).
    std::function<void(qint64 bytes, int files)> copied;
    // Asked before each file of a directory copy; true, with the reason in *why, stops the copy there
    // with that reason as its message, once the files copied so far are in place.
    std::function<bool(QString *why)> stop;
};

// Creates the directory and its missing parents; an existing directory is fine. A link in its place is
// replaced, as are links in the place of a folder or file that the copies below write: what they lead
// to, possibly off the drive, is never written.
bool ensureDirectory(const QString &path, PreparationResult &result);

// Copies one regular file. A destination of the source's size is taken as already copied.
bool copyFile(const QString &source, const QString &destination, PreparationResult &result,
              const CopyObserver &observer = {});

// Copies a directory tree without its hidden entries, stopping at the first failure. Links to folders
// are followed, except those leading back into the tree being walked (see isWalkCycle). Folders below
// the destination are made one level at a time, so a destination that vanishes mid-copy (a drive
// unmounted) stops the copy instead of being rebuilt elsewhere. The files are put in place in batches,
// each with two flushes for all its files; the files copied before a failure are put in place too.
bool copyDirectory(const QString &source, const QString &destination, PreparationResult &result,
                   const CopyObserver &observer = {});

// What a copy goes through: the files and their bytes.
struct CopyTally
{
    qint64 files = 0;
    qint64 bytes = 0;

    CopyTally &operator+=(const CopyTally &other)
    {
        files += other.files;
        bytes += other.bytes;
        return *this;
    }
};

// The files under a folder as copyDirectory walks it, or one file.
CopyTally tallyTree(const QString &path);

// Removes the temporary files that an interrupted copy from source left in destination: the copy and the
// atomic text writer name each after the file it was to replace, plus a dot and six letters. Only such a
// name whose file the source has at the same place, and which the source does not have itself, is removed.
void removeInterruptedCopies(const QString &source, const QString &destination);

// Replaces a text file atomically, UTF-8 without a byte-order mark, in the platform's text form, and
// executable by all when asked; the new file is on the medium when it returns. A file that already holds
// the text so is left as it is.
bool writeTextFile(const QString &path, const QString &text, PreparationResult &result,
                   bool executable = false);

// Removes the temporaries that an interrupted writeTextFile of these files left beside them: regular
// files named as one of them plus a dot and six letters.
void removeInterruptedTextWrites(const QStringList &paths);

inline constexpr QFile::Permissions kExecutableByAll =
    QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;

// The entries a bundle copy sees: directories and readable files, hidden ones left out.
inline constexpr QDir::Filters kBundleEntryFilter =
    QDir::Dirs | QDir::Files | QDir::Readable | QDir::NoDotAndDotDot;

// Whether a directory entry met during a walk leads back into it: it is, or holds, one of the
// directories being walked (walk: their canonical paths, outermost first). Only a link can; following
// it would never end.
bool isWalkCycle(const QFileInfo &directory, const QStringList &walk);

} // namespace Tavrinox
