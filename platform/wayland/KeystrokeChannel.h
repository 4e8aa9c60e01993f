#pragma once

#include <QString>
#include <cstdint>
#include <functional>

// A way to type into other applications on a Wayland desktop, where the core protocol allows
// none: the compositor's virtual-keyboard protocol (wlroots) or the RemoteDesktop portal (KDE,
// GNOME). Keys are Linux evdev key codes (KEY_C is 46); the compositor turns them into symbols
// with the keyboard layout in force, so the caller picks the key that types the symbol it wants.
//
// Callable from any thread, one call at a time.
namespace platform::wayland {

class KeystrokeChannel {
public:
    enum class State {
        ready,           // keys can be typed
        needsPermission, // the desktop will ask the user first (or is asking)
        refused,         // the user or the desktop said no; nothing will be typed
        unavailable,     // the channel broke (the compositor or portal went away)
    };

    virtual ~KeystrokeChannel() = default;

    // Presses (down) or releases one key. False when nothing was sent: the key then did not
    // reach any application, and the caller must not expect its effect.
    virtual bool sendKey(std::uint32_t evdevCode, bool down) = 0;

    // Types the keys that follow with layout `index` (0 first) of keymap(). False where the
    // channel cannot choose: the layout the user has in force then decides.
    virtual bool chooseLayout(std::uint32_t /*index*/) { return false; }

    // Whether keys can be typed now; a channel waiting for permission may ask for it here and
    // block the calling thread (never the GUI thread) at most `timeoutMs` for the answer.
    virtual State prepare(int timeoutMs) = 0;
    [[nodiscard]] virtual State state() const = 0;

    // The keyboard layout keys are interpreted with, as an XKB keymap in text form; empty when
    // the channel does not know it (the caller then uses the session's layout names).
    [[nodiscard]] virtual QString keymap() const { return {}; }

    // How the channel is named in the one line written at start.
    [[nodiscard]] virtual QString name() const = 0;

    // Called on the GUI thread whenever state() changes.
    void setStateObserver(std::function<void(State)> observer) {
        stateObserver_ = std::move(observer);
    }

protected:
    void notifyState(State state) const {
        if (stateObserver_)
            stateObserver_(state);
    }

private:
    std::function<void(State)> stateObserver_;
};

} // namespace platform::wayland
