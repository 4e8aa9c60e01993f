#pragma once

#include "platform/Geometry.h"

#include <QRect>

namespace ui {

// Global coordinates have their origin at the bottom-left corner of the primary screen with y
// growing upwards; Qt's have theirs at the top-left corner of the virtual desktop with y growing
// downwards. This is the one conversion between the two for window frames.
QRect qtRectFromGlobal(const platform::Rect& frame, const QRect& primaryScreenGeometry);

// The same with the primary screen Qt reports (a zero-sized screen when there is none).
QRect qtRectFromGlobal(const platform::Rect& frame);

} // namespace ui
