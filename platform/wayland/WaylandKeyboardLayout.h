#pragma once

#include "platform/KeyboardLayout.h"

#include <memory>

// Key characters under Wayland. The compositor hands its keymap only to the focused client's
// keyboard, which Qt keeps to itself, so the layout is the one the session names for new
// keyboards (XKB_DEFAULT_LAYOUT and friends, else the system default): right for the Latin
// letters of a shortcut on almost every desktop.
namespace platform::wayland {

class WaylandKeyboardLayout final : public KeyboardLayoutPort {
public:
    // None when xkbcommon cannot build a keymap.
    static std::shared_ptr<WaylandKeyboardLayout> create();
    ~WaylandKeyboardLayout() override;
    WaylandKeyboardLayout(const WaylandKeyboardLayout&) = delete;
    WaylandKeyboardLayout& operator=(const WaylandKeyboardLayout&) = delete;

    std::optional<QString> characters(std::uint16_t virtualKey) override;

private:
    struct Impl;
    explicit WaylandKeyboardLayout(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d_;
};

} // namespace platform::wayland
