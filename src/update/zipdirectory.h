#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>

namespace Tavrinox {

// One entry of a ZIP's central directory, as the archive declares it.
struct ZipEntryRecord
{
    QString name;         // as stored, with backslashes turned into slashes
    quint32 unixMode = 0; // type and permission bits when the archive was made on a Unix system, else 0
    qint64 uncompressedSize = 0;
};

// Reads the central directory of a whole ZIP archive, ZIP64 included. False, with a readable reason,
// when the bytes are not a ZIP archive or its directory is damaged.
bool readZipDirectory(QByteArrayView zip, QList<ZipEntryRecord> *entries, QString *reason);

// Why an entry of this name may not be extracted (no name, an absolute path, a path that climbs out
// with ".."); empty when it may.
QString entryNameProblem(const QString &name);

// The path an entry name leads to, relative to the extraction folder: backslashes as slashes, with no
// empty or "." segments and no trailing slash, so that "a/./b", "a//b" and "a/b/" all read "a/b".
QString normalizedEntryPath(const QString &name);

// Checks a package's directory before anything of it is written to destDir's volume: every entry must
// pass entryNameProblem, be a plain file or folder (never a link, a device, a FIFO or another special
// file), and lead to a path no other entry leads to; and what the entries unpack to must fit in the
// volume's free space. False with the reason otherwise. Used before either extractor runs.
bool inspectZipBeforeExtraction(const QString &zipPath, const QString &destDir, QString *reason);

} // namespace Tavrinox
