#include "platform/wayland/XkbKeymap.h"

#include <cstdlib>
#include <functional>
#include <xkbcommon/xkbcommon.h>

namespace platform::wayland {

namespace {
// Wayland and X key codes are the Linux input codes plus 8.
constexpr std::uint32_t evdevOffset = 8;
} // namespace

struct XkbKeymap::Impl {
    xkb_context* context = nullptr;
    xkb_keymap* keymap = nullptr;
    xkb_state* state = nullptr;

    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        if (state)
            xkb_state_unref(state);
        if (keymap)
            xkb_keymap_unref(keymap);
        if (context)
            xkb_context_unref(context);
    }

    static std::unique_ptr<Impl> make(const std::function<xkb_keymap*(xkb_context*)>& compile) {
        auto impl = std::make_unique<Impl>();
        impl->context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        if (!impl->context)
            return nullptr;
        impl->keymap = compile(impl->context);
        if (!impl->keymap)
            return nullptr;
        impl->state = xkb_state_new(impl->keymap);
        if (!impl->state)
            return nullptr;
        return impl;
    }
};

std::unique_ptr<XkbKeymap> XkbKeymap::fromText(const QByteArray& text) {
    auto impl = Impl::make([&text](xkb_context* context) {
        return xkb_keymap_new_from_buffer(context, text.constData(),
                                          qstrnlen(text.constData(), text.size()),
                                          XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
    });
    return impl ? std::unique_ptr<XkbKeymap>(new XkbKeymap(std::move(impl))) : nullptr;
}

std::unique_ptr<XkbKeymap> XkbKeymap::fromNames(const char* layout, const char* variant) {
    auto impl = Impl::make([layout, variant](xkb_context* context) {
        xkb_rule_names names{};
        names.layout = layout;
        names.variant = variant;
        return xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    });
    return impl ? std::unique_ptr<XkbKeymap>(new XkbKeymap(std::move(impl))) : nullptr;
}

XkbKeymap::XkbKeymap(std::unique_ptr<Impl> impl) : d_(std::move(impl)) {}
XkbKeymap::~XkbKeymap() = default;

std::optional<KeyPlace> XkbKeymap::locate(std::uint32_t keysym) const {
    const xkb_keycode_t min = xkb_keymap_min_keycode(d_->keymap);
    const xkb_keycode_t max = xkb_keymap_max_keycode(d_->keymap);
    for (xkb_layout_index_t layout = 0; layout < xkb_keymap_num_layouts(d_->keymap); ++layout) {
        std::optional<KeyPlace> shifted;
        for (xkb_keycode_t code = min; code <= max && code >= evdevOffset; ++code) {
            // Keys with fewer layouts repeat their first, as XKB wraps them by default.
            const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(d_->keymap, code);
            if (layouts == 0)
                continue;
            const xkb_layout_index_t effective = layout % layouts;
            for (xkb_level_index_t level = 0; level < 2; ++level) {
                const xkb_keysym_t* syms = nullptr;
                const int count =
                    xkb_keymap_key_get_syms_by_level(d_->keymap, code, effective, level, &syms);
                if (count != 1 || syms[0] != keysym)
                    continue;
                const KeyPlace place{code - evdevOffset, layout, level == 1};
                if (level == 0)
                    return place;
                if (!shifted)
                    shifted = place;
            }
        }
        if (shifted)
            return shifted;
    }
    return std::nullopt;
}

QByteArray XkbKeymap::text() const {
    char* text = xkb_keymap_get_as_string(d_->keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
    if (!text)
        return {};
    QByteArray result(text, static_cast<qsizetype>(qstrlen(text) + 1));
    free(text); // NOLINT(cppcoreguidelines-no-malloc): xkbcommon allocates with malloc
    return result;
}

std::uint32_t XkbKeymap::layoutCount() const {
    return xkb_keymap_num_layouts(d_->keymap);
}

XkbKeymap::Modifiers XkbKeymap::updateKey(std::uint32_t evdevCode, bool down) {
    xkb_state_update_key(d_->state, evdevCode + evdevOffset, down ? XKB_KEY_DOWN : XKB_KEY_UP);
    return {xkb_state_serialize_mods(d_->state, XKB_STATE_MODS_DEPRESSED),
            xkb_state_serialize_mods(d_->state, XKB_STATE_MODS_LATCHED),
            xkb_state_serialize_mods(d_->state, XKB_STATE_MODS_LOCKED)};
}

} // namespace platform::wayland
