#pragma once

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPainterPath>
#include <QPointF>
#include <QRectF>
#include <QString>

class QPainter;

namespace Artwork {

// A small generator of our own (splitmix64), so that a given seed draws the same picture with any
// compiler and standard library: std::uniform_*_distribution is not guaranteed to be portable.
class Rng
{
public:
    explicit Rng(quint64 seed)
        : m_state(seed)
    {}

    quint64 next();
    double uniform();
    double range(double low, double high) { return low + (high - low) * uniform(); }
    int below(int count) { return int(uniform() * count); }
    bool chance(double probability) { return uniform() < probability; }

private:
    quint64 m_state;
};

// Registers the DejaVu fonts shipped by Debian so that text renders the same on every machine; falls
// back to the default sans-serif family when they are missing.
void loadFonts();
QFont sansFont(qreal pixelSize, QFont::Weight weight = QFont::Normal);
QFont monoFont(qreal pixelSize);

QColor withAlpha(QColor color, qreal alpha);
QColor mix(const QColor &a, const QColor &b, qreal t);

// A heater-shield outline filling the given bounds: flat shoulders, straight sides, pointed bottom.
QPainterPath shieldPath(const QRectF &bounds);

// Separable box blur repeated a few times, which approximates a Gaussian blur. Works on any format;
// the result is RGBA64 premultiplied so that soft gradients keep their precision.
QImage blurred(const QImage &image, int radius, int passes = 3);

// Draws a soft drop shadow under a rounded rectangle (in the painter's device coordinates).
void drawSoftShadow(QPainter &painter, const QRectF &rect, qreal cornerRadius, int blurRadius,
                    const QColor &color, const QPointF &offset);

// Draws a line ending in a filled arrow head.
void drawArrow(QPainter &painter, const QPointF &from, const QPointF &to, const QColor &color, qreal width,
               qreal headLength);

// Reduces a deep-colour picture to 8 bits per channel, adding random dither below one step so that dark
// gradients show no bands.
QImage ditheredRgb32(const QImage &deep, quint64 seed);

bool savePng(const QImage &image, const QString &path, QString *error = nullptr);

} // namespace Artwork
