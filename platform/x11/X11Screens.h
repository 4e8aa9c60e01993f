#pragma once

#include "platform/Screens.h"

// The screens and the mouse, from Qt, in global coordinates (origin at the bottom-left corner
// of the primary screen, y up; Qt's device-independent pixels as points).
//
// Qt's screens and cursor belong to the GUI thread: call these from there. Calls from another
// thread are carried to the GUI thread and wait for it (at most a second, then they answer no
// screens and the origin), so they must not be made while the GUI thread waits for the caller.
namespace platform::x11 {

class X11Screens final : public ScreensPort {
public:
    // In QGuiApplication::screens() order. The visible frame is Qt's available geometry (the
    // window manager's work area: without panels and docks).
    std::vector<Screen> screens() override;
    // The primary screen: X11 has no key-window screen of its own.
    std::optional<Screen> mainScreen() override;
    Point mouseLocation() override;
};

} // namespace platform::x11
