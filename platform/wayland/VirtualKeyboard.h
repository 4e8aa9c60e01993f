#pragma once

#include "platform/wayland/KeystrokeChannel.h"

#include <QByteArray>
#include <memory>

// Keystrokes through the compositor's virtual-keyboard protocol (sway, Hyprland and other
// wlroots desktops; no permission asked). The keyboard is Mendwise's own and carries the keymap
// of the session's keyboard, so applications read its keys exactly as the user's: a client
// that missed a keymap change still maps them right. It has its own modifier state, so
// modifiers the user still holds do not join its chords.
//
// It talks over a connection of its own to the compositor, apart from Qt's.
namespace platform::wayland {

class VirtualKeyboard final : public KeystrokeChannel {
public:
    // Connects and creates the keyboard. `keymapText` overrides the session's keymap (tests;
    // a keyboard of a chosen layout). Check state(): unavailable when the compositor offers no
    // virtual keyboards.
    explicit VirtualKeyboard(const QByteArray& keymapText = {});
    ~VirtualKeyboard() override;
    VirtualKeyboard(const VirtualKeyboard&) = delete;
    VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

    // Whether the compositor offers the protocol; a bounded round trip.
    static bool available();

    bool sendKey(std::uint32_t evdevCode, bool down) override;
    bool chooseLayout(std::uint32_t index) override;
    State prepare(int timeoutMs) override;
    [[nodiscard]] State state() const override;
    [[nodiscard]] QString keymap() const override;
    [[nodiscard]] QString name() const override;

private:
    struct Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::wayland
