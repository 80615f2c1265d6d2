#include "support/updatedrive.h"

#include "transaction/updatestate.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QList>
#include <QPair>

#include <algorithm>

namespace {

using FileList = QList<QPair<QString, QByteArray>>;

bool writeFiles(const QString &directory, const FileList &files, QString *whyNot)
{
    for (const auto &[relativePath, content] : files) {
        const QString path = QDir(directory).filePath(relativePath);
        QFile file(path);
        if (!QDir().mkpath(QFileInfo(path).absolutePath()) || !file.open(QIODevice::WriteOnly) ||
            file.write(content) != content.size()) {
            *whyNot = QStringLiteral("cannot write %1").arg(path);
            return false;
        }
    }
    return true;
}

FileList windowsBundle(const QByteArray &tag, bool withTls)
{
    FileList files{{"Tavrinox.exe", "MZ Tavrinox " + tag},
                   {"Qt6Core.dll", "core " + tag},
                   {"platforms/qwindows.dll", "platform plugin " + tag}};
    if (withTls)
        files.append({"tls/qopensslbackend.dll", "tls " + tag});
    return files;
}

FileList linuxBundle(const QByteArray &tag, bool withLegacyLibrary)
{
    FileList files{{"Tavrinox", "ELF Tavrinox " + tag}, {"lib/libQt6Core.so.6", "core " + tag}};
    if (withLegacyLibrary)
        files.append({"lib/liblegacy.so", "legacy " + tag});
    return files;
}

} // namespace

const QString UpdateDrive::oldVersion = QStringLiteral("1.0.0");
const QString UpdateDrive::newVersion = QStringLiteral("1.1.0");
const QString UpdateDrive::packageSha256 =
    QStringLiteral("6b2c0a1f3e4d5c6b7a8990a1b2c3d4e5f60718293a4b5c6d7e8f90a1b2c3d4e5");

QByteArray treeDigest(const QString &path)
{
    const QFileInfo top(path);
    if (!top.exists())
        return {};
    QStringList entries;
    QDirIterator it(path, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        entries.append(QDir(path).relativeFilePath(it.next()));
    std::sort(entries.begin(), entries.end());

    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QString &entry : std::as_const(entries)) {
        const QString full = QDir(path).filePath(entry);
        const QFileInfo info(full);
        hash.addData(info.isDir() ? "d:" : "f:");
        hash.addData(entry.toUtf8());
        hash.addData(QByteArrayView("\0", 1));
        if (info.isFile()) {
            QFile file(full);
            if (!file.open(QIODevice::ReadOnly))
                return {};
            const QByteArray content = file.readAll();
            hash.addData(QByteArray::number(content.size()));
            hash.addData(QByteArrayView("\0", 1));
            hash.addData(content);
        }
    }
    return hash.result();
}

bool UpdateDrive::populate(const QString &root, QString *whyNot)
{
    m_root = root;
    if (!writeFiles(windowsPath(), windowsBundle("1.0.0", false), whyNot) ||
        !writeFiles(linuxPath(), linuxBundle("1.0.0", true), whyNot) ||
        !writeFiles(QDir(packageRoot()).filePath("Tavrinox/windows"), windowsBundle("1.1.0", true), whyNot) ||
        !writeFiles(QDir(packageRoot()).filePath("Tavrinox/linux"), linuxBundle("1.1.0", false), whyNot))
        return false;
    if (!Tavrinox::writeUpdateState(root, oldVersion, QString(), whyNot))
        return false;
    m_old = live();
    m_new = {treeDigest(QDir(packageRoot()).filePath("Tavrinox/windows")),
             treeDigest(QDir(packageRoot()).filePath("Tavrinox/linux"))};
    return true;
}

QString UpdateDrive::workRoot() const
{
    return QDir(m_root).filePath(QStringLiteral("Tavrinox/.update-20260301140509"));
}

QString UpdateDrive::packageRoot() const
{
    return QDir(workRoot()).filePath(QStringLiteral("package"));
}

QString UpdateDrive::windowsPath() const
{
    return QDir(m_root).filePath(QStringLiteral("Tavrinox/windows"));
}

QString UpdateDrive::linuxPath() const
{
    return QDir(m_root).filePath(QStringLiteral("Tavrinox/linux"));
}

BundleDigests UpdateDrive::live() const
{
    return {treeDigest(windowsPath()), treeDigest(linuxPath())};
}
