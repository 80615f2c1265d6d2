#include "app/backgroundwidget.h"

#include <QPainter>
#include <QRandomGenerator64>
#include <QStringList>

namespace Tavrinox {

QSize backgroundSizeFor(std::optional<QSize> availableScreenSize)
{
    if (!availableScreenSize)
        return QSize(960, 540);
    int width = qMax(qMin(availableScreenSize->width() * 6 / 10, 1152), 900);
    int height = width * 9 / 16;
    if (availableScreenSize->height() < height) {
        height = availableScreenSize->height();
        width = height * 16 / 9;
    }
    return QSize(width, height);
}

BackgroundWidget::BackgroundWidget(QWidget *parent)
    : QWidget(parent)
{
    const QStringList pictures{QStringLiteral(":/backgrounds/Fundo01.png"),
                               QStringLiteral(":/backgrounds/Fundo02.png")};
    const auto index = QRandomGenerator64::global()->bounded(pictures.size());
    m_pixmap.load(pictures.at(index));
}

void BackgroundWidget::paintEvent(QPaintEvent *event)
{
    QWidget::paintEvent(event);
    if (m_pixmap.isNull())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QPixmap scaled = m_pixmap.scaled(size(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    painter.drawPixmap((width() - scaled.width()) / 2, (height() - scaled.height()) / 2, scaled);
}

} // namespace Tavrinox
