#pragma once

#include "platform/Geometry.h"

#include <QRect>
#include <vector>

// Conversions between the three coordinate systems a desktop utility meets on X11:
// - Qt's global coordinates (device-independent pixels, y down, origin of the virtual desktop);
// - X root-window pixels, in which AT-SPI answers extents asked in screen coordinates;
// - ours: global coordinates with the origin at the bottom-left corner of the primary screen,
//   y up, and accessibility coordinates with the origin at its top-left corner, y down.
//
// Qt keeps each screen's top-left corner at its native position and scales only the size, so a
// native pixel p on screen S is Qt's S.topLeft + (p - S.topLeft) / S.devicePixelRatio.
namespace platform::freedesktop {

struct ScreenScale {
    QRect geometry;  // Qt coordinates
    QRect available; // Qt coordinates, without panels and docks
    double devicePixelRatio = 1;
};

struct ScreenLayout {
    std::vector<ScreenScale> screens;
    int primary = -1; // index into screens; -1 when there is none
};

// The primary screen's geometry in Qt coordinates; an empty rectangle at (0, 0) when none.
QRect primaryGeometry(const ScreenLayout& layout);

// Qt coordinates to global ones (bottom-left of the primary screen, y up).
Rect globalFromQt(const QRectF& rect, const ScreenLayout& layout);
Point globalFromQt(const QPointF& point, const ScreenLayout& layout);

// X root-window pixels to accessibility coordinates (top-left of the primary screen, y down).
Point accessibilityFromNative(Point native, const ScreenLayout& layout);
Rect accessibilityFromNative(const Rect& native, const ScreenLayout& layout);

// The current layout from QGuiApplication. GUI thread only.
ScreenLayout currentScreenLayout();

} // namespace platform::freedesktop
