#include "support/testfiles.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace Fixture {

namespace {

const QDateTime kOldTime(QDate(2001, 2, 3), QTime(4, 5, 6), Qt::UTC);

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

QList<QJsonObject> jsonLines(const QString &path)
{
    QList<QJsonObject> objects;
    const QList<QByteArray> lines = readFile(path).split('\n');
    for (const QByteArray &line : lines) {
        if (!line.isEmpty())
            objects.append(QJsonDocument::fromJson(line).object());
    }
    return objects;
}

} // namespace Fixture
