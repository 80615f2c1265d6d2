#pragma once

#include <QString>

namespace Tavrinox {

// The files a preparation generates, exactly as they are to be written. The Windows launcher carries
// its own CR LF pairs; on Windows, text mode then writes them as CR CR LF, which cmd.exe accepts.
QString windowsLauncherText();
QString linuxLauncherText();
QString readmeText();

} // namespace Tavrinox
