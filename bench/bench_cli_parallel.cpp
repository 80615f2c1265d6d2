// Prepares 4 folder-backed drives with one `tavrinox-cli prepare` (one worker thread per drive) and
// the same 4 drives with 4 `tavrinox-cli prepare` runs one after another, in the same run, from a
// synthetic Linux bundle of about 60 MB in about 600 files. The drives are listed from a modelled
// machine (TAVRINOX_SYSTEM_ROOT) whose sticks are mounted at folders of the work folder. Each round
// starts from empty drives with the written data flushed; the two ways alternate which goes first.
// Usage: bench_cli_parallel [work folder]   (default: the system's temporary folder)

#include "support/support.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * kKiB;
constexpr int kDrives = 4;
constexpr int kRounds = 3;

// A few large libraries and many small plugins, as a real bundle holds.
bool writeBundle(const QDir &bundle, int *fileCount, qint64 *totalBytes)
{
    QRandomGenerator random(20240611);
    QByteArray pattern(kMiB, Qt::Uninitialized);
    for (char &byte : pattern)
        byte = char(random.bounded(256));
    *fileCount = 0;
    *totalBytes = 0;
    for (int i = 0; i < 600; ++i) {
        const qint64 size = i < 4 ? 8 * kMiB : 8 * kKiB + random.bounded(40 * kKiB);
        const QString relative =
            i == 0 ? QStringLiteral("Tavrinox") : QStringLiteral("lib/group%1/part%2.so").arg(i % 20).arg(i);
        QDir().mkpath(QFileInfo(bundle.filePath(relative)).absolutePath());
        QFile file(bundle.filePath(relative));
        if (!file.open(QIODevice::WriteOnly))
            return false;
        for (qint64 left = size; left > 0; left -= pattern.size())
            file.write(pattern.constData(), qMin<qint64>(left, pattern.size()));
        ++*fileCount;
        *totalBytes += size;
    }
    return true;
}

bool emptyDrives(const QDir &work)
{
    for (int drive = 1; drive <= kDrives; ++drive) {
        QDir folder(work.filePath(QStringLiteral("drive%1").arg(drive)));
        if (!folder.removeRecursively() || !QDir().mkpath(folder.path()))
            return false;
    }
    // What an earlier preparation left in the page cache must not be written during the next one.
    return QProcess::execute(QStringLiteral("sync"), {}) == 0;
}

// Seconds for the preparations, each list of drives one run of the program, the runs one after another.
double secondsToPrepare(const QString &program, const QDir &work, const QList<QStringList> &runs)
{
    QElapsedTimer timer;
    timer.start();
    for (const QStringList &drives : runs) {
        QProcess cli;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TAVRINOX_SYSTEM_ROOT"), work.filePath(QStringLiteral("system")));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), work.filePath(QStringLiteral("data")));
        cli.setProcessEnvironment(environment);
        cli.start(program, QStringList{QStringLiteral("prepare")} + drives +
                               QStringList{QStringLiteral("--yes"), QStringLiteral("--linux"),
                                           work.filePath(QStringLiteral("bundle"))});
        if (!cli.waitForFinished(-1) || cli.exitStatus() != QProcess::NormalExit || cli.exitCode() != 0) {
            std::fprintf(stderr, "tavrinox-cli failed:\n%s%s", cli.readAllStandardOutput().constData(),
                         cli.readAllStandardError().constData());
            return -1;
        }
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
    const QDir folder(work.path());
    int fileCount = 0;
    qint64 totalBytes = 0;
    if (!work.isValid() ||
        !writeBundle(QDir(folder.filePath(QStringLiteral("bundle"))), &fileCount, &totalBytes)) {
        std::fprintf(stderr, "cannot write the synthetic bundle\n");
        return 1;
    }
    QStringList allAtOnce;
    QList<QStringList> oneByOne;
    for (int drive = 1; drive <= kDrives; ++drive) {
        const QString label = QStringLiteral("PEN%1").arg(drive);
        if (!Fixture::addUsbStick(folder.filePath(QStringLiteral("system")), drive, label,
                         folder.filePath(QStringLiteral("drive%1").arg(drive)))) {
            std::fprintf(stderr, "cannot model the machine's drives\n");
            return 1;
        }
        allAtOnce.append(label);
        oneByOne.append({label});
    }

    const QString program = QStringLiteral(TAVRINOX_CLI);
    std::printf("bundle: %d files, %.1f MiB, onto %d drives in %s\n", fileCount, totalBytes / double(kMiB),
                kDrives, qPrintable(work.path()));
    QList<double> sequential;
    QList<double> parallel;
    for (int round = 0; round < kRounds; ++round) {
        for (const bool atOnce : {round % 2 == 1, round % 2 == 0}) {
            if (!emptyDrives(folder))
                return 1;
            const double seconds =
                secondsToPrepare(program, folder, atOnce ? QList<QStringList>{allAtOnce} : oneByOne);
            if (seconds < 0)
                return 1;
            (atOnce ? parallel : sequential).append(seconds);
        }
        std::printf("round %d: 4 one after another %7.3f s, 4 at once %7.3f s\n", round + 1,
                    sequential.last(), parallel.last());
    }
    std::sort(sequential.begin(), sequential.end());
    std::sort(parallel.begin(), parallel.end());
    const double sequentialMedian = sequential.at(kRounds / 2);
    const double parallelMedian = parallel.at(kRounds / 2);
    std::printf("median: one after another %.3f s, at once %.3f s, speed-up %.2f\n", sequentialMedian,
                parallelMedian, sequentialMedian / parallelMedian);
    return 0;
}
