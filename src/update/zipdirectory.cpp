#include "update/zipdirectory.h"

#include <QFile>
#include <QHash>
#include <QLocale>
#include <QStorageInfo>
#include <QtEndian>

#include <limits>

namespace Tavrinox {

namespace {

constexpr quint32 kEndOfDirectorySignature = 0x06054b50;
constexpr quint32 kZip64LocatorSignature = 0x07064b50;
constexpr quint32 kZip64EndSignature = 0x06064b50;
constexpr quint32 kDirectoryEntrySignature = 0x02014b50;
constexpr qsizetype kEndOfDirectorySize = 22;
constexpr qsizetype kZip64LocatorSize = 20;
constexpr qsizetype kZip64EndSize = 56;
constexpr qsizetype kDirectoryEntrySize = 46;
constexpr qsizetype kMaxCommentSize = 0xffff;
constexpr quint16 kZip64ExtraId = 0x0001;
constexpr int kUnixHost = 3;
constexpr quint32 kTypeMask = 0170000;
constexpr quint32 kRegularType = 0100000;
constexpr quint32 kDirectoryType = 0040000;
constexpr quint32 kSymlinkType = 0120000;

// Bounds-checked little-endian reads over the archive's bytes.
class Reader
{
public:
    explicit Reader(QByteArrayView bytes)
        : m_bytes(bytes)
    {}

