#pragma once

#include <QString>
#include <QStringList>

namespace Tavrinox {

// Expand-Archive gets three minutes for a whole package.
inline constexpr int kPowerShellExtractTimeoutMs = 180000;

// Wraps text in single quotes after doubling every single quote inside it: PowerShell's verbatim
// string, so a path reaches the command literally whatever it contains.
QString quoteForPowerShell(const QString &text);

// The six arguments that make "powershell" expand zipPath into destDir.
QStringList powerShellExtractArguments(const QString &zipPath, const QString &destDir);

// Runs "powershell" from the search path with those arguments. A run that does not start, crashes,
// exits non-zero or outlasts timeoutMs fails with its standard error and standard output.
bool runPowerShellExtraction(const QString &zipPath, const QString &destDir, int timeoutMs,
                             QString *error = nullptr);

// Extracts in this process. The whole archive is refused, before anything is written, when any entry
// is absolute, climbs out with "..", or is a symbolic link, a hard link, a device or another special
// file. Built everywhere but Windows, where PowerShell does the work.
bool extractZipInProcess(const QString &zipPath, const QString &destDir, QString *error = nullptr);

// Creates destDir with its parents and extracts the package into it: PowerShell on Windows, the
// in-process extractor elsewhere.
bool extractZip(const QString &zipPath, const QString &destDir, QString *error = nullptr);

} // namespace Tavrinox
