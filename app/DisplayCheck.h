#pragma once

#include <QString>
#include <functional>

// Which desktop Mendwise can run on, decided before the Qt application exists (Qt aborts
// without a display, and on Wayland it must be told to use XWayland).
namespace app {

struct DisplayCheck {
    enum class Outcome { x11, xwayland, unavailable };
    Outcome outcome = Outcome::unavailable;
    QString message; // for the user: why it cannot start, or what does not work
};

// `env` reads one environment variable (empty when unset); `canConnect` tries to open the X11
// display with that name.
DisplayCheck checkDisplay(const std::function<QString(const char*)>& env,
                          const std::function<bool(const QString&)>& canConnect);

} // namespace app
