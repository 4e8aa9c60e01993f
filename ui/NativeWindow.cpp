#include "ui/NativeWindow.h"

#include <QGuiApplication>
#include <QWidget>
#include <cstdint>
#include <cstdlib>
#include <xcb/xcb.h>

namespace ui::native {

namespace {

xcb_connection_t* x11Connection() {
    auto* app = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return app ? app->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* c, const char* name) {
    const auto length = static_cast<std::uint16_t>(qstrlen(name));
    xcb_intern_atom_reply_t* reply =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, length, name), nullptr);
    if (!reply)
        return XCB_ATOM_NONE;
    const xcb_atom_t result = reply->atom;
    std::free(reply); // NOLINT(cppcoreguidelines-no-malloc)
    return result;
}

} // namespace

void keepOnAllDesktops(QWidget* window) {
    xcb_connection_t* c = x11Connection();
    if (!c || !window)
        return;
    const auto id = static_cast<xcb_window_t>(window->winId());
    // A window mapped with _NET_WM_DESKTOP 0xFFFFFFFF and the sticky state is shown on every
    // desktop; Qt keeps states it finds here and adds its own (above) when it maps the window.
    const std::uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL,
                        32, 1, &allDesktops);
    const xcb_atom_t states[] = {atom(c, "_NET_WM_STATE_STICKY"),
                                 atom(c, "_NET_WM_STATE_SKIP_TASKBAR"),
                                 atom(c, "_NET_WM_STATE_SKIP_PAGER")};
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_STATE"), XCB_ATOM_ATOM, 32,
                        3, states);
    xcb_flush(c);
}

bool hasCompositor() {
    xcb_connection_t* c = x11Connection();
    if (!c)
        return true;
    // The compositing manager of screen 0 owns the selection _NET_WM_CM_S0.
    const xcb_atom_t selection = atom(c, "_NET_WM_CM_S0");
    xcb_get_selection_owner_reply_t* reply =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr);
    if (!reply)
        return false;
    const bool owned = reply->owner != XCB_WINDOW_NONE;
    std::free(reply); // NOLINT(cppcoreguidelines-no-malloc)
    return owned;
}

void syncWithServer() {
    if (xcb_connection_t* c = x11Connection())
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc)
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

} // namespace ui::native
