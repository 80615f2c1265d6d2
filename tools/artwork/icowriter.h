#pragma once

#include <QImage>
#include <QList>
#include <QString>

namespace Artwork {

// Writes a Windows icon file holding the given square images, smallest first as Windows expects.
// Images up to 128 pixels are stored as 32-bit BGRA bitmaps with an AND mask, which every Windows
// version reads; larger ones are stored PNG-compressed, as Windows Vista and later accept.
bool writeIco(const QString &path, const QList<QImage> &images, QString *error = nullptr);

} // namespace Artwork
