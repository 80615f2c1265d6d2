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
// exits non-zero or outlasts timeoutMs fails, saying why in Portuguese: a drive that filled up, or the
// reason PowerShell gave.
bool runPowerShellExtraction(const QString &zipPath, const QString &destDir, int timeoutMs,
                             QString *error = nullptr);

// Extracts in this process, with a reader per processor (up to four) sharing out the entries, and
// writes every file itself, so that whatever stops the extraction (a full drive, a damaged entry) leaves
// no file open and names the reason in Portuguese. Every header is
// checked again as it is written, beside the inspection extractZip makes first: an absolute path, a
// path climbing out with "..", a link, a device or another special file, or a path already written
// fails the extraction. Built everywhere but Windows, where PowerShell does the work.
bool extractZipInProcess(const QString &zipPath, const QString &destDir, QString *error = nullptr);

// Creates destDir with its parents, inspects the package's directory (inspectZipBeforeExtraction:
// names, kinds of entry, duplicates, unpacked size against the free space) and extracts it into destDir:
// PowerShell on Windows, the in-process extractor elsewhere. The inspection reads the archive with
// plain Qt code, so both extractors get the same refusals before anything is written.
bool extractZip(const QString &zipPath, const QString &destDir, QString *error = nullptr);

} // namespace Tavrinox
