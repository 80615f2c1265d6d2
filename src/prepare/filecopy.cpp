#include "prepare/filecopy.h"

#include "prepare/kernelcopy.h"
#include "transaction/durability.h"
#include "transaction/ownfiles.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextStream>

#include <algorithm>

namespace Tavrinox {

namespace {

constexpr qint64 kCopyChunkSize = 1024 * 1024;
// Copied files wait in their temporaries until this many bytes are staged, so that a bundle of usual
// size goes in place with two flushes, and replacing a larger one needs no more room than this beyond
// the files it replaces.
constexpr qint64 kStagedBytesLimit = 256 * 1024 * 1024;

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
// A file given as its own destination is of its own size, so it is left untouched too.
// A link in the destination's place is never taken for the file: the rename replaces the link itself.
bool alreadyInPlace(const QFileInfo &source, const QFileInfo &destination)
{
    return destination.isFile() && !destination.isSymLink() && source.exists() &&
           destination.size() == source.size();
}

// Beside the destination, in the form removeInterruptedCopies recognises: its name, a dot, six letters.
QString temporaryPathFor(const QString &destination)
{
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    QString path = destination + QLatin1Char('.');
    for (int i = 0; i < 6; ++i)
        path += QLatin1Char(letters[QRandomGenerator::global()->bounded(52)]);
    return path;
}

// Files copied to temporaries beside their destinations and put in place together: one flush for all
// the temporaries, the renames, one flush for the renames. Until its rename a destination keeps its
// earlier content. Temporaries never put in place are removed.
class StagedFiles
{
public:
    StagedFiles(PreparationResult &result, const CopyObserver &observer)
        : m_result(result)
        , m_observer(observer)
    {}
    ~StagedFiles() { removeTemporaries(0); }
    Q_DISABLE_COPY(StagedFiles)

    // Copies source to a temporary, or finds it in place; puts the staged files in place when they are
    // many bytes.
    bool copy(const QFileInfo &source, const QString &destination);
    // Puts every staged file in place. On failure the files from the failing one on keep their earlier
    // content and leave writtenPaths.
    bool putInPlace();

private:
    struct Staged
    {
        QString temporary;
        QString destination;
        qsizetype writtenIndex;
    };

    bool copyData(QFile &input, QFile &output, const QString &destination, qint64 *copiedBytes);
    void tell(qint64 bytes, int files) const
    {
        if (m_observer.copied)
            m_observer.copied(bytes, files);
    }
    void removeTemporaries(qsizetype from);

