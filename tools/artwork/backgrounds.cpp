#include "backgrounds.h"

#include "paintkit.h"

#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>

namespace Artwork {

namespace {

constexpr qreal kPi = 3.14159265358979323846;
const QRectF kFrame(0, 0, kBackgroundWidth, kBackgroundHeight);

// The window's content panel covers the lower part of the picture; details are concentrated above
// this line and fade out below it, so that the white text on the panel stays legible.
constexpr qreal kDetailLine = 600;

QImage newLayer()
{
    QImage layer(kBackgroundWidth, kBackgroundHeight, QImage::Format_RGBA64_Premultiplied);
    layer.fill(Qt::transparent);
    return layer;
}

qreal detailFade(qreal y)
{
    const qreal t = std::clamp(1.0 - y / kDetailLine, 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

void paintGlow(QPainter &p, const QPointF &centre, qreal radiusX, qreal radiusY, const QColor &color,
               qreal alpha)
{
    p.save();
    p.translate(centre);
    p.scale(1.0, radiusY / radiusX);
    QRadialGradient gradient(QPointF(0, 0), radiusX);
    gradient.setColorAt(0.0, withAlpha(color, alpha));
    gradient.setColorAt(0.3, withAlpha(color, alpha * 0.62));
    gradient.setColorAt(0.6, withAlpha(color, alpha * 0.24));
    gradient.setColorAt(1.0, withAlpha(color, 0));
    p.setPen(Qt::NoPen);
    p.setBrush(gradient);
    p.drawEllipse(QPointF(0, 0), radiusX, radiusX);
    p.restore();
}

// Darkens the lower part and the corners so that the picture frames the window's content.
void paintVignette(QPainter &p, const QColor &shade)
{
    QLinearGradient bottom(0, 0, 0, kBackgroundHeight);
    bottom.setColorAt(0.0, withAlpha(shade, 0));
    bottom.setColorAt(0.42, withAlpha(shade, 0));
    bottom.setColorAt(1.0, withAlpha(shade, 0.55));
    p.fillRect(kFrame, bottom);

    p.save();
    p.translate(kFrame.center());
    p.scale(1.0, kBackgroundHeight / qreal(kBackgroundWidth));
    QRadialGradient corners(QPointF(0, 0), kBackgroundWidth * 0.75);
    corners.setColorAt(0.0, withAlpha(shade, 0));
    corners.setColorAt(0.62, withAlpha(shade, 0));
    corners.setColorAt(1.0, withAlpha(shade, 0.5));
    p.setPen(Qt::NoPen);
    p.setBrush(corners);
    p.drawRect(QRectF(-kBackgroundWidth, -kBackgroundWidth, 2 * kBackgroundWidth, 2 * kBackgroundWidth));
    p.restore();
}

// Out-of-focus light discs, brighter at the rim as real bokeh is, mostly in the upper part.
void paintBokeh(QPainter &target, Rng &rng, int count, const QList<QColor> &palette)
{
    QImage layer = newLayer();
    QPainter p(&layer);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    for (int i = 0; i < count; ++i) {
        const qreal x = rng.range(-40, kBackgroundWidth + 40);
        const qreal y = kDetailLine * 0.95 * std::pow(rng.uniform(), 1.4) - 30;
        const qreal radius = rng.chance(0.25) ? rng.range(34, 70) : rng.range(7, 30);
        const QColor color = palette.at(rng.below(int(palette.size())));
        const qreal alpha = rng.range(0.05, 0.17) * (0.35 + 0.65 * detailFade(y));
        QRadialGradient disc(QPointF(x, y), radius);
        disc.setColorAt(0.0, withAlpha(color, alpha * 0.55));
        disc.setColorAt(0.78, withAlpha(color, alpha * 0.75));
        disc.setColorAt(0.93, withAlpha(color, alpha));
        disc.setColorAt(1.0, withAlpha(color, 0));
        p.setBrush(disc);
        p.drawEllipse(QPointF(x, y), radius, radius);
    }
    p.end();
    target.drawImage(0, 0, blurred(layer, 2, 2));
}

void paintDust(QPainter &p, Rng &rng, int count)
{
    p.setPen(Qt::NoPen);
    for (int i = 0; i < count; ++i) {
        const qreal x = rng.range(0, kBackgroundWidth);
        const qreal y = rng.range(0, kDetailLine);
        const qreal alpha = rng.range(0.15, 0.6) * detailFade(y);
        p.setBrush(withAlpha(QColor(0xDD, 0xF4, 0xFF), alpha));
        p.drawEllipse(QPointF(x, y), rng.range(0.6, 1.4), rng.range(0.6, 1.4));
    }
}

// Adds a drawn layer together with two blurred copies of itself, which makes its lines glow.
void composeGlowing(QPainter &target, const QImage &layer, qreal nearGlow, qreal wideGlow)
{
    target.save();
    target.setCompositionMode(QPainter::CompositionMode_Plus);
    target.setOpacity(wideGlow);
    target.drawImage(0, 0, blurred(layer, 16));
    target.setOpacity(nearGlow);
    target.drawImage(0, 0, blurred(layer, 4));
    target.restore();
    target.drawImage(0, 0, layer);
}

// --- Circuit picture ----------------------------------------------------------------------------

// Offsets a polyline sideways by a fixed distance, mitring the corners, for parallel bus traces.
QPolygonF offsetPolyline(const QPolygonF &line, qreal distance)
{
    QPolygonF result;
    auto normal = [](const QPointF &a, const QPointF &b) {
        const QPointF d = b - a;
        const qreal length = std::hypot(d.x(), d.y());
        return QPointF(-d.y() / length, d.x() / length);
    };
    for (int i = 0; i < line.size(); ++i) {
        QPointF n;
        if (i == 0) {
            n = normal(line[0], line[1]);
        } else if (i == line.size() - 1) {
            n = normal(line[i - 1], line[i]);
        } else {
            const QPointF n1 = normal(line[i - 1], line[i]);
            const QPointF n2 = normal(line[i], line[i + 1]);
            QPointF m = n1 + n2;
            m /= std::hypot(m.x(), m.y());
            n = m / (m.x() * n1.x() + m.y() * n1.y());
        }
        result.append(line[i] + n * distance);
    }
    return result;
}

QPolygonF randomTrace(Rng &rng)
{
    QPolygonF trace;
    const qreal sx = rng.chance(0.5) ? 1.0 : -1.0;
    const qreal diagonal = std::sqrt(0.5);
    QPointF point;
    bool horizontal = true;
    if (rng.chance(0.3)) {
        // Comes in from the top edge, then turns.
        point = QPointF(rng.range(80, kBackgroundWidth - 80), -20);
        trace.append(point);
        point += QPointF(0, rng.range(60, 240));
        trace.append(point);
        point += QPointF(sx * diagonal, diagonal) * rng.range(30, 110);
        trace.append(point);
    } else {
        point = QPointF(rng.range(-100, kBackgroundWidth + 100), 20 + 470 * std::pow(rng.uniform(), 1.3));
        trace.append(point);
        horizontal = rng.chance(0.7);
    }
    const int segments = 2 + rng.below(3);
    for (int s = 0; s < segments; ++s) {
        if (horizontal) {
            point += QPointF(sx * rng.range(90, 360), 0);
        } else {
            const qreal sy = point.y() > 380 ? -1.0 : (rng.chance(0.5) ? 1.0 : -1.0);
            point += QPointF(sx * diagonal, sy * diagonal) * rng.range(30, 130);
        }
        trace.append(point);
        horizontal = !horizontal;
    }
    return trace;
}

void paintTraces(QPainter &p, Rng &rng)
{
    const QColor traceColor(0x6B, 0xE3, 0xF6);
    const QColor padColor(0xB8, 0xF3, 0xFF);
    for (int b = 0; b < 46; ++b) {
        const QPolygonF trace = randomTrace(rng);
        const int lines = 1 + rng.below(4);
        const qreal spacing = 9;
        const qreal alpha =
            rng.range(0.32, 0.72) * detailFade(trace.first().y() * 0.4 + trace.last().y() * 0.6);
        if (alpha < 0.02)
            continue;
        const bool stairs = rng.chance(0.6);
        for (int i = 0; i < lines; ++i) {
            QPolygonF line = offsetPolyline(trace, (i - (lines - 1) / 2.0) * spacing);
            // Stagger the ends of a bus so that it looks routed rather than copied.
            const qreal shorten = stairs ? i * 16.0 : rng.range(0, 40);
            QPointF &end = line.last();
            const QPointF &before = line[line.size() - 2];
            const QPointF d = end - before;
            const qreal length = std::hypot(d.x(), d.y());
            if (length > shorten + 12)
                end -= d / length * shorten;
            p.setBrush(Qt::NoBrush);
            p.setPen(QPen(withAlpha(traceColor, alpha), 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            p.drawPolyline(line);
            p.setPen(QPen(withAlpha(padColor, alpha * 1.2), 1.6));
            p.drawEllipse(line.last(), 3.6, 3.6);
            if (line.first().y() > 0) {
                p.setPen(Qt::NoPen);
                p.setBrush(withAlpha(padColor, alpha));
                p.drawEllipse(line.first(), 2.4, 2.4);
            }
        }
    }
    // A few bright nodes where signals seem to meet.
    p.setPen(Qt::NoPen);
    for (int i = 0; i < 9; ++i) {
        const QPointF centre(rng.range(60, kBackgroundWidth - 60), rng.range(40, 420));
        const qreal alpha = 0.9 * detailFade(centre.y());
        p.setBrush(withAlpha(QColor(0xE6, 0xFB, 0xFF), alpha));
        p.drawEllipse(centre, 3.2, 3.2);
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(withAlpha(traceColor, alpha * 0.6), 1.2));
        p.drawEllipse(centre, 8, 8);
        p.setPen(Qt::NoPen);
    }
}

// Partial concentric rings with a tick scale, like a radar display, around the main glow.
void paintRings(QPainter &p, Rng &rng, const QPointF &centre)
{
    const QColor ringColor(0x8C, 0xEB, 0xF8);
    p.setBrush(Qt::NoBrush);
    const qreal radii[] = {130, 205, 290, 385, 500, 640};
    for (qreal radius : radii) {
        const int arcs = 1 + rng.below(3);
        for (int a = 0; a < arcs; ++a) {
            const qreal start = rng.range(0, 360);
            const qreal span = rng.range(40, 150);
            p.setPen(QPen(withAlpha(ringColor, rng.range(0.07, 0.17)), rng.range(1.0, 2.4), Qt::SolidLine,
                          Qt::RoundCap));
            p.drawArc(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius),
                      int(start * 16), int(span * 16));
        }
    }
    const qreal scaleRadius = 330;
    for (int deg = 112; deg <= 212; deg += 4) {
        const qreal angle = deg * kPi / 180.0;
        const QPointF dir(std::cos(angle), std::sin(angle));
        const qreal length = deg % 20 == 0 ? 14 : 7;
        p.setPen(QPen(withAlpha(ringColor, 0.16), 1.3));
        p.drawLine(centre + dir * scaleRadius, centre + dir * (scaleRadius + length));
    }
}

// --- Shield picture -----------------------------------------------------------------------------

void paintLowPoly(QPainter &p, Rng &rng, const QPointF &light)
{
    constexpr int columns = 18;
    constexpr int rows = 9;
    constexpr qreal cellWidth = kBackgroundWidth / qreal(columns - 2);
    constexpr qreal cellHeight = 96;
    QPointF grid[rows][columns];
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < columns; ++c) {
            grid[r][c] = QPointF((c - 1) * cellWidth + rng.range(-0.38, 0.38) * cellWidth,
                                 (r - 1) * cellHeight + rng.range(-0.38, 0.38) * cellHeight);
        }
    }
    const QColor cool(0x38, 0xBD, 0xF8);
    const QColor teal(0x2D, 0xD4, 0xBF);
    const QColor edge(0x9A, 0xDC, 0xF0);
    auto paintTriangle = [&](const QPointF &a, const QPointF &b, const QPointF &c) {
        const QPointF centroid = (a + b + c) / 3.0;
        const qreal fade = detailFade(centroid.y());
        if (fade <= 0)
            return;
        const qreal dx = (centroid.x() - light.x()) / 900.0;
        const qreal dy = (centroid.y() - light.y()) / 500.0;
        const qreal lit = 1.0 + 1.4 * std::exp(-(dx * dx + dy * dy));
        const QPolygonF triangle({a, b, c});
        p.setPen(Qt::NoPen);
        p.setBrush(withAlpha(mix(cool, teal, rng.uniform()), rng.range(0.012, 0.07) * fade * lit));
        p.drawPolygon(triangle);
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(withAlpha(edge, 0.075 * fade * lit), 1.0));
        p.drawPolygon(triangle);
    };
    for (int r = 0; r + 1 < rows; ++r) {
        for (int c = 0; c + 1 < columns; ++c) {
            const QPointF &tl = grid[r][c];
            const QPointF &tr = grid[r][c + 1];
            const QPointF &bl = grid[r + 1][c];
            const QPointF &br = grid[r + 1][c + 1];
            if (rng.chance(0.5)) {
                paintTriangle(tl, tr, br);
                paintTriangle(tl, br, bl);
            } else {
                paintTriangle(tl, tr, bl);
                paintTriangle(tr, br, bl);
            }
        }
    }
    p.setPen(Qt::NoPen);
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < columns; ++c) {
            if (!rng.chance(0.35))
                continue;
            const qreal alpha = rng.range(0.25, 0.7) * detailFade(grid[r][c].y());
            p.setBrush(withAlpha(QColor(0xE0, 0xF7, 0xFF), alpha));
            p.drawEllipse(grid[r][c], 2.0, 2.0);
        }
    }
}

