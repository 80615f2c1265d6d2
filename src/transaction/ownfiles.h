#pragma once

#include <QByteArray>
#include <QFileInfo>
#include <QString>

namespace Tavrinox {

// Whether an entry is a link or a junction: what it leads to may lie off the drive.
bool isLink(const QFileInfo &entry);

// The program's own files on a drive (the state file, the journal and its log, the launchers, the
// README): a hostile drive may hold a link, a pipe or a device under one of their names.

// Removes a link (or a junction) found where one of these files is about to be written, so that the
// write replaces the link instead of going where it leads, possibly off the drive. False when a link is
// there and cannot be removed.
bool removeLinkInTheWay(const QString &path);

// Reads one of these files whole, when it is a regular file, not a link, of at most maxBytes; false
// otherwise (a pipe would block the read, and a link to a device would never end it).
bool readOwnFile(const QString &path, qint64 maxBytes, QByteArray *bytes);

// More than the state file or the journal ever holds.
inline constexpr qint64 kOwnFileMaxBytes = 1024 * 1024;

} // namespace Tavrinox
