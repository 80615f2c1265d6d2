// Applies a package of about 100 MB, served over HTTPS from 127.0.0.1, to a prepared drive folder, and
// does the same by hand in the same run: curl, sha256sum, bsdtar -x (or unzip), one mv per bundle, rm of
// the work folder, `sync -f` of the drive's file system and `sync` of its folder. The manager's apply puts
// the new bundles on the medium before it reports success, so the pipeline ends with the same flushes for
// a fair comparison.
// The time of each step is printed for both. The apply runs in a child process, so its peak resident
// memory (VmHWM) is the manager's alone; it is printed beside the package's size.
// Then, as root, the same on an exFAT loop volume: the manager with its flushes, the manager under
// eatmydata (which turns every fsync and syncfs into nothing), and the pipeline.
// Usage: bench_apply [work folder]   (default: the system's temporary folder)

#include "support/support.h"
#include "update/sha256.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtConcurrent>

#include <algorithm>
#include <cstdio>

namespace {

constexpr qint64 kKiB = 1024;
constexpr qint64 kMiB = 1024 * kKiB;
constexpr int kRounds = 5;
constexpr int kExFatRounds = 3;
const QString kApplyMode = QStringLiteral("--apply");

// Libraries compress to a little over half: bytes drawn from sixteen values do the same under deflate.
// The package is zipped from a real folder laid out below work.
QByteArray benchmarkPackage(const QString &work)
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

    const QString folder = work + QStringLiteral("/package");
    bool written =
        Fixture::makeFiles(folder + QStringLiteral("/Tavrinox"), Fixture::packageFiles("new"), "new");
    for (const char *bundle : {"windows", "linux/lib"}) {
        const QString bundleFolder = folder + QStringLiteral("/Tavrinox/") + QLatin1String(bundle);
        for (int i = 0; i < 4; ++i)
            written = written &&
                      Fixture::write(bundleFolder + QStringLiteral("/libpart%1").arg(i), content(20 * kMiB));
        for (int i = 0; i < 150; ++i)
            written = written && Fixture::write(bundleFolder + QStringLiteral("/plugins/plugin%1").arg(i),
                                                content(kKiB + random.bounded(100 * kKiB)));
    }
    const QString zip = work + QStringLiteral("/package.zip");
    return written && Fixture::zip(folder, zip) ? Fixture::read(zip) : QByteArray();
}

// The steps timed on each side: the manager's phases and the pipeline's commands.
const QStringList kManagerSteps{"download+hash", "check", "write", "extract", "flush+replace"};
const QStringList kHandSteps{"curl", "sha256sum", "bsdtar", "mv", "rm+sync"};

// The highest resident size this process reached, in KiB.
long peakResidentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

// The child: applies the package and prints its time, its peak resident size and each phase's time.
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
    // The phase reports arrive on the apply's thread: each change closes the time of the phase before.
    QList<qint64> phaseEndsMs;
    Tavrinox::UpdateApplyPhase current = Tavrinox::UpdateApplyPhase::Downloading;
    const auto progress = [&](const Tavrinox::UpdateApplyProgress &report) {
        if (report.phase != current)
            phaseEndsMs.append(timer.elapsed());
        current = report.phase;
    };
    const Tavrinox::UpdateApplyResult result =
        QtConcurrent::run([&] {
            return Tavrinox::applyUpdate(arguments.at(1), manifest, {}, progress);
        }).result();
    const qint64 elapsedMs = timer.elapsed();
    if (!result.ok) {
        std::fprintf(stderr, "apply failed: %s\n", qPrintable(result.error));
        return 1;
    }
    phaseEndsMs.append(elapsedMs);
    std::printf("%lld %ld", static_cast<long long>(elapsedMs), peakResidentKiB());
    for (int i = 0; i < phaseEndsMs.size(); ++i)
        std::printf(" %lld", static_cast<long long>(phaseEndsMs.at(i) - (i ? phaseEndsMs.at(i - 1) : 0)));
    std::printf("\n");
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