QPainterPath hexagon(const QPointF &centre, qreal radius)
{
    QPainterPath path;
    for (int i = 0; i < 6; ++i) {
        const qreal angle = (60.0 * i + 30.0) * kPi / 180.0;
        const QPointF corner = centre + QPointF(std::cos(angle), std::sin(angle)) * radius;
        if (i == 0)
            path.moveTo(corner);
        else
            path.lineTo(corner);
    }
    path.closeSubpath();
    return path;
}

constexpr qreal kShieldWidths[] = {520, 430, 340};

// The nested shields share their top region; ring 0 is the outermost.
QRectF shieldRing(const QPointF &top, int ring)
{
    const qreal w = kShieldWidths[ring];
    return QRectF(top.x() - w / 2, top.y() + (kShieldWidths[0] - w) * 0.42, w, w * 1.2);
}

// Darkens the inside of the innermost shield, so that the emblem reads as glass in front of the mesh.
void paintShieldBacking(QPainter &p, const QPointF &top)
{
    const QRectF inner = shieldRing(top, 2);
    QLinearGradient fill(0, inner.top(), 0, inner.bottom());
    fill.setColorAt(0.0, withAlpha(QColor(0x08, 0x2A, 0x33), 0.55));
    fill.setColorAt(1.0, withAlpha(QColor(0x06, 0x14, 0x1C), 0.35));
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawPath(shieldPath(inner));
}