    PreparationResult &m_result;
    const CopyObserver &m_observer;
    QList<Staged> m_staged;
    qint64 m_stagedBytes = 0;
    WriteBehind m_writeBehind;
};

bool StagedFiles::copy(const QFileInfo &source, const QString &destination)
{
    const QFileInfo target(destination);
    if (alreadyInPlace(source, target)) {
        tell(source.size(), 1);
        return succeed(m_result, destination);
    }

    QFile input(source.filePath());
    if (!input.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(m_result, QStringLiteral("Nao foi possivel copiar o arquivo: %1").arg(source.fileName()));
    // An existing destination that is not a file (a folder) cannot be replaced by a file.
    QFile output(temporaryPathFor(destination));
    // The permissions go on the temporary, so that they are on the medium with it.
    if ((target.exists() && !target.isFile()) || !createCopyTarget(output, source.permissions()))
        return fail(m_result, QStringLiteral("Nao foi possivel criar o arquivo: %1").arg(destination));
    qint64 copiedBytes = 0;
    if (!copyData(input, output, destination, &copiedBytes)) {
        output.remove();
        // A drive without room for one more temporary gets that of the files the staged ones replace.
        return !m_staged.isEmpty() && putInPlace() && copy(source, destination);
    }
    m_staged.append({output.fileName(), destination, m_result.writtenPaths.size()});
    m_stagedBytes += copiedBytes;
    tell(0, 1);
    succeed(m_result, destination);
    return m_stagedBytes < kStagedBytesLimit || putInPlace();
}

bool StagedFiles::copyData(QFile &input, QFile &output, const QString &destination, qint64 *copiedBytes)
{
    const auto copied = [this, copiedBytes, &output](qint64 bytes) {
        *copiedBytes += bytes;
        tell(bytes, 0);
        m_writeBehind.written(output.fileName(), bytes);
    };
    if (!copyInKernel(input, output, copied)) {
        // Reading until an empty chunk, not up to the reported size, also copies files whose size the
        // system reports as 0 although they hold data.
        QByteArray chunk(kCopyChunkSize, Qt::Uninitialized);
        for (;;) {
            const qint64 read = input.read(chunk.data(), chunk.size());
            if (read < 0)
                return fail(m_result, QStringLiteral("Nao foi possivel ler o arquivo: %1")
                                          .arg(QFileInfo(input.fileName()).fileName()));
            if (read == 0)
                break;
            if (output.write(chunk.constData(), read) != read)
                return fail(m_result,
                            QStringLiteral("Nao foi possivel gravar o arquivo: %1").arg(destination));
            copied(read);
        }
    }
    // Some file systems tell of a failed write only when the file is closed.
    output.close();
    if (output.error() != QFileDevice::NoError)
        return fail(m_result, QStringLiteral("Nao foi possivel gravar o arquivo: %1").arg(destination));
    return true;
}

bool StagedFiles::putInPlace()
{
    if (m_staged.isEmpty())
        return true;
    QStringList temporaries;
    QStringList destinations;
    for (const Staged &file : std::as_const(m_staged)) {
        temporaries.append(file.temporary);
        destinations.append(file.destination);
    }
    qsizetype placed = 0;
    if (flushFiles(temporaries)) {
        while (placed < m_staged.size() &&
               replaceEntry(m_staged.at(placed).temporary, m_staged.at(placed).destination))
            ++placed;
    }
    const bool durable = placed == m_staged.size() && flushReplacements(destinations);
    if (!durable) {
        fail(m_result, QStringLiteral("Nao foi possivel finalizar o arquivo: %1")
                           .arg(m_staged.at(placed < m_staged.size() ? placed : 0).destination));
        for (qsizetype i = m_staged.size() - 1; i >= placed; --i)
            m_result.writtenPaths.removeAt(m_staged.at(i).writtenIndex);
    }
    removeTemporaries(placed);
    m_staged.clear();
    m_stagedBytes = 0;
    return durable;
}

void StagedFiles::removeTemporaries(qsizetype from)
{
    for (qsizetype i = from; i < m_staged.size(); ++i)
        QFile::remove(m_staged.at(i).temporary);
}

} // namespace

bool ensureDirectory(const QString &path, PreparationResult &result)
{
    if (!removeLinkInTheWay(path) || !QDir().mkpath(path))
        return fail(result, QStringLiteral("Nao foi possivel criar a pasta: %1").arg(path));
    return succeed(result, path);
}

bool copyFile(const QString &source, const QString &destination, PreparationResult &result,
              const CopyObserver &observer)
{
    StagedFiles staged(result, observer);
    return staged.copy(QFileInfo(source), destination) && staged.putInPlace();
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
bool copyEntries(const QString &source, const QString &destination, QStringList &walk, StagedFiles &staged,
                 const CopyObserver &observer, PreparationResult &result)
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
            if (!removeLinkInTheWay(targetPath) ||
                (!QDir(destination).mkdir(entry.fileName()) && !QFileInfo(targetPath).isDir()))
                return fail(result, QStringLiteral("Nao foi possivel criar a pasta: %1").arg(targetPath));
            result.writtenPaths.append(targetPath);
            if (!copyEntries(entry.absoluteFilePath(), targetPath, walk, staged, observer, result))
                return false;
        } else if (entry.isFile()) {
            // A stop says what was not copied, so what was copied goes in place first.
            QString why;
            if (observer.stop && observer.stop(&why))
                return staged.putInPlace() && fail(result, why);
            if (!staged.copy(entry, targetPath))
                return false;
        }
    }
    walk.removeLast();
    return true;
}

