// Prepares drives from synthetic Linux bundles and copies the same bundles by hand in the same run, each
// followed by sync, so that both end with the data on the medium:
// - a drive folder on the work folder's own file system, about 200 MB in 2,000 files, against cp -r; then
//   a second preparation of the prepared drive, against the first;
// - as root, an exFAT volume mounted through FUSE, as a USB stick often is on Linux, about 158 MB in
//   232 files, against cp -rL. The volume is a loop device, measured twice: reading and writing its image
//   file directly, as a stick is written, and through the page cache of the image's file system. In the
//   second form sync leaves the by-hand copy in that cache (it writes the loop device out to the image
//   file only after the image file's own file system has been synced), so only the preparation's flushes
//   reach the disk there.
// Each figure is the median of seven rounds.
// Usage: bench_prepare [work folder]   (default: the system's temporary folder)

#include "prepare/drivepreparer.h"
#include "support/support.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * kKiB;
constexpr int kRounds = 7;

struct Bundle
{
    QString path;
    int files = 0;
    qint64 bytes = 0;
};

// Log-uniform between 1 KiB and 100 KiB, as the plugins and resources of a real bundle.
qint64 smallFileSize(QRandomGenerator &random)
{
    return qint64(kKiB * std::pow(100.0, random.generateDouble()));
}

// Most files of a real bundle are small plugins and resources; a few libraries carry the bulk.
QList<qint64> localBundleSizes(QRandomGenerator &random)
{
    QList<qint64> sizes;
    for (int i = 0; i < 5; ++i)
        sizes.append(20 * kMiB);
    for (int i = 0; i < 15; ++i)
        sizes.append(kMiB + random.bounded(7 * kMiB));
    for (int i = 0; i < 1980; ++i)
        sizes.append(smallFileSize(random));
    return sizes;
}

// A Qt application with a web engine: one very large library, a few large ones, fewer small files.
QList<qint64> stickBundleSizes(QRandomGenerator &random)
{
    QList<qint64> sizes{64 * kMiB};
    for (int i = 0; i < 6; ++i)
        sizes.append(8 * kMiB);
    for (int i = 0; i < 25; ++i)
        sizes.append(kMiB / 2 + random.bounded(2 * kMiB));
    for (int i = 0; i < 200; ++i)
        sizes.append(smallFileSize(random));
    return sizes;
}

bool writeBundle(const QString &path, const QList<qint64> &sizes, Bundle *bundle)
{
    QRandomGenerator random(20240611);
    QByteArray pattern(kMiB, Qt::Uninitialized);
    for (char &byte : pattern)
        byte = char(random.bounded(256));

    const QDir folder(path);
    *bundle = {path, int(sizes.size()), 0};
    for (int i = 0; i < sizes.size(); ++i) {
        const QString relative = i == 0   ? QStringLiteral("Tavrinox")
                                 : i < 32 ? QStringLiteral("lib/libpart%1.so").arg(i)
                                          : QStringLiteral("plugins/group%1/plugin%2.so").arg(i % 40).arg(i);
        const QString file = folder.filePath(relative);
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile output(file);
        if (!output.open(QIODevice::WriteOnly))
            return false;
        for (qint64 left = sizes.at(i); left > 0; left -= pattern.size())
            output.write(pattern.constData(), qMin<qint64>(left, pattern.size()));
        bundle->bytes += sizes.at(i);
    }
    return QFile::exists(folder.filePath(QStringLiteral("lib/libpart1.so")));
}

bool runShell(const QString &script, const QStringList &arguments)
{
    QProcess shell;
    shell.start(QStringLiteral("sh"),
                QStringList{QStringLiteral("-c"), script, QStringLiteral("sh")} + arguments);
    if (!shell.waitForFinished(-1) || shell.exitStatus() != QProcess::NormalExit || shell.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(script), shell.readAllStandardError().constData());
        return false;
    }
    return true;
}

// Nothing written before a measurement is left for it to flush.
bool settle()
{
    return runShell(QStringLiteral("sync"), {});
}

double secondsToPrepare(const QString &drive, const Bundle &bundle)
{
    const Tavrinox::PreparationSources sources{
        {}, {}, QDir(bundle.path).filePath(QStringLiteral("Tavrinox")), bundle.path};
    if (!settle())
        return -1;
    QElapsedTimer timer;
    timer.start();
    const Tavrinox::PreparationResult result = Tavrinox::DrivePreparer().prepare(drive, sources);
    const double seconds = timer.nsecsElapsed() / 1e9;
    if (!result.success) {
        std::fprintf(stderr, "preparation failed: %s\n", qPrintable(result.message));
        return -1;
    }
    return seconds;
}