void paintShieldEmblem(QPainter &p, const QPointF &top)
{
    const QColor tealLine(0x5E, 0xEA, 0xD4);
    const QColor blueLine(0x60, 0xA5, 0xFA);
    const qreal alphas[] = {0.16, 0.26, 0.42};
    const qreal pens[] = {1.6, 2.0, 2.6};
    for (int i = 0; i < 3; ++i) {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(withAlpha(mix(blueLine, tealLine, i / 2.0), alphas[i]), pens[i]));
        p.drawPath(shieldPath(shieldRing(top, i)));
    }
    // A faint honeycomb and a keyhole inside the innermost shield.
    const QRectF inner = shieldRing(top, 2);
    p.save();
    p.setClipPath(shieldPath(inner.adjusted(10, 12, -10, -12)));
    const qreal hex = 26;
    p.setPen(QPen(withAlpha(tealLine, 0.10), 1.0));
    for (int row = 0; row < 20; ++row) {
        for (int col = 0; col < 12; ++col) {
            const QPointF c(inner.left() + col * hex * std::sqrt(3.0) + (row % 2) * hex * std::sqrt(3.0) / 2,
                            inner.top() + row * hex * 1.5);
            p.drawPath(hexagon(c, hex - 3));
        }
    }
    p.restore();
    const QPointF keyCentre(inner.center().x(), inner.top() + inner.height() * 0.40);
    QPainterPath keyhole;
    keyhole.addEllipse(keyCentre, 30, 30);
    keyhole.addPolygon(QPolygonF({keyCentre + QPointF(-14, 16), keyCentre + QPointF(14, 16),
                                  keyCentre + QPointF(22, 96), keyCentre + QPointF(-22, 96)}));
    keyhole.setFillRule(Qt::WindingFill);
    p.setPen(Qt::NoPen);
    p.setBrush(withAlpha(tealLine, 0.22));
    p.drawPath(keyhole.simplified());
}

