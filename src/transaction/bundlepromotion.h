#pragma once

#include <QString>

namespace Tavrinox {

// Replaces the drive's two live bundles with those of the extracted package (packageRoot holds
// Tavrinox/windows and Tavrinox/linux on the same volume), publishes the new version and removes
// the backups, as one journaled transaction that recoverPendingUpdate() can finish or undo after
// an interruption at any point. True only when everything, the clean-up included, succeeded.
// Refused while the drive holds the journal of a transaction that was neither finished nor rolled back.
// manifestIssuedAt, given for an update from a signed manifest, is published with the version.
bool promoteUpdate(const QString &driveRoot, const QString &packageRoot, const QString &version,
                   const QString &packageSha256, QString *error = nullptr,
                   const QString &manifestIssuedAt = QString());

// Makes the renames and removals in the drive's Tavrinox folder durable; a step that depends on them
// being on the medium calls it first.
bool flushTavrinoxFolder(const QString &driveRoot, QString *error = nullptr);

// What a user is told when an undo failed and the drive is left for recovery.
QString stillNeedsRecoveryMessage();

// Swaps one bundle by directory renames, keeping the live one as backupPath.
bool replaceBundle(const QString &livePath, const QString &incomingPath, const QString &backupPath,
                   QString *error = nullptr);

// Puts a backup back in place of the live bundle; without a backup the live bundle is kept.
bool restoreBundleBackup(const QString &livePath, const QString &backupPath, QString *error = nullptr);

// Removes a directory tree (or a file); a path that does not exist counts as removed.
bool removePathIfExists(const QString &path, QString *error = nullptr);

// Lets tests stop the transaction after a named phase through TAVRINOX_TEST_FAIL_UPDATE_PHASE.
bool injectedTestFailure(const QString &phase, QString *error = nullptr);

} // namespace Tavrinox
