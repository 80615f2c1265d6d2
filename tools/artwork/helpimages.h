#pragma once

#include <QImage>

namespace Artwork {

// Usage flow: five numbered steps joined by arrows.
QImage renderUsageFlow();

// Schematic of the manager window with numbered call-outs. Takes the background drawn into the window.
QImage renderManagerWindow(const QImage &background);

// Licence plans as three cards, without prices.
QImage renderLicencePlans();

} // namespace Artwork
