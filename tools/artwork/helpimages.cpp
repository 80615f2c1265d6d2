#include "helpimages.h"

#include "appicon.h"
#include "paintkit.h"

#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>

#include <cmath>

namespace Artwork {

namespace {

constexpr qreal kPi = 3.14159265358979323846;

const QColor kPage(0xF4, 0xF7, 0xFB);
const QColor kCard(0xFF, 0xFF, 0xFF);
const QColor kPrimary(0x0B, 0x4F, 0x8A);
const QColor kPrimarySoft(0xE4, 0xEE, 0xF8);
const QColor kTeal(0x0E, 0x8C, 0x99);
const QColor kNavy(0x1E, 0x33, 0x52);
const QColor kInk(0x1F, 0x29, 0x37);
const QColor kMuted(0x5B, 0x66, 0x75);
const QColor kLine(0xD5, 0xDF, 0xEA);
const QColor kCallout(0xE8, 0x7A, 0x12);

QImage newCanvas(int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(kPage);
    return image;
}

void preparePainter(QPainter &p)
{
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
}

void drawCard(QPainter &p, const QRectF &rect, qreal radius = 12)
{
    drawSoftShadow(p, rect, radius, 8, withAlpha(QColor(0x1B, 0x33, 0x55), 0.16), QPointF(0, 4));
    p.setPen(QPen(kLine, 1));
    p.setBrush(kCard);
    p.drawRoundedRect(rect, radius, radius);
}

void drawText(QPainter &p, const QRectF &rect, const QString &text, const QFont &font, const QColor &color,
              int flags)
{
    p.setFont(font);
    p.setPen(color);
    p.drawText(rect, flags, text);
}

// Draws word-wrapped text from the top of the given column and returns the height it took.
qreal drawWrapped(QPainter &p, const QRectF &column, const QString &text, const QFont &font,
                  const QColor &color, Qt::Alignment alignment)
{
    const int flags = int(alignment) | Qt::AlignTop | Qt::TextWordWrap;
    const QRectF used = QFontMetricsF(font).boundingRect(column, flags, text);
    drawText(p, column, text, font, color, flags);
    return used.height();
}

void drawHeading(QPainter &p, qreal x, qreal y, const QString &title, const QString &subtitle)
{
    drawText(p, QRectF(x, y, 1000, 34), title, sansFont(24, QFont::Bold), kInk, Qt::AlignLeft | Qt::AlignTop);
    drawText(p, QRectF(x, y + 36, 1000, 24), subtitle, sansFont(15), kMuted, Qt::AlignLeft | Qt::AlignTop);
}

void drawNumberBadge(QPainter &p, const QPointF &centre, int number, const QColor &fill, qreal radius = 14)
{
    p.setPen(QPen(Qt::white, 2));
    p.setBrush(fill);
    p.drawEllipse(centre, radius, radius);
    drawText(p, QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius),
             QString::number(number), sansFont(radius * 1.05, QFont::Bold), Qt::white, Qt::AlignCenter);
}

// --- Line glyphs, drawn in a 64 x 64 box --------------------------------------------------------

enum class Glyph { Connect, Refresh, Prepare, Update, Eject, Person, Team, Building };

QPen glyphPen(const QColor &color, qreal width = 3.2)
{
    return QPen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
}

void drawArcArrow(QPainter &p, const QPointF &centre, qreal radius, qreal startDeg, qreal spanDeg,
                  const QColor &color)
{
    p.setBrush(Qt::NoBrush);
    p.setPen(glyphPen(color));
    const QRectF box(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius);
    p.drawArc(box, int(startDeg * 16), int(spanDeg * 16));
    const qreal end = (startDeg + spanDeg) * kPi / 180.0;
    const QPointF tip = centre + QPointF(std::cos(end), -std::sin(end)) * radius;
    const qreal sign = spanDeg > 0 ? 1.0 : -1.0;
    const QPointF tangent(-std::sin(end) * sign, -std::cos(end) * sign);
    const QPointF normal(-tangent.y(), tangent.x());
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawPolygon(
        QPolygonF({tip + tangent * 6, tip - tangent * 4 + normal * 6.5, tip - tangent * 4 - normal * 6.5}));
}

void drawGlyph(QPainter &p, Glyph glyph, const QRectF &box, const QColor &color)
{
    p.save();
    p.translate(box.topLeft());
    p.scale(box.width() / 64.0, box.height() / 64.0);
    p.setBrush(Qt::NoBrush);
    p.setPen(glyphPen(color));
    switch (glyph) {
    case Glyph::Connect:
        p.drawRoundedRect(QRectF(20, 5, 24, 24), 4, 4);
        p.drawRect(QRectF(25, 29, 14, 10));
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawRect(QRectF(28, 32, 3, 3));
        p.drawRect(QRectF(33, 32, 3, 3));
        p.setBrush(Qt::NoBrush);
        p.setPen(glyphPen(color));
        p.drawPolyline(QPolygonF({{10, 44}, {10, 56}, {54, 56}, {54, 44}}));
        p.drawLine(QPointF(22, 47), QPointF(42, 47));
        p.drawLine(QPointF(52, 8), QPointF(52, 28));
        p.drawPolyline(QPolygonF({{47, 23}, {52, 28}, {57, 23}}));
        break;
    case Glyph::Refresh:
        drawArcArrow(p, QPointF(32, 32), 18, 100, 150, color);
        drawArcArrow(p, QPointF(32, 32), 18, 280, 150, color);
        break;
    case Glyph::Prepare:
        p.drawPath([] {
            QPainterPath folder;
            folder.moveTo(8, 18);
            folder.lineTo(24, 18);
            folder.lineTo(29, 24);
            folder.lineTo(56, 24);
            folder.lineTo(56, 50);
            folder.lineTo(8, 50);
            folder.closeSubpath();
            return folder;
        }());
        p.drawLine(QPointF(32, 30), QPointF(32, 43));
        p.drawPolyline(QPolygonF({{26, 38}, {32, 44}, {38, 38}}));
        break;
    case Glyph::Update: {
        QPainterPath cloud;
        cloud.moveTo(18, 44);
        cloud.arcTo(QRectF(6, 26, 20, 18), 270, -180);
        cloud.arcTo(QRectF(15, 12, 28, 26), 160, -140);
        cloud.arcTo(QRectF(38, 24, 20, 20), 110, -200);
        cloud.lineTo(46, 44);
        p.drawPath(cloud);
        p.drawLine(QPointF(32, 30), QPointF(32, 52));
        p.drawPolyline(QPolygonF({{26, 46}, {32, 52}, {38, 46}}));
        break;
    }
    case Glyph::Eject:
        p.setBrush(color);
        p.setPen(glyphPen(color, 2.4));
        p.drawPolygon(QPolygonF({{32, 14}, {50, 36}, {14, 36}}));
        p.drawRoundedRect(QRectF(14, 43, 36, 6), 2, 2);
        break;
    case Glyph::Person:
        p.drawEllipse(QPointF(32, 22), 9, 9);
        p.drawArc(QRectF(14, 36, 36, 30), 0, 180 * 16);
        break;
    case Glyph::Team:
        p.drawEllipse(QPointF(32, 21), 8, 8);
        p.drawArc(QRectF(17, 34, 30, 26), 0, 180 * 16);
        p.setPen(glyphPen(color, 2.6));
        p.drawEllipse(QPointF(14, 27), 6, 6);
        p.drawArc(QRectF(3, 37, 20, 20), 30 * 16, 150 * 16);
        p.drawEllipse(QPointF(50, 27), 6, 6);
        p.drawArc(QRectF(41, 37, 20, 20), 0, 150 * 16);
        break;
    case Glyph::Building:
        p.drawRect(QRectF(14, 14, 26, 40));
        p.drawPolyline(QPolygonF({{40, 26}, {52, 26}, {52, 54}}));
        p.drawLine(QPointF(8, 54), QPointF(58, 54));
        p.setPen(glyphPen(color, 2.6));
        for (int row = 0; row < 3; ++row) {
            p.drawLine(QPointF(20, 22 + row * 9), QPointF(24, 22 + row * 9));
            p.drawLine(QPointF(30, 22 + row * 9), QPointF(34, 22 + row * 9));
        }
        p.drawLine(QPointF(46, 34), QPointF(46, 36));
        p.drawLine(QPointF(46, 43), QPointF(46, 45));
        break;
    }
    p.restore();
}

void drawCheck(QPainter &p, const QPointF &at, const QColor &color)
{
    p.setPen(Qt::NoPen);
    p.setBrush(withAlpha(color, 0.14));
    p.drawEllipse(at, 10, 10);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(color, 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPolyline(QPolygonF({at + QPointF(-4.5, 0.5), at + QPointF(-1.2, 3.8), at + QPointF(4.8, -3.2)}));
}

// --- Manager window mock ------------------------------------------------------------------------

void drawCallout(QPainter &p, const QPointF &centre, int number)
{
    drawSoftShadow(p, QRectF(centre.x() - 14, centre.y() - 14, 28, 28), 14, 3, withAlpha(Qt::black, 0.35),
                   QPointF(0, 1));
    drawNumberBadge(p, centre, number, kCallout, 14);
}

void drawButton(QPainter &p, const QRectF &rect, const QString &text)
{
    p.setPen(QPen(QColor(31, 41, 55, 85), 1));
    p.setBrush(Qt::white);
    p.drawRoundedRect(rect, 4, 4);
    drawText(p, rect, text, sansFont(12.5), QColor(0x11, 0x18, 0x27), Qt::AlignCenter);
}

qreal textWidth(const QString &text, const QFont &font)
{
    return QFontMetricsF(font).horizontalAdvance(text);
}

void drawWindowButtons(QPainter &p, const QRectF &titleBar)
{
    const qreal w = 46;
    const qreal cy = titleBar.center().y();
    qreal x = titleBar.right() - 3 * w;
    p.setPen(QPen(QColor(0x33, 0x33, 0x33), 1.2));
    p.setBrush(Qt::NoBrush);
    p.drawLine(QPointF(x + 18, cy), QPointF(x + 28, cy));
    x += w;
    p.drawRect(QRectF(x + 18, cy - 5, 10, 10));
    x += w;
    p.drawLine(QPointF(x + 18, cy - 5), QPointF(x + 28, cy + 5));
    p.drawLine(QPointF(x + 18, cy + 5), QPointF(x + 28, cy - 5));
}

} // namespace

QImage renderUsageFlow()
{
    constexpr int width = 1160;
    constexpr int height = 460;
    QImage image = newCanvas(width, height);
    QPainter p(&image);
    preparePainter(p);
    drawHeading(p, 40, 26, QStringLiteral("Fluxo de uso"),
                QStringLiteral("Do primeiro uso da unidade USB até a remoção segura."));

    struct Step
    {
        Glyph glyph;
        QString title;
        QString detail;
        bool command;
    };
    const QList<Step> steps = {
        {Glyph::Connect, QStringLiteral("Conectar a unidade"),
         QStringLiteral("Insira a unidade USB em uma porta do computador."), false},
        {Glyph::Refresh, QStringLiteral("Atualizar lista"),
         QStringLiteral("A unidade aparece no campo “Unidade USB:”."), true},
        {Glyph::Prepare, QStringLiteral("Preparar unidade USB"),
         QStringLiteral("Copia os bundles Windows e Linux e os inicializadores."), true},
        {Glyph::Update, QStringLiteral("Verificar atualizações"),
         QStringLiteral("Baixa, confere e aplica a versão mais recente."), true},
        {Glyph::Eject, QStringLiteral("Ejetar com segurança"),
         QStringLiteral("Use a remoção segura do sistema antes de retirar."), false},
    };

    constexpr qreal margin = 40;
    constexpr qreal gap = 40;
    const qreal cardWidth = (width - 2 * margin - gap * (steps.size() - 1)) / steps.size();
    const qreal top = 110;
    const qreal cardHeight = 272;
    const qreal badgeY = top + 70;
    for (int i = 0; i < steps.size(); ++i) {
        const Step &step = steps.at(i);
        const QRectF card(margin + i * (cardWidth + gap), top, cardWidth, cardHeight);
        drawCard(p, card);
        const QColor accent = step.command ? kPrimary : kTeal;
        QPainterPath stripe;
        stripe.addRoundedRect(card, 12, 12);
        p.save();
        p.setClipPath(stripe);
        p.fillRect(QRectF(card.left(), card.top(), card.width(), 6), accent);
        p.restore();

        const QPointF badgeCentre(card.center().x(), badgeY);
        p.setPen(Qt::NoPen);
        p.setBrush(step.command ? kPrimarySoft : QColor(0xE0, 0xF3, 0xF4));
        p.drawEllipse(badgeCentre, 38, 38);
        drawGlyph(p, step.glyph, QRectF(badgeCentre.x() - 26, badgeCentre.y() - 26, 52, 52), accent);
        drawNumberBadge(p, QPointF(card.left() + 24, card.top() + 28), i + 1, accent, 14);

        const qreal titleHeight = drawWrapped(p, QRectF(card.left() + 12, top + 126, card.width() - 24, 60),
                                              step.title, sansFont(16, QFont::Bold), kInk, Qt::AlignHCenter);
        drawWrapped(p, QRectF(card.left() + 16, top + 126 + titleHeight + 10, card.width() - 32, 90),
                    step.detail, sansFont(13.5), kMuted, Qt::AlignHCenter);

        if (i + 1 < steps.size()) {
            const qreal x0 = card.right() + 7;
            drawArrow(p, QPointF(x0, badgeY), QPointF(x0 + gap - 14, badgeY), kPrimary, 3, 11);
        }
    }

    // Legend.
    const qreal legendY = top + cardHeight + 36;
    qreal x = margin;
    auto legendItem = [&](const QColor &color, const QString &text) {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawRoundedRect(QRectF(x, legendY - 7, 26, 14), 4, 4);
        const QFont font = sansFont(14);
        drawText(p, QRectF(x + 36, legendY - 12, 600, 24), text, font, kMuted,
                 Qt::AlignLeft | Qt::AlignVCenter);
        x += 36 + textWidth(text, font) + 40;
    };
    legendItem(kPrimary, QStringLiteral("Comando do Tavrinox - Gerenciador"));
    legendItem(kTeal, QStringLiteral("Ação feita por você no computador"));
    p.end();
    return image.convertToFormat(QImage::Format_RGB32);
}

QImage renderManagerWindow(const QImage &background)
{
    constexpr int width = 1160;
    constexpr int height = 880;
    QImage image = newCanvas(width, height);
    QPainter p(&image);
    preparePainter(p);

    const qreal titleHeight = 36;
    const qreal menuHeight = 28;
    const qreal statusHeight = 28;
    const QRectF central(40, 30 + titleHeight + menuHeight, 1080, 608);
    const QRectF window(central.left(), 30, central.width(),
                        titleHeight + menuHeight + central.height() + statusHeight);
    drawSoftShadow(p, window, 8, 14, withAlpha(QColor(0x0B, 0x1B, 0x33), 0.30), QPointF(0, 8));
    QPainterPath frame;
    frame.addRoundedRect(window, 8, 8);
    p.save();
    p.setClipPath(frame);
    p.fillRect(window, QColor(0xF3, 0xF3, 0xF3));

    // Title bar and menus.
    const QRectF titleBar(window.left(), window.top(), window.width(), titleHeight);
    p.drawImage(QRectF(titleBar.left() + 12, titleBar.top() + 10, 16, 16), renderAppIcon(16));
    drawText(p, titleBar.adjusted(38, 0, 0, 0), QStringLiteral("Tavrinox - Gerenciador"), sansFont(13), kInk,
             Qt::AlignLeft | Qt::AlignVCenter);
    drawWindowButtons(p, titleBar);
    const QRectF menuBar(window.left(), titleBar.bottom(), window.width(), menuHeight);
    p.fillRect(menuBar, QColor(0xFA, 0xFA, 0xFA));
    drawText(p, menuBar.adjusted(14, 0, 0, 0), QStringLiteral("Arquivo"), sansFont(13), kInk,
             Qt::AlignLeft | Qt::AlignVCenter);
    drawText(p, menuBar.adjusted(84, 0, 0, 0), QStringLiteral("Ajuda"), sansFont(13), kInk,
             Qt::AlignLeft | Qt::AlignVCenter);

    // Background picture, covering the central area as the window does.
    const QImage scaled =
        background.scaled(central.size().toSize(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    p.drawImage(central.topLeft(), scaled,
                QRectF((scaled.width() - central.width()) / 2, (scaled.height() - central.height()) / 2,
                       central.width(), central.height()));

    // Status bar.
    const QRectF statusBar(window.left(), central.bottom(), window.width(), statusHeight);
    p.fillRect(statusBar, QColor(0xF0, 0xF0, 0xF0));
    const QFont statusFont = sansFont(11.5);
    qreal sx = statusBar.right() - 8;
    for (const QString &text : {QStringLiteral("Corvane Sistemas"), QStringLiteral("Versão 1.0.5")}) {
        const qreal w = std::max<qreal>(92, textWidth(text, statusFont) + 12);
        sx -= w;
        drawText(p, QRectF(sx, statusBar.top(), w, statusHeight), text, statusFont, kInk, Qt::AlignCenter);
        p.setPen(QPen(QColor(0xC8, 0xC8, 0xC8), 1));
        p.drawLine(QPointF(sx, statusBar.top() + 5), QPointF(sx, statusBar.bottom() - 5));
    }
    p.restore();
    p.setPen(QPen(QColor(0xB8, 0xC2, 0xCE), 1));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(window.adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);

    // Content panel: transparent, with a thin white border.
    const QRectF panel = central.adjusted(21, 21, -21, -21);
    p.setPen(QPen(QColor(255, 255, 255, 92), 1));
    p.drawRoundedRect(panel, 8, 8);
    const qreal left = panel.left() + 18;
    qreal y = panel.top() + 16 + 150;
    const QFont labelFont = sansFont(12.5);
    drawText(
        p, QRectF(left, y, 640, 60),
        QStringLiteral("Suas informações merecem proteção.\nO Tavrinox - Gerenciador prepara sua unidade USB "
                       "para armazenar e acessar arquivos\ncom segurança, em um ambiente portátil e pronto "
                       "para uso."),
        labelFont, Qt::white, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap);
    y += 62 + 30;
    drawText(p, QRectF(left, y, 700, 20),
             QStringLiteral("Preparador de unidade USB para o ambiente portátil Tavrinox."), labelFont,
             Qt::white, Qt::AlignLeft | Qt::AlignTop);
    y += 20 + 16;

    const QString driveLabel = QStringLiteral("Unidade USB:");
    const qreal driveLabelWidth = textWidth(driveLabel, labelFont);
    drawText(p, QRectF(left, y, driveLabelWidth, 28), driveLabel, labelFont, Qt::white,
             Qt::AlignRight | Qt::AlignVCenter);
    const QRectF combo(left + driveLabelWidth + 10, y, 320, 28);
    p.setPen(QPen(QColor(0x9A, 0xA6, 0xB4), 1));
    p.setBrush(Qt::white);
    p.drawRoundedRect(combo, 3, 3);
    drawText(p, combo.adjusted(9, 0, -30, 0), QStringLiteral("PENDRIVE (E:\\)"), labelFont, kInk,
             Qt::AlignLeft | Qt::AlignVCenter);
    p.setPen(QPen(kInk, 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPolyline(QPolygonF({combo.topRight() + QPointF(-19, 12), combo.topRight() + QPointF(-14, 17),
                              combo.topRight() + QPointF(-9, 12)}));
    drawCallout(p, QPointF(combo.right() + 26, combo.center().y()), 1);
    y += 28 + 14;

    const QString windowsLabel = QStringLiteral("Fonte Windows:");
    const QString linuxLabel = QStringLiteral("Fonte Linux:");
    const qreal sourceLabelWidth =
        std::max(textWidth(windowsLabel, labelFont), textWidth(linuxLabel, labelFont));
    for (const QString &label : {windowsLabel, linuxLabel}) {
        drawText(p, QRectF(left, y, sourceLabelWidth, 20), label, labelFont, Qt::white,
                 Qt::AlignRight | Qt::AlignVCenter);
        drawText(p, QRectF(left + sourceLabelWidth + 10, y, 200, 20), QStringLiteral("Disponível"), labelFont,
                 Qt::white, Qt::AlignLeft | Qt::AlignVCenter);
        y += 20 + 8;
    }
    drawCallout(p, QPointF(left + sourceLabelWidth + 110, y - 28 - 4), 2);
    y += 10;

    const QFont buttonFont = sansFont(12.5);
    auto buttonWidth = [&](const QString &text) { return textWidth(text, buttonFont) + 28; };
    const QString refresh = QStringLiteral("Atualizar lista");
    const QString update = QStringLiteral("Verificar atualizações");
    const QString prepare = QStringLiteral("Preparar unidade USB");
    const qreal right = panel.right() - 18;
    const QRectF refreshButton(left, y, buttonWidth(refresh), 30);
    const QRectF prepareButton(right - buttonWidth(prepare), y, buttonWidth(prepare), 30);
    const QRectF updateButton(prepareButton.left() - 8 - buttonWidth(update), y, buttonWidth(update), 30);
    drawButton(p, refreshButton, refresh);
    drawButton(p, updateButton, update);
    drawButton(p, prepareButton, prepare);
    drawCallout(p, QPointF(refreshButton.right() + 24, refreshButton.center().y()), 3);
    drawCallout(p, QPointF(updateButton.center().x(), updateButton.top() - 14), 4);
    drawCallout(p, QPointF(prepareButton.center().x(), prepareButton.top() - 14), 5);

    const QRectF log(left, panel.bottom() - 18 - 100, panel.width() - 36, 100);
    p.setPen(QPen(QColor(31, 41, 55, 70), 1));
    p.setBrush(QColor(255, 255, 255, 205));
    p.drawRoundedRect(log, 4, 4);
    drawText(
        p, log.adjusted(10, 8, -10, -8),
        QStringLiteral("Fonte Windows para preparação encontrada.\nFonte Linux para preparação encontrada.\n"
                       "1 unidade(s) USB detectada(s)."),
        sansFont(12.5), QColor(0x11, 0x18, 0x27), Qt::AlignLeft | Qt::AlignTop);
    drawCallout(p, QPointF(log.right() - 24, log.top() + 24), 6);

    // Legend below the window.
    const QList<QString> legend = {
        QStringLiteral("Unidade USB: escolha a unidade de trabalho"),
        QStringLiteral("Fontes Windows e Linux disponíveis para a cópia"),
        QStringLiteral("Atualizar lista: procura unidades conectadas"),
        QStringLiteral("Verificar atualizações: baixa e aplica nova versão"),
        QStringLiteral("Preparar unidade USB: copia bundles e inicializadores"),
        QStringLiteral("Registro: mensagens de cada operação"),
    };
    const qreal legendTop = window.bottom() + 34;
    const QFont legendFont = sansFont(14);
    for (int i = 0; i < legend.size(); ++i) {
        const qreal lx = 56 + (i % 2) * 540;
        const qreal ly = legendTop + (i / 2) * 34;
        drawNumberBadge(p, QPointF(lx, ly + 12), i + 1, kCallout, 12);
        drawText(p, QRectF(lx + 22, ly, 500, 24), legend.at(i), legendFont, kInk,
                 Qt::AlignLeft | Qt::AlignVCenter);
    }
    p.end();
    return image.convertToFormat(QImage::Format_RGB32);
}

QImage renderLicencePlans()
{
    constexpr int width = 1120;
    constexpr int height = 580;
    QImage image = newCanvas(width, height);
    QPainter p(&image);
    preparePainter(p);
    drawHeading(p, 40, 26, QStringLiteral("Planos de licença"),
                QStringLiteral("Modalidades de uso do Tavrinox. As condições da sua licença estão no próprio "
                               "programa."));

    struct Plan
    {
        Glyph glyph;
        QString name;
        QString summary;
        QList<QString> points;
        QColor color;
    };
    const QList<Plan> plans = {
        {Glyph::Person,
         QStringLiteral("Individual"),
         QStringLiteral("Para quem leva os próprios arquivos protegidos na unidade USB."),
         {QStringLiteral("Uso pessoal"), QStringLiteral("Ativações do titular"),
          QStringLiteral("Atualizações pelo Gerenciador")},
         kTeal},
        {Glyph::Team,
         QStringLiteral("Equipe"),
         QStringLiteral("Para grupos de trabalho que compartilham a mesma rotina."),
         {QStringLiteral("Vários usuários"), QStringLiteral("Ativações em um só lugar"),
          QStringLiteral("Atualizações pelo Gerenciador")},
         kPrimary},
        {Glyph::Building,
         QStringLiteral("Instituição"),
         QStringLiteral("Para organizações com muitas unidades e usuários."),
         {QStringLiteral("Uso em toda a organização"), QStringLiteral("Gestão das ativações"),
          QStringLiteral("Atualizações pelo Gerenciador")},
         kNavy},
    };

    constexpr qreal margin = 40;
    constexpr qreal gap = 36;
    const qreal cardWidth = (width - 2 * margin - gap * (plans.size() - 1)) / plans.size();
    const qreal top = 112;
    const qreal cardHeight = 350;
    for (int i = 0; i < plans.size(); ++i) {
        const Plan &plan = plans.at(i);
        const QRectF card(margin + i * (cardWidth + gap), top, cardWidth, cardHeight);
        drawCard(p, card, 14);
        QPainterPath shape;
        shape.addRoundedRect(card, 14, 14);
        const QRectF header(card.left(), card.top(), card.width(), 112);
        p.save();
        p.setClipPath(shape);
        QLinearGradient band(header.topLeft(), header.bottomRight());
        band.setColorAt(0, plan.color.lighter(118));
        band.setColorAt(1, plan.color);
        p.fillRect(header, band);
        // A few soft circles give the band some texture.
        p.setPen(Qt::NoPen);
        p.setBrush(withAlpha(Qt::white, 0.07));
        p.drawEllipse(QPointF(header.right() - 30, header.top() + 10), 70, 70);
        p.drawEllipse(QPointF(header.right() - 110, header.bottom() + 10), 40, 40);
        p.restore();

        p.setPen(Qt::NoPen);
        p.setBrush(withAlpha(Qt::white, 0.16));
        const QPointF iconCentre(header.left() + 56, header.center().y());
        p.drawEllipse(iconCentre, 32, 32);
        drawGlyph(p, plan.glyph, QRectF(iconCentre.x() - 24, iconCentre.y() - 24, 48, 48), Qt::white);
        drawText(p, QRectF(header.left() + 104, header.top(), header.width() - 112, header.height()),
                 plan.name, sansFont(24, QFont::Bold), Qt::white, Qt::AlignLeft | Qt::AlignVCenter);

        drawText(p, QRectF(card.left() + 24, header.bottom() + 22, card.width() - 48, 60), plan.summary,
                 sansFont(14.5), kMuted, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap);
        p.setPen(QPen(kLine, 1));
        p.drawLine(QPointF(card.left() + 24, header.bottom() + 92),
                   QPointF(card.right() - 24, header.bottom() + 92));
        qreal y = header.bottom() + 122;
        for (const QString &point : plan.points) {
            drawCheck(p, QPointF(card.left() + 34, y), plan.color);
            drawText(p, QRectF(card.left() + 54, y - 12, card.width() - 78, 24), point, sansFont(14.5), kInk,
                     Qt::AlignLeft | Qt::AlignVCenter);
            y += 40;
        }
    }

    // Where the real licence is looked up.
    const QRectF note(margin, top + cardHeight + 28, width - 2 * margin, 52);
    p.setPen(QPen(QColor(0xC9, 0xDB, 0xEE), 1));
    p.setBrush(kPrimarySoft);
    p.drawRoundedRect(note, 10, 10);
    const QPointF info(note.left() + 30, note.center().y());
    p.setPen(Qt::NoPen);
    p.setBrush(kPrimary);
    p.drawEllipse(info, 12, 12);
    drawText(p, QRectF(info.x() - 12, info.y() - 12, 24, 24), QStringLiteral("i"), sansFont(16, QFont::Bold),
             Qt::white, Qt::AlignCenter);
    drawText(p, note.adjusted(56, 0, -16, 0),
             QStringLiteral("A licença da unidade e as ativações em uso são consultadas em "
                            "Ajuda › Verificar Licença e Ativações."),
             sansFont(14.5), kInk, Qt::AlignLeft | Qt::AlignVCenter);
    p.end();
    return image.convertToFormat(QImage::Format_RGB32);
}

} // namespace Artwork
