#include "prepare/drivepreparer.h"

#include "prepare/capacity.h"
#include "prepare/drivetexts.h"
#include "prepare/filecopy.h"
#include "transaction/ownfiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace Tavrinox {

namespace {

constexpr int kStepCount = 7;

void addExecutePermission(const QString &path)
{
    QFile::setPermissions(path, QFile::permissions(path) | kExecutableByAll);
}

bool allExist(const QDir &directory, std::initializer_list<const char *> names)
{
    for (const char *name : names) {
        if (!QFileInfo::exists(directory.filePath(QLatin1String(name))))
            return false;
    }
    return true;
}

bool anyExists(const QDir &directory, std::initializer_list<const char *> names)
{
    for (const char *name : names) {
        if (QFileInfo::exists(directory.filePath(QLatin1String(name))))
            return true;
    }
    return false;
}

// What the Windows step copies: the whole folder, or the executable, the folder when no deployment tool
// assembles the runtime, and the folder's libraries, which the copy goes through again.
CopyTally windowsCopyTally(const PreparationSources &sources, bool deployToolPresent)
{
    if (sources.windowsExecutable.isEmpty())
        return {};
    const QString source = sources.windowsBundleDirectory();
    if (isCompleteWindowsBundle(source))
        return tallyTree(source);
    CopyTally tally = tallyTree(sources.windowsExecutable);
    if (!deployToolPresent)
        tally += tallyTree(source);
    QDirIterator libraries(source, {QStringLiteral("*.dll")}, QDir::Files | QDir::Readable);
    while (libraries.hasNext())
        tally += tallyTree(libraries.next());
    return tally;
}

CopyTally linuxCopyTally(const PreparationSources &sources)
{
    if (sources.linuxExecutable.isEmpty())
        return {};
    const QString source = sources.linuxBundleDirectory();
    return tallyTree(isLinuxBundle(source) ? source : sources.linuxExecutable);
}

// The copy of both bundles as the caller follows it: the bytes done against those of both bundles, and
// what is left when the caller stops it.
class BundleCopy
{
public:
    enum Bundle { Windows, Linux };

    BundleCopy(const PreparationControl &control, const CopyTally &windows, const CopyTally &linux)
        : m_control(control)
        , m_total{windows, linux}
    {
        m_progress.totalBytes = windows.bytes + linux.bytes;
        m_progress.totalFiles = windows.files + linux.files;
    }

    CopyObserver observer(Bundle bundle)
    {
        return {[this, bundle](qint64 bytes, int files) { copied(bundle, bytes, files); },
                [this](QString *why) { return stopRequested(why); }};
    }

    // Asked before each file and each copy; true, with what is left in *why, when the caller stops.
    bool stopRequested(QString *why) const
    {
        if (!m_control.stop || !m_control.stop())
            return false;
        *why = leftText();
        return true;
    }

    // Ends the count at the total even where a file counted beforehand was not there to copy.
    void finish()
    {
        if (m_control.copied &&
            (m_progress.doneBytes < m_progress.totalBytes || m_progress.doneFiles < m_progress.totalFiles)) {
            m_progress.doneBytes = m_progress.totalBytes;
            m_progress.doneFiles = m_progress.totalFiles;
            m_control.copied(m_progress);
        }
    }

private:
    static QString name(Bundle bundle)
    {
        return bundle == Windows ? QStringLiteral("Windows") : QStringLiteral("Linux");
    }
    // A file whose size changed since it was counted must not push the count past the total.
    void copied(Bundle bundle, qint64 bytes, int files)
    {
        m_done[bundle] += {files, bytes};
        m_progress.doneBytes = qMin(m_progress.totalBytes, m_done[Windows].bytes + m_done[Linux].bytes);
        m_progress.doneFiles = qMin(m_progress.totalFiles, m_done[Windows].files + m_done[Linux].files);
        m_progress.bundle = name(bundle);
        if (m_control.copied)
            m_control.copied(m_progress);
    }

    QString leftText() const
    {
        QStringList left;
        for (const Bundle bundle : {Windows, Linux}) {
            const qint64 files = m_total[bundle].files - m_done[bundle].files;
            if (files > 0)
                left.append(QStringLiteral("%1 de %2 arquivo(s) do bundle %3 (%4 MB)")
                                .arg(files)
                                .arg(m_total[bundle].files)
                                .arg(name(bundle), megabytesText(qMax<qint64>(0, m_total[bundle].bytes -
                                                                                     m_done[bundle].bytes))));
        }
        left.append(QStringLiteral("os inicializadores e o README"));
        return QStringLiteral("Preparacao interrompida. Nao foram copiados: %1. Prepare a unidade novamente "
                              "para concluir.")
            .arg(left.join(QStringLiteral("; ")));
    }

    const PreparationControl &m_control;
    CopyTally m_total[2];
    CopyTally m_done[2];
    CopyProgress m_progress;
};

} // namespace

bool isCompleteWindowsBundle(const QString &directory)
{
    return allExist(QDir(directory), {"Qt6Core.dll", "platforms/qwindows.dll", "vcruntime140.dll",
                                      "vcruntime140_1.dll", "msvcp140.dll"});
}

bool isLinuxBundle(const QString &directory)
{
    return anyExists(QDir(directory), {"lib", "plugins", "qt.conf"});
}

