#include "prepare/bundlesource.h"

#include "buildconfig.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

namespace Tavrinox {

namespace {

struct CandidateLists
{
    QStringList besideProgram;
    QStringList inSourceTree;
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

BundleSource locate(const QString &programDirectory, const QString &sourceTree, const CandidateLists &lists)
{
    BundleSource source;
    if (findFirstExisting(programDirectory, lists.besideProgram, &source))
        return source;
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
    };
    return lists;
}

} // namespace

BundleSource locateWindowsBundle()
{
    return locateWindowsBundle(QCoreApplication::applicationDirPath(),
                               QString::fromUtf8(Build::kBundleSourceTree));
}

BundleSource locateLinuxBundle()
{
    return locateLinuxBundle(QCoreApplication::applicationDirPath(),
                             QString::fromUtf8(Build::kBundleSourceTree));
}

BundleSource locateWindowsBundle(const QString &programDirectory, const QString &sourceTree)
{
    return locate(programDirectory, sourceTree, windowsCandidates());
}

BundleSource locateLinuxBundle(const QString &programDirectory, const QString &sourceTree)
{
    return locate(programDirectory, sourceTree, linuxCandidates());
}

} // namespace Tavrinox
