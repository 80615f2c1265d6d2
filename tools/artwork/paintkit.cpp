#include "paintkit.h"

#include <QFile>
#include <QFontDatabase>
#include <QImageWriter>
#include <QPainter>
#include <QRgba64>

#include <algorithm>
#include <cmath>

namespace Artwork {

namespace {

QString g_sansFamily = QStringLiteral("Sans Serif");
QString g_monoFamily = QStringLiteral("Monospace");

QString registerFont(const QString &file)
{
    const int id = QFontDatabase::addApplicationFont(file);
    if (id < 0)
        return {};
    const QStringList families = QFontDatabase::applicationFontFamilies(id);
    return families.isEmpty() ? QString() : families.first();
}

// One horizontal pass of a box blur over premultiplied 16-bit pixels, transposing while writing, so
// that two calls blur both directions.
QImage boxBlurTransposed(const QImage &source, int radius)
{
    const int width = source.width();
    const int height = source.height();
    QImage target(height, width, QImage::Format_RGBA64_Premultiplied);
    const int window = 2 * radius + 1;
    for (int y = 0; y < height; ++y) {
        const auto *in = reinterpret_cast<const QRgba64 *>(source.constScanLine(y));
        auto pixelAt = [&](int x) { return in[std::clamp(x, 0, width - 1)]; };
        qint64 r = 0, g = 0, b = 0, a = 0;
        for (int x = -radius; x <= radius; ++x) {
            const QRgba64 p = pixelAt(x);
            r += p.red();
            g += p.green();
            b += p.blue();
            a += p.alpha();
        }
        for (int x = 0; x < width; ++x) {
            auto *out = reinterpret_cast<QRgba64 *>(target.scanLine(x));
            out[y] = QRgba64::fromRgba64(quint16(r / window), quint16(g / window), quint16(b / window),
                                         quint16(a / window));
            const QRgba64 leaving = pixelAt(x - radius);
            const QRgba64 entering = pixelAt(x + radius + 1);
            r += qint64(entering.red()) - leaving.red();
            g += qint64(entering.green()) - leaving.green();
            b += qint64(entering.blue()) - leaving.blue();
            a += qint64(entering.alpha()) - leaving.alpha();
        }
    }
    return target;
}

} // namespace

quint64 Rng::next()
{
    quint64 z = (m_state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

double Rng::uniform()
{
    return double(next() >> 11) * (1.0 / 9007199254740992.0);
}

void loadFonts()
{
    const QString dir = QStringLiteral("/usr/share/fonts/truetype/dejavu/");
    const QString sans = registerFont(dir + QStringLiteral("DejaVuSans.ttf"));
    registerFont(dir + QStringLiteral("DejaVuSans-Bold.ttf"));
    const QString mono = registerFont(dir + QStringLiteral("DejaVuSansMono.ttf"));
    if (!sans.isEmpty())
        g_sansFamily = sans;
    if (!mono.isEmpty())
        g_monoFamily = mono;
}

QFont sansFont(qreal pixelSize, QFont::Weight weight)
{
    QFont font(g_sansFamily);
    font.setPixelSize(qRound(pixelSize));
    font.setWeight(weight);
    font.setStyleStrategy(QFont::PreferAntialias);
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

QFont monoFont(qreal pixelSize)
{
    QFont font(g_monoFamily);
    font.setStyleHint(QFont::Monospace);
    font.setPixelSize(qRound(pixelSize));
    font.setStyleStrategy(QFont::PreferAntialias);
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

QColor withAlpha(QColor color, qreal alpha)
{
    color.setAlphaF(float(std::clamp(alpha, 0.0, 1.0)));
    return color;
}

QColor mix(const QColor &a, const QColor &b, qreal t)
{
    return QColor::fromRgbF(
        float(a.redF() + (b.redF() - a.redF()) * t), float(a.greenF() + (b.greenF() - a.greenF()) * t),
        float(a.blueF() + (b.blueF() - a.blueF()) * t), float(a.alphaF() + (b.alphaF() - a.alphaF()) * t));
}

QPainterPath shieldPath(const QRectF &r)
{
    const qreal cx = r.center().x();
    const qreal shoulder = r.top() + r.height() * 0.10;
    const qreal sideEnd = r.top() + r.height() * 0.50;
    QPainterPath path;
    path.moveTo(cx, r.top());
    path.quadTo(cx + r.width() * 0.26, shoulder, r.right(), shoulder);
    path.lineTo(r.right(), sideEnd);
    path.cubicTo(r.right(), r.top() + r.height() * 0.78, cx + r.width() * 0.22, r.top() + r.height() * 0.92,
                 cx, r.bottom());
    path.cubicTo(cx - r.width() * 0.22, r.top() + r.height() * 0.92, r.left(), r.top() + r.height() * 0.78,
                 r.left(), sideEnd);
    path.lineTo(r.left(), shoulder);
    path.quadTo(cx - r.width() * 0.26, shoulder, cx, r.top());
    path.closeSubpath();
    return path;
}

QImage blurred(const QImage &image, int radius, int passes)
{
    QImage work = image.convertToFormat(QImage::Format_RGBA64_Premultiplied);
    if (radius < 1)
        return work;
    for (int i = 0; i < passes; ++i)
        work = boxBlurTransposed(boxBlurTransposed(work, radius), radius);
    return work;
}

void drawSoftShadow(QPainter &painter, const QRectF &rect, qreal cornerRadius, int blurRadius,
                    const QColor &color, const QPointF &offset)
{
    const int margin = blurRadius * 3;
    QImage shape(int(std::ceil(rect.width())) + 2 * margin, int(std::ceil(rect.height())) + 2 * margin,
                 QImage::Format_ARGB32_Premultiplied);
    shape.fill(Qt::transparent);
    {
        QPainter p(&shape);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawRoundedRect(QRectF(margin, margin, rect.width(), rect.height()), cornerRadius, cornerRadius);
    }
    painter.drawImage(rect.topLeft() + offset - QPointF(margin, margin), blurred(shape, blurRadius));
}

void drawArrow(QPainter &painter, const QPointF &from, const QPointF &to, const QColor &color, qreal width,
               qreal headLength)
{
    const qreal angle = std::atan2(to.y() - from.y(), to.x() - from.x());
    const QPointF back(std::cos(angle), std::sin(angle));
    const QPointF side(-back.y(), back.x());
    const QPointF base = to - back * headLength;
    painter.save();
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(from, base + back * 1.0);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    const qreal half = headLength * 0.62;
    painter.drawPolygon(QPolygonF({to, base + side * half, base - side * half}));
    painter.restore();
}

QImage ditheredRgb32(const QImage &deep, quint64 seed)
{
    const QImage source = deep.convertToFormat(QImage::Format_RGBA64);
    QImage out(source.size(), QImage::Format_RGB32);
    Rng rng(seed);
    for (int y = 0; y < source.height(); ++y) {
        const auto *in = reinterpret_cast<const QRgba64 *>(source.constScanLine(y));
        auto *line = reinterpret_cast<QRgb *>(out.scanLine(y));
        for (int x = 0; x < source.width(); ++x) {
            const quint64 bits = rng.next();
            auto channel = [&](quint16 value, int shift) {
                const double threshold = double((bits >> shift) & 0xFFFF) / 65536.0;
                return std::clamp(int(std::floor(value / 257.0 + threshold)), 0, 255);
            };
            line[x] = qRgb(channel(in[x].red(), 0), channel(in[x].green(), 16), channel(in[x].blue(), 32));
        }
    }
    return out;
}

bool savePng(const QImage &image, const QString &path, QString *error)
{
    QImageWriter writer(path, "png");
    writer.setQuality(0); // maximum zlib compression
    if (writer.write(image))
        return true;
    if (error)
        *error = QStringLiteral("%1: %2").arg(path, writer.errorString());
    return false;
}

} // namespace Artwork
