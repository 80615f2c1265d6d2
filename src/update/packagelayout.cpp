#include "update/packagelayout.h"

#include "errortext.h"

#include <QDir>
#include <QFileInfo>

namespace Tavrinox {

namespace {

// Checked in this order, so the message always names the first entry a broken package lacks.
const char *const kRequiredEntries[] = {
    "Tavrinox/windows/Tavrinox.exe",
    "Tavrinox/windows/platforms/qwindows.dll",
    "Tavrinox/linux/Tavrinox",
    "Tavrinox/linux/Tavrinox-Linux.sh",
    "Tavrinox/linux/qt.conf",
    "Tavrinox/linux/lib/libssl.so.3",
    "Tavrinox/linux/plugins/tls/libqopensslbackend.so",
};

const char *const kRequiredDirectories[] = {
    "Tavrinox/linux/lib",
    "Tavrinox/linux/plugins",
};

} // namespace

bool validatePackageLayout(const QString &extractedDir, QString *error)
{
    const QDir extracted(extractedDir);
    for (const char *entry : kRequiredEntries) {
        const QString path = extracted.filePath(QLatin1String(entry));
        if (!QFileInfo::exists(path)) {
            setError(error, QStringLiteral("Pacote sem arquivo obrigatório: %1").arg(path));
            return false;
        }
    }
    for (const char *entry : kRequiredDirectories) {
        const QString path = extracted.filePath(QLatin1String(entry));
        if (!QFileInfo(path).isDir()) {
            setError(error, QStringLiteral("Pacote sem diretório obrigatório: %1").arg(path));
            return false;
        }
    }
    return true;
}

} // namespace Tavrinox