    // Written so that offsets and sizes read from a crafted archive cannot overflow the comparison.
    bool has(qint64 at, qint64 size) const
    {
        return at >= 0 && size >= 0 && at <= m_bytes.size() && size <= m_bytes.size() - at;
    }
    template<typename T> T read(qint64 at) const { return qFromLittleEndian<T>(m_bytes.data() + at); }
    QByteArrayView view(qint64 at, qint64 size) const { return m_bytes.sliced(at, size); }
    qint64 size() const { return m_bytes.size(); }

private:
    QByteArrayView m_bytes;
};

struct Directory
{
    qint64 offset = 0;
    qint64 size = 0;
    qint64 entries = 0;
};

QString damaged()
{
    return QStringLiteral("o pacote não é um arquivo ZIP válido");
}

// The end-of-directory record is the last signature within the final comment's reach.
qint64 findEndOfDirectory(const Reader &zip)
{
    const qint64 last = zip.size() - kEndOfDirectorySize;
    for (qint64 at = last; at >= 0 && at >= last - kMaxCommentSize; --at) {
        if (zip.read<quint32>(at) == kEndOfDirectorySignature)
            return at;
    }
    return -1;
}

bool findDirectory(const Reader &zip, Directory *directory)
{
    const qint64 end = findEndOfDirectory(zip);
    if (end < 0)
        return false;
    directory->entries = zip.read<quint16>(end + 10);
    directory->size = zip.read<quint32>(end + 12);
    directory->offset = zip.read<quint32>(end + 16);
    const bool zip64 =
        directory->entries == 0xffff || directory->size == 0xffffffff || directory->offset == 0xffffffff;
    if (zip64) {
        const qint64 locator = end - kZip64LocatorSize;
        if (!zip.has(locator, kZip64LocatorSize) || zip.read<quint32>(locator) != kZip64LocatorSignature)
            return false;
        const qint64 record = qint64(zip.read<quint64>(locator + 8));
        if (!zip.has(record, kZip64EndSize) || zip.read<quint32>(record) != kZip64EndSignature)
            return false;
        directory->entries = qint64(zip.read<quint64>(record + 32));
        directory->size = qint64(zip.read<quint64>(record + 40));
        directory->offset = qint64(zip.read<quint64>(record + 48));
    }
    return zip.has(directory->offset, directory->size);
}

// An uncompressed size of all ones in the fixed record means the real one is in the ZIP64 extra field,
// where it comes first.
bool readZip64Size(const Reader &zip, qint64 extra, qint64 extraSize, qint64 *size)
{
    for (qint64 at = extra; at + 4 <= extra + extraSize;) {
        const quint16 id = zip.read<quint16>(at);
        const quint16 length = zip.read<quint16>(at + 2);
        if (id == kZip64ExtraId) {
            if (length < 8 || !zip.has(at + 4, 8))
                return false;
            *size = qint64(zip.read<quint64>(at + 4));
            return *size >= 0;
        }
        at += 4 + length;
    }
    return false;
}

} // namespace

bool readZipDirectory(QByteArrayView bytes, QList<ZipEntryRecord> *entries, QString *reason)
{
    const Reader zip(bytes);
    Directory directory;
    if (!findDirectory(zip, &directory)) {
        *reason = damaged();
        return false;
    }
    const qint64 end = directory.offset + directory.size;
    qint64 at = directory.offset;
    for (qint64 index = 0; index < directory.entries; ++index) {
        if (!zip.has(at, kDirectoryEntrySize) || at + kDirectoryEntrySize > end ||
            zip.read<quint32>(at) != kDirectoryEntrySignature) {
            *reason = damaged();
            return false;
        }
        const quint16 nameSize = zip.read<quint16>(at + 28);
        const quint16 extraSize = zip.read<quint16>(at + 30);
        const quint16 commentSize = zip.read<quint16>(at + 32);
        const qint64 next = at + kDirectoryEntrySize + nameSize + extraSize + commentSize;
        if (next > end) {
            *reason = damaged();
            return false;
        }
        ZipEntryRecord entry;
        // Names not flagged as UTF-8 are read as UTF-8 too, which ASCII, what packages use, also is. A
        // name of other bytes (an old tool's code page) would be read differently by each extractor, or
        // not at all, so it is refused before anything is written.
        const QByteArrayView name = zip.view(at + kDirectoryEntrySize, nameSize);
        entry.name = QString::fromUtf8(name);
        if (entry.name.toUtf8() != name) {
            *reason = QStringLiteral("entrada com nome que não está em UTF-8: %1").arg(entry.name);
            return false;
        }
        entry.name.replace(QLatin1Char('\\'), QLatin1Char('/'));
        if (zip.read<quint8>(at + 5) == kUnixHost)
            entry.unixMode = zip.read<quint32>(at + 38) >> 16;
        entry.uncompressedSize = zip.read<quint32>(at + 24);
        if (entry.uncompressedSize == 0xffffffff &&
            !readZip64Size(zip, at + kDirectoryEntrySize + nameSize, extraSize, &entry.uncompressedSize)) {
            *reason = damaged();
            return false;
        }
        entries->append(entry);
        at = next;
    }
    return true;
}

QString normalizedEntryPath(const QString &name)
{
    QStringList segments = QString(name)
                               .replace(QLatin1Char('\\'), QLatin1Char('/'))
                               .split(QLatin1Char('/'), Qt::SkipEmptyParts);
    segments.removeAll(QStringLiteral("."));
    return segments.join(QLatin1Char('/'));
}

QString entryNameProblem(const QString &name)
{
    if (normalizedEntryPath(name).isEmpty())
        return QStringLiteral("entrada sem nome legível");
    // Zips made on Windows may use backslashes or drive letters, so both count here.
    const QString path = QString(name).replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (path.startsWith(QLatin1Char('/')) || (path.size() >= 2 && path.at(1) == QLatin1Char(':')))
        return QStringLiteral("entrada com caminho absoluto: %1").arg(path);
    if (path.split(QLatin1Char('/')).contains(QStringLiteral("..")))
        return QStringLiteral("entrada que sai do diretório de destino: %1").arg(path);
    return QString();
}

namespace {

QString typeProblem(const ZipEntryRecord &entry)
{
    switch (entry.unixMode & kTypeMask) {
    case 0: // not made on Unix, or no type recorded: a plain file or folder
    case kRegularType:
    case kDirectoryType:
        return QString();
    case kSymlinkType:
        return QStringLiteral("entrada que é link simbólico: %1").arg(entry.name);
    default:
        return QStringLiteral("entrada que é dispositivo ou arquivo especial: %1").arg(entry.name);
    }
}

// Two entries leading to one path would have the later silently replace the earlier. Names are also
// compared case-folded: Windows and the exFAT and FAT volumes USB drives carry do not tell "a.dll" from
// "A.DLL", so such a pair lands on one file there, whichever system extracts it.
QString duplicateProblem(const QList<ZipEntryRecord> &entries)
{
    QHash<QString, QString> seen;
    for (const ZipEntryRecord &entry : entries) {
        const QString folded = normalizedEntryPath(entry.name).toCaseFolded();
        const auto earlier = seen.constFind(folded);
        if (earlier == seen.constEnd()) {
            seen.insert(folded, entry.name);
        } else if (normalizedEntryPath(*earlier) == normalizedEntryPath(entry.name)) {
            return QStringLiteral("entrada repetida no pacote: %1").arg(entry.name);
        } else {
            return QStringLiteral("entradas que só diferem em maiúsculas e minúsculas, iguais para a unidade "
                                  "USB: %1 e %2")
                .arg(*earlier, entry.name);
        }
    }
    return QString();
}

QString megabytes(qint64 bytes)
{
    return QLocale(QLocale::Portuguese, QLocale::Brazil).toString(double(bytes) / (1024 * 1024), 'f', 1);
}

} // namespace

bool inspectZipBeforeExtraction(const QString &zipPath, const QString &destDir, QString *reason)
{
    QFile file(zipPath);
    if (!file.open(QIODevice::ReadOnly)) {
        *reason = QStringLiteral("não foi possível ler o pacote: %1").arg(zipPath);
        return false;
    }
    const uchar *mapped = file.size() > 0 ? file.map(0, file.size()) : nullptr;
    QList<ZipEntryRecord> entries;
    if (!readZipDirectory(QByteArrayView(mapped, mapped ? file.size() : 0), &entries, reason))
        return false;
    qint64 unpacked = 0;
    for (const ZipEntryRecord &entry : entries) {
        *reason = entryNameProblem(entry.name);
        if (reason->isEmpty())
            *reason = typeProblem(entry);
        if (!reason->isEmpty())
            return false;
        // Sizes read from an untrusted archive may add up past any integer: the sum stops at the largest.
        unpacked = entry.uncompressedSize > std::numeric_limits<qint64>::max() - unpacked
                       ? std::numeric_limits<qint64>::max()
                       : unpacked + entry.uncompressedSize;
    }
    *reason = duplicateProblem(entries);
    if (!reason->isEmpty())
        return false;
    const QStorageInfo storage(destDir);
    if (storage.isValid() && storage.isReady() && unpacked > storage.bytesAvailable()) {
        *reason =
            QStringLiteral("o pacote descompactado ocupa %1 MB, mais que os %2 MB livres na unidade USB")
                .arg(megabytes(unpacked), megabytes(storage.bytesAvailable()));
        return false;
    }
    return true;
}

} // namespace Tavrinox
