#include "support/zippackage.h"

#include "transaction/updatestate.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

namespace {

la_ssize_t writeToBuffer(archive *, void *buffer, const void *data, size_t size)
{
    static_cast<QByteArray *>(buffer)->append(static_cast<const char *>(data), qsizetype(size));
    return la_ssize_t(size);
}

// Rewrites the Unix mode kept in the high half of a central-directory entry's external attributes.
void patchCentralMode(QByteArray *zip, const QByteArray &path, quint16 mode)
{
    const QByteArray signature("PK\x01\x02", 4);
    for (qsizetype at = zip->indexOf(signature); at >= 0; at = zip->indexOf(signature, at + 4)) {
        const auto nameLength = qFromLittleEndian<quint16>(zip->constData() + at + 28);
        if (zip->mid(at + 46, nameLength) == path)
            qToLittleEndian<quint16>(mode, zip->data() + at + 40);
    }
}

bool writeFile(const QString &path, const QByteArray &content, QFileDevice::Permissions extra = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return false;
    return !extra || file.setPermissions(file.permissions() | extra);
}

} // namespace

ZipBuilder &ZipBuilder::file(const QByteArray &path, const QByteArray &data, int permissions)
{
    m_entries.append({Kind::File, path, data, permissions});
    return *this;
}

ZipBuilder &ZipBuilder::directory(const QByteArray &path)
{
    m_entries.append({Kind::Directory, path, {}, 0755});
    return *this;
}

ZipBuilder &ZipBuilder::symlink(const QByteArray &path, const QByteArray &target)
{
    m_entries.append({Kind::Symlink, path, target, 0777});
    return *this;
}

ZipBuilder &ZipBuilder::hardLink(const QByteArray &path, const QByteArray &target)
{
    m_entries.append({Kind::HardLink, path, target, 0644});
    return *this;
}

ZipBuilder &ZipBuilder::characterDevice(const QByteArray &path)
{
    m_entries.append({Kind::CharacterDevice, path, {}, 0644});
    return *this;
}

ZipBuilder &ZipBuilder::fifo(const QByteArray &path)
{
    m_entries.append({Kind::Fifo, path, {}, 0644});
    return *this;
}

ZipBuilder &ZipBuilder::storeOnly()
{
    m_storeOnly = true;
    return *this;
}

QByteArray ZipBuilder::bytes() const
{
    QByteArray zip;
    std::unique_ptr<archive, int (*)(archive *)> writer(archive_write_new(), archive_write_free);
    archive_write_set_format_zip(writer.get());
    if (m_storeOnly)
        archive_write_set_format_option(writer.get(), "zip", "compression", "store");
    archive_write_set_bytes_in_last_block(writer.get(), 1);
    archive_write_open(writer.get(), &zip, nullptr, writeToBuffer, nullptr);

    std::unique_ptr<archive_entry, void (*)(archive_entry *)> entry(archive_entry_new(), archive_entry_free);
    for (const Entry &item : m_entries) {
        archive_entry_clear(entry.get());
        archive_entry_set_pathname(entry.get(), item.path.constData());
        archive_entry_set_perm(entry.get(), item.permissions);
        archive_entry_set_mtime(entry.get(), 1700000000, 0);
        switch (item.kind) {
        case Kind::Directory:
            archive_entry_set_filetype(entry.get(), AE_IFDIR);
            break;
        case Kind::Symlink:
            archive_entry_set_filetype(entry.get(), AE_IFLNK);
            archive_entry_set_symlink(entry.get(), item.data.constData());
            break;
        case Kind::HardLink:
            archive_entry_set_filetype(entry.get(), AE_IFREG);
            archive_entry_set_hardlink(entry.get(), item.data.constData());
            break;
        case Kind::File:
        case Kind::CharacterDevice:
        case Kind::Fifo:
            archive_entry_set_filetype(entry.get(), AE_IFREG);
            archive_entry_set_size(entry.get(), item.data.size());
            break;
        }
        archive_write_header(writer.get(), entry.get());
        if (item.kind == Kind::File)
            archive_write_data(writer.get(), item.data.constData(), size_t(item.data.size()));
    }
    archive_write_close(writer.get());

    for (const Entry &item : m_entries) {
        if (item.kind == Kind::CharacterDevice || item.kind == Kind::Fifo)
            patchCentralMode(&zip, item.path,
                             quint16((item.kind == Kind::Fifo ? AE_IFIFO : AE_IFCHR) | item.permissions));
    }
    return zip;
}

bool ZipBuilder::save(const QString &path) const
{
    return writeFile(path, bytes());
}

QByteArrayList tavrinoxBundleFiles()
{
    return {"windows/Tavrinox.exe",  "windows/Qt6Core.dll",       "windows/platforms/qwindows.dll",
            "linux/Tavrinox",        "linux/Tavrinox-Linux.sh",   "linux/qt.conf",
            "linux/lib/libssl.so.3", "linux/lib/libQt6Core.so.6", "linux/plugins/tls/libqopensslbackend.so"};
}

QByteArray bundleFileContent(const QByteArray &marker, const QByteArray &file)
{
    return marker + ' ' + file;
}

ZipBuilder tavrinoxPackage(const QByteArray &marker, const QByteArray &prefix, const QByteArrayList &omitted)
{
    ZipBuilder package;
    for (const QByteArray &file : tavrinoxBundleFiles()) {
        if (!omitted.contains(file))
            package.file(prefix + file, bundleFileContent(marker, file),
                         file.startsWith("linux/Tavrinox") ? 0755 : 0644);
    }
    return package;
}

bool layOutPreparedDrive(const QString &root, const QString &version, const QByteArray &marker)
{
    const QDir drive(root);
    for (const QByteArray &file : tavrinoxBundleFiles()) {
        if (!writeFile(drive.filePath(QStringLiteral("Tavrinox/") + QString::fromUtf8(file)),
                       bundleFileContent(marker, file)))
            return false;
    }
    return writeFile(drive.filePath(QStringLiteral("Tavrinox-Windows.bat")), "@echo off\r\n") &&
           writeFile(drive.filePath(QStringLiteral("Tavrinox-Linux.sh")), "#!/bin/sh\n", QFile::ExeOwner) &&
           writeFile(drive.filePath(QStringLiteral("Tavrinox/README.txt")), "Tavrinox\n") &&
           Tavrinox::writeUpdateState(root, version, QString());
}

bool driveHoldsBundles(const QString &root, const QByteArray &marker)
{
    const QDir drive(root);
    for (const QByteArray &file : tavrinoxBundleFiles()) {
        QFile bundleFile(drive.filePath(QStringLiteral("Tavrinox/") + QString::fromUtf8(file)));
        if (!bundleFile.open(QIODevice::ReadOnly) || bundleFile.readAll() != bundleFileContent(marker, file))
            return false;
    }
    return true;
}

QMap<QString, QByteArray> driveSnapshot(const QString &root)
{
    QMap<QString, QByteArray> snapshot;
    const QDir drive(root);
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        snapshot.insert(drive.relativeFilePath(path), it.fileInfo().isDir() || !file.open(QIODevice::ReadOnly)
                                                          ? QByteArray()
                                                          : file.readAll());
    }
    return snapshot;
}

QStringList updateLeftovers(const QString &root)
{
    return QDir(QDir(root).filePath(QStringLiteral("Tavrinox")))
        .entryList({QStringLiteral("*.backup-*"), QStringLiteral(".update-*"),
                    QStringLiteral("update-journal.json")},
                   QDir::AllEntries | QDir::Hidden);
}

QString sha256Hex(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}
