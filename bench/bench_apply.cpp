// Applies a package of about 100 MB, served over HTTPS from 127.0.0.1, to a prepared drive folder, and
// does the same by hand in the same run: curl, sha256sum, bsdtar -x (or unzip), and one mv per bundle.
// The apply runs in a child process, so its peak memory is the manager's alone.
// Then it measures what putting each step on the medium costs: the same apply on an exFAT loop volume
// (as root), once as it is and once under eatmydata, which turns every fsync and syncfs into nothing.
// Usage: bench_apply [work folder]   (default: the system's temporary folder)

#include "support/httpsserver.h"
#include "support/loopvolume.h"
#include "support/zippackage.h"
#include "update/updateapply.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtConcurrent>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

namespace {

constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * kKiB;
constexpr int kRounds = 3;
const QString kApplyMode = QStringLiteral("--apply");

// Libraries compress to a little over half: bytes drawn from sixteen values do the same under deflate.
ZipBuilder benchmarkPackage()
{
    QRandomGenerator random(20240611);
    QByteArray pattern(kMiB, Qt::Uninitialized);
    for (char &byte : pattern)
        byte = char(random.bounded(16) * 13);
    auto content = [&](qint64 size) {
        QByteArray bytes;
        bytes.reserve(size);
        while (bytes.size() < size)
            bytes.append(pattern.constData(), qMin<qint64>(size - bytes.size(), pattern.size()));
        return bytes;
    };

    ZipBuilder package = tavrinoxPackage("new");
    for (const char *bundle : {"windows", "linux/lib"}) {
        for (int i = 0; i < 4; ++i)
            package.file(QByteArray("Tavrinox/") + bundle + "/libpart" + QByteArray::number(i),
                         content(20 * kMiB));
        for (int i = 0; i < 150; ++i)
            package.file(QByteArray("Tavrinox/") + bundle + "/plugins/plugin" + QByteArray::number(i),
                         content(kKiB + random.bounded(100 * kKiB)));
    }
    return package;
}

// The child: applies the package and prints its time and peak resident size.
int applyInChild(const QStringList &arguments)
{
    if (arguments.size() != 5 || !HttpsServer::trustTestCertificateAuthority())
        return 2;
    Tavrinox::UpdateManifest manifest;
    manifest.version = QStringLiteral("1.1.0");
    manifest.packageUrl = arguments.at(2);
    manifest.sha256 = arguments.at(3);
    manifest.size = arguments.at(4).toLongLong();

    QElapsedTimer timer;
    timer.start();
    const Tavrinox::UpdateApplyResult result =
        QtConcurrent::run([&] { return Tavrinox::applyUpdate(arguments.at(1), manifest); }).result();
    const qint64 elapsedMs = timer.elapsed();
    if (!result.ok) {
        std::fprintf(stderr, "apply failed: %s\n", qPrintable(result.error));
        return 1;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%lld %ld\n", static_cast<long long>(elapsedMs), usage.ru_maxrss);
    return 0;
}

bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program),
                     process.readAllStandardError().constData());
        return false;
    }
    if (output)
        *output = process.readAllStandardOutput();
    return true;
}

// Seconds for the manager's apply, measured by the child; its peak resident size goes to peakKiB. A
// wrapper, when given, runs the child (eatmydata).
double secondsWithManager(const QString &root, const QUrl &url, const QString &sha256, qint64 size,
                          long *peakKiB, const QString &wrapper = QString())
{
    QStringList arguments{kApplyMode, root, url.toString(), sha256, QString::number(size)};
    if (!wrapper.isEmpty())
        arguments.prepend(QCoreApplication::applicationFilePath());
    QByteArray output;
    if (!run(wrapper.isEmpty() ? QCoreApplication::applicationFilePath() : wrapper, arguments, &output))
        return -1;
    const QList<QByteArray> figures = output.trimmed().split(' ');
    *peakKiB = std::max(*peakKiB, figures.value(1).toLong());
    return figures.value(0).toLongLong() / 1000.0;
}

