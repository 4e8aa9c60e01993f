#pragma once

#include "platform/Screens.h"

// The screens and the mouse, from Qt, in global coordinates (origin at the bottom-left corner
// of the primary screen, y up; Qt's device-independent pixels as points).
//
// Qt's screens and cursor belong to the GUI thread: call these from there. Calls from another
// thread are carried to the GUI thread and wait for it (at most a second, then they answer no
// screens and the origin), so they must not be made while the GUI thread waits for the caller.
namespace platform::freedesktop {

class QtScreens final : public ScreensPort {
public:
    // Under Wayland no client learns where the pointer is, nor places its own windows: the
    // mouse location is then the middle of the main screen, where the compositor centres a
    // new window anyway.
    enum class Pointer { fromQt, unknown };
    explicit QtScreens(Pointer pointer = Pointer::fromQt) : pointer_(pointer) {}

    // In QGuiApplication::screens() order. The visible frame is Qt's available geometry (the
    // window manager's work area: without panels and docks).
    std::vector<Screen> screens() override;
    // The primary screen: X11 has no key-window screen of its own.
    std::optional<Screen> mainScreen() override;
    Point mouseLocation() override;

private:
    Pointer pointer_;
};

} // namespace platform::freedesktop