double secondsToCopyByHand(const QString &copy, const QString &source, const QString &target)
{
    if (!settle())
        return -1;
    QElapsedTimer timer;
    timer.start();
    if (!runShell(copy + QStringLiteral(" \"$1\" \"$2\" && sync"), {source, target}))
        return -1;
    return timer.nsecsElapsed() / 1e9;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

// Empties a folder but keeps it: it may be a volume's mount point.
bool emptyFolder(const QString &path)
{
    if (!QDir().mkpath(path))
        return false;
    const QDir folder(path);
    for (const QFileInfo &entry :
         folder.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (entry.isDir() ? !QDir(entry.filePath()).removeRecursively() : !QFile::remove(entry.filePath()))
            return false;
    }
    return true;
}

// Each round copies into new folders, so that no round creates files where the one before deleted some,
// and the rounds alternate which copy goes first, so that a busy moment of the machine hits both alike.
bool measureLocal(const QString &work, const Bundle &bundle)
{
    QList<double> byHand, fresh, again;
    for (int round = 0; round < kRounds; ++round) {
        const QString drive = QDir(work).filePath(QStringLiteral("drive%1").arg(round));
        const QString copy = QDir(work).filePath(QStringLiteral("cp-copy%1").arg(round));
        if (!QDir().mkpath(drive))
            return false;
        if (round % 2 == 0)
            byHand.append(secondsToCopyByHand(QStringLiteral("cp -r"), bundle.path, copy));
        fresh.append(secondsToPrepare(drive, bundle));
        again.append(secondsToPrepare(drive, bundle));
        if (round % 2 == 1)
            byHand.append(secondsToCopyByHand(QStringLiteral("cp -r"), bundle.path, copy));
        if (byHand.last() < 0 || fresh.last() < 0 || again.last() < 0)
            return false;
        std::printf("  round %d: cp -r + sync %.3f s, prepare %.3f s, again %.3f s\n", round + 1,
                    byHand.last(), fresh.last(), again.last());
    }
    const double hand = median(byHand);
    std::printf("local folder: %d files, %.1f MiB\n", bundle.files, bundle.bytes / double(kMiB));
    std::printf("  cp -r + sync:             %7.3f s\n", hand);
    std::printf("  prepare, empty target:    %7.3f s   ratio to cp -r + sync: %.2f\n", median(fresh),
                median(fresh) / hand);
    std::printf("  prepare, prepared target: %7.3f s   ratio to a fresh preparation: %.1f %%\n",
                median(again), 100 * median(again) / median(fresh));
    return true;
}

bool measureStick(const QString &work, const Bundle &bundle, bool directIo)
{
    const char *form =
        directIo ? "image written directly, as a stick" : "image written through the page cache";
    Fixture::Volume volume;
    QString why;
    if (!volume.mount(QStringLiteral("exfat"), 1024, &why)) {
        std::printf("exFAT stick (%s): not measured (%s)\n", form, qPrintable(why));
        return true;
    }
    const QString drive = volume.path;
    if (directIo && !runShell(QStringLiteral("losetup --direct-io=on \"$1\""),
                              {QString::fromLocal8Bit(QStorageInfo(drive).device())}))
        return false;
    QList<double> byHand, fresh;
    for (int round = 0; round < 2 * kRounds; ++round) {
        // The stick is emptied after each copy: it has room for one.
        const bool byHandNow = (round % 4 == 0 || round % 4 == 3);
        if (byHandNow)
            byHand.append(secondsToCopyByHand(QStringLiteral("cp -rL"), bundle.path,
                                              QDir(drive).filePath(QStringLiteral("cp"))));
        else
            fresh.append(secondsToPrepare(drive, bundle));
        if ((byHandNow ? byHand : fresh).last() < 0 || !emptyFolder(drive))
            return false;
        if (round % 2 == 1)
            std::printf("  round %d: cp -rL + sync %.3f s, prepare %.3f s\n", round / 2 + 1, byHand.last(),
                        fresh.last());
    }
    const double hand = median(byHand);
    std::printf("exFAT stick through FUSE, %s: %d files, %.1f MiB (work folder %s)\n", form, bundle.files,
                bundle.bytes / double(kMiB), qPrintable(work));
    std::printf("  cp -rL + sync:            %7.3f s\n", hand);
    std::printf("  prepare, empty target:    %7.3f s   ratio to cp -rL + sync: %.2f\n", median(fresh),
                median(fresh) / hand);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    QTemporaryDir work(arguments.size() > 1 ? QDir(arguments.at(1)).filePath(QStringLiteral("bench-XXXXXX"))
                                            : QDir::temp().filePath(QStringLiteral("bench-XXXXXX")));
    if (!work.isValid()) {
        std::fprintf(stderr, "no work folder\n");
        return 1;
    }
    QRandomGenerator random(20240611);
    Bundle local;
    Bundle stick;
    if (!writeBundle(work.filePath(QStringLiteral("local-bundle")), localBundleSizes(random), &local) ||
        !writeBundle(work.filePath(QStringLiteral("stick-bundle")), stickBundleSizes(random), &stick)) {
        std::fprintf(stderr, "cannot write the synthetic bundles\n");
        return 1;
    }
    return measureLocal(work.path(), local) && measureStick(work.path(), stick, true) &&
                   measureStick(work.path(), stick, false)
               ? 0
               : 1;
}