CopyTally tallyEntries(const QString &directory, QStringList &walk)
{
    walk.append(QFileInfo(directory).canonicalFilePath());
    CopyTally tally;
    QDirIterator entries(directory, kBundleEntryFilter);
    while (entries.hasNext()) {
        entries.next();
        const QFileInfo entry = entries.fileInfo();
        if (!entry.isDir())
            tally += {entry.isFile() ? 1 : 0, entry.size()};
        else if (!isWalkCycle(entry, walk))
            tally += tallyEntries(entry.absoluteFilePath(), walk);
    }
    walk.removeLast();
    return tally;
}

} // namespace

bool copyDirectory(const QString &source, const QString &destination, PreparationResult &result,
                   const CopyObserver &observer)
{
    if (!QFileInfo(source).isDir())
        return fail(result, QStringLiteral("Pasta de origem nao encontrada: %1").arg(source));
    if (!ensureDirectory(destination, result))
        return false;
    StagedFiles staged(result, observer);
    QStringList walk;
    if (copyEntries(source, destination, walk, staged, observer, result))
        return staged.putInPlace();
    // What was copied before a failure goes in place all the same, so that a later preparation goes on
    // from there; the failure is the one told.
    const QString message = result.message;
    staged.putInPlace();
    result.message = message;
    return false;
}

CopyTally tallyTree(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isDir())
        return {info.isFile() ? 1 : 0, info.exists() ? info.size() : 0};
    QStringList walk;
    return tallyEntries(path, walk);
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

namespace {

// Whether path is a file that already holds text as writeTextFile writes it: UTF-8, with each line feed
// written as CR LF on Windows, where the file is written in text mode.
bool holdsText(const QString &path, const QString &text, bool executable)
{
    QByteArray expected = text.toUtf8();
#ifdef Q_OS_WIN
    expected.replace("\n", "\r\n");
#endif
    QByteArray held;
    return readOwnFile(path, expected.size(), &held) && held == expected &&
           (!executable || (QFile::permissions(path) & kExecutableByAll) == kExecutableByAll);
}

} // namespace

bool writeTextFile(const QString &path, const QString &text, PreparationResult &result, bool executable)
{
    // Re-preparing an unchanged drive writes nothing.
    if (holdsText(path, text, executable))
        return succeed(result, path);
    QSaveFile file(path);
    if (!removeLinkInTheWay(path) || !file.open(QIODevice::WriteOnly | QIODevice::Text))
        return fail(result, QStringLiteral("Nao foi possivel criar o arquivo: %1").arg(path));
    {
        QTextStream stream(&file);
        stream << text;
    }
    // Given before the commit, the permissions go on the medium with the content, which the commit puts
    // there before it renames; the rename goes there after it.
    if (executable)
        file.setPermissions(file.permissions() | kExecutableByAll);
    if (!file.commit() || !flushReplacements({path}))
        return fail(result, QStringLiteral("Nao foi possivel salvar o arquivo: %1").arg(path));
    return succeed(result, path);
}

void removeInterruptedTextWrites(const QStringList &paths)
{
    for (const QString &path : paths) {
        const QFileInfo file(path);
        const QRegularExpression temporaryName(
            QStringLiteral("^%1\\.[A-Za-z]{6}$").arg(QRegularExpression::escape(file.fileName())));
        QDirIterator siblings(file.path(), {file.fileName() + QStringLiteral(".??????")},
                              QDir::Files | QDir::Hidden | QDir::System);
        while (siblings.hasNext()) {
            const QString sibling = siblings.next();
            if (temporaryName.match(siblings.fileName()).hasMatch())
                QFile::remove(sibling);
        }
    }
}

} // namespace Tavrinox
