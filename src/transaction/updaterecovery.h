#pragma once

#include <QString>

namespace Tavrinox {

// What one background recovery of a drive reports to the window.
struct UpdateRecoveryResult
{
    bool ok = false;
    QString root;
    QString message; // the outcome for the user; empty when nothing was pending
    QString error;   // why the recovery failed, when ok is false
};

// Brings a drive with an interrupted update back to a whole version: finishes a transaction whose
// version was already published, discards one that never touched the bundles, and otherwise puts
// the backups back. Every path it touches is derived from driveRoot and the journal's id, so a drive
// that came back under another root is repaired too, and nothing outside <driveRoot>/Tavrinox/ is
// ever changed whatever the journal says. Work areas and save-file temporaries left by interrupted
// attempts are removed on the way. A drive without a journal needs nothing more (true, no message).
bool recoverPendingUpdate(const QString &driveRoot, QString *message = nullptr, QString *error = nullptr);

} // namespace Tavrinox