QString megabytesText(qint64 bytes)
{
    return QString::number(double(bytes) / (1024 * 1024), 'f', 1).replace(QLatin1Char('.'), QLatin1Char(','));
}

DrivePreparer::DrivePreparer()
    : m_deployTool(WindowsDeployTool::fromQtInstallation())
{}

DrivePreparer::DrivePreparer(WindowsDeployTool deployTool)
    : m_deployTool(std::move(deployTool))
{}

PreparationResult DrivePreparer::prepare(const QString &driveRoot, const PreparationSources &sources,
                                         const PreparationProgress &progress, const PreparationGate &gate,
                                         const PreparationControl &control) const
{
    PreparationResult result;
    const auto report = [&progress](int step, const QString &message) {
        if (progress)
            progress(step, kStepCount, message);
    };
    const auto beginWritingStep = [&](int step, const QString &message) {
        report(step, message);
        return !gate || gate(&result.message);
    };

    report(0, QStringLiteral("Validando unidade USB..."));
    if (!QFileInfo(driveRoot).isDir()) {
        result.message = QStringLiteral("Unidade USB invalida.");
        return result;
    }
    const QDir root(driveRoot);
    const QString productFolder = root.filePath(QStringLiteral("Tavrinox"));
    const QString windowsFolder = QDir(productFolder).filePath(QStringLiteral("windows"));
    const QString linuxFolder = QDir(productFolder).filePath(QStringLiteral("linux"));

    if (!beginWritingStep(1, QStringLiteral("Criando estrutura de pastas...")))
        return result;
    // The folders below it are the program's, and a link among them is replaced; the folder itself may
    // be the user's own link, which is left alone.
    if (isLink(QFileInfo(productFolder))) {
        result.message = QStringLiteral("A pasta Tavrinox da unidade é um link; a unidade foi preservada.");
        return result;
    }
    if (!ensureDirectory(productFolder, result) || !ensureDirectory(windowsFolder, result) ||
        !ensureDirectory(linuxFolder, result) || !checkCapacity(driveRoot, productFolder, sources, result))
        return result;

    // Counting the bundles' files beforehand takes a walk of each: only for a caller that follows the copy.
    const bool followed = control.copied || control.stop;
    BundleCopy copy(
        control, followed ? windowsCopyTally(sources, QFileInfo::exists(m_deployTool.program)) : CopyTally(),
        followed ? linuxCopyTally(sources) : CopyTally());
    if (!beginWritingStep(2, QStringLiteral("Copiando bundle Windows...")))
        return result;
    if (!sources.windowsExecutable.isEmpty()) {
        const QString source = sources.windowsBundleDirectory();
        const CopyObserver observer = copy.observer(BundleCopy::Windows);
        removeInterruptedCopies(source, windowsFolder);
        if (isCompleteWindowsBundle(source)) {
            if (!copyDirectory(source, windowsFolder, result, observer))
                return result;
        } else {
            QString copiedExecutable;
            if (copy.stopRequested(&result.message) ||
                !copyExecutable(sources.windowsExecutable, windowsFolder, &copiedExecutable, result,
                                observer) ||
                copy.stopRequested(&result.message) ||
                !deployWindowsRuntime(copiedExecutable, source, result, m_deployTool, observer) ||
                copy.stopRequested(&result.message) ||
                !copyWindowsLibraries(windowsFolder, source, result, observer))
                return result;
        }
    }

    if (!beginWritingStep(3, QStringLiteral("Copiando bundle Linux...")))
        return result;
    if (!sources.linuxExecutable.isEmpty()) {
        const QString source = sources.linuxBundleDirectory();
        const CopyObserver observer = copy.observer(BundleCopy::Linux);
        removeInterruptedCopies(source, linuxFolder);
        if (isLinuxBundle(source)) {
            if (!copyDirectory(source, linuxFolder, result, observer))
                return result;
        } else {
            QString copiedExecutable;
            if (copy.stopRequested(&result.message) ||
                !copyExecutable(sources.linuxExecutable, linuxFolder, &copiedExecutable, result, observer))
                return result;
            addExecutePermission(copiedExecutable);
        }
    }
    copy.finish();

    const QString windowsLauncher = root.filePath(QStringLiteral("Tavrinox-Windows.bat"));
    const QString linuxLauncher = root.filePath(QStringLiteral("Tavrinox-Linux.sh"));
    const QString readme = QDir(productFolder).filePath(QStringLiteral("README.txt"));
    // Step 4 is never reported; the numbering is intended and kept.
    if (!beginWritingStep(5, QStringLiteral("Criando inicializador Windows...")))
        return result;
    removeInterruptedTextWrites({windowsLauncher, linuxLauncher, readme});
    if (!writeTextFile(windowsLauncher, windowsLauncherText(), result))
        return result;

    if (!beginWritingStep(6, QStringLiteral("Criando arquivos auxiliares...")) ||
        !writeTextFile(linuxLauncher, linuxLauncherText(), result, true))
        return result;
    if (!writeTextFile(readme, readmeText(), result))
        return result;

    report(7, QStringLiteral("Preparacao concluida."));
    result.success = true;
    result.message = QStringLiteral("USB preparado com estrutura portatil Tavrinox.");
    return result;
}

} // namespace Tavrinox
