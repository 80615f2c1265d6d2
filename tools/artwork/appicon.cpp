#include "appicon.h"

#include "paintkit.h"

#include <QLinearGradient>
#include <QPainter>

namespace Artwork {

namespace {

const QColor kTileTop(0x1C, 0x72, 0xC2);
const QColor kTileMiddle(0x0B, 0x4F, 0x8A);
const QColor kTileBottom(0x07, 0x38, 0x63);
const QColor kShieldTop(0x16, 0x66, 0xB3);
const QColor kShieldBottom(0x09, 0x40, 0x73);
const QColor kMetalLight(0xF4, 0xF8, 0xFC);
const QColor kMetalDark(0xC3, 0xD3, 0xE4);
const QColor kBodyTop(0xFF, 0xFF, 0xFF);
const QColor kBodyBottom(0xDD, 0xE8, 0xF4);

enum class Detail { Keyhole, Lock };

QLinearGradient verticalGradient(qreal top, qreal bottom, const QColor &from, const QColor &to)
{
    QLinearGradient gradient(0, top, 0, bottom);
    gradient.setColorAt(0, from);
    gradient.setColorAt(1, to);
    return gradient;
}

void drawTile(QPainter &p, const QRectF &tile, qreal radius, bool gloss)
{
    QLinearGradient fill(0, tile.top(), 0, tile.bottom());
    fill.setColorAt(0, kTileTop);
    fill.setColorAt(0.55, kTileMiddle);
    fill.setColorAt(1, kTileBottom);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawRoundedRect(tile, radius, radius);
    if (!gloss)
        return;
    // A faint light rim along the top edge and a soft sheen give the tile some depth at large sizes.
    QLinearGradient rim(0, tile.top(), 0, tile.top() + tile.height() * 0.5);
    rim.setColorAt(0, withAlpha(Qt::white, 0.45));
    rim.setColorAt(1, withAlpha(Qt::white, 0.0));
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(QBrush(rim), tile.width() / 128.0));
    const qreal inset = tile.width() / 160.0;
    p.drawRoundedRect(tile.adjusted(inset, inset, -inset, -inset), radius - inset, radius - inset);
    QLinearGradient sheen(0, tile.top(), 0, tile.center().y());
    sheen.setColorAt(0, withAlpha(Qt::white, 0.16));
    sheen.setColorAt(1, withAlpha(Qt::white, 0.0));
    p.setPen(Qt::NoPen);
    p.setBrush(sheen);
    QPainterPath clip;
    clip.addRoundedRect(tile, radius, radius);
    QPainterPath arc;
    arc.addEllipse(QRectF(tile.left() - tile.width() * 0.3, tile.top() - tile.height() * 0.75,
                          tile.width() * 1.6, tile.height() * 1.22));
    p.drawPath(clip.intersected(arc));
}

// The large design, in units of a 256 pixel icon. Coordinates sit on multiples of 8 where possible so
// that the 32 pixel image lands on whole pixels.
void drawLargeIcon(QPainter &p, Detail detail)
{
    const QRectF tile(8, 8, 240, 240);
    drawTile(p, tile, 50, detail == Detail::Lock);

    // Connector (drawn first; the body overlaps its lower end).
    const QRectF connector(96, 32, 64, 64);
    p.setBrush(verticalGradient(connector.top(), connector.bottom(), kMetalLight, kMetalDark));
    p.drawRoundedRect(connector, 6, 6);
    p.setBrush(kTileMiddle);
    p.drawRect(QRectF(104, 48, 16, 16));
    p.drawRect(QRectF(136, 48, 16, 16));

    // Body, with a soft shadow on the tile below it.
    const QRectF body(64, 88, 128, 144);
    if (detail == Detail::Lock) {
        p.setBrush(withAlpha(QColor(0x02, 0x1A, 0x33), 0.28));
        p.drawRoundedRect(body.translated(0, 6), 26, 26);
    }
    p.setBrush(verticalGradient(body.top(), body.bottom(), kBodyTop, kBodyBottom));
    p.drawRoundedRect(body, 24, 24);

    const QRectF shieldBounds(88, 112, 80, 104);
    p.setBrush(verticalGradient(shieldBounds.top(), shieldBounds.bottom(), kShieldTop, kShieldBottom));
    p.drawPath(shieldPath(shieldBounds));

    if (detail == Detail::Lock) {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(Qt::white, 9, Qt::SolidLine, Qt::FlatCap));
        QPainterPath shackle;
        shackle.moveTo(115, 160);
        shackle.lineTo(115, 146);
        shackle.arcTo(QRectF(115, 133, 26, 26), 180, -180);
        shackle.lineTo(141, 160);
        p.drawPath(shackle);
        p.setPen(Qt::NoPen);
        p.setBrush(Qt::white);
        p.drawRoundedRect(QRectF(106, 154, 44, 36), 6, 6);
        p.setBrush(kShieldBottom);
        p.drawEllipse(QPointF(128, 167), 5.5, 5.5);
        p.drawRoundedRect(QRectF(125, 168, 6, 13), 2, 2);
    } else {
        p.setBrush(Qt::white);
        p.drawEllipse(QPointF(128, 148), 16, 16);
        p.drawPolygon(QPolygonF({{120, 152}, {136, 152}, {142, 192}, {114, 192}}));
    }
}

