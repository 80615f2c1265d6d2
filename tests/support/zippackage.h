#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// Real ZIP packages for the update tests, and the drives they update.

// Builds real ZIP archives with libarchive, entries in the order added, including the hostile kinds
// a package must never be allowed to carry.
class ZipBuilder
{
public:
    ZipBuilder &file(const QByteArray &path, const QByteArray &data, int permissions = 0644);
    ZipBuilder &directory(const QByteArray &path);
    ZipBuilder &symlink(const QByteArray &path, const QByteArray &target);
    ZipBuilder &hardLink(const QByteArray &path, const QByteArray &target);
    // The zip writer refuses devices, so the entry is written as a file and its Unix mode patched.
    ZipBuilder &characterDevice(const QByteArray &path);
    // A named pipe, written the same way.
    ZipBuilder &fifo(const QByteArray &path);
    // Stores entries uncompressed, so the archive's size follows its content byte for byte.
    ZipBuilder &storeOnly();

    QByteArray bytes() const;
    bool save(const QString &path) const;

private:
    enum class Kind { File, Directory, Symlink, HardLink, CharacterDevice, Fifo };
    struct Entry
    {
        Kind kind;
        QByteArray path;
        QByteArray data; // file content, or the link target
        int permissions;
    };
    QList<Entry> m_entries;
    bool m_storeOnly = false;
};

// The files of both bundles, relative to the "Tavrinox" directory of a package or a drive.
QByteArrayList tavrinoxBundleFiles();

// What a bundle file holds on a drive or in a package: the marker names which copy it is.
QByteArray bundleFileContent(const QByteArray &marker, const QByteArray &file);

// A complete update package with every bundle file under prefix, except those listed in omitted.
ZipBuilder tavrinoxPackage(const QByteArray &marker, const QByteArray &prefix = "Tavrinox/",
                           const QByteArrayList &omitted = {});

// A drive as the preparer leaves it: both bundles holding marker, launchers, README and the state file
// recording version.
bool layOutPreparedDrive(const QString &root, const QString &version, const QByteArray &marker);

// Whether every bundle file on the drive holds the marker's content.
bool driveHoldsBundles(const QString &root, const QByteArray &marker);

// What an update leaves in the drive's Tavrinox folder when it did not finish cleanly: backups, work
// areas, the journal.
QStringList updateLeftovers(const QString &root);

// A package's SHA-256 as the manifest gives it: lower-case hex.
QString sha256Hex(const QByteArray &bytes);

// Every file and folder under root with the files' bytes (folders map to a null array), to show that
// an operation left a drive exactly as it was.
QMap<QString, QByteArray> driveSnapshot(const QString &root);
