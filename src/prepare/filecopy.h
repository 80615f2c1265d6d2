#pragma once

#include "prepare/preparationresult.h"

#include <QDir>
#include <QString>

namespace Tavrinox {

// The writes of a drive preparation. Each returns false with its message in result.message, and
// appends the path it produced to result.writtenPaths on success. Nothing is ever rolled back, but a
// failed file write leaves the destination's earlier content intact.

// Creates the directory and its missing parents; an existing directory is fine.
bool ensureDirectory(const QString &path, PreparationResult &result);

// Copies one regular file. A destination of the source's size is taken as already copied.
bool copyFile(const QString &source, const QString &destination, PreparationResult &result);

// Copies a directory tree without its hidden entries, stopping at the first failure.
bool copyDirectory(const QString &source, const QString &destination, PreparationResult &result);

// Replaces a text file atomically, UTF-8 without a byte-order mark, in the platform's text form.
bool writeTextFile(const QString &path, const QString &text, PreparationResult &result);

// The entries a bundle copy sees: directories and readable files, hidden ones left out.
inline constexpr QDir::Filters kBundleEntryFilter =
    QDir::Dirs | QDir::Files | QDir::Readable | QDir::NoDotAndDotDot;

} // namespace Tavrinox
