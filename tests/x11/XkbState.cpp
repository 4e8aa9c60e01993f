// Kept apart: Xlib's macros must not meet the test headers.
#include "tests/x11/DesktopApps.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace x11test {

int lockedLayoutGroup() {
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr)
        return -1;
    XkbStateRec state{};
    const int group =
        XkbGetState(display, XkbUseCoreKbd, &state) == Success ? state.locked_group : -1;
    XCloseDisplay(display);
    return group;
}

} // namespace x11test
