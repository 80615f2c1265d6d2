#include "transaction/durability.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <windows.h>

namespace Tavrinox {

namespace {

std::wstring nativePath(const QString &path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

} // namespace

bool flushEntry(const QString &path)
{
    // A directory opens only with backup semantics; flushing its handle commits its entries. FAT and
    // exFAT, the usual file systems of a USB stick, and NTFS all accept it.
    const HANDLE handle = CreateFileW(nativePath(path).c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return false;
    const bool flushed = FlushFileBuffers(handle) || GetLastError() == ERROR_INVALID_FUNCTION;
    CloseHandle(handle);
    return flushed;
}

bool flushTree(const QString &path)
{
    // Flushing a whole volume needs administrator rights, so each entry is flushed on its own; USB
    // drives are mounted for quick removal by default, which keeps each flush cheap.
    QDirIterator it(path, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (!it.fileInfo().isSymLink() && !flushEntry(it.filePath()))
            return false;
    }
    return flushEntry(path);
}

bool renameEntry(const QString &from, const QString &to)
{
    return MoveFileExW(nativePath(from).c_str(), nativePath(to).c_str(), MOVEFILE_WRITE_THROUGH);
}

// Flushing a whole volume needs administrator rights, so each file goes on its own.
bool flushFiles(const QStringList &files)
{
    for (const QString &file : files) {
        if (!flushEntry(file))
            return false;
    }
    return true;
}

bool replaceEntry(const QString &from, const QString &to)
{
    return MoveFileExW(nativePath(from).c_str(), nativePath(to).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

bool flushReplacements(const QStringList &)
{
    return true;
}

void WriteBehind::written(const QString &, qint64) {}

} // namespace Tavrinox
