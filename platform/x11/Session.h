#pragma once

#include <QString>
#include <optional>

// Whether the desktop session is one this backend can drive. Text exchange needs X11: XTest
// for synthetic keys, the X selections for the clipboard. Under Wayland (even with Xwayland)
// keys cannot be sent to native Wayland applications, so Mendwise says so at start.
namespace platform::x11 {

// A one-line explanation of why this session is not supported, or none when it is.
// Reads the environment (XDG_SESSION_TYPE, WAYLAND_DISPLAY, DISPLAY) and, when a
// QGuiApplication exists, its platform plugin.
std::optional<QString> unsupportedSessionMessage();

} // namespace platform::x11
