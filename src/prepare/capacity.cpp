#include "prepare/capacity.h"

#include "errortext.h"
#include "prepare/filecopy.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStorageInfo>

namespace Tavrinox {

namespace {

qint64 topLevelLibrariesSize(const QString &directory)
{
    qint64 total = 0;
    QDirIterator libraries(directory, {QStringLiteral("*.dll")}, QDir::Files | QDir::Readable);
    while (libraries.hasNext()) {
        libraries.next();
        total += libraries.fileInfo().size();
    }
    return total;
}

} // namespace

// Counts what the copy copies: a link leading back into the walk is skipped there, so it is here.
qint64 directorySize(const QString &path)
{
    return tallyTree(path).bytes;
}

qint64 fileSize(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() ? info.size() : 0;
}

qint64 estimateWindowsBundleSize(const PreparationSources &sources)
{
    if (sources.windowsExecutable.isEmpty())
        return 0;
    const QDir bundle(sources.windowsBundleDirectory());
    return fileSize(sources.windowsExecutable) + topLevelLibrariesSize(bundle.path()) +
           directorySize(bundle.filePath(QStringLiteral("platforms"))) +
           directorySize(bundle.filePath(QStringLiteral("imageformats"))) +
           directorySize(bundle.filePath(QStringLiteral("styles")));
}

qint64 estimateLinuxBundleSize(const PreparationSources &sources)
{
    if (sources.linuxExecutable.isEmpty())
        return 0;
    const QString bundle = sources.linuxBundleDirectory();
    const qint64 executableSize = fileSize(sources.linuxExecutable);
    if (QFileInfo(bundle).isDir()) {
        const qint64 bundleSize = directorySize(bundle);
        if (bundleSize > executableSize)
            return bundleSize;
    }
    // This build collects no separate library dependencies, so the executable is all there is.
    return executableSize;
}

bool capacityAllows(qint64 total, qint64 available, qint64 reclaimable, qint64 estimate, QString *message)
{
    if (estimate < 1) {
        setError(message, QStringLiteral("Nenhum bundle valido foi encontrado para preparar a unidade USB."));
        return false;
    }
    if (reclaimable + available < estimate) {
        setError(message,
                 QStringLiteral("Espaco insuficiente na unidade USB.\n\nNecessario: %1 bytes\nDisponivel: "
                                "%2 bytes")
                     .arg(estimate)
                     .arg(reclaimable + available));
        return false;
    }
    // A refusal, not a warning: a bundle this large would crowd out the container it exists to serve.
    if (total >= 1 && estimate > total / 4) {
        setError(message,
                 QStringLiteral("A unidade USB nao e recomendada para Tavrinox.\n\nCapacidade: %1 "
                                "bytes\nBundle estimado: %2 bytes\n\nO bundle ocuparia mais de 25% da "
                                "unidade.")
                     .arg(total)
                     .arg(estimate));
        return false;
    }
    return true;
}

bool checkCapacity(const QString &driveRoot, const QString &targetDirectory,
                   const PreparationSources &sources, PreparationResult &result)
{
    const QStorageInfo volume(driveRoot);
    if (!volume.isValid() || !volume.isReady()) {
        result.message = QStringLiteral("Nao foi possivel validar o espaco livre da unidade USB.");
        return false;
    }
    const qint64 estimate = estimateWindowsBundleSize(sources) + estimateLinuxBundleSize(sources);
    const qint64 available = volume.bytesAvailable();
    // What the drive's folder holds matters only when the free space alone is short, and counting it
    // walks every file of a prepared drive.
    const qint64 reclaimable = available < estimate ? directorySize(targetDirectory) : 0;
    return capacityAllows(volume.bytesTotal(), available, reclaimable, estimate, &result.message);
}

} // namespace Tavrinox
