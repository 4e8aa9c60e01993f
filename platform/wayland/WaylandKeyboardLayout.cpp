#include "platform/wayland/WaylandKeyboardLayout.h"

#include "platform/VirtualKeys.h"

#include <xkbcommon/xkbcommon.h>

namespace platform::wayland {

struct WaylandKeyboardLayout::Impl {
    xkb_context* context = nullptr;
    xkb_keymap* keymap = nullptr;

    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        if (keymap)
            xkb_keymap_unref(keymap);
        if (context)
            xkb_context_unref(context);
    }
};

std::shared_ptr<WaylandKeyboardLayout> WaylandKeyboardLayout::create() {
    auto impl = std::make_unique<Impl>();
    impl->context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!impl->context)
        return nullptr;
    // Null names: the XKB_DEFAULT_* environment, then the compiled-in default.
    impl->keymap = xkb_keymap_new_from_names(impl->context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!impl->keymap)
        return nullptr;
    return std::shared_ptr<WaylandKeyboardLayout>(new WaylandKeyboardLayout(std::move(impl)));
}

WaylandKeyboardLayout::WaylandKeyboardLayout(std::unique_ptr<Impl> impl) : d_(std::move(impl)) {}
WaylandKeyboardLayout::~WaylandKeyboardLayout() = default;

std::optional<QString> WaylandKeyboardLayout::characters(std::uint16_t virtualKey) {
    // Wayland key codes are the X ones: evdev codes plus 8.
    const auto keycode = xKeycodeFromVirtualKey(virtualKey);
    if (!keycode)
        return std::nullopt;
    const xkb_keysym_t* keysyms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(d_->keymap, *keycode, 0, 0, &keysyms);
    QString text;
    for (int i = 0; i < count; ++i) {
        const char32_t codePoint = xkb_keysym_to_utf32(keysyms[i]);
        if (codePoint != 0)
            text += QString::fromUcs4(&codePoint, 1);
    }
    return text;
}

} // namespace platform::wayland
