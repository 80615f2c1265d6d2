#include "transaction/durability.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Tavrinox {

namespace {

// Some file systems cannot sync a directory (EINVAL) or anything at all (ENOTSUP); there is then
// nothing more this program can put on the medium.
bool syncedOrUnsupported(int result)
{
    return result == 0 || errno == EINVAL || errno == ENOTSUP;
}

// Runs sync on a read-only descriptor of path, which opens files and directories alike.
template<typename Sync> bool syncPath(const QString &path, Sync sync)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = sync(descriptor);
    ::close(descriptor);
    return synced;
}

} // namespace

bool flushEntry(const QString &path)
{
    return syncPath(path, [](int descriptor) { return syncedOrUnsupported(::fsync(descriptor)); });
}

bool flushTree(const QString &path)
{
    // One syncfs writes out every file and directory of a kernel file system, far cheaper than an fsync
    // per file. A FUSE file system (exfat-fuse, as USB sticks are often mounted) ignores syncfs but puts
    // all its state on the medium when asked to fsync any entry, so the tree's top is asked as well.
    return syncPath(path, [](int descriptor) {
        return ::syncfs(descriptor) == 0 && syncedOrUnsupported(::fsync(descriptor));
    });
}

bool renameEntry(const QString &from, const QString &to)
{
    return QDir().rename(from, to);
}

} // namespace Tavrinox
