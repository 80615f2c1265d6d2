#include "transaction/ownfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Tavrinox {

bool isLink(const QFileInfo &entry)
{
    return entry.isSymLink() || entry.isJunction();
}

bool removeLinkInTheWay(const QString &path)
{
    const QFileInfo entry(path);
    if (!isLink(entry))
        return true;
    // Removing a link or a junction leaves what it leads to untouched.
    return QFile::remove(path) || QDir().rmdir(path);
}

bool readOwnFile(const QString &path, qint64 maxBytes, QByteArray *bytes)
{
    const QFileInfo entry(path);
    QFile file(path);
    if (isLink(entry) || !entry.isFile() || entry.size() > maxBytes || !file.open(QIODevice::ReadOnly))
        return false;
    *bytes = file.read(maxBytes + 1);
    return bytes->size() <= maxBytes;
}

} // namespace Tavrinox
