#include "cli/bundleplan.h"

#include "cli/commandline.h"
#include "cli/output.h"
#include "prepare/bundlesource.h"
#include "prepare/drivepreparer.h"
#include "prepare/filecopy.h"

#include <QDir>
#include <QFileInfo>

namespace Tavrinox::Cli {

namespace {

const QString kWindowsExecutable = QStringLiteral("Tavrinox.exe");
const QString kLinuxExecutable = QStringLiteral("Tavrinox");

// A named folder replaces the search for its platform only; the other is still searched.
bool useFolder(const QString &folder, const QString &executableName, QString *executable, QString *directory,
               QString *error)
{
    const QString candidate = QDir(folder).filePath(executableName);
    if (!QFileInfo(candidate).isFile()) {
        *error = QStringLiteral("%1 não encontrado em %2").arg(executableName, folder);
        return false;
    }
    *executable = candidate;
    *directory = QFileInfo(candidate).absolutePath();
    return true;
}

// Walks as the bundle copy does, links back into the walked tree left out.
void collectFiles(const QString &folder, const QString &prefix, QStringList &walk,
                  QMap<QString, QString> *files)
{
    walk.append(QFileInfo(folder).canonicalFilePath());
    for (const QFileInfo &entry : QDir(folder).entryInfoList(kBundleEntryFilter, QDir::Name)) {
        if (entry.isDir() && !isWalkCycle(entry, walk))
            collectFiles(entry.absoluteFilePath(), prefix + entry.fileName() + QLatin1Char('/'), walk, files);
        else if (entry.isFile())
            files->insert(prefix + entry.fileName(), entry.absoluteFilePath());
    }
    walk.removeLast();
}

PlannedBundle planBundle(const QString &platform, const QString &driveFolder, const QString &executable,
                         const QString &directory, bool copiedWhole, const QString &executableName)
{
    PlannedBundle bundle{platform, driveFolder, copiedWhole, {}};
    if (copiedWhole)
        bundle.files = bundleFiles(directory);
    else
        bundle.files.insert(executableName, executable);
    return bundle;
}

bool locateSources(const CommandLine &line, PreparationSources *sources, QString *error)
{
    if (line.windowsFolder.isEmpty()) {
        const BundleSource found = locateWindowsBundle();
        sources->windowsExecutable = found.executablePath;
        sources->windowsDirectory = found.directory;
    } else if (!useFolder(line.windowsFolder, kWindowsExecutable, &sources->windowsExecutable,
                          &sources->windowsDirectory, error)) {
        return false;
    }
    if (line.linuxFolder.isEmpty()) {
        const BundleSource found = locateLinuxBundle();
        sources->linuxExecutable = found.executablePath;
        sources->linuxDirectory = found.directory;
        return true;
    }
    return useFolder(line.linuxFolder, kLinuxExecutable, &sources->linuxExecutable, &sources->linuxDirectory,
                     error);
}

void reportSources(const PreparationSources &sources)
{
    printNote(sources.windowsExecutable.isEmpty()
                  ? QStringLiteral("Fonte Windows para preparação ausente.")
                  : QStringLiteral("Fonte Windows para preparação encontrada. (%1)")
                        .arg(QDir::toNativeSeparators(sources.windowsBundleDirectory())));
    printNote(sources.linuxExecutable.isEmpty()
                  ? QStringLiteral("Fonte Linux para preparação ausente.")
                  : QStringLiteral("Fonte Linux para preparação encontrada. (%1)")
                        .arg(QDir::toNativeSeparators(sources.linuxBundleDirectory())));
}

} // namespace

bool findPreparationSources(const CommandLine &line, PreparationSources *sources)
{
    QString error;
    if (!locateSources(line, sources, &error)) {
        printNote(error);
        return false;
    }
    reportSources(*sources);
    return true;
}

QList<PlannedBundle> planBundles(const PreparationSources &sources)
{
    QList<PlannedBundle> bundles;
    if (!sources.windowsExecutable.isEmpty()) {
        const QString directory = sources.windowsBundleDirectory();
        bundles.append(planBundle(QStringLiteral("Windows"), QStringLiteral("Tavrinox/windows"),
                                  sources.windowsExecutable, directory, isCompleteWindowsBundle(directory),
                                  kWindowsExecutable));
    }
    if (!sources.linuxExecutable.isEmpty()) {
        const QString directory = sources.linuxBundleDirectory();
        bundles.append(planBundle(QStringLiteral("Linux"), QStringLiteral("Tavrinox/linux"),
                                  sources.linuxExecutable, directory, isLinuxBundle(directory),
                                  kLinuxExecutable));
    }
    return bundles;
}

QMap<QString, QString> bundleFiles(const QString &folder)
{
    QMap<QString, QString> files;
    QStringList walk;
    collectFiles(folder, QString(), walk, &files);
    return files;
}

} // namespace Tavrinox::Cli
