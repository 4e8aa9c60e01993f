#include "app/DisplayCheck.h"

namespace app {

DisplayCheck checkDisplay(const std::function<QString(const char*)>& env,
                          const std::function<bool(const QString&)>& canConnectX11,
                          const std::function<bool(const QString&)>& canConnectWayland) {
    const QString display = env("DISPLAY");
    const QString wayland = env("WAYLAND_DISPLAY");
    // Natively on Wayland: through XWayland the shortcut, the selection and the paste would
    // reach X11 applications only.
    if (!wayland.isEmpty() && canConnectWayland(wayland))
        return {DisplayCheck::Outcome::wayland, {}};
    if (display.isEmpty()) {
        if (!wayland.isEmpty()) {
            return {DisplayCheck::Outcome::unavailable,
                    QStringLiteral("Mendwise: cannot reach the Wayland display \"%1\" "
                                   "(WAYLAND_DISPLAY), and there is no X11 display. Start "
                                   "Mendwise from within your desktop session.")
                        .arg(wayland)};
        }
        return {DisplayCheck::Outcome::unavailable,
                QStringLiteral("Mendwise: no display (neither WAYLAND_DISPLAY nor DISPLAY is "
                               "set). Start Mendwise from a desktop session.")};
    }
    if (!canConnectX11(display)) {
        return {DisplayCheck::Outcome::unavailable,
                QStringLiteral("Mendwise: cannot open the X11 display \"%1\". Check that the X "
                               "server is running and that this user may connect to it "
                               "(xhost, XAUTHORITY).")
                    .arg(display)};
    }
    if (!wayland.isEmpty()) {
        return {DisplayCheck::Outcome::x11,
                QStringLiteral("Mendwise: cannot reach the Wayland display \"%1\"; running "
                               "through X11 (\"%2\"), which reaches X11 applications only.")
                    .arg(wayland, display)};
    }
    return {DisplayCheck::Outcome::x11, {}};
}

} // namespace app
