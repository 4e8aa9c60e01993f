#include "platform/x11/X11KeyboardLayout.h"

#include "platform/VirtualKeys.h"

#include <QGuiApplication>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace platform::x11 {

namespace {

xcb_connection_t* qtConnection() {
    auto* app = qGuiApp;
    if (!app)
        return nullptr;
    auto* x11 = app->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

struct KeymapDeleter {
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};
struct StateDeleter {
    void operator()(xkb_state* state) const { xkb_state_unref(state); }
};

// The letter keys (A to Z on a US keyboard), as virtual key codes.
constexpr std::uint16_t letterKeys[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  11, 12, 13,
                                        14, 15, 16, 17, 31, 32, 34, 35, 37, 38, 40, 45, 46};

// Whether every letter key types an ASCII character in `layout`, as on Latin layouts
// (QWERTY, AZERTY, Dvorak...) and not on Cyrillic, Greek or Arabic ones.
bool isAsciiCapable(xkb_keymap* keymap, xkb_layout_index_t layout) {
    for (const std::uint16_t virtualKey : letterKeys) {
        const auto keycode = xKeycodeFromVirtualKey(virtualKey);
        const xkb_layout_index_t layouts =
            keycode ? xkb_keymap_num_layouts_for_key(keymap, *keycode) : 0;
        if (layouts == 0)
            return false;
        const xkb_keysym_t* keysyms = nullptr;
        if (xkb_keymap_key_get_syms_by_level(keymap, *keycode, layout % layouts, 0, &keysyms) < 1)
            return false;
        const char32_t codePoint = xkb_keysym_to_utf32(keysyms[0]);
        if (codePoint < 0x20 || codePoint > 0x7E)
            return false;
    }
    return true;
}

// Shortcut names come from an ASCII-capable layout: the current one when it is, else the
// first that is (a Russian user with "ru,us" sees Ctrl+Shift+J, not a Cyrillic letter), else
// the current one after all.
xkb_layout_index_t asciiCapableLayout(xkb_keymap* keymap, xkb_state* state) {
    const xkb_layout_index_t current =
        xkb_state_serialize_layout(state, XKB_STATE_LAYOUT_EFFECTIVE);
    if (isAsciiCapable(keymap, current))
        return current;
    const xkb_layout_index_t count = xkb_keymap_num_layouts(keymap);
    for (xkb_layout_index_t layout = 0; layout < count; ++layout) {
        if (isAsciiCapable(keymap, layout))
            return layout;
    }
    return current;
}

} // namespace

struct X11KeyboardLayout::Impl {
    xcb_connection_t* connection = nullptr;
    xkb_context* context = nullptr;
    std::int32_t device = -1;

    ~Impl() {
        if (context)
            xkb_context_unref(context);
    }
};

std::shared_ptr<X11KeyboardLayout> X11KeyboardLayout::create() {
    xcb_connection_t* connection = qtConnection();
    if (!connection)
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->connection = connection;
    if (!xkb_x11_setup_xkb_extension(
            connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
            XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr))
        return nullptr;
    impl->device = xkb_x11_get_core_keyboard_device_id(connection);
    impl->context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (impl->device < 0 || !impl->context)
        return nullptr;
    return std::shared_ptr<X11KeyboardLayout>(new X11KeyboardLayout(std::move(impl)));
}

X11KeyboardLayout::X11KeyboardLayout(std::unique_ptr<Impl> impl) : d(std::move(impl)) {}
X11KeyboardLayout::~X11KeyboardLayout() = default;

std::optional<QString> X11KeyboardLayout::characters(std::uint16_t virtualKey) {
    if (!qGuiApp)
        return std::nullopt; // Qt's connection is gone
    const auto keycode = xKeycodeFromVirtualKey(virtualKey);
    if (!keycode)
        return std::nullopt;
    const std::unique_ptr<xkb_keymap, KeymapDeleter> keymap(xkb_x11_keymap_new_from_device(
        d->context, d->connection, d->device, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap)
        return std::nullopt;
    const std::unique_ptr<xkb_state, StateDeleter> state(
        xkb_x11_state_new_from_device(keymap.get(), d->connection, d->device));
    if (!state)
        return std::nullopt;
    const xkb_layout_index_t layout = asciiCapableLayout(keymap.get(), state.get());
    const xkb_keycode_t key = *keycode;
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap.get(), key);
    if (layout == XKB_LAYOUT_INVALID || layouts == 0)
        return std::nullopt;
    const xkb_keysym_t* keysyms = nullptr;
    // A key with fewer groups than the keymap wraps around, as the server does by default.
    const int count =
        xkb_keymap_key_get_syms_by_level(keymap.get(), key, layout % layouts, 0, &keysyms);
    QString text;
    for (int i = 0; i < count; ++i) {
        // Zero for a dead key or a keysym without a character.
        const char32_t codePoint = xkb_keysym_to_utf32(keysyms[i]);
        if (codePoint != 0)
            text += QString::fromUcs4(&codePoint, 1);
    }
    return text;
}

} // namespace platform::x11
