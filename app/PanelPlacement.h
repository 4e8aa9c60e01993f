#pragma once

#include "platform/Geometry.h"
#include "platform/Screens.h"

#include <optional>

// Where the floating panel goes: just below the selection (or the mouse), kept inside the
// visible frame of a screen. Global coordinates: origin bottom-left of the primary screen, y up.
namespace placement {

inline constexpr double panelWidth = 240;
inline constexpr double panelHeight = 140;
inline constexpr double anchorOffsetX = 4; // right of a selection anchor
inline constexpr double mouseOffsetX = 12; // right of the mouse
inline constexpr double verticalGap = 8;   // between the reference point and the panel's top
inline constexpr double edgeMargin = 8;    // kept from the edges of a visible frame

// The panel's origin (bottom-left corner) for a reference point: its top edge sits
// `verticalGap` below the point.
platform::Point candidateOriginFromAnchor(platform::Point anchor);
platform::Point candidateOriginFromMouse(platform::Point mouse);

// The candidate origin below `anchor`, or below the mouse location when there is no anchor.
platform::Point candidateOrigin(const std::optional<platform::Point>& anchor,
                                platform::ScreensPort& screens);

// Moves the origin (x, y) of a width x height panel into the visible frame of the screen that
// contains (x, y) (else the main screen, else the first screen). The right edge is tested
// before the left and the top before the bottom, so a panel too large for the frame keeps the
// left and bottom margins. With no screen at all there is nothing to clamp to and the origin is
// returned unchanged.
platform::Point clampToVisibleFrame(double x, double y, double width, double height,
                                    platform::ScreensPort& screens);

// The candidate origin for `anchor` (or the mouse), clamped, for the panel's own size.
platform::Point panelOrigin(const std::optional<platform::Point>& anchor,
                            platform::ScreensPort& screens);

} // namespace placement
