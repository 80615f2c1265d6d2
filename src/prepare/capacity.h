#pragma once

#include "prepare/preparationresult.h"

#include <QString>

namespace Tavrinox {

// Bytes under a path: a file's size, or the sum over a directory tree as the bundle copy sees it.
qint64 directorySize(const QString &path);

// The size of a regular file, else 0.
qint64 fileSize(const QString &path);

// The executable, its top-level DLLs and the Qt plugin folders only: narrower than what is copied.
qint64 estimateWindowsBundleSize(const PreparationSources &sources);

// The whole bundle folder when it holds more than the executable, else the executable.
qint64 estimateLinuxBundleSize(const PreparationSources &sources);

// The space rules on plain numbers: what the volume reports, what the drive's Tavrinox folder already
// holds (reused by the new copy) and the estimate. False with the refusal in *message.
bool capacityAllows(qint64 total, qint64 available, qint64 reclaimable, qint64 estimate, QString *message);

// Refuses a drive without room for both bundles, or that they would fill by more than a quarter.
bool checkCapacity(const QString &driveRoot, const QString &targetDirectory,
                   const PreparationSources &sources, PreparationResult &result);

} // namespace Tavrinox
