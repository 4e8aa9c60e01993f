#include "platform/wayland/VirtualKeyboard.h"

#include "platform/wayland/XkbKeymap.h"
#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <chrono>
#include <mutex>
#include <set>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace platform::wayland {

namespace {

constexpr std::uint32_t keymapFormatXkbV1 = 1; // wl_keyboard's keymap_format.xkb_v1

// A file holding `data`, to hand over as the keymap; -1 on failure.
int sealedFile(const QByteArray& data) {
    const int fd = memfd_create("mendwise-keymap", MFD_CLOEXEC);
    if (fd < 0)
        return -1;
    qsizetype written = 0;
    while (written < data.size()) {
        const ssize_t n =
            write(fd, data.constData() + written, static_cast<size_t>(data.size() - written));
        if (n <= 0) {
            close(fd);
            return -1;
        }
        written += n;
    }
    return fd;
}

std::uint32_t nowMs() {
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

} // namespace

struct VirtualKeyboard::Impl {
    mutable std::mutex mutex;
    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    wl_seat* seat = nullptr;
    wl_keyboard* keyboard = nullptr;
    zwp_virtual_keyboard_manager_v1* manager = nullptr;
    zwp_virtual_keyboard_v1* virtualKeyboard = nullptr;
    QByteArray sessionKeymap; // as the compositor sent it
    QByteArray keymapText;    // what this keyboard types with
    std::unique_ptr<XkbKeymap> xkb;
    std::uint32_t layout = 0;
    std::set<std::uint32_t> down; // keys this keyboard holds
    State state = State::unavailable;

    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ~Impl() {
        if (virtualKeyboard) {
            // Nothing stays pressed after Mendwise: a held Ctrl would change every key the
            // user types next.
            for (const std::uint32_t code : down)
                zwp_virtual_keyboard_v1_key(virtualKeyboard, nowMs(), code,
                                            WL_KEYBOARD_KEY_STATE_RELEASED);
            zwp_virtual_keyboard_v1_modifiers(virtualKeyboard, 0, 0, 0, 0);
            zwp_virtual_keyboard_v1_destroy(virtualKeyboard);
        }
        if (keyboard)
            wl_keyboard_destroy(keyboard);
        if (manager)
            zwp_virtual_keyboard_manager_v1_destroy(manager);
        if (seat)
            wl_seat_destroy(seat);
        if (registry)
            wl_registry_destroy(registry);
        if (display) {
            wl_display_roundtrip(display);
            wl_display_disconnect(display);
        }
    }

    static void global(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                       std::uint32_t /*version*/) {
        auto* self = static_cast<Impl*>(data);
        const std::string_view iface(interface);
        if (iface == wl_seat_interface.name && !self->seat) {
            self->seat =
                static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
        } else if (iface == zwp_virtual_keyboard_manager_v1_interface.name) {
            self->manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
                wl_registry_bind(registry, name, &zwp_virtual_keyboard_manager_v1_interface, 1));
        }
    }
    static void globalRemove(void*, wl_registry*, std::uint32_t) {}

    static void keymap(void* data, wl_keyboard*, std::uint32_t format, std::int32_t fd,
                       std::uint32_t size) {
        auto* self = static_cast<Impl*>(data);
        if (format == keymapFormatXkbV1 && size > 0) {
            void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
            if (map != MAP_FAILED) {
                self->sessionKeymap =
                    QByteArray(static_cast<const char*>(map), static_cast<qsizetype>(size));
                munmap(map, size);
            }
        }
        close(fd);
    }
    static void enter(void*, wl_keyboard*, std::uint32_t, wl_surface*, wl_array*) {}
    static void leave(void*, wl_keyboard*, std::uint32_t, wl_surface*) {}
    static void key(void*, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t,
                    std::uint32_t) {}
    static void modifiers(void*, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t,
                          std::uint32_t, std::uint32_t) {}
    static void repeatInfo(void*, wl_keyboard*, std::int32_t, std::int32_t) {}

