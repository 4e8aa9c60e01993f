#pragma once

#include "platform/KeyboardLayout.h"

#include <memory>

// What keys type on the X server's current keyboard layout, through xkbcommon: the keymap of
// the core keyboard, fetched again at every call, at level 0 (no modifier) of the current
// group, or of the first Latin group when the current one is not (Cyrillic, Greek...): the
// current ASCII-capable layout. A dead key types no text.
namespace platform::x11 {

class X11KeyboardLayout final : public KeyboardLayoutPort {
public:
    // None unless Qt runs on the xcb platform.
    static std::shared_ptr<X11KeyboardLayout> create();
    ~X11KeyboardLayout() override;
    X11KeyboardLayout(const X11KeyboardLayout&) = delete;
    X11KeyboardLayout& operator=(const X11KeyboardLayout&) = delete;

    std::optional<QString> characters(std::uint16_t virtualKey) override;

    struct Impl;

private:
    explicit X11KeyboardLayout(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d;
};

} // namespace platform::x11