// 16 pixel image, on whole pixels: every shape edge falls on a pixel boundary.
void drawIcon16(QPainter &p)
{
    drawTile(p, QRectF(0, 0, 16, 16), 3.5, false);
    p.setBrush(kMetalLight);
    p.drawRect(QRectF(5, 1, 6, 4));
    p.setBrush(kTileMiddle);
    p.drawRect(QRectF(6, 2, 1, 1));
    p.drawRect(QRectF(9, 2, 1, 1));
    p.setBrush(Qt::white);
    p.drawRoundedRect(QRectF(3, 4, 10, 11), 1.5, 1.5);
    p.setBrush(kTileMiddle);
    p.setRenderHint(QPainter::Antialiasing, false);
    p.drawRect(QRect(5, 6, 6, 4));
    p.drawRect(QRect(6, 10, 4, 2));
    p.drawRect(QRect(7, 12, 2, 1));
    p.setBrush(Qt::white);
    p.drawRect(QRect(7, 7, 2, 3));
}

void drawIcon24(QPainter &p)
{
    drawTile(p, QRectF(0, 0, 24, 24), 5, false);
    p.setBrush(verticalGradient(2, 8, kMetalLight, kMetalDark));
    p.drawRect(QRectF(8, 2, 8, 6));
    p.setBrush(kTileMiddle);
    p.drawRect(QRectF(9, 4, 2, 2));
    p.drawRect(QRectF(13, 4, 2, 2));
    p.setBrush(Qt::white);
    p.drawRoundedRect(QRectF(5, 7, 14, 15), 2.5, 2.5);
    p.setBrush(kTileMiddle);
    p.drawPath(shieldPath(QRectF(8, 9, 8, 11)));
    p.setBrush(Qt::white);
    p.drawEllipse(QRectF(10.5, 11.5, 3, 3));
    p.drawRect(QRectF(11.25, 13.5, 1.5, 3.5));
}

} // namespace

QList<int> appIconSizes()
{
    return {16, 24, 32, 48, 64, 128, 256};
}

QImage renderAppIcon(int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    if (size <= 16) {
        p.scale(size / 16.0, size / 16.0);
        drawIcon16(p);
    } else if (size <= 24) {
        p.scale(size / 24.0, size / 24.0);
        drawIcon24(p);
    } else {
        p.scale(size / 256.0, size / 256.0);
        drawLargeIcon(p, size >= 64 ? Detail::Lock : Detail::Keyhole);
    }
    p.end();
    return image;
}

} // namespace Artwork
