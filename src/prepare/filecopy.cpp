#include "prepare/filecopy.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextStream>

#include <algorithm>

namespace Tavrinox {

namespace {

constexpr qint64 kCopyChunkSize = 1024 * 1024;

bool fail(PreparationResult &result, const QString &message)
{
    result.message = message;
    return false;
}

bool succeed(PreparationResult &result, const QString &path)
{
    result.writtenPaths.append(path);
    return true;
}

// Only the size is compared: a re-preparation must not rewrite hundreds of megabytes that did not change.
bool alreadyInPlace(const QString &source, const QString &destination)
{
    const QFileInfo destinationInfo(destination);
    const QFileInfo sourceInfo(source);
    return destinationInfo.isFile() && sourceInfo.exists() && destinationInfo.size() == sourceInfo.size();
}

} // namespace

bool ensureDirectory(const QString &path, PreparationResult &result)
{
    if (!QDir().mkpath(path))
        return fail(result, QStringLiteral("Nao foi possivel criar a pasta: %1").arg(path));
    return succeed(result, path);
}

bool copyFile(const QString &source, const QString &destination, PreparationResult &result)
{
    if (QFileInfo(source).absoluteFilePath() == QFileInfo(destination).absoluteFilePath())
        return succeed(result, destination);
    if (alreadyInPlace(source, destination))
        return succeed(result, destination);

    const QString sourceName = QFileInfo(source).fileName();
    QFile input(source);
    if (!input.open(QIODevice::ReadOnly))
        return fail(result, QStringLiteral("Nao foi possivel copiar o arquivo: %1").arg(sourceName));
    QSaveFile output(destination);
    if (!output.open(QIODevice::WriteOnly))
        return fail(result, QStringLiteral("Nao foi possivel criar o arquivo: %1").arg(destination));

    // Reading until an empty chunk, not up to the reported size, also copies files whose size the
    // system reports as 0 although they hold data.
    for (;;) {
        const QByteArray chunk = input.read(kCopyChunkSize);
        if (chunk.isEmpty()) {
            if (input.error() != QFileDevice::NoError)
                return fail(result, QStringLiteral("Nao foi possivel ler o arquivo: %1").arg(sourceName));
            break;
        }
        if (output.write(chunk) != chunk.size())
            return fail(result, QStringLiteral("Nao foi possivel gravar o arquivo: %1").arg(destination));
        // The window copies on the GUI thread under a progress dialog, which must keep painting. On a
        // worker thread this serves only that thread's own events, and the copy posts none there.
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    }
    if (!output.commit())
        return fail(result, QStringLiteral("Nao foi possivel finalizar o arquivo: %1").arg(destination));

    QFile::setPermissions(destination, QFile::permissions(source));
    return succeed(result, destination);
}

bool isWalkCycle(const QFileInfo &directory, const QStringList &walk)
{
    const QString target = directory.canonicalFilePath();
    const QString targetPrefix = target.endsWith(QLatin1Char('/')) ? target : target + QLatin1Char('/');
    return std::any_of(walk.cbegin(), walk.cend(), [&](const QString &walked) {
        return walked == target || walked.startsWith(targetPrefix);
    });
}

namespace {

// The entries of source go into destination, which exists; walk holds the canonical paths of the source
// folders on the way here.
bool copyEntries(const QString &source, const QString &destination, QStringList &walk,
                 PreparationResult &result, const FileCopiedCallback &fileCopied)
{
    walk.append(QFileInfo(source).canonicalFilePath());
    const QDir target(destination);
    QDirIterator entries(source, kBundleEntryFilter);
    while (entries.hasNext()) {
        entries.next();
        const QFileInfo entry = entries.fileInfo();
        const QString targetPath = target.filePath(entry.fileName());
        if (entry.isDir()) {
            if (isWalkCycle(entry, walk))
                continue;
            if (!QDir(destination).mkdir(entry.fileName()) && !QFileInfo(targetPath).isDir())
                return fail(result, QStringLiteral("Nao foi possivel criar a pasta: %1").arg(targetPath));
            result.writtenPaths.append(targetPath);
            if (!copyEntries(entry.absoluteFilePath(), targetPath, walk, result, fileCopied))
                return false;
        } else if (entry.isFile()) {
            if (!copyFile(entry.absoluteFilePath(), targetPath, result))
                return false;
            if (fileCopied && !fileCopied(entry.size()))
                return fail(result, QStringLiteral("Preparacao interrompida."));
        }
    }
    walk.removeLast();
    return true;
}

} // namespace

bool copyDirectory(const QString &source, const QString &destination, PreparationResult &result,
                   const FileCopiedCallback &fileCopied)
{
    if (!QFileInfo(source).isDir())
        return fail(result, QStringLiteral("Pasta de origem nao encontrada: %1").arg(source));
    if (!ensureDirectory(destination, result))
        return false;
    QStringList walk;
    return copyEntries(source, destination, walk, result, fileCopied);
}

void removeInterruptedCopies(const QString &source, const QString &destination)
{
    static const QRegularExpression temporaryName(QStringLiteral("^(.+)\\.[A-Za-z]{6}$"));
    const QDir sourceDirectory(source);
    const QDir destinationDirectory(destination);
    QDirIterator files(destination, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        const QRegularExpressionMatch name = temporaryName.match(files.fileName());
        if (!name.hasMatch())
            continue;
        const QString folder = destinationDirectory.relativeFilePath(files.fileInfo().path());
        const QDir sourceFolder(sourceDirectory.filePath(folder));
        if (QFileInfo(sourceFolder.filePath(name.captured(1))).isFile() &&
            !QFileInfo::exists(sourceFolder.filePath(files.fileName())))
            QFile::remove(path);
    }
}

bool writeTextFile(const QString &path, const QString &text, PreparationResult &result)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return fail(result, QStringLiteral("Nao foi possivel criar o arquivo: %1").arg(path));
    {
        QTextStream stream(&file);
        stream << text;
    }
    if (!file.commit())
        return fail(result, QStringLiteral("Nao foi possivel salvar o arquivo: %1").arg(path));
    return succeed(result, path);
}

} // namespace Tavrinox
