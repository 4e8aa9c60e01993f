#pragma once

#include "platform/HotKeys.h"

// Where the desktop offers programs no global shortcuts (Wayland without the GlobalShortcuts
// portal, e.g. sway): every registration is refused as one that cannot be expressed here, so
// the shortcut shows as not working, and the user binds `mendwise --trigger` in the desktop's
// own keyboard settings instead.
namespace platform::wayland {

class UnavailableHotKeys final : public HotKeysPort {
public:
    OSStatus registerHotKey(std::uint32_t /*keyCode*/, std::uint32_t /*modifiers*/, HotKeyID /*id*/,
                            HotKeyRef& /*out*/) override {
        return osstatus::eventHotKeyInvalidErr;
    }
    OSStatus unregisterHotKey(const HotKeyRef& /*hotKey*/) override { return osstatus::paramErr; }
    OSStatus installEventHandler(EventHandler /*handler*/) override { return osstatus::noErr; }
    void addEventKinds(const std::vector<HotKeyEventKind>& /*kinds*/) override {}
    void removeEventKinds(const std::vector<HotKeyEventKind>& /*kinds*/) override {}
    OSStatus copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) override {
        out.clear();
        return osstatus::noErr;
    }
};

} // namespace platform::wayland
