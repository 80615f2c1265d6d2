#include "buildconfig.h"
#include "cli/bundleplan.h"
#include "cli/commandline.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/drivelookup.h"
#include "cli/output.h"
#include "errortext.h"
#include "prepare/drivepreparer.h"
#include "transaction/updatestate.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

#include <memory>
#include <vector>

namespace Tavrinox::Cli {

namespace {

const QString kMountFirst =
    QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar.");

// What the preparation copies file by file into each drive: the bundles copied whole.
struct CopyPlan
{
    qint64 files = 0;
    qint64 bytes = 0;
};

// One drive's preparation. The worker writes it; the main thread reads it once the worker is done.
struct DriveRun
{
    QString root;
    CopyProgress progress; // the plan's totals until the preparation tells its own
    bool stopped = false;
    PreparationResult result;
    bool stateWritten = false;
    QString stateError;
};

CopyPlan measure(const QList<PlannedBundle> &bundles)
{
    CopyPlan plan;
    for (const PlannedBundle &bundle : bundles) {
        if (!bundle.copiedWhole)
            continue;
        for (const QString &source : bundle.files) {
            ++plan.files;
            plan.bytes += QFileInfo(source).size();
        }
    }
    return plan;
}

// On the drive's own worker thread. Steps are told on the main thread. Before each step that writes the
// drive must still be where it was named, as in the window; a Ctrl+C is honoured there and between files,
// so that no file is left half-written. The state file is written only after a whole preparation.
void prepareDrive(const DrivePreparer &preparer, const PreparationSources &sources,
                  const Platform::UsbDevice &drive, DriveRun &run, ProgressBar &bar)
{
    const auto progress = [&run](int, int, const QString &message) {
        const QString line = QStringLiteral("%1: %2").arg(run.root, message);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [line] { printNote(line); }, Qt::QueuedConnection);
    };
    const Platform::DriveWriteGate driveInPlace = driveGate(drive, kMountFirst);
    const auto gate = [&run, &driveInPlace](QString *error) {
        run.stopped = InterruptionWatcher::requested();
        if (run.stopped)
            setError(error, QStringLiteral("Preparacao interrompida."));
        return !run.stopped && driveInPlace(error);
    };
    const auto copied = [&run, &bar](const CopyProgress &copiedSoFar) {
        bar.add(copiedSoFar.doneBytes - run.progress.doneBytes);
        run.progress = copiedSoFar;
    };
    const auto stop = [&run] {
        run.stopped = InterruptionWatcher::requested();
        return run.stopped;
    };
    run.result = preparer.prepare(run.root, sources, progress, gate, {copied, stop});
    if (run.result.success && driveInPlace(&run.stateError)) {
        run.stateWritten = writeUpdateState(run.root, QString::fromLatin1(Build::kApplicationVersion),
                                            QString(), &run.stateError);
    }
}

void reportDrive(const DriveRun &run)
{
    if (run.result.success) {
        printResult(QStringLiteral("Unidade preparada: %1").arg(run.root));
        printNote(run.stateWritten
                      ? QStringLiteral("Estado de atualização registrado: %1").arg(updateStatePath(run.root))
                      : QStringLiteral("Aviso: %1").arg(run.stateError));
    } else if (run.stopped) {
        printResult(
            QStringLiteral("Preparação interrompida em %1: faltaram %2 de %3 arquivo(s) dos bundles (%4), "
                           "os inicializadores e o README. Repita o comando para continuar.")
                .arg(run.root)
                .arg(run.progress.totalFiles - run.progress.doneFiles)
                .arg(run.progress.totalFiles)
                .arg(formatBytes(run.progress.totalBytes - run.progress.doneBytes)));
    } else {
        printResult(QStringLiteral("Falha em %1: %2").arg(run.root, oneLine(run.result.message)));
    }
}

// One worker thread per drive, so that drives on different ports are written at the same time; each
// result is told as soon as its drive is done.
int prepareInParallel(const QList<Platform::UsbDevice> &drives, const PreparationSources &sources)
{
    const CopyPlan plan = measure(planBundles(sources));
    ProgressBar bar(plan.bytes * drives.size());
    InterruptionWatcher interruptions;
    QObject::connect(&interruptions, &InterruptionWatcher::interrupted, [] {
        printNote(QStringLiteral("Interrupção recebida: a preparação para depois do arquivo em cópia."));
    });
    QTimer redraw;
    QObject::connect(&redraw, &QTimer::timeout, [&bar] { bar.draw(); });
    redraw.start(100);

    const DrivePreparer preparer;
    QEventLoop loop;
    qsizetype running = drives.size();
    std::vector<std::unique_ptr<DriveRun>> runs;
    std::vector<std::unique_ptr<QThread>> workers;
    for (const Platform::UsbDevice &drive : drives) {
        DriveRun *run = runs.emplace_back(std::make_unique<DriveRun>()).get();
        run->root = drive.rootPath;
        run->progress.totalFiles = plan.files;
        run->progress.totalBytes = plan.bytes;
        QThread *worker = workers
                              .emplace_back(QThread::create([&preparer, &sources, drive, run, &bar] {
                                  prepareDrive(preparer, sources, drive, *run, bar);
                              }))
                              .get();
        QObject::connect(worker, &QThread::finished, &loop, [run, &running, &loop] {
            reportDrive(*run);
            if (--running == 0)
                loop.quit();
        });
        worker->start();
    }
    loop.exec();
    for (const std::unique_ptr<QThread> &worker : workers)
        worker->wait();

    const bool allPrepared = std::all_of(
        runs.cbegin(), runs.cend(), [](const std::unique_ptr<DriveRun> &run) { return run->result.success; });
    return allPrepared ? kExitSuccess : kExitFailed;
}

} // namespace

int prepareDrives(const CommandLine &line)
{
    PreparationSources sources;
    if (!findPreparationSources(line, &sources))
        return kExitFailed;
    if (sources.windowsExecutable.isEmpty() && sources.linuxExecutable.isEmpty()) {
        printNote(QStringLiteral("Compile pelo menos um bundle do Tavrinox antes de preparar a unidade."));
        return kExitFailed;
    }
    QList<Platform::UsbDevice> drives;
    if (const int code = resolveMountedDrives(line.drives, kMountFirst, &drives))
        return code;

    QStringList roots;
    for (const Platform::UsbDevice &drive : std::as_const(drives))
        roots.append(drive.rootPath);
    if (!line.yes &&
        !askYesNo(
            QStringLiteral("Preparar a estrutura Tavrinox em %1?\n\nA unidade não será formatada. Arquivos "
                           "existentes do bundle Tavrinox podem ser substituídos.")
                .arg(roots.join(QStringLiteral(", "))))) {
        printResult(QStringLiteral("Preparação cancelada pelo usuário."));
        return kExitFailed;
    }
    for (const Platform::UsbDevice &drive : std::as_const(drives)) {
        if (!isStillWhereChosen(drive))
            return kExitDriveMissing;
    }
    return prepareInParallel(drives, sources);
}

} // namespace Tavrinox::Cli
