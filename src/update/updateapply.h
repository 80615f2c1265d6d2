#pragma once

#include "update/updatemanifest.h"

#include <QString>

#include <functional>

namespace Tavrinox {

// The background apply's answer, handed to the interface thread by value.
struct UpdateApplyResult
{
    bool ok = false;
    QString version; // the manifest's version, kept on every path
    QString error;
};

// Asked right before the apply writes to the drive: before the work area is created and again right
// before the promotion. False (with the reason in *error) stops the apply there, with nothing more written.
using UpdateWriteGate = std::function<bool(QString *error)>;

// The steps of an apply, in the order they run.
enum class UpdateApplyPhase { Downloading, Checking, Writing, Extracting, Replacing };

// Where an apply stands. The byte counts belong to the download: received so far, the total the
// manifest gives (-1 when it gives none) and the average rate since the download began.
struct UpdateApplyProgress
{
    UpdateApplyPhase phase = UpdateApplyPhase::Downloading;
    qint64 received = 0;
    qint64 total = -1;
    qint64 bytesPerSecond = 0;
};

// Called on the apply's own thread at every change of phase and, while downloading, a few times a
// second and once more when the last byte arrived.
using UpdateApplyProgressHandler = std::function<void(const UpdateApplyProgress &progress)>;

// What the busy dialog says about a report, in Portuguese.
QString updateApplyProgressText(const UpdateApplyProgress &progress);

// Downloads the manifest's package into memory, hashing it as it arrives and holding it once, checks
// its size and hash, settles any transaction a
// pending journal left unfinished (refusing when that fails), checks the drive's free space, extracts
// the package into a fresh work area on the drive, checks its layout and promotes its bundles in a
// journaled transaction. Every failure before the promotion leaves the installed bundles as they were;
// every failure after the work area was made removes it, except a refusal of the gate. Blocks for up to
// 10 minutes of download and 3 of extraction: run it on a worker thread.
UpdateApplyResult applyUpdate(const QString &root, const UpdateManifest &manifest,
                              const UpdateWriteGate &gate = {},
                              const UpdateApplyProgressHandler &progress = {});

} // namespace Tavrinox
