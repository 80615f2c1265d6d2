#pragma once

#include <QPixmap>
#include <QWidget>

#include <optional>

namespace Tavrinox {

// Fixed size of the window's picture area for a screen's available size (none: no screen).
// The 16:9 shape is kept; a short screen makes the area narrower rather than taller.
QSize backgroundSizeFor(std::optional<QSize> availableScreenSize);

// The central widget: one of the background pictures, chosen at random, covering the widget.
class BackgroundWidget : public QWidget
{
    Q_OBJECT
public:
    explicit BackgroundWidget(QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QPixmap m_pixmap;
};

} // namespace Tavrinox
