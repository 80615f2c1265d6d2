#pragma once

#include <QImage>
#include <QList>

namespace Artwork {

// The sizes stored in the application icon, smallest first.
QList<int> appIconSizes();

// The application icon: a white USB stick on a deep blue tile, carrying a blue shield with a lock.
// The 16 and 24 pixel images are drawn on their own pixel grid so that they stay sharp.
QImage renderAppIcon(int size);

} // namespace Artwork
