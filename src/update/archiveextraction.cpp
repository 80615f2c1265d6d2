#include "update/zipextraction.h"

#include "errortext.h"
#include "update/zipdirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSet>
#include <QThread>

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace Tavrinox {

namespace {

constexpr size_t kReadBlockSize = 64 * 1024;
constexpr int kMaxReaders = 4;

using ArchivePtr = std::unique_ptr<archive, int (*)(archive *)>;

QString damagedPackage(archive *reader)
{
    const char *text = archive_error_string(reader);
    return QStringLiteral("o pacote está danificado (%1)")
        .arg(text ? QString::fromLocal8Bit(text) : QStringLiteral("erro desconhecido"));
}

// What the system's error means for the user, naming the entry being written.
QString writeFailure(int code, const QString &name)
{
    switch (code) {
    case ENOSPC:
    case EDQUOT:
        return QStringLiteral("a unidade USB ficou sem espaço livre ao gravar %1").arg(name);
    case EEXIST:
    case ENOTDIR:
        return QStringLiteral("entrada repetida no pacote: %1").arg(name);
    case EROFS:
        return QStringLiteral("a unidade USB passou a aceitar só leitura ao gravar %1").arg(name);
    case EIO:
        return QStringLiteral("erro de leitura ou gravação na unidade USB ao gravar %1; ela pode ter sido "
                              "retirada")
            .arg(name);
    case ENAMETOOLONG:
        return QStringLiteral("nome longo demais para a unidade USB: %1").arg(name);
    default:
        return QStringLiteral("não foi possível gravar %1 (erro do sistema %2)").arg(name).arg(code);
    }
}

// A file being extracted. Its descriptor is closed however the extraction ends, so that a failed
// extraction never keeps a removed file's space taken.
class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Q_DISABLE_COPY(OutputFile)

    // Creates the file, never over an existing one nor through a link.
    bool create(const QByteArray &path, mode_t mode)
    {
        m_descriptor = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        return m_descriptor >= 0;
    }

    bool write(const char *data, size_t size, off_t offset)
    {
        while (size > 0) {
            const ssize_t written = ::pwrite(m_descriptor, data, size, offset);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                return false;
            data += written;
            size -= size_t(written);
            offset += written;
        }
        return true;
    }

    bool finish(time_t modified)
    {
        const timespec times[2] = {{0, UTIME_OMIT}, {modified, 0}};
        ::futimens(m_descriptor, times);
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        return ::close(descriptor) == 0;
    }

private:
    int m_descriptor = -1;
};

// Writes the package's entries under one destination folder.
class TreeWriter
{
public:
    explicit TreeWriter(const QString &destination)
        : m_destination(destination)
    {}

    bool write(archive *reader, archive_entry *entry, QString *reason)
    {
        const QString name = QString::fromUtf8(archive_entry_pathname_utf8(entry));
        *reason = entryNameProblem(name);
        if (!reason->isEmpty())
            return false;
        const QString path = normalizedEntryPath(name);
        if (archive_entry_hardlink(entry)) {
            *reason = QStringLiteral("entrada que é link físico: %1").arg(name);
            return false;
        }
        switch (archive_entry_filetype(entry)) {
        case AE_IFDIR:
            return makeFolder(path, reason);
        case AE_IFREG: {
            const int slash = path.lastIndexOf(QLatin1Char('/'));
            return (slash < 0 || makeFolder(path.left(slash), reason)) &&
                   writeFile(reader, entry, path, reason);
        }
        case AE_IFLNK:
            *reason = QStringLiteral("entrada que é link simbólico: %1").arg(name);
            return false;
        default:
            *reason = QStringLiteral("entrada que é dispositivo ou arquivo especial: %1").arg(name);
            return false;
        }
    }

private:
    QByteArray target(const QString &path) const
    {
        return QFile::encodeName(m_destination + QLatin1Char('/') + path);
    }

    // Makes a folder and its missing parents, each once.
    bool makeFolder(const QString &path, QString *reason)
    {
        if (m_folders.contains(path))
            return true;
        const int slash = path.lastIndexOf(QLatin1Char('/'));
        if (slash > 0 && !makeFolder(path.left(slash), reason))
            return false;
        struct stat existing;
        if (::mkdir(target(path).constData(), 0755) != 0 &&
            (errno != EEXIST || ::lstat(target(path).constData(), &existing) != 0 ||
             !S_ISDIR(existing.st_mode))) {
            *reason = writeFailure(errno, path);
            return false;
        }
        m_folders.insert(path);
        return true;
    }

    bool writeFile(archive *reader, archive_entry *entry, const QString &path, QString *reason)
    {
        // Only the execute bits are kept: no set-user-id, no world-writable files on the drive.
        const mode_t mode = (archive_entry_perm(entry) & 0111) ? 0755 : 0644;
        OutputFile file;
        if (!file.create(target(path), mode)) {
            *reason = writeFailure(errno, path);
            return false;
        }
        const void *block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        int status;
        while ((status = archive_read_data_block(reader, &block, &size, &offset)) == ARCHIVE_OK) {
            if (!file.write(static_cast<const char *>(block), size, off_t(offset))) {
                *reason = writeFailure(errno, path);
                return false;
            }
        }
        if (status != ARCHIVE_EOF) {
            *reason = damagedPackage(reader);
            return false;
        }
        if (!file.finish(archive_entry_mtime(entry))) {
            *reason = writeFailure(errno, path);
            return false;
        }
        return true;
    }

    QString m_destination;
    QSet<QString> m_folders;
};

ArchivePtr openZip(const QString &zipPath, QString *reason)
{
    ArchivePtr reader(archive_read_new(), archive_read_free);
    archive_read_support_format_zip(reader.get());
    if (archive_read_open_filename(reader.get(), QFile::encodeName(zipPath).constData(), kReadBlockSize) !=
        ARCHIVE_OK) {
        *reason = damagedPackage(reader.get());
        return ArchivePtr(nullptr, archive_read_free);
    }
    return reader;
}

// Hands the entries out in archive order to whichever reader is free, and keeps the first failure.
class EntryQueue
{
public:
    qint64 claim() { return m_next.fetch_add(1); }
    bool failed() const { return m_failed.load(); }

    void fail(const QString &reason)
    {
        const QMutexLocker locker(&m_mutex);
        if (!m_failed.exchange(true))
            m_reason = reason;
    }

    QString reason() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_reason;
    }

private:
    std::atomic<qint64> m_next{0};
    std::atomic<bool> m_failed{false};
    mutable QMutex m_mutex;
    QString m_reason;
};

