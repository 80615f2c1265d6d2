#pragma once

#include <QImage>

namespace Artwork {

constexpr int kBackgroundWidth = 1920;
constexpr int kBackgroundHeight = 1080;

// Navy and teal, with glowing circuit traces, soft rings and bokeh in the upper part.
QImage renderBackgroundCircuit();

// Graphite and deep teal, with a low-poly veil, nested shield outlines and light streaks.
QImage renderBackgroundShield();

} // namespace Artwork