// Seconds for the manager's apply, measured by the child; its peak resident size goes to peakKiB and
// the seconds of its phases to steps, when given. A wrapper, when given, runs the child (eatmydata).
double secondsWithManager(const QString &root, const QUrl &url, const QString &sha256, qint64 size,
                          long *peakKiB, QList<double> *steps = nullptr, const QString &wrapper = QString())
{
    QStringList arguments{kApplyMode, root, url.toString(), sha256, QString::number(size)};
    if (!wrapper.isEmpty())
        arguments.prepend(QCoreApplication::applicationFilePath());
    QByteArray output;
    if (!run(wrapper.isEmpty() ? QCoreApplication::applicationFilePath() : wrapper, arguments, &output))
        return -1;
    const QList<QByteArray> figures = output.trimmed().split(' ');
    *peakKiB = std::max(*peakKiB, figures.value(1).toLong());
    for (int i = 2; steps && i < figures.size(); ++i)
        steps->append(figures.at(i).toLongLong() / 1000.0);
    return figures.value(0).toLongLong() / 1000.0;
}

// Seconds for the pipeline; the seconds of its commands go to steps.
double secondsByHand(const QString &root, const QUrl &url, const QString &sha256, QList<double> *steps)
{
    const QDir drive(root);
    const QString work = drive.filePath(QStringLiteral("Tavrinox/.update-by-hand"));
    const QString zip = work + QStringLiteral("/package.zip");
    const QString extracted = work + QStringLiteral("/extracted");
    const bool haveBsdtar = !QStandardPaths::findExecutable(QStringLiteral("bsdtar")).isEmpty();

    QElapsedTimer timer;
    timer.start();
    QElapsedTimer step;
    step.start();
    const auto stepDone = [&] {
        steps->append(step.nsecsElapsed() / 1e9);
        step.restart();
        return true;
    };
    QByteArray sum;
    if (!QDir().mkpath(extracted) ||
        !run(QStringLiteral("curl"), {"-sSf", "--cacert", TAVRINOX_BENCH_CA, "-o", zip, url.toString()}) ||
        !stepDone() || !run(QStringLiteral("sha256sum"), {zip}, &sum) || !sum.startsWith(sha256.toLatin1()) ||
        !stepDone() ||
        !(haveBsdtar ? run(QStringLiteral("bsdtar"), {"-xf", zip, "-C", extracted})
                     : run(QStringLiteral("unzip"), {"-q", zip, "-d", extracted})) ||
        !stepDone())
        return -1;
    for (const char *bundle : {"windows", "linux"}) {
        const QString name = QLatin1String("Tavrinox/") + QLatin1String(bundle);
        if (!run(QStringLiteral("mv"),
                 {"-T", "-b", extracted + QLatin1Char('/') + name, drive.filePath(name)}))
            return -1;
    }
    stepDone();
    // syncfs, then an fsync of the drive's folder, which is what makes a FUSE file system such as
    // exfat-fuse write out its state: the same two flushes the program makes before it reports success.
    if (!run(QStringLiteral("rm"), {"-rf", work}) || !run(QStringLiteral("sync"), {"-f", root}) ||
        !run(QStringLiteral("sync"), {root}))
        return -1;
    stepDone();
    return timer.nsecsElapsed() / 1e9;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

// The apply on an exFAT volume mounted through FUSE, as a USB stick often is on Linux: with its flushes,
// without them, and by hand.
void measureOnExFat(const QUrl &url, const QString &sha256, qint64 size)
{
    const QString eatmydata = QStandardPaths::findExecutable(QStringLiteral("eatmydata"));
    Fixture::Volume volume;
    QString why = QStringLiteral("eatmydata is not installed");
    if (eatmydata.isEmpty() || !volume.mount(QStringLiteral("exfat"), 1024, &why)) {
        std::printf("exFAT: not measured (%s)\n", qPrintable(why));
        return;
    }
    QList<double> seconds[3];
    long peakKiB = 0;
    QList<double> steps;
    for (int round = 0; round < kExFatRounds; ++round) {
        for (int run = 0; run < 3; ++run) {
            const QString drive = volume.path + QStringLiteral("/drive%1").arg(run);
            if (!Fixture::makeDrive(drive, QStringLiteral("1.0.0")))
                return;
            seconds[run].append(run == 2 ? secondsByHand(drive, url, sha256, &steps)
                                         : secondsWithManager(drive, url, sha256, size, &peakKiB, nullptr,
                                                              run == 1 ? eatmydata : QString()));
            QDir(drive).removeRecursively();
            if (seconds[run].last() < 0)
                return;
        }
    }
    const double manager = median(seconds[0]);
    const double withoutFlushes = median(seconds[1]);
    const double hand = median(seconds[2]);
    std::printf("exFAT loop volume (median of %d): manager %.2f s, by hand (with sync) %.2f s, ratio %.2f; "
                "manager without flushes %.2f s, flush cost ratio %.2f\n",
                kExFatRounds, manager, hand, manager / hand, withoutFlushes, manager / withoutFlushes);
}

// One line of per-step medians; rounds[r][i] is step i of round r.
void printSteps(const char *who, const QStringList &names, const QList<QList<double>> &rounds)
{
    std::printf("  %s:", who);
    for (int i = 0; i < names.size(); ++i) {
        QList<double> values;
        for (const QList<double> &round : rounds)
            values.append(round.value(i));
        std::printf(" %s %.2f s%s", qPrintable(names.at(i)), median(values),
                    i + 1 < names.size() ? "," : "\n");
    }
}

// The package hash alone, as Qt 6.4 and as OpenSSL compute it, beside sha256sum.
void printHashSpeeds(const QByteArray &package, const QString &zip)
{
    QElapsedTimer timer;
    timer.start();
    QCryptographicHash::hash(package, QCryptographicHash::Sha256);
    const double qt = timer.nsecsElapsed() / 1e9;
    timer.restart();
    Tavrinox::Sha256 openssl;
    openssl.addData(package.constData(), package.size());
    openssl.hexResult();
    const double ours = timer.nsecsElapsed() / 1e9;
    timer.restart();
    run(QStringLiteral("sha256sum"), {zip});
    std::printf(
        "hash of the package alone: QCryptographicHash %.2f s, OpenSSL (used) %.2f s, sha256sum %.2f s\n", qt,
        ours, timer.nsecsElapsed() / 1e9);
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
    HttpsServer server;
    if (!work.isValid() || !HttpsServer::trustTestCertificateAuthority() || !server.start()) {
        std::fprintf(stderr, "cannot set up the package's HTTPS server\n");
        return 1;
    }
    std::printf("building the package...\n");
    const QByteArray package = benchmarkPackage(work.path());
    if (package.isEmpty()) {
        std::fprintf(stderr, "cannot build the package (bsdtar is needed)\n");
        return 1;
    }
    const QString sha256 = Fixture::sha256(package);
    server.route(QStringLiteral("/package.zip"), 200, package);
    const QUrl url = server.url(QStringLiteral("/package.zip"));
    std::printf("package: %.1f MiB\n", double(package.size()) / kMiB);

    QList<double> managerSeconds;
    QList<double> handSeconds;
    QList<QList<double>> managerSteps;
    QList<QList<double>> handSteps;
    long peakKiB = 0;
    for (int round = 0; round < kRounds; ++round) {
        const QString managerDrive = work.filePath(QStringLiteral("manager%1").arg(round));
        const QString handDrive = work.filePath(QStringLiteral("hand%1").arg(round));
        if (!Fixture::makeDrive(managerDrive, QStringLiteral("1.0.0")) ||
            !Fixture::makeDrive(handDrive, QStringLiteral("1.0.0"))) {
            std::fprintf(stderr, "cannot lay out the drives\n");
            return 1;
        }
        managerSteps.append(QList<double>());
        handSteps.append(QList<double>());
        managerSeconds.append(
            secondsWithManager(managerDrive, url, sha256, package.size(), &peakKiB, &managerSteps.last()));
        handSeconds.append(secondsByHand(handDrive, url, sha256, &handSteps.last()));
        if (managerSeconds.last() < 0 || handSeconds.last() < 0)
            return 1;
        std::printf("round %d: manager %.2f s, by hand %.2f s\n", round + 1, managerSeconds.last(),
                    handSeconds.last());
        QDir(managerDrive).removeRecursively();
        QDir(handDrive).removeRecursively();
    }
    const double manager = median(managerSeconds);
    const double hand = median(handSeconds);
    std::printf("median: manager %.2f s, by hand (with sync) %.2f s, ratio %.2f (goal <= 1.10)\n", manager,
                hand, manager / hand);
    printSteps("manager", kManagerSteps, managerSteps);
    printSteps("by hand", kHandSteps, handSteps);
    const double packageMiB = double(package.size()) / kMiB;
    std::printf(
        "manager peak resident memory: %.1f MiB, package %.1f MiB, above the package %.1f MiB (goal <= "
        "80 MiB)\n",
        peakKiB / 1024.0, packageMiB, peakKiB / 1024.0 - packageMiB);
    const QString zip = work.filePath(QStringLiteral("package.zip"));
    QFile zipFile(zip);
    if (zipFile.open(QIODevice::WriteOnly) && zipFile.write(package) == package.size() && zipFile.flush())
        printHashSpeeds(package, zip);
    measureOnExFat(url, sha256, package.size());
    return 0;
}