void paintStreaks(QPainter &p, Rng &rng)
{
    const qreal angle = 28 * kPi / 180.0;
    const QPointF dir(std::cos(angle), std::sin(angle));
    for (int i = 0; i < 7; ++i) {
        const QPointF start(rng.range(-300, 1500), rng.range(-120, 60));
        const qreal length = rng.range(500, 1100);
        const QPointF end = start + dir * length;
        QLinearGradient pen(start, end);
        const qreal alpha = rng.range(0.05, 0.13);
        pen.setColorAt(0.0, withAlpha(Qt::white, 0));
        pen.setColorAt(0.45, withAlpha(QColor(0xCF, 0xF5, 0xFF), alpha));
        pen.setColorAt(1.0, withAlpha(Qt::white, 0));
        p.setPen(QPen(QBrush(pen), rng.range(1.0, 2.2)));
        p.drawLine(start, end);
    }
}

} // namespace

QImage renderBackgroundCircuit()
{
    Rng rng(0x7A11'0001);
    QImage canvas = newLayer();
    QPainter p(&canvas);
    p.setRenderHint(QPainter::Antialiasing);

    QLinearGradient base(0, 0, 0, kBackgroundHeight);
    base.setColorAt(0.0, QColor(0x0B, 0x1F, 0x3E));
    base.setColorAt(0.45, QColor(0x08, 0x16, 0x2E));
    base.setColorAt(1.0, QColor(0x05, 0x0C, 0x19));
    p.fillRect(kFrame, base);

    const QPointF mainGlow(1470, 150);
    paintGlow(p, QPointF(960, 420), 1300, 700, QColor(0x0D, 0x3A, 0x66), 0.35);
    paintGlow(p, QPointF(360, -40), 900, 520, QColor(0x23, 0x5B, 0xC4), 0.42);
    paintGlow(p, mainGlow, 900, 560, QColor(0x13, 0x9C, 0xB3), 0.46);
    paintGlow(p, mainGlow, 260, 200, QColor(0x5F, 0xE1, 0xF0), 0.20);

    {
        QImage rings = newLayer();
        QPainter rp(&rings);
        rp.setRenderHint(QPainter::Antialiasing);
        paintRings(rp, rng, mainGlow);
        rp.end();
        composeGlowing(p, rings, 0.5, 0.0);
    }
    {
        QImage traces = newLayer();
        QPainter tp(&traces);
        tp.setRenderHint(QPainter::Antialiasing);
        paintTraces(tp, rng);
        tp.end();
        composeGlowing(p, traces, 0.9, 0.9);
    }
    paintBokeh(p, rng, 46,
               {QColor(0x4F, 0xD1, 0xE8), QColor(0x3B, 0x82, 0xF6), QColor(0x8B, 0xE9, 0xFD),
                QColor(0x81, 0x8C, 0xF8)});
    paintDust(p, rng, 260);
    paintVignette(p, QColor(0x02, 0x06, 0x0E));
    p.end();
    return ditheredRgb32(canvas, 0xD1'7E01);
}

QImage renderBackgroundShield()
{
    Rng rng(0x7A11'0002);
    QImage canvas = newLayer();
    QPainter p(&canvas);
    p.setRenderHint(QPainter::Antialiasing);

    QLinearGradient base(0, 0, kBackgroundWidth * 0.35, kBackgroundHeight);
    base.setColorAt(0.0, QColor(0x13, 0x1B, 0x28));
    base.setColorAt(0.5, QColor(0x0C, 0x16, 0x21));
    base.setColorAt(1.0, QColor(0x07, 0x14, 0x19));
    p.fillRect(kFrame, base);

    const QPointF light(1380, 110);
    paintGlow(p, QPointF(180, -60), 800, 420, QColor(0x4C, 0x3F, 0xA8), 0.16);
    paintGlow(p, QPointF(620, 260), 900, 520, QColor(0x1E, 0x3A, 0x8A), 0.30);
    paintGlow(p, light, 1000, 600, QColor(0x0F, 0x80, 0x8C), 0.46);
    paintGlow(p, QPointF(1500, 330), 380, 380, QColor(0x2D, 0xD4, 0xBF), 0.12);

    paintLowPoly(p, rng, light);
    const QPointF emblemTop(1500, 70);
    paintShieldBacking(p, emblemTop);
    {
        QImage emblem = newLayer();
        QPainter ep(&emblem);
        ep.setRenderHint(QPainter::Antialiasing);
        paintShieldEmblem(ep, emblemTop);
        // Let the emblem sink into the dark below the detail line.
        ep.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        QLinearGradient fade(0, 0, 0, kBackgroundHeight);
        fade.setColorAt(0.0, Qt::white);
        fade.setColorAt(0.35, Qt::white);
        fade.setColorAt(0.68, withAlpha(Qt::white, 0.15));
        fade.setColorAt(1.0, withAlpha(Qt::white, 0));
        ep.fillRect(kFrame, fade);
        ep.end();
        composeGlowing(p, emblem, 1.0, 1.2);
    }
    {
        QImage streaks = newLayer();
        QPainter sp(&streaks);
        sp.setRenderHint(QPainter::Antialiasing);
        paintStreaks(sp, rng);
        sp.end();
        composeGlowing(p, streaks, 0.8, 0.0);
    }
    paintBokeh(p, rng, 38,
               {QColor(0x2D, 0xD4, 0xBF), QColor(0x38, 0xBD, 0xF8), QColor(0x99, 0xF6, 0xE4),
                QColor(0x60, 0xA5, 0xFA)});
    paintDust(p, rng, 200);
    paintVignette(p, QColor(0x03, 0x07, 0x0B));
    p.end();
    return ditheredRgb32(canvas, 0xD1'7E02);
}

} // namespace Artwork