// One reader's share of the work: it reads every header, as a ZIP is read in order, and writes the
// entries it claims; skipping the others is a seek. It stops when the archive ends or any reader failed.
void extractShare(const QString &zipPath, const QString &destination, EntryQueue *queue)
{
    QString reason;
    ArchivePtr reader = openZip(zipPath, &reason);
    if (!reader) {
        queue->fail(reason);
        return;
    }
    TreeWriter writer(destination);
    qint64 claimed = queue->claim();
    for (qint64 index = 0; !queue->failed(); ++index) {
        archive_entry *entry = nullptr;
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            return;
        if (status != ARCHIVE_OK && status != ARCHIVE_WARN) {
            queue->fail(damagedPackage(reader.get()));
            return;
        }
        if (index != claimed)
            continue;
        if (!writer.write(reader.get(), entry, &reason)) {
            queue->fail(reason);
            return;
        }
        claimed = queue->claim();
    }
}

// Inflating, not writing, is what an extraction onto a local disk waits for, so each processor gets a
// reader of its own, up to a few.
bool writeAll(const QString &zipPath, const QString &destination, QString *reason)
{
    EntryQueue queue;
    std::vector<std::thread> helpers;
    for (int i = 1; i < qBound(1, QThread::idealThreadCount(), kMaxReaders); ++i)
        helpers.emplace_back(extractShare, zipPath, destination, &queue);
    extractShare(zipPath, destination, &queue);
    for (std::thread &helper : helpers)
        helper.join();
    *reason = queue.reason();
    return !queue.failed();
}

} // namespace

bool extractZipInProcess(const QString &zipPath, const QString &destDir, QString *error)
{
    // Entries are joined onto the resolved destination, so that a destination reached through a link
    // (a mount point, say) is written where it really is.
    const QString destination = QFileInfo(destDir).canonicalFilePath();
    QString reason;
    if (destination.isEmpty())
        reason = QStringLiteral("destino inexistente: %1").arg(destDir);
    else if (writeAll(zipPath, destination, &reason))
        return true;
    setError(error, QStringLiteral("Falha ao extrair ZIP: %1").arg(reason));
    return false;
}

} // namespace Tavrinox
