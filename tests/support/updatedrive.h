#pragma once

#include <QByteArray>
#include <QString>

// The SHA-256 of a whole tree: every entry's relative path and kind, and every file's bytes.
// A missing path digests to an empty array, so it never equals a real tree.
QByteArray treeDigest(const QString &path);

// The two live bundles of a drive, by digest.
struct BundleDigests
{
    QByteArray windows;
    QByteArray linux;

    bool operator==(const BundleDigests &other) const
    {
        return windows == other.windows && linux == other.linux;
    }
};

// A drive in the middle of an update, as the download step leaves it: prepared at oldVersion
// (both bundles and the state file) with the package of newVersion extracted in a work area on
// the same drive. Old and new bundles differ in bytes and in their file lists, so any mixture shows.
class UpdateDrive
{
public:
    static const QString oldVersion;
    static const QString newVersion;
    static const QString packageSha256;

    bool populate(const QString &root, QString *whyNot);

    QString root() const { return m_root; }
    QString workRoot() const;
    QString packageRoot() const;
    QString windowsPath() const;
    QString linuxPath() const;

    BundleDigests live() const;
    const BundleDigests &oldBundles() const { return m_old; }
    const BundleDigests &newBundles() const { return m_new; }

private:
    QString m_root;
    BundleDigests m_old;
    BundleDigests m_new;
};
