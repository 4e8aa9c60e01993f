#include "ui/NativeWindow.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <qpa/qplatformnativeinterface.h>
#include <wayland-client-core.h>
#include <xcb/xcb.h>

namespace ui::native {

namespace {

xcb_connection_t* x11Connection() {
    auto* app = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return app ? app->connection() : nullptr;
}

// Qt 6.4 offers its Wayland connection only through the platform's native interface.
wl_display* waylandDisplay() {
    if (!qGuiApp || !QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        return nullptr;
    QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
    return native ? static_cast<wl_display*>(native->nativeResourceForIntegration("wl_display"))
                  : nullptr;
}

xcb_window_t rootWindow(xcb_connection_t* c) {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    return screen ? screen->root : xcb_window_t{XCB_WINDOW_NONE};
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

xcb_window_t activeWindow(xcb_connection_t* c, xcb_window_t root, xcb_atom_t property) {
    xcb_get_property_reply_t* reply = xcb_get_property_reply(
        c, xcb_get_property(c, 0, root, property, XCB_ATOM_WINDOW, 0, 1), nullptr);
    xcb_window_t window = XCB_WINDOW_NONE;
    if (reply && xcb_get_property_value_length(reply) >= 4)
        window = *static_cast<const xcb_window_t*>(xcb_get_property_value(reply));
    std::free(reply); // NOLINT(cppcoreguidelines-no-malloc)
    return window;
}

// Follows _NET_ACTIVE_WINDOW on the root window. Qt's own connection is used, so the root's
// property changes are added to the events Qt already selects there, never put in their place.
class X11ActiveWindowWatch final : public ActiveWindowWatch, public QAbstractNativeEventFilter {
public:
    X11ActiveWindowWatch(xcb_connection_t* c, std::function<void()> onChange)
        : connection_(c), root_(rootWindow(c)), property_(atom(c, "_NET_ACTIVE_WINDOW")),
          onChange_(std::move(onChange)) {
        xcb_get_window_attributes_reply_t* attributes =
            xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, root_), nullptr);
        if (attributes && !(attributes->your_event_mask & XCB_EVENT_MASK_PROPERTY_CHANGE)) {
            const std::uint32_t mask = attributes->your_event_mask | XCB_EVENT_MASK_PROPERTY_CHANGE;
            xcb_change_window_attributes(c, root_, XCB_CW_EVENT_MASK, &mask);
        }
        std::free(attributes); // NOLINT(cppcoreguidelines-no-malloc)
        active_ = activeWindow(c, root_, property_);
        QCoreApplication::instance()->installNativeEventFilter(this);
    }
    ~X11ActiveWindowWatch() override {
        if (auto* app = QCoreApplication::instance())
            app->removeNativeEventFilter(this);
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override {
        if (eventType != "xcb_generic_event_t")
            return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
            return false;
        const auto* notify = static_cast<const xcb_property_notify_event_t*>(message);
        if (notify->window != root_ || notify->atom != property_)
            return false;
        const xcb_window_t now = activeWindow(connection_, root_, property_);
        if (now != active_ && now != XCB_WINDOW_NONE && !isOwnWindow(now)) {
            active_ = now;
            // Copied: the callback may end this watch.
            const std::function<void()> callback = onChange_;
            callback();
        }
        return false;
    }

private:
    // One of this application's windows becoming active (the panel itself, taking the focus
    // from the settings window) is no reason to go.
    static bool isOwnWindow(xcb_window_t window) {
        const QWindowList windows = QGuiApplication::allWindows();
        return std::any_of(windows.begin(), windows.end(), [window](const QWindow* w) {
            return w->handle() && static_cast<xcb_window_t>(w->winId()) == window;
        });
    }

    xcb_connection_t* connection_;
    xcb_window_t root_;
    xcb_atom_t property_;
    xcb_window_t active_ = XCB_WINDOW_NONE;
    std::function<void()> onChange_;
};

class X11KeyboardBlock final : public KeyboardBlock {
public:
    explicit X11KeyboardBlock(xcb_connection_t* c) : connection_(c) {}
    ~X11KeyboardBlock() override {
        xcb_ungrab_keyboard(connection_, XCB_CURRENT_TIME);
        // A round trip, so the keyboard is back before the caller sends its keystrokes.
        std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_),
                                            nullptr)); // NOLINT(cppcoreguidelines-no-malloc)
        xcb_disconnect(connection_);
    }

private:
    xcb_connection_t* connection_;
};

} // namespace

std::unique_ptr<KeyboardBlock> KeyboardBlock::start() {
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return nullptr;
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (!c || xcb_connection_has_error(c) != 0 || rootWindow(c) == XCB_WINDOW_NONE) {
        if (c)
            xcb_disconnect(c);
        return nullptr;
    }
    xcb_grab_keyboard_reply_t* reply =
        xcb_grab_keyboard_reply(c,
                                xcb_grab_keyboard(c, 0, rootWindow(c), XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr);
    const bool grabbed = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
    std::free(reply); // NOLINT(cppcoreguidelines-no-malloc)
    if (!grabbed) {
        xcb_disconnect(c);
        return nullptr;
    }
    return std::make_unique<X11KeyboardBlock>(c);
}

std::unique_ptr<ActiveWindowWatch> ActiveWindowWatch::start(std::function<void()> onChange) {
    xcb_connection_t* c = x11Connection();
    if (!c || rootWindow(c) == XCB_WINDOW_NONE)
        return nullptr;
    return std::make_unique<X11ActiveWindowWatch>(c, std::move(onChange));
}

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
    if (xcb_connection_t* c = x11Connection()) {
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc)
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    } else if (wl_display* display = waylandDisplay()) {
        // As Qt's own round trips do, on the GUI thread.
        wl_display_roundtrip(display);
    }
}

} // namespace ui::native
