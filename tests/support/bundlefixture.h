#pragma once

#include <QString>
#include <QStringList>

// Bundles built by the tests: small real folders shaped like the two builds of Tavrinox.
namespace Fixture {

// A Windows build folder: Tavrinox.exe, the Qt libraries (one over 1 MiB), platforms/qwindows.dll,
// another plugin folder, the three MSVC runtime DLLs, a translation and a hidden file. Files named in
// `omit` (relative paths) are left out.
bool makeWindowsBundle(const QString &directory, const QStringList &omit = {});

// A Linux build folder: the executable Tavrinox (mode 0755), lib/, plugins/, qt.conf and a hidden file.
bool makeLinuxBundle(const QString &directory);

} // namespace Fixture
