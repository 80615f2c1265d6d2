#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>

// Files the tests write and read back: creating folders on the way, reading a missing file as empty.
namespace Fixture {

bool writeFile(const QString &path, const QByteArray &content);
QByteArray readFile(const QString &path);

// A file of the given size that takes no room on the disk holding it: for sizes that only get measured.
bool makeSparseFile(const QString &path, qint64 size);

// Every file under a folder, hidden ones included: relative path -> bytes.
QMap<QString, QByteArray> treeContents(const QString &directory);

// The same with the hidden entries left out, as a bundle copy sees the folder.
QMap<QString, QByteArray> visibleTreeContents(const QString &directory);

// Dates every file under a folder back to a fixed old time, so that any later rewrite shows in its time.
bool ageTree(const QString &directory);
bool hasOldTime(const QString &path);

// The objects of a file holding one JSON object a line, such as a transaction log; empty lines skipped.
QList<QJsonObject> jsonLines(const QString &path);

} // namespace Fixture