    void connect(const QByteArray& keymapOverride) {
        display = wl_display_connect(nullptr);
        if (!display)
            return;
        static const wl_registry_listener registryListener{&Impl::global, &Impl::globalRemove};
        registry = wl_display_get_registry(display);
        wl_registry_add_listener(registry, &registryListener, this);
        if (wl_display_roundtrip(display) < 0 || !seat || !manager)
            return;
        if (keymapOverride.isEmpty()) {
            // The session's keymap comes with the seat's keyboard (when it has one yet).
            static const wl_keyboard_listener keyboardListener{&Impl::keymap,    &Impl::enter,
                                                               &Impl::leave,     &Impl::key,
                                                               &Impl::modifiers, &Impl::repeatInfo};
            keyboard = wl_seat_get_keyboard(seat);
            wl_keyboard_add_listener(keyboard, &keyboardListener, this);
            wl_display_roundtrip(display);
        }
        const QByteArray wanted = keymapOverride.isEmpty() ? sessionKeymap : keymapOverride;
        xkb = wanted.isEmpty() ? nullptr : XkbKeymap::fromText(wanted);
        // A layout without Latin letters in any group (Russian alone) could not type Ctrl+C;
        // applications read this keyboard's keys with its own keymap, so it may differ.
        if (!xkb || (keymapOverride.isEmpty() && !xkb->locate(XKB_KEY_c)))
            xkb = XkbKeymap::fromNames("us");
        if (!xkb)
            return;
        keymapText = xkb->text();
        virtualKeyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager, seat);
        const int fd = sealedFile(keymapText);
        if (fd < 0)
            return;
        zwp_virtual_keyboard_v1_keymap(virtualKeyboard, keymapFormatXkbV1, fd,
                                       static_cast<std::uint32_t>(keymapText.size()));
        close(fd);
        if (wl_display_roundtrip(display) < 0)
            return;
        state = State::ready;
    }

    // After a protocol error or a lost compositor, nothing more can be sent.
    bool flush() {
        if (wl_display_roundtrip(display) >= 0)
            return true;
        state = State::unavailable;
        return false;
    }
};

VirtualKeyboard::VirtualKeyboard(const QByteArray& keymapText) : d_(std::make_unique<Impl>()) {
    d_->connect(keymapText);
}

VirtualKeyboard::~VirtualKeyboard() = default;

bool VirtualKeyboard::available() {
    return VirtualKeyboard().state() == State::ready;
}

bool VirtualKeyboard::sendKey(std::uint32_t evdevCode, bool down) {
    const std::lock_guard lock(d_->mutex);
    if (d_->state != State::ready)
        return false;
    zwp_virtual_keyboard_v1_key(d_->virtualKeyboard, nowMs(), evdevCode,
                                down ? WL_KEYBOARD_KEY_STATE_PRESSED
                                     : WL_KEYBOARD_KEY_STATE_RELEASED);
    if (down)
        d_->down.insert(evdevCode);
    else
        d_->down.erase(evdevCode);
    // The compositor reads modifiers from the keyboard itself, not from its keys.
    const XkbKeymap::Modifiers mods = d_->xkb->updateKey(evdevCode, down);
    zwp_virtual_keyboard_v1_modifiers(d_->virtualKeyboard, mods.depressed, mods.latched,
                                      mods.locked, d_->layout);
    return d_->flush();
}

bool VirtualKeyboard::chooseLayout(std::uint32_t index) {
    const std::lock_guard lock(d_->mutex);
    if (d_->state != State::ready || index >= d_->xkb->layoutCount())
        return false;
    d_->layout = index;
    return true;
}

KeystrokeChannel::State VirtualKeyboard::prepare(int /*timeoutMs*/) {
    return state();
}

KeystrokeChannel::State VirtualKeyboard::state() const {
    const std::lock_guard lock(d_->mutex);
    return d_->state;
}

QString VirtualKeyboard::keymap() const {
    const std::lock_guard lock(d_->mutex);
    return QString::fromUtf8(d_->keymapText);
}

QString VirtualKeyboard::name() const {
    return QStringLiteral("the compositor's virtual keyboard");
}

} // namespace platform::wayland
