#include "app/DisplayCheck.h"

namespace app {

DisplayCheck checkDisplay(const std::function<QString(const char*)>& env,
                          const std::function<bool(const QString&)>& canConnect) {
    const QString display = env("DISPLAY");
    const bool wayland =
        env("XDG_SESSION_TYPE").compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0 ||
        !env("WAYLAND_DISPLAY").isEmpty();
    if (display.isEmpty()) {
        if (wayland) {
            return {DisplayCheck::Outcome::unavailable,
                    QStringLiteral("Mendwise: this is a Wayland session without XWayland "
                                   "(DISPLAY is not set). Mendwise needs X11 for its global "
                                   "shortcut, for reading the selection and for pasting; Wayland "
                                   "is not supported yet. Log in to an X11 session (\"GNOME on "
                                   "Xorg\" or similar) or enable XWayland.")};
        }
        return {DisplayCheck::Outcome::unavailable,
                QStringLiteral("Mendwise: no X11 display (DISPLAY is not set). Start Mendwise "
                               "from an X11 desktop session.")};
    }
    if (!canConnect(display)) {
        return {DisplayCheck::Outcome::unavailable,
                QStringLiteral("Mendwise: cannot open the X11 display \"%1\". Check that the X "
                               "server is running and that this user may connect to it "
                               "(xhost, XAUTHORITY).")
                    .arg(display)};
    }
    if (wayland) {
        return {DisplayCheck::Outcome::xwayland,
                QStringLiteral("Mendwise: Wayland is not supported yet; running through "
                               "XWayland. The shortcut, reading the selection and pasting "
                               "reach X11 applications only, not native Wayland ones.")};
    }
    return {DisplayCheck::Outcome::x11, {}};
}

} // namespace app
