#include "transaction/durability.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>

namespace Tavrinox {

namespace {

// Small enough that the medium starts early, large enough that the flushes cost little: about 10 of them
// for a bundle of the usual size.
constexpr qint64 kWriteBehindBytes = 16 * 1024 * 1024;

// The type that statfs reports for every FUSE file system, block-device backed or not.
constexpr decltype(statfs::f_type) kFuseMagic = 0x65735546;

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
    // all its state on the medium when asked to fsync any entry, so there the tree's top is asked as
    // well; a kernel file system would only flush the disk's cache a second time.
    return syncPath(path, [](int descriptor) {
        struct statfs volume;
        const bool fuse = ::fstatfs(descriptor, &volume) != 0 || volume.f_type == kFuseMagic;
        return ::syncfs(descriptor) == 0 && (!fuse || syncedOrUnsupported(::fsync(descriptor)));
    });
}

bool renameEntry(const QString &from, const QString &to)
{
    return QDir().rename(from, to);
}

bool flushFiles(const QStringList &files)
{
    return files.isEmpty() || flushTree(files.first());
}

bool replaceEntry(const QString &from, const QString &to)
{
    return ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

bool flushReplacements(const QStringList &replacedFiles)
{
    return flushFiles(replacedFiles);
}

void WriteBehind::written(const QString &file, qint64 bytes)
{
    m_unflushed += bytes;
    if (m_unflushed < kWriteBehindBytes ||
        (m_flush.valid() && m_flush.wait_for(std::chrono::seconds(0)) != std::future_status::ready))
        return;
    m_unflushed = 0;
    // Without a thread to spare, the flushes after the copy do all the work.
    try {
        m_flush = std::async(std::launch::async, [file] { flushTree(file); });
    } catch (const std::system_error &) {
    }
}

} // namespace Tavrinox
