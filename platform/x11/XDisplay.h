#pragma once

#include <QString>
#include <cstdint>
#include <mutex>
#include <optional>

// Xlib's Display, by the name Xlib gives it; Xlib itself stays out of this header (its macros
// leak into everything that includes it).
struct _XDisplay; // NOLINT(bugprone-reserved-identifier)

// Our own Xlib connection, separate from Qt's, for what Qt has no API for: XTest, window
// properties of other clients, the keyboard map. Every X request failing on a vanished window
// is absorbed (Xlib's default handler would end the process) and reported as an absent value.
namespace platform::x11 {

using XWindowId = unsigned long;

struct WindowClass {
    QString instance; // WM_CLASS res_name
    QString name;     // WM_CLASS res_class, the application's class
};

class XDisplay {
public:
    // Connects to $DISPLAY; isOpen() tells whether that worked.
    XDisplay();
    ~XDisplay();
    XDisplay(const XDisplay&) = delete;
    XDisplay& operator=(const XDisplay&) = delete;

    [[nodiscard]] bool isOpen() const { return display_ != nullptr; }
    [[nodiscard]] _XDisplay* get() const { return display_; }
    // Held by the caller around every use of get() and of the methods below.
    [[nodiscard]] std::mutex& mutex() { return mutex_; }

    [[nodiscard]] XWindowId rootWindow() const;
    // The window manager's active window (_NET_ACTIVE_WINDOW), or 0.
    [[nodiscard]] XWindowId activeWindow();
    // The active window, else the client window that holds the input focus, or 0.
    [[nodiscard]] XWindowId focusedClientWindow();
    // Whether the window still exists (window managers may leave a destroyed one active).
    [[nodiscard]] bool windowExists(XWindowId window);
    [[nodiscard]] std::optional<std::int32_t> windowPid(XWindowId window);
    [[nodiscard]] std::optional<WindowClass> windowClass(XWindowId window);
    // _NET_WM_NAME, else WM_NAME.
    [[nodiscard]] std::optional<QString> windowTitle(XWindowId window);
    // The ancestor that is a direct child of the root (the frame when a window manager
    // reparents), or 0 when the window is gone.
    [[nodiscard]] XWindowId topLevelAncestor(XWindowId window);

    // Runs `request` and reports whether the server answered it without an X error.
    template <typename F> bool checked(F&& request) {
        beginErrorTrap();
        request();
        return endErrorTrap();
    }

private:
    void beginErrorTrap();
    bool endErrorTrap();
    std::optional<QByteArray> property(XWindowId window, const char* name, unsigned long type,
                                       int format);
    // The window's parent; none when the window is gone.
    std::optional<XWindowId> parentOf(XWindowId window);

    _XDisplay* display_ = nullptr;
    std::mutex mutex_;
};

} // namespace platform::x11
