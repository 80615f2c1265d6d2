#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QString>
#include <QStringList>

// Bundles and drive files built by the tests: small real folders shaped like the two builds of Tavrinox.
namespace Fixture {

bool writeFile(const QString &path, const QByteArray &content);
QByteArray readFile(const QString &path);

// A file of the given size that takes no room on the disk holding it: for sizes that only get measured.
bool makeSparseFile(const QString &path, qint64 size);

// A Windows build folder: Tavrinox.exe, the Qt libraries (one over 1 MiB), platforms/qwindows.dll,
// another plugin folder, the three MSVC runtime DLLs, a translation and a hidden file. Files named in
// `omit` (relative paths) are left out.
bool makeWindowsBundle(const QString &directory, const QStringList &omit = {});

// A Linux build folder: the executable Tavrinox (mode 0755), lib/, plugins/, qt.conf and a hidden file.
bool makeLinuxBundle(const QString &directory);

// Every file under a folder, hidden ones included: relative path -> bytes.
QMap<QString, QByteArray> treeContents(const QString &directory);

// The same with the hidden entries left out, as a bundle copy sees the folder.
QMap<QString, QByteArray> visibleTreeContents(const QString &directory);

// Dates every file under a folder back to kOldTime, so that any later rewrite shows in its time.
bool ageTree(const QString &directory);
bool hasOldTime(const QString &path);

} // namespace Fixture