double secondsByHand(const QString &root, const QUrl &url, const QString &sha256)
{
    const QDir drive(root);
    const QString work = drive.filePath(QStringLiteral("Tavrinox/.update-by-hand"));
    const QString zip = work + QStringLiteral("/package.zip");
    const QString extracted = work + QStringLiteral("/extracted");
    const bool haveBsdtar = !QStandardPaths::findExecutable(QStringLiteral("bsdtar")).isEmpty();

    QElapsedTimer timer;
    timer.start();
    QByteArray sum;
    if (!QDir().mkpath(extracted) ||
        !run(QStringLiteral("curl"), {"-sSf", "--cacert", TAVRINOX_BENCH_CA, "-o", zip, url.toString()}) ||
        !run(QStringLiteral("sha256sum"), {zip}, &sum) || !sum.startsWith(sha256.toLatin1()) ||
        !(haveBsdtar ? run(QStringLiteral("bsdtar"), {"-xf", zip, "-C", extracted})
                     : run(QStringLiteral("unzip"), {"-q", zip, "-d", extracted})))
        return -1;
    for (const char *bundle : {"windows", "linux"}) {
        const QString name = QLatin1String("Tavrinox/") + QLatin1String(bundle);
        if (!run(QStringLiteral("mv"),
                 {"-T", "-b", extracted + QLatin1Char('/') + name, drive.filePath(name)}))
            return -1;
    }
    return timer.nsecsElapsed() / 1e9;
}

// The apply on an exFAT volume mounted through FUSE, as a USB stick often is on Linux, with and without
// its flushes.
void measureFlushCost(const QUrl &url, const QString &sha256, qint64 size)
{
    const QString eatmydata = QStandardPaths::findExecutable(QStringLiteral("eatmydata"));
    LoopVolume volume;
    QString why = QStringLiteral("eatmydata is not installed");
    if (eatmydata.isEmpty() || !volume.mount(LoopVolume::FileSystem::ExFat, 1024 * kMiB, &why)) {
        std::printf("flush cost on exFAT: not measured (%s)\n", qPrintable(why));
        return;
    }
    double seconds[2] = {-1, -1};
    long peakKiB = 0;
    for (int withoutFlushes = 0; withoutFlushes < 2; ++withoutFlushes) {
        const QString drive = volume.mountPoint() + QStringLiteral("/drive%1").arg(withoutFlushes);
        if (!layOutPreparedDrive(drive, QStringLiteral("1.0.0"), "old"))
            return;
        seconds[withoutFlushes] =
            secondsWithManager(drive, url, sha256, size, &peakKiB, withoutFlushes ? eatmydata : QString());
        QDir(drive).removeRecursively();
    }
    if (seconds[0] < 0 || seconds[1] < 0)
        return;
    std::printf("flush cost on exFAT (one run each): with flushes %.2f s, without %.2f s, ratio %.2f\n",
                seconds[0], seconds[1], seconds[0] / seconds[1]);
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.value(0) == kApplyMode)
        return applyInChild(arguments);

    QTemporaryDir work(arguments.isEmpty() ? QDir::tempPath() + QStringLiteral("/bench_apply-XXXXXX")
                                           : arguments.first() + QStringLiteral("/bench_apply-XXXXXX"));
    QString why;
    HttpsServer server;
    if (!work.isValid() || !HttpsServer::trustTestCertificateAuthority(&why) || !server.start(&why)) {
        std::fprintf(stderr, "cannot set up: %s\n", qPrintable(why));
        return 1;
    }
    std::printf("building the package...\n");
    const QByteArray package = benchmarkPackage().bytes();
    const QString sha256 = sha256Hex(package);
    server.addBody(QStringLiteral("/package.zip"), package);
    const QUrl url = server.url(QStringLiteral("/package.zip"));
    std::printf("package: %.1f MiB\n", double(package.size()) / kMiB);

    QList<double> managerSeconds;
    QList<double> handSeconds;
    long peakKiB = 0;
    for (int round = 0; round < kRounds; ++round) {
        const QString managerDrive = work.filePath(QStringLiteral("manager%1").arg(round));
        const QString handDrive = work.filePath(QStringLiteral("hand%1").arg(round));
        if (!layOutPreparedDrive(managerDrive, QStringLiteral("1.0.0"), "old") ||
            !layOutPreparedDrive(handDrive, QStringLiteral("1.0.0"), "old")) {
            std::fprintf(stderr, "cannot lay out the drives\n");
            return 1;
        }
        managerSeconds.append(secondsWithManager(managerDrive, url, sha256, package.size(), &peakKiB));
        handSeconds.append(secondsByHand(handDrive, url, sha256));
        if (managerSeconds.last() < 0 || handSeconds.last() < 0)
            return 1;
        std::printf("round %d: manager %.2f s, by hand %.2f s\n", round + 1, managerSeconds.last(),
                    handSeconds.last());
        QDir(managerDrive).removeRecursively();
        QDir(handDrive).removeRecursively();
    }
    const double manager = median(managerSeconds);
    const double hand = median(handSeconds);
    std::printf("median: manager %.2f s, by hand %.2f s, ratio %.2f\n", manager, hand, manager / hand);
    std::printf("manager peak resident memory: %.1f MiB (package %.1f MiB)\n", peakKiB / 1024.0,
                double(package.size()) / kMiB);
    measureFlushCost(url, sha256, package.size());
    return 0;
}
