#pragma once

#include <QColor>
#include <QStringView>

namespace ui {

// A colour from six hexadecimal digits such as "8B5CF6": anything that is not a letter or a
// digit is trimmed from both ends, an optional 0x prefix is accepted, and the longest run of
// hexadecimal digits is read as a number v (0 when there is none); red is bits 16-23 of v,
// green 8-15, blue 0-7, fully opaque, sRGB.
QColor colorFromHex(QStringView hex);

// The named colours of the interface, adjusted for light and dark palettes.
namespace colors {
QColor blue();
QColor cyan();
QColor green();
QColor red();
QColor orange();
QColor purple();
QColor indigo();
// The accent colour of the current palette (its highlight).
QColor accent();
// Text colours of the current palette.
QColor primaryText();
QColor secondaryText();
// Whether the current palette is a dark one.
bool isDark();
} // namespace colors

} // namespace ui
