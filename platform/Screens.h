#pragma once

#include "platform/Geometry.h"

#include <optional>
#include <vector>

// The screens port: the screens with their frames and the mouse location, all in global
// coordinates (origin at the bottom-left corner of the primary screen, y up).
namespace platform {

struct Screen {
    Rect frame;
    Rect visibleFrame; // the frame without panels and docks
    friend bool operator==(const Screen&, const Screen&) = default;
};

class ScreensPort {
public:
    virtual ~ScreensPort() = default;

    // Every screen, in the platform's order.
    virtual std::vector<Screen> screens() = 0;
    // The screen holding the key window (the primary screen when none does), or none.
    virtual std::optional<Screen> mainScreen() = 0;
    virtual Point mouseLocation() = 0;
};

} // namespace platform
