#pragma once

#include "transaction/updaterecovery.h"

#include <QStringList>

namespace Tavrinox::Cli {

struct CommandLine;

// Each command returns the program's exit code (ExitCode).
int listDrives(const CommandLine &line);
int prepareDrives(const CommandLine &line);
int checkDrive(const CommandLine &line);
int updateDrive(const CommandLine &line);
int recoverDrive(const CommandLine &line);
int recycleWorkspace(const CommandLine &line);
int verifyDrive(const CommandLine &line);

// Recovers the drive's pending update, if any, on a worker thread; Ctrl+C waits for it. Shared by
// recover and update.
UpdateRecoveryResult recoverInBackground(const QString &root);

// Reads the arguments that follow the program's name and runs what they ask for.
int run(const QStringList &arguments);

} // namespace Tavrinox::Cli
