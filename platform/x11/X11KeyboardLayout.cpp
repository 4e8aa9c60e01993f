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
    const xkb_layout_index_t layout = xkb_state_key_get_layout(state.get(), *keycode);
    if (layout == XKB_LAYOUT_INVALID)
        return std::nullopt;
    const xkb_keysym_t* keysyms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap.get(), *keycode, layout, 0, &keysyms);
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
