#include "transaction/workspacerecycling.h"

#include "errortext.h"
#include "transaction/ownfiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStorageInfo>

namespace Tavrinox {

namespace {

const QString kLockFileName = QStringLiteral(".tavrinox-workspace.lock");

// Hidden and system entries too: a dangling link is only listed as a system entry, and a link
// hidden by its name leads outside as surely as a visible one.
constexpr QDir::Filters kEveryEntry = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

bool isPerVaultName(const QString &name)
{
    static const QRegularExpression pattern(
        QStringLiteral("^[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}$"));
    return pattern.match(name).hasMatch();
}

// Junctions (and folders a volume is mounted on) are not symbolic links to Qt, yet a removal that
// descends into one deletes what lies behind it.

QString comparablePath(const QString &path)
{
    return QDir::cleanPath(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
}

// A removal passing through this entry could reach outside the tree: a link, or a directory on
// which another file system (a bind mount, a still-mounted vault) is mounted.
bool leadsOutside(const QFileInfo &info, const QString &volumeRoot)
{
    return isLink(info) || (info.isDir() && QStorageInfo(info.absoluteFilePath()).rootPath() != volumeRoot);
}

bool treeLeadsOutside(const QString &root, const QString &volumeRoot)
{
    QDirIterator it(root, kEveryEntry, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (leadsOutside(it.fileInfo(), volumeRoot))
            return true;
    }
    return false;
}

bool removeFile(const QString &path)
{
    if (QFile::remove(path))
        return true;
    // Windows refuses to delete read-only files.
    QFile file(path);
    return file.setPermissions(file.permissions() | QFileDevice::WriteUser) && file.remove();
}

// QDir::removeRecursively() stops only at what QFileInfo calls a symbolic link and follows the directory
// it was given. This walk refuses junctions and mount points as well, and looks at each directory afresh
// right before listing it, so that a link swapped in after the scan is refused instead of followed.
bool removeTree(const QString &directory, const QString &volumeRoot)
{
    if (leadsOutside(QFileInfo(directory), volumeRoot))
        return false;
    const QFileInfoList entries = QDir(directory).entryInfoList(kEveryEntry, QDir::Unsorted);
    for (const QFileInfo &entry : entries) {
        const QString path = entry.absoluteFilePath();
        if (!(entry.isDir() ? removeTree(path, volumeRoot) : removeFile(path)))
            return false;
    }
    return QDir().rmdir(directory);
}

} // namespace

bool removeWorkspaceEntry(const QString &entryPath, const QString &workspaceCanonicalPath)
{
    const QFileInfo entry(entryPath);
    const QString canonicalEntry = entry.canonicalFilePath();
    if (workspaceCanonicalPath.isEmpty() || isLink(entry) || !entry.isDir() || canonicalEntry.isEmpty())
        return false;

    // The resolved entry must itself lie directly in the workspace, which also holds for any kind of
    // link that the link test above does not recognise.
    const QString workspace = comparablePath(workspaceCanonicalPath);
    if (comparablePath(QFileInfo(entry.absolutePath()).canonicalFilePath()) != workspace ||
        comparablePath(QFileInfo(canonicalEntry).absolutePath()) != workspace)
        return false;

    const QString volumeRoot = QStorageInfo(canonicalEntry).rootPath();
    if (volumeRoot.isEmpty() || treeLeadsOutside(canonicalEntry, volumeRoot))
        return false;
    return removeTree(canonicalEntry, volumeRoot);
}

int recycleWorkspaceDirectories(QString *error)
{
    const QFileInfo workspace(QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation))
                                  .filePath(QStringLiteral("Tavrinox")));
    if (!workspace.exists())
        return kWorkspaceRecycled;
    const QString workspaceCanonical = workspace.canonicalFilePath();
    if (isLink(workspace) || workspaceCanonical.isEmpty()) {
        setError(error, QStringLiteral("Não foi possível validar o espaço de trabalho."));
        return kWorkspaceRecycleFailed;
    }

    const QString failure = QStringLiteral("Não foi possível reciclar o espaço de trabalho.");
    const QFileInfoList entries =
        QDir(workspaceCanonical).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QFileInfo &entry : entries) {
        if (isLink(entry) || !isPerVaultName(entry.fileName()))
            continue;
        const QString canonicalEntry = entry.canonicalFilePath();
        if (canonicalEntry.isEmpty()) {
            setError(error, failure);
            return kWorkspaceRecycleFailed;
        }
        // Taking over a stale lock opens the lock file for writing and deletes it; a link planted in
        // its place must be neither opened (a link to a pipe would block) nor silently consumed.
        const QString lockPath = QDir(canonicalEntry).filePath(kLockFileName);
        if (isLink(QFileInfo(lockPath))) {
            setError(error, failure);
            return kWorkspaceRecycleFailed;
        }

        QLockFile lock(lockPath);
        if (!lock.tryLock(0)) {
            if (lock.error() == QLockFile::LockFailedError)
                return kWorkspaceInUse;
            setError(error, failure);
            return kWorkspaceRecycleFailed;
        }
        lock.unlock();

        if (!removeWorkspaceEntry(entry.absoluteFilePath(), workspaceCanonical)) {
            setError(error, failure);
            return kWorkspaceRecycleFailed;
        }
    }
    return kWorkspaceRecycled;
}

} // namespace Tavrinox
