#pragma once

#include "platform/HotKeys.h"

#include <memory>

// Hot keys on an X11 display, through Qt's own xcb connection.
//
// Each hot key is a passive key grab on the root window, once for every combination of the
// lock modifiers (Caps Lock, Num Lock, Scroll Lock as the modifier map has them), so it works
// whatever lock is on. Modifier roles: Command is Ctrl, Control is Super, Option is Alt;
// Function has no X modifier, so a combination with it is refused. A combination another
// client holds is refused with eventHotKeyExistsErr. The grab delivers the press and the
// release; the release is matched by the key code of the active press, since the user may let
// go of the modifiers first. Detectable auto-repeat is switched on for the connection, so holding
// the combination gives one press and one release. After a keyboard mapping change every
// grab is made again, and the status handler hears how each one went.
//
// Raw key events are the key events of the application's own windows (an open menu holds the
// keyboard); when the handler takes a press, the press and its release do not reach Qt.
//
// Reserved shortcuts: the combinations another client (the window manager, a desktop daemon)
// has grabbed on the root window, found by trying to grab each key with each combination of
// Ctrl, Shift, Alt and Super; combinations held here are skipped.
namespace platform::x11 {

class X11HotKeys final : public HotKeysPort {
public:
    // None unless Qt runs on the xcb platform.
    static std::shared_ptr<X11HotKeys> create();
    ~X11HotKeys() override;
    X11HotKeys(const X11HotKeys&) = delete;
    X11HotKeys& operator=(const X11HotKeys&) = delete;

    OSStatus registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, HotKeyID id,
                            HotKeyRef& out) override;
    OSStatus unregisterHotKey(const HotKeyRef& hotKey) override;
    OSStatus installEventHandler(EventHandler handler) override;
    void addEventKinds(const std::vector<HotKeyEventKind>& kinds) override;
    void removeEventKinds(const std::vector<HotKeyEventKind>& kinds) override;
    OSStatus copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) override;
    void setStatusHandler(const StatusHandler& handler) override;

    // How many passive grabs are held (a hot key holds one per lock combination).
    [[nodiscard]] int grabCount() const;

    struct Impl;

private:
    explicit X11HotKeys(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};

} // namespace platform::x11
