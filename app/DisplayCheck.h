#pragma once

#include <QString>
#include <functional>

// Which desktop Mendwise runs on, decided before the Qt application exists (Qt aborts without
// a display, and must be told which platform to use): natively on Wayland when the session
// offers a Wayland display, on X11 otherwise.
namespace app {

struct DisplayCheck {
    enum class Outcome { x11, wayland, unavailable };
    Outcome outcome = Outcome::unavailable;
    QString message; // for the user: why it cannot start, or what it fell back to
};

// `env` reads one environment variable (empty when unset); `canConnectX11` tries to open the
// X11 display with that name, `canConnectWayland` the Wayland display with that name.
DisplayCheck checkDisplay(const std::function<QString(const char*)>& env,
                          const std::function<bool(const QString&)>& canConnectX11,
                          const std::function<bool(const QString&)>& canConnectWayland);

} // namespace app
