// Prepares a drive folder from a synthetic Linux bundle of about 200 MB in about 2,000 files, first onto
// an empty target and then onto the prepared one, and times `cp -r` of the same tree in the same run.
// Usage: bench_prepare [work folder]   (default: the system's temporary folder)

#include "prepare/drivepreparer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <cmath>
#include <cstdio>

namespace {

constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * kKiB;

// Most files of a real bundle are small plugins and resources; a few libraries carry the bulk.
QList<qint64> bundleFileSizes(QRandomGenerator &random)
{
    QList<qint64> sizes;
    for (int i = 0; i < 5; ++i)
        sizes.append(20 * kMiB);
    for (int i = 0; i < 15; ++i)
        sizes.append(kMiB + random.bounded(7 * kMiB));
    // Log-uniform between 1 KiB and 100 KiB.
    for (int i = 0; i < 1980; ++i)
        sizes.append(qint64(kKiB * std::pow(100.0, random.generateDouble())));
    return sizes;
}

bool writeBundle(const QDir &bundle, int *fileCount, qint64 *totalBytes)
{
    QRandomGenerator random(20240611);
    const QList<qint64> sizes = bundleFileSizes(random);
    QByteArray pattern(kMiB, Qt::Uninitialized);
    for (char &byte : pattern)
        byte = char(random.bounded(256));

    *fileCount = int(sizes.size());
    *totalBytes = 0;
    for (int i = 0; i < sizes.size(); ++i) {
        const QString relative = i == 0   ? QStringLiteral("Tavrinox")
                                 : i < 20 ? QStringLiteral("lib/libpart%1.so").arg(i)
                                          : QStringLiteral("plugins/group%1/plugin%2.so").arg(i % 40).arg(i);
        const QString path = bundle.filePath(relative);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        for (qint64 left = sizes.at(i); left > 0; left -= pattern.size())
            file.write(pattern.constData(), qMin<qint64>(left, pattern.size()));
        *totalBytes += sizes.at(i);
    }
    return QFile::exists(bundle.filePath(QStringLiteral("lib/libpart1.so")));
}

double secondsToPrepare(const QString &drive, const Tavrinox::PreparationSources &sources)
{
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

double secondsToCopyWithCp(const QString &source, const QString &target)
{
    QElapsedTimer timer;
    timer.start();
    QProcess cp;
    cp.start(QStringLiteral("cp"), {QStringLiteral("-r"), source, target});
    if (!cp.waitForFinished(-1) || cp.exitCode() != 0) {
        std::fprintf(stderr, "cp -r failed: %s\n", cp.readAllStandardError().constData());
        return -1;
    }
    return timer.nsecsElapsed() / 1e9;
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

    const QDir bundle(work.filePath(QStringLiteral("bundle")));
    int fileCount = 0;
    qint64 totalBytes = 0;
    if (!writeBundle(bundle, &fileCount, &totalBytes)) {
        std::fprintf(stderr, "cannot write the synthetic bundle\n");
        return 1;
    }
    const Tavrinox::PreparationSources sources{
        {}, {}, bundle.filePath(QStringLiteral("Tavrinox")), bundle.path()};
    const QString drive = work.filePath(QStringLiteral("drive"));
    QDir().mkpath(drive);

    const double cpSeconds = secondsToCopyWithCp(bundle.path(), work.filePath(QStringLiteral("cp-copy")));
    const double firstSeconds = secondsToPrepare(drive, sources);
    const double againSeconds = secondsToPrepare(drive, sources);
    if (cpSeconds <= 0 || firstSeconds < 0 || againSeconds < 0)
        return 1;

    std::printf("bundle: %d files, %.1f MiB in %s\n", fileCount, totalBytes / double(kMiB),
                qPrintable(work.path()));
    std::printf("cp -r:                    %8.3f s\n", cpSeconds);
    std::printf("prepare, empty target:    %8.3f s   ratio to cp -r: %.2f\n", firstSeconds,
                firstSeconds / cpSeconds);
    std::printf("prepare, prepared target: %8.3f s   ratio to cp -r: %.3f\n", againSeconds,
                againSeconds / cpSeconds);
    return 0;
}
