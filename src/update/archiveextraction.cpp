#include "update/zipextraction.h"

#include "errortext.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

namespace Tavrinox {

namespace {

constexpr size_t kReadBlockSize = 64 * 1024;

using ArchivePtr = std::unique_ptr<archive, int (*)(archive *)>;

QString archiveText(archive *handle)
{
    const char *text = archive_error_string(handle);
    return text ? QString::fromLocal8Bit(text) : QStringLiteral("erro desconhecido");
}

bool isSeparator(char c)
{
    return c == '/' || c == '\\';
}

// Zips made on Windows may use backslashes or drive letters, so both count here.
bool isAbsolute(const QByteArray &path)
{
    const bool rooted = !path.isEmpty() && isSeparator(path.at(0));
    const bool driveLetter = path.size() >= 2 && path.at(1) == ':';
    return rooted || driveLetter;
}

bool climbsOut(QByteArray path)
{
    return path.replace('\\', '/').split('/').contains("..");
}

// Why an entry may not be extracted, or an empty text when it may.
QString entryProblem(archive_entry *entry)
{
    const char *name = archive_entry_pathname_utf8(entry);
    if (!name || !*name)
        return QStringLiteral("entrada sem nome legível");
    const QByteArray path(name);
    const QString shown = QString::fromUtf8(path);
    if (isAbsolute(path))
        return QStringLiteral("entrada com caminho absoluto: %1").arg(shown);
    if (climbsOut(path))
        return QStringLiteral("entrada que sai do diretório de destino: %1").arg(shown);
    if (archive_entry_hardlink(entry))
        return QStringLiteral("entrada que é link físico: %1").arg(shown);
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
    case AE_IFDIR:
        return QString();
    case AE_IFLNK:
        return QStringLiteral("entrada que é link simbólico: %1").arg(shown);
    default:
        return QStringLiteral("entrada que é dispositivo ou arquivo especial: %1").arg(shown);
    }
}

bool isAcceptable(archive_entry *entry, QString *reason)
{
    *reason = entryProblem(entry);
    return reason->isEmpty();
}

ArchivePtr openZip(const QString &zipPath, QString *reason)
{
    ArchivePtr reader(archive_read_new(), archive_read_free);
    archive_read_support_format_zip(reader.get());
    if (archive_read_open_filename(reader.get(), QFile::encodeName(zipPath).constData(), kReadBlockSize) !=
        ARCHIVE_OK) {
        *reason = archiveText(reader.get());
        return ArchivePtr(nullptr, archive_read_free);
    }
    return reader;
}

// Moves to the next header; the entry is null at the end. False on a read failure.
bool readNext(archive *reader, archive_entry **entry, QString *reason)
{
    const int status = archive_read_next_header(reader, entry);
    if (status == ARCHIVE_OK || status == ARCHIVE_WARN)
        return true;
    *entry = nullptr;
    if (status == ARCHIVE_EOF)
        return true;
    *reason = archiveText(reader);
    return false;
}

// Reads every header without writing anything, so one bad entry refuses the whole package.
bool inspectAll(const QString &zipPath, QString *reason)
{
    ArchivePtr reader = openZip(zipPath, reason);
    if (!reader)
        return false;
    archive_entry *entry = nullptr;
    while (readNext(reader.get(), &entry, reason)) {
        if (!entry)
            return true;
        if (!isAcceptable(entry, reason))
            return false;
    }
    return false;
}

bool copyData(archive *reader, archive *writer, QString *reason)
{
    const void *block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int status;
    while ((status = archive_read_data_block(reader, &block, &size, &offset)) == ARCHIVE_OK) {
        if (archive_write_data_block(writer, block, size, offset) < ARCHIVE_OK) {
            *reason = archiveText(writer);
            return false;
        }
    }
    if (status != ARCHIVE_EOF) {
        *reason = archiveText(reader);
        return false;
    }
    return true;
}

bool writeEntry(archive *reader, archive *writer, archive_entry *entry, const QDir &destination,
                QString *reason)
{
    const QString target = destination.filePath(QString::fromUtf8(archive_entry_pathname_utf8(entry)));
    archive_entry_copy_pathname(entry, QFile::encodeName(target).constData());
    if (archive_write_header(writer, entry) < ARCHIVE_WARN || !copyData(reader, writer, reason) ||
        archive_write_finish_entry(writer) < ARCHIVE_WARN) {
        if (reason->isEmpty())
            *reason = archiveText(writer);
        return false;
    }
    return true;
}

bool writeAll(const QString &zipPath, const QDir &destination, QString *reason)
{
    ArchivePtr reader = openZip(zipPath, reason);
    if (!reader)
        return false;
    // Entries are joined onto the destination here, which makes every path handed to the disk writer
    // absolute; absolute entry names were refused by the inspection, so the "no absolute paths" flag
    // would only refuse our own joined paths. The ".." and symlink guards still apply as a second wall.
    ArchivePtr writer(archive_write_disk_new(), archive_write_free);
    archive_write_disk_set_options(writer.get(), ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                     ARCHIVE_EXTRACT_SECURE_SYMLINKS);
    archive_entry *entry = nullptr;
    while (readNext(reader.get(), &entry, reason)) {
        if (!entry) {
            if (archive_write_close(writer.get()) == ARCHIVE_OK)
                return true;
            *reason = archiveText(writer.get());
            return false;
        }
        if (!isAcceptable(entry, reason) ||
            !writeEntry(reader.get(), writer.get(), entry, destination, reason))
            return false;
    }
    return false;
}

} // namespace

bool extractZipInProcess(const QString &zipPath, const QString &destDir, QString *error)
{
    // A destination below a symbolic link (such as a mount point reached through one) would trip the
    // symlink guard, so entries are joined onto the resolved directory.
    const QString destination = QFileInfo(destDir).canonicalFilePath();
    QString reason;
    if (destination.isEmpty())
        reason = QStringLiteral("destino inexistente: %1").arg(destDir);
    else if (inspectAll(zipPath, &reason) && writeAll(zipPath, QDir(destination), &reason))
        return true;
    setError(error, QStringLiteral("Falha ao extrair ZIP: %1").arg(reason));
    return false;
}

} // namespace Tavrinox
