#include "support/bundlefixture.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace Fixture {

namespace {

const QDateTime kOldTime(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);

// Distinct bytes per file, so a file copied to the wrong name shows.
QByteArray contentFor(const QString &name, int size)
{
    QByteArray content = name.toUtf8() + '\n';
    while (content.size() < size)
        content += content;
    return content.left(size);
}

bool writeAll(const QDir &directory, const QMap<QString, int> &sizes, const QStringList &omit)
{
    for (auto it = sizes.cbegin(); it != sizes.cend(); ++it) {
        if (!omit.contains(it.key()) &&
            !writeFile(directory.filePath(it.key()), contentFor(it.key(), it.value())))
            return false;
    }
    return true;
}

QMap<QString, QByteArray> contents(const QString &directory, QDir::Filters extra)
{
    QMap<QString, QByteArray> files;
    const QDir root(directory);
    QDirIterator it(directory, QDir::Files | QDir::NoDotAndDotDot | extra, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(root.relativeFilePath(path), readFile(path));
    }
    return files;
}

} // namespace

bool writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool makeSparseFile(const QString &path, qint64 size)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.resize(size);
}

bool makeWindowsBundle(const QString &directory, const QStringList &omit)
{
    return writeAll(QDir(directory),
                    {{QStringLiteral("Tavrinox.exe"), 40000},
                     {QStringLiteral("Qt6Core.dll"), 1536 * 1024},
                     {QStringLiteral("Qt6Gui.dll"), 30000},
                     {QStringLiteral("platforms/qwindows.dll"), 9000},
                     {QStringLiteral("imageformats/qjpeg.dll"), 3000},
                     {QStringLiteral("vcruntime140.dll"), 1200},
                     {QStringLiteral("vcruntime140_1.dll"), 1100},
                     {QStringLiteral("msvcp140.dll"), 1300},
                     {QStringLiteral("translations/qt_pt_BR.qm"), 500},
                     {QStringLiteral(".build-id"), 16}},
                    omit);
}

bool makeLinuxBundle(const QString &directory)
{
    const QDir bundle(directory);
    if (!writeAll(bundle,
                  {{QStringLiteral("Tavrinox"), 50000},
                   {QStringLiteral("lib/libQt6Core.so.6"), 1200 * 1024},
                   {QStringLiteral("plugins/platforms/libqxcb.so"), 7000},
                   {QStringLiteral("qt.conf"), 30},
                   {QStringLiteral(".build-id"), 16}},
                  {}))
        return false;
    return QFile::setPermissions(bundle.filePath(QStringLiteral("Tavrinox")),
                                 QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser |
                                     QFile::WriteUser | QFile::ExeUser | QFile::ReadGroup | QFile::ExeGroup |
                                     QFile::ReadOther | QFile::ExeOther);
}

QMap<QString, QByteArray> treeContents(const QString &directory)
{
    return contents(directory, QDir::Hidden);
}

QMap<QString, QByteArray> visibleTreeContents(const QString &directory)
{
    return contents(directory, {});
}

bool ageTree(const QString &directory)
{
    QDirIterator it(directory, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        if (!file.open(QIODevice::ReadWrite) ||
            !file.setFileTime(kOldTime, QFileDevice::FileModificationTime))
            return false;
    }
    return true;
}

bool hasOldTime(const QString &path)
{
    return QFileInfo(path).fileTime(QFileDevice::FileModificationTime) == kOldTime;
}

} // namespace Fixture
