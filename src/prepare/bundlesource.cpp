#include "prepare/bundlesource.h"

#include "buildconfig.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace Tavrinox {

namespace {

struct CandidateLists
{
    QStringList besideProgram;
    QStringList inSourceTree;
    QStringList inInstalledFolder;
};

// Existence alone decides: a directory named like the executable counts, and nothing checks that the
// hit can run. The hit keeps its ".." components; only the bundle directory is made absolute.
bool findFirstExisting(const QString &base, const QStringList &candidates, BundleSource *source)
{
    if (base.isEmpty())
        return false;
    const QDir baseDir(base);
    for (const QString &relative : candidates) {
        const QString candidate = baseDir.filePath(relative);
        if (QFileInfo::exists(candidate)) {
            source->executablePath = candidate;
            source->directory = QFileInfo(candidate).absolutePath();
            return true;
        }
    }
    return false;
}

// A bundle beside the program belongs to that copy (a portable folder carries its own), so it wins. The
// installed folders come next and the build-time source tree last: the tree is a developer's fallback,
// and keeping it last leaves fromBuildTree meaning that nothing installed was found.
BundleSource locate(const QString &programDirectory, const QStringList &installedDirectories,
                    const QString &sourceTree, const CandidateLists &lists)
{
    BundleSource source;
    if (findFirstExisting(programDirectory, lists.besideProgram, &source))
        return source;
    for (const QString &directory : installedDirectories) {
        if (findFirstExisting(directory, lists.inInstalledFolder, &source))
            return source;
    }
    if (findFirstExisting(sourceTree, lists.inSourceTree, &source))
        source.fromBuildTree = true;
    return source;
}

const CandidateLists &windowsCandidates()
{
    static const CandidateLists lists{
        {QStringLiteral("bundles/windows-x64/Tavrinox.exe"), QStringLiteral("../windows-x64/Tavrinox.exe"),
         QStringLiteral("Tavrinox.exe")},
        {QStringLiteral("bundles/windows-x64/Tavrinox.exe"),
         QStringLiteral("../out/build/x64-release/Tavrinox/Tavrinox.exe"),
         QStringLiteral("out/build/x64-release/Tavrinox.exe"),
         QStringLiteral("out/build/x64-release/Release/Tavrinox.exe"),
         QStringLiteral("out/install/x64-release/bin/Tavrinox.exe")},
        {QStringLiteral("windows-x64/Tavrinox.exe")},
    };
    return lists;
}

const CandidateLists &linuxCandidates()
{
    static const CandidateLists lists{
        {QStringLiteral("bundles/linux-x64/Tavrinox"), QStringLiteral("../linux-x64/Tavrinox"),
         QStringLiteral("../../linux-x64/Tavrinox"), QStringLiteral("Tavrinox")},
        {QStringLiteral("../out/build/linux-x64-release/Tavrinox/Tavrinox"),
         QStringLiteral("bundles/linux-x64/Tavrinox"),
         QStringLiteral("out/build/linux-x64-release/Tavrinox")},
        {QStringLiteral("linux-x64/Tavrinox")},
    };
    return lists;
}

} // namespace

QStringList installedBundleDirectories(const QString &programDirectory)
{
    QStringList directories;
    const QString userData = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (!userData.isEmpty())
        directories.append(QDir(userData).filePath(QStringLiteral("tavrinox/bundles")));
    // Found from the program's own folder rather than a fixed path, so that a package installed under
    // any prefix, or a Windows installation in whatever folder was chosen, finds its own copy.
    directories.append(QDir::cleanPath(
        QDir(programDirectory).filePath(QString::fromUtf8(Build::kInstalledBundlesFromProgram))));
    return directories;
}

BundleSource locateWindowsBundle()
{
    const QString programDirectory = QCoreApplication::applicationDirPath();
    return locateWindowsBundle(programDirectory, QString::fromUtf8(Build::kBundleSourceTree),
                               installedBundleDirectories(programDirectory));
}

BundleSource locateLinuxBundle()
{
    const QString programDirectory = QCoreApplication::applicationDirPath();
    return locateLinuxBundle(programDirectory, QString::fromUtf8(Build::kBundleSourceTree),
                             installedBundleDirectories(programDirectory));
}

BundleSource locateWindowsBundle(const QString &programDirectory, const QString &sourceTree,
                                 const QStringList &installedDirectories)
{
    return locate(programDirectory, installedDirectories, sourceTree, windowsCandidates());
}

BundleSource locateLinuxBundle(const QString &programDirectory, const QString &sourceTree,
                               const QStringList &installedDirectories)
{
    return locate(programDirectory, installedDirectories, sourceTree, linuxCandidates());
}

} // namespace Tavrinox
