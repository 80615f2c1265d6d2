#include "support/loopvolume.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace {

bool run(const QString &program, const QStringList &arguments, QString *output, QString *whyNot)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        *whyNot = QStringLiteral("%1 %2 failed: %3")
                      .arg(program, arguments.join(QLatin1Char(' ')),
                           QString::fromLocal8Bit(process.readAllStandardError()).trimmed());
        return false;
    }
    if (output)
        *output = QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
    return true;
}

QString findTool(const QString &name)
{
    const QString found = QStandardPaths::findExecutable(name);
    if (!found.isEmpty())
        return found;
    return QStandardPaths::findExecutable(name, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")});
}

} // namespace

LoopVolume::~LoopVolume()
{
    release();
}

bool LoopVolume::mount(FileSystem fileSystem, qint64 sizeBytes, QString *whyNot)
{
#ifdef Q_OS_UNIX
    if (geteuid() != 0) {
        *whyNot = QStringLiteral("a loop-mounted volume needs root");
        return false;
    }
#else
    *whyNot = QStringLiteral("loop-mounted volumes exist only on Linux");
    return false;
#endif
    const bool exfat = fileSystem == FileSystem::ExFat;
    const QStringList tools = exfat
                                  ? QStringList{QStringLiteral("losetup"), QStringLiteral("mkfs.exfat"),
                                                QStringLiteral("mount.exfat-fuse"), QStringLiteral("umount")}
                                  : QStringList{QStringLiteral("losetup"), QStringLiteral("mkfs.ext4"),
                                                QStringLiteral("mount"), QStringLiteral("umount")};
    for (const QString &tool : tools) {
        if (findTool(tool).isEmpty()) {
            *whyNot = QStringLiteral("%1 is not installed").arg(tool);
            return false;
        }
    }
    if (exfat && !QFile::exists(QStringLiteral("/dev/fuse"))) {
        *whyNot = QStringLiteral("FUSE is not available (/dev/fuse is missing)");
        return false;
    }
    if (!m_workDir.isValid()) {
        *whyNot = QStringLiteral("no temporary directory for the image");
        return false;
    }

    const QString image = m_workDir.filePath(QStringLiteral("volume.img"));
    QFile imageFile(image);
    if (!imageFile.open(QIODevice::WriteOnly) || !imageFile.resize(sizeBytes)) {
        *whyNot = QStringLiteral("cannot create the image file");
        return false;
    }
    imageFile.close();

    const QStringList mkfsArguments = exfat ? QStringList{image}
                                            : QStringList{QStringLiteral("-q"), QStringLiteral("-F"),
                                                          QStringLiteral("-m"), QStringLiteral("0"), image};
    if (!run(findTool(exfat ? QStringLiteral("mkfs.exfat") : QStringLiteral("mkfs.ext4")), mkfsArguments,
             nullptr, whyNot))
        return false;
    if (!run(findTool(QStringLiteral("losetup")), {QStringLiteral("-f"), QStringLiteral("--show"), image},
             &m_loopDevice, whyNot))
        return false;

    const QString mountPoint = m_workDir.filePath(QStringLiteral("mnt"));
    QDir().mkpath(mountPoint);
    const bool mounted =
        exfat
            ? run(findTool(QStringLiteral("mount.exfat-fuse")), {m_loopDevice, mountPoint}, nullptr, whyNot)
            : run(findTool(QStringLiteral("mount")),
                  {QStringLiteral("-t"), QStringLiteral("ext4"), m_loopDevice, mountPoint}, nullptr, whyNot);
    if (!mounted) {
        release();
        return false;
    }
    m_mountPoint = mountPoint;
    return true;
}

qint64 LoopVolume::fuseProcess() const
{
    const QByteArray ours = (m_loopDevice + QLatin1Char('\0') + m_mountPoint).toLocal8Bit();
    if (m_mountPoint.isEmpty())
        return 0;
    for (const QString &process : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile commandLine(QStringLiteral("/proc/%1/cmdline").arg(process));
        if (commandLine.open(QIODevice::ReadOnly) && commandLine.readAll().contains(ours))
            return process.toLongLong();
    }
    return 0;
}

bool LoopVolume::remountAfterPull(QString *whyNot)
{
    // What fsck could not repair shows in the files; its exit code (1 when it repaired) is not needed.
    QString ignored;
    run(findTool(QStringLiteral("umount")), {QStringLiteral("-l"), m_mountPoint}, nullptr, &ignored);
    run(findTool(QStringLiteral("fsck.exfat")), {QStringLiteral("-y"), m_loopDevice}, nullptr, &ignored);
    return run(findTool(QStringLiteral("mount.exfat-fuse")), {m_loopDevice, m_mountPoint}, nullptr, whyNot);
}

void LoopVolume::release()
{
    QString ignored;
    if (!m_mountPoint.isEmpty())
        run(findTool(QStringLiteral("umount")), {m_mountPoint}, nullptr, &ignored);
    if (!m_loopDevice.isEmpty())
        run(findTool(QStringLiteral("losetup")), {QStringLiteral("-d"), m_loopDevice}, nullptr, &ignored);
    m_mountPoint.clear();
    m_loopDevice.clear();
}
