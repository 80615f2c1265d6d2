#pragma once

#include <QString>
#include <QTemporaryDir>

// A real small volume for tests that need one: an image file formatted as exFAT (mounted
// through FUSE, like a USB stick on Linux) or ext4, attached to a loop device and mounted.
// Needs root, losetup and the file-system tools; mount() says why when it cannot, so the
// test can skip with that reason. Everything is unmounted and detached on destruction.
class LoopVolume
{
public:
    enum class FileSystem { ExFat, Ext4 };

    LoopVolume() = default;
    ~LoopVolume();
    Q_DISABLE_COPY(LoopVolume)

    bool mount(FileSystem fileSystem, qint64 sizeBytes, QString *whyNot);
    QString mountPoint() const { return m_mountPoint; }

    // The FUSE process serving an exFAT volume, or 0.
    qint64 fuseProcess() const;
    // After that process was killed, as when a stick is pulled: detaches the dead mount, repairs the
    // file system with fsck.exfat -y and mounts it again.
    bool remountAfterPull(QString *whyNot);

private:
    void release();

    QTemporaryDir m_workDir;
    QString m_loopDevice;
    QString m_mountPoint;
};
