#include "icowriter.h"

#include <QBuffer>
#include <QByteArray>
#include <QDataStream>
#include <QImageWriter>
#include <QSaveFile>

namespace Artwork {

namespace {

constexpr int kLargestBitmapSize = 128;
constexpr quint32 kBitmapInfoHeaderSize = 40;
constexpr int kIconDirSize = 6;
constexpr int kIconDirEntrySize = 16;

QByteArray pngData(const QImage &image)
{
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    writer.setQuality(0);
    writer.write(image);
    return data;
}

// BITMAPINFOHEADER, then the colour rows bottom-up in BGRA order, then the 1-bit AND mask, also
// bottom-up with rows padded to 32 bits. The header's height counts both the colour and the mask rows.
QByteArray bitmapData(const QImage &image)
{
    const int width = image.width();
    const int height = image.height();
    const int maskRowBytes = ((width + 31) / 32) * 4;

    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out << kBitmapInfoHeaderSize << qint32(width) << qint32(height * 2) << quint16(1) << quint16(32)
        << quint32(0) << quint32(width * height * 4 + maskRowBytes * height) << qint32(0) << qint32(0)
        << quint32(0) << quint32(0);

    for (int y = height - 1; y >= 0; --y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < width; ++x)
            out << quint8(qBlue(line[x])) << quint8(qGreen(line[x])) << quint8(qRed(line[x]))
                << quint8(qAlpha(line[x]));
    }
    for (int y = height - 1; y >= 0; --y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        QByteArray row(maskRowBytes, '\0');
        for (int x = 0; x < width; ++x) {
            if (qAlpha(line[x]) == 0)
                row[x / 8] = char(quint8(row[x / 8]) | (0x80 >> (x % 8)));
        }
        out.writeRawData(row.constData(), row.size());
    }
    return data;
}

} // namespace

bool writeIco(const QString &path, const QList<QImage> &images, QString *error)
{
    QList<QByteArray> payloads;
    for (const QImage &image : images) {
        const QImage straight = image.convertToFormat(QImage::Format_ARGB32);
        if (straight.width() != straight.height() || straight.width() < 1 || straight.width() > 256) {
            if (error)
                *error = QStringLiteral("icon images must be square, 1 to 256 pixels; got %1x%2")
                             .arg(image.width())
                             .arg(image.height());
            return false;
        }
        payloads.append(straight.width() > kLargestBitmapSize ? pngData(straight) : bitmapData(straight));
    }

    QByteArray file;
    QDataStream out(&file, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out << quint16(0) << quint16(1) << quint16(images.size());
    quint32 offset = kIconDirSize + kIconDirEntrySize * images.size();
    for (int i = 0; i < images.size(); ++i) {
        const int size = images.at(i).width();
        const quint8 sizeByte = size >= 256 ? 0 : quint8(size); // 0 means 256
        out << sizeByte << sizeByte << quint8(0) << quint8(0) << quint16(1) << quint16(32)
            << quint32(payloads.at(i).size()) << offset;
        offset += payloads.at(i).size();
    }
    for (const QByteArray &payload : payloads)
        out.writeRawData(payload.constData(), payload.size());

    QSaveFile target(path);
    if (!target.open(QIODevice::WriteOnly) || target.write(file) != file.size() || !target.commit()) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, target.errorString());
        return false;
    }
    return true;
}

} // namespace Artwork
