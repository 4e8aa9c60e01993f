#include "platform/x11/X11HotKeys.h"

#include "platform/VirtualKeys.h"

#include <QAbstractNativeEventFilter>
#include <QByteArray>
#include <QGuiApplication>
#include <QObject>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>
#include <xcb/xcb.h>
#include <xcb/xproto.h>

// xcb/xkb.h names a struct member `explicit`, which C++ reserves.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#define explicit xcb_explicit
#include <xcb/xkb.h>
#undef explicit
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

namespace platform::x11 {

namespace {

constexpr std::uint8_t badAccess = 10;

// Keysyms that name the modifiers whose X modifier bit varies between keyboards.
constexpr std::uint32_t keysymNumLock = 0xff7f;
constexpr std::uint32_t keysymScrollLock = 0xff14;
constexpr std::uint32_t keysymAltL = 0xffe9;
constexpr std::uint32_t keysymAltR = 0xffea;
constexpr std::uint32_t keysymSuperL = 0xffeb;
constexpr std::uint32_t keysymSuperR = 0xffec;

// The modifier bits that take part in a combination (no pointer buttons).
constexpr std::uint16_t modifierBits = 0xff;

struct Grab final : HotKeyRegistration {
    std::uint32_t virtualKey = 0;
    std::uint32_t modifiers = 0;
    HotKeyID id;
    xcb_keycode_t keycode = 0;
    std::uint16_t mask = 0;
    bool grabbed = false;
};

xcb_connection_t* qtConnection() {
    auto* app = qGuiApp;
    if (!app)
        return nullptr;
    auto* x11 = app->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

xcb_window_t rootWindow(xcb_connection_t* connection) {
    int screen = 0;
    char* host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &screen) != 0)
        std::free(host); // NOLINT(cppcoreguidelines-no-malloc): allocated by xcb
    auto it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screen && it.rem > 1; ++i)
        xcb_screen_next(&it);
    return it.data ? it.data->root : xcb_window_t{XCB_WINDOW_NONE};
}

} // namespace

struct X11HotKeys::Impl final : QAbstractNativeEventFilter {
    xcb_connection_t* connection = nullptr;
    xcb_window_t root = XCB_WINDOW_NONE;
    std::uint8_t xkbFirstEvent = 0;

    std::uint16_t altMask = XCB_MOD_MASK_1;
    std::uint16_t superMask = XCB_MOD_MASK_4;
    std::uint16_t numLockMask = 0;
    std::uint16_t scrollLockMask = 0;

    std::vector<std::shared_ptr<Grab>> grabs;
    EventHandler handler;
    StatusHandler statusHandler;
    std::set<HotKeyEventKind> listened;
    // Hot keys held down, by key code: the release belongs to the press.
    std::map<xcb_keycode_t, HotKeyID> activePresses;
    // Raw presses the handler took, by key code, with their Carbon modifiers.
    std::map<xcb_keycode_t, std::uint32_t> takenRawPresses;

    QObject context; // for the deferred re-grab
    bool refreshScheduled = false;

    // Qt's connection closes with the application.
    [[nodiscard]] bool alive() const { return qGuiApp && connection; }

    void setUp() {
        if (const auto* xkb = xcb_get_extension_data(connection, &xcb_xkb_id);
            xkb && xkb->present) {
            xkbFirstEvent = xkb->first_event;
            auto* use = xcb_xkb_use_extension_reply(
                connection, xcb_xkb_use_extension(connection, 1, 0), nullptr);
            const bool supported = use && use->supported;
            std::free(use); // NOLINT(cppcoreguidelines-no-malloc)
            // A held key then repeats its press without a release between, so it fires once.
            if (supported) {
                constexpr std::uint32_t flag = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
                auto* flags = xcb_xkb_per_client_flags_reply(
                    connection,
                    xcb_xkb_per_client_flags(connection, XCB_XKB_ID_USE_CORE_KBD, flag, flag, 0, 0,
                                             0),
                    nullptr);
                std::free(flags); // NOLINT(cppcoreguidelines-no-malloc)
            }
        }
        readModifierMap();
        QCoreApplication::instance()->installNativeEventFilter(this);
    }

    void readModifierMap() {
        const xcb_setup_t* setup = xcb_get_setup(connection);
        const xcb_keycode_t minKeycode = setup->min_keycode;
        const int count = setup->max_keycode - setup->min_keycode + 1;
        auto* keyboard = xcb_get_keyboard_mapping_reply(
            connection,
            xcb_get_keyboard_mapping(connection, minKeycode, static_cast<std::uint8_t>(count)),
            nullptr);
        auto* modifiers = xcb_get_modifier_mapping_reply(
            connection, xcb_get_modifier_mapping(connection), nullptr);
        altMask = 0;
        superMask = 0;
        numLockMask = 0;
        scrollLockMask = 0;
        if (keyboard && modifiers) {
            const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(keyboard);
            const int keysymCount = xcb_get_keyboard_mapping_keysyms_length(keyboard);
            const int perKeycode = keyboard->keysyms_per_keycode;
            const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(modifiers);
            const int perModifier = modifiers->keycodes_per_modifier;
            // Mod1 to Mod5 (Shift, Lock and Control are fixed).
            for (int modifier = 3; modifier < 8; ++modifier) {
                const auto bit = static_cast<std::uint16_t>(1U << modifier);
                for (int j = 0; j < perModifier; ++j) {
                    const xcb_keycode_t keycode = keycodes[modifier * perModifier + j];
                    if (keycode < minKeycode)
                        continue;
                    for (int column = 0; column < perKeycode; ++column) {
                        const int index = (keycode - minKeycode) * perKeycode + column;
                        if (index >= keysymCount)
                            break;
                        switch (keysyms[index]) {
                        case keysymNumLock:
                            numLockMask |= bit;
                            break;
                        case keysymScrollLock:
                            scrollLockMask |= bit;
                            break;
                        case keysymAltL:
                        case keysymAltR:
                            altMask |= bit;
                            break;
                        case keysymSuperL:
                        case keysymSuperR:
                            superMask |= bit;
                            break;
                        default:
                            break;
                        }
                    }
                }
            }
        }
        std::free(keyboard);  // NOLINT(cppcoreguidelines-no-malloc)
        std::free(modifiers); // NOLINT(cppcoreguidelines-no-malloc)
        if (!altMask)
            altMask = XCB_MOD_MASK_1;
        if (!superMask)
            superMask = XCB_MOD_MASK_4;
    }

    [[nodiscard]] std::uint16_t xMask(std::uint32_t carbon) const {
        std::uint16_t mask = 0;
        if (carbon & carbonmodifiers::command)
            mask |= XCB_MOD_MASK_CONTROL;
        if (carbon & carbonmodifiers::shift)
            mask |= XCB_MOD_MASK_SHIFT;
        if (carbon & carbonmodifiers::option)
            mask |= altMask;
        if (carbon & carbonmodifiers::control)
            mask |= superMask;
        return mask;
    }

    [[nodiscard]] std::uint32_t carbonFromState(std::uint16_t state) const {
        std::uint32_t carbon = 0;
        if (state & XCB_MOD_MASK_CONTROL)
            carbon |= carbonmodifiers::command;
        if (state & XCB_MOD_MASK_SHIFT)
            carbon |= carbonmodifiers::shift;
        if (state & XCB_MOD_MASK_LOCK)
            carbon |= carbonmodifiers::alphaLock;
        if (state & altMask)
            carbon |= carbonmodifiers::option;
        if (state & superMask)
            carbon |= carbonmodifiers::control;
        return carbon;
    }

    [[nodiscard]] std::uint16_t lockBits() const {
        return static_cast<std::uint16_t>(XCB_MOD_MASK_LOCK | numLockMask | scrollLockMask);
    }

    // Every combination of the lock modifiers, starting with none.
    [[nodiscard]] std::vector<std::uint16_t> lockVariants() const {
        std::set<std::uint16_t> variants{0};
        for (const std::uint16_t lock :
             {static_cast<std::uint16_t>(XCB_MOD_MASK_LOCK), numLockMask, scrollLockMask}) {
            if (!lock)
                continue;
            const std::set<std::uint16_t> before = variants;
            for (const auto variant : before)
                variants.insert(static_cast<std::uint16_t>(variant | lock));
        }
        return {variants.begin(), variants.end()};
    }

    OSStatus grabKey(xcb_keycode_t keycode, std::uint16_t mask) {
        const auto variants = lockVariants();
        std::vector<xcb_void_cookie_t> cookies;
        cookies.reserve(variants.size());
        for (const auto variant : variants) {
            cookies.push_back(xcb_grab_key_checked(
                connection, 0, root, static_cast<std::uint16_t>(mask | variant), keycode,
                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        }
        OSStatus status = osstatus::noErr;
        std::vector<std::uint16_t> granted;
        for (std::size_t i = 0; i < cookies.size(); ++i) {
            if (xcb_generic_error_t* error = xcb_request_check(connection, cookies[i])) {
                if (status == osstatus::noErr) {
                    status = error->error_code == badAccess ? osstatus::eventHotKeyExistsErr
                                                            : osstatus::eventHotKeyInvalidErr;
                }
                std::free(error); // NOLINT(cppcoreguidelines-no-malloc)
            } else {
                granted.push_back(variants[i]);
            }
        }
        if (status != osstatus::noErr) {
            for (const auto variant : granted)
                xcb_ungrab_key(connection, keycode, root,
                               static_cast<std::uint16_t>(mask | variant));
            sync();
        }
        return status;
    }

    void ungrabKey(xcb_keycode_t keycode, std::uint16_t mask) {
        for (const auto variant : lockVariants())
            xcb_ungrab_key(connection, keycode, root, static_cast<std::uint16_t>(mask | variant));
        sync();
    }

    // Waits until the server has carried out every request sent so far. A flush alone is not
    // enough: the server may still serve other clients first, and a key pressed meanwhile would
    // be caught by a grab that is already being let go.
    void sync() {
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection),
                                            nullptr)); // NOLINT(cppcoreguidelines-no-malloc)
    }

    [[nodiscard]] bool holds(xcb_keycode_t keycode, std::uint16_t mask,
                             const Grab* except = nullptr) const {
        return std::any_of(grabs.begin(), grabs.end(), [&](const auto& grab) {
            return grab.get() != except && grab->grabbed && grab->keycode == keycode &&
                   grab->mask == mask;
        });
    }

    std::optional<OSStatus> deliver(const HotKeyEvent& event) {
        if (!handler || !listened.contains(event.kind))
            return std::nullopt;
        const EventHandler current = handler; // the handler may replace itself
        return current(event);
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override {
        if (eventType != "xcb_generic_event_t" || !alive())
            return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        const std::uint8_t type = event->response_type & 0x7f;
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
            const auto* key = static_cast<const xcb_key_press_event_t*>(message);
            const bool press = type == XCB_KEY_PRESS;
            return key->event == root || heldByOwnGrab(press, *key) ? rootKey(press, *key)
                                                                    : rawKey(press, *key);
        }
        if (type == XCB_MAPPING_NOTIFY) {
            scheduleRefresh();
        } else if (xkbFirstEvent && type == xkbFirstEvent) {
            const auto xkbType = reinterpret_cast<const std::uint8_t*>(event)[1];
            if (xkbType == XCB_XKB_NEW_KEYBOARD_NOTIFY || xkbType == XCB_XKB_MAP_NOTIFY)
                scheduleRefresh();
        }
        return false;
    }

    [[nodiscard]] std::vector<std::shared_ptr<Grab>>::const_iterator
    findGrab(const xcb_key_press_event_t& key) const {
        const auto mask = static_cast<std::uint16_t>(key.state & modifierBits & ~lockBits());
        return std::find_if(grabs.begin(), grabs.end(), [&](const auto& grab) {
            return grab->grabbed && grab->keycode == key.detail && grab->mask == mask;
        });
    }

    // While one of this application's windows holds the keyboard (the floating panel), the
    // server activates no passive grab, not even ours: the hot key's combination arrives at that
    // window instead. Nothing else can bring it there while the grab on the root is in place,
    // so it is the hot key.
    [[nodiscard]] bool heldByOwnGrab(bool press, const xcb_key_press_event_t& key) const {
        if (!press)
            return activePresses.contains(key.detail);
        return findGrab(key) != grabs.end();
    }

    // A key event of a passive grab.
    bool rootKey(bool press, const xcb_key_press_event_t& key) {
        if (!press) {
            const auto it = activePresses.find(key.detail);
            if (it == activePresses.end())
                return false;
            const HotKeyID id = it->second;
            activePresses.erase(it);
            deliver(HotKeyEvent{HotKeyEventKind::hotKeyReleased, id, std::nullopt, std::nullopt});
            return true;
        }
        if (activePresses.contains(key.detail))
            return true; // auto-repeat of a held hot key
        const auto it = findGrab(key);
        if (it == grabs.end())
            return false;
        const HotKeyID id = (*it)->id;
        activePresses[key.detail] = id;
        const auto status =
            deliver(HotKeyEvent{HotKeyEventKind::hotKeyPressed, id, std::nullopt, std::nullopt});
        // Under our own window's keyboard grab, a press the handler declines (a recorder is
        // recording) goes on to that window, and so does its release.
        if (key.event != root && status != osstatus::noErr) {
            activePresses.erase(key.detail);
            return false;
        }
        return true;
    }

    // A key event of one of the application's windows.
    bool rawKey(bool press, const xcb_key_press_event_t& key) {
        const auto taken = takenRawPresses.find(key.detail);
        if (press && taken != takenRawPresses.end())
            return true; // auto-repeat of a press the handler took
        const auto virtualKey = virtualKeyFromXKeycode(key.detail);
        if (!virtualKey) {
            if (taken != takenRawPresses.end())
                takenRawPresses.erase(taken);
            return false;
        }
        HotKeyEvent event{press ? HotKeyEventKind::rawKeyDown : HotKeyEventKind::rawKeyUp,
                          std::nullopt, *virtualKey, carbonFromState(key.state)};
        if (!press && taken != takenRawPresses.end()) {
            // The release belongs to the press, whatever modifiers were let go first.
            event.modifiers = taken->second;
            takenRawPresses.erase(taken);
            deliver(event);
            return true;
        }
        const auto status = deliver(event);
        if (status != osstatus::noErr)
            return false;
        if (press)
            takenRawPresses[key.detail] = *event.modifiers;
        return true;
    }

    void scheduleRefresh() {
        if (refreshScheduled)
            return;
        refreshScheduled = true;
        QTimer::singleShot(0, &context, [this] {
            refreshScheduled = false;
            refresh();
        });
    }

    // The modifier map may have moved Alt, Super or the locks: grab everything again.
    void refresh() {
        if (!alive())
            return;
        for (const auto& grab : grabs) {
            if (grab->grabbed && !holds(grab->keycode, grab->mask, grab.get()))
                ungrabKey(grab->keycode, grab->mask);
            grab->grabbed = false;
        }
        readModifierMap();
        // Copied: the status handler may unregister hot keys.
        const auto current = grabs;
        for (const auto& grab : current) {
            grab->mask = xMask(grab->modifiers);
            const OSStatus status = holds(grab->keycode, grab->mask)
                                        ? osstatus::noErr
                                        : grabKey(grab->keycode, grab->mask);
            grab->grabbed = status == osstatus::noErr;
            // Reported every time: the registry tells a refusal again and clears it once the
            // grab holds.
            if (statusHandler)
                statusHandler(grab, status);
        }
    }
};

std::shared_ptr<X11HotKeys> X11HotKeys::create() {
    xcb_connection_t* connection = qtConnection();
    if (!connection)
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->connection = connection;
    impl->root = rootWindow(connection);
    if (impl->root == XCB_WINDOW_NONE)
        return nullptr;
    impl->setUp();
    return std::shared_ptr<X11HotKeys>(new X11HotKeys(std::move(impl)));
}

X11HotKeys::X11HotKeys(std::unique_ptr<Impl> impl) : d(std::move(impl)) {}

X11HotKeys::~X11HotKeys() {
    if (!d->alive())
        return;
    for (const auto& grab : d->grabs) {
        if (grab->grabbed)
            d->ungrabKey(grab->keycode, grab->mask);
    }
}

OSStatus X11HotKeys::registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, HotKeyID id,
                                    HotKeyRef& out) {
    if (!d->alive() || (modifiers & carbonmodifiers::function) || keyCode > 0xFFFF)
        return osstatus::eventHotKeyInvalidErr;
    const auto keycode = xKeycodeFromVirtualKey(static_cast<std::uint16_t>(keyCode));
    if (!keycode || *keycode > 255)
        return osstatus::eventHotKeyInvalidErr;
    auto grab = std::make_shared<Grab>();
    grab->virtualKey = keyCode;
    grab->modifiers = modifiers;
    grab->id = id;
    grab->keycode = static_cast<xcb_keycode_t>(*keycode);
    grab->mask = d->xMask(modifiers);
    if (!d->holds(grab->keycode, grab->mask)) {
        const OSStatus status = d->grabKey(grab->keycode, grab->mask);
        if (status != osstatus::noErr)
            return status;
    }
    grab->grabbed = true;
    d->grabs.push_back(grab);
    out = grab;
    return osstatus::noErr;
}

OSStatus X11HotKeys::unregisterHotKey(const HotKeyRef& hotKey) {
    const auto it = std::find(d->grabs.begin(), d->grabs.end(), hotKey);
    if (it == d->grabs.end())
        return osstatus::paramErr;
    const std::shared_ptr<Grab> grab = *it;
    d->grabs.erase(it);
    if (grab->grabbed && d->alive() && !d->holds(grab->keycode, grab->mask))
        d->ungrabKey(grab->keycode, grab->mask);
    return osstatus::noErr;
}

OSStatus X11HotKeys::installEventHandler(EventHandler handler) {
    d->handler = std::move(handler);
    return osstatus::noErr;
}

void X11HotKeys::setStatusHandler(const StatusHandler& handler) {
    d->statusHandler = handler;
}

void X11HotKeys::addEventKinds(const std::vector<HotKeyEventKind>& kinds) {
    d->listened.insert(kinds.begin(), kinds.end());
}

void X11HotKeys::removeEventKinds(const std::vector<HotKeyEventKind>& kinds) {
    for (const auto kind : kinds)
        d->listened.erase(kind);
}

OSStatus X11HotKeys::copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) {
    out.clear();
    if (!d->alive())
        return osstatus::paramErr;
    struct Probe {
        std::uint16_t virtualKey;
        std::uint32_t modifiers;
        xcb_keycode_t keycode;
        std::uint16_t mask;
        xcb_void_cookie_t cookie;
    };
    constexpr std::uint32_t modifierBitsInOrder[] = {
        carbonmodifiers::command, carbonmodifiers::shift, carbonmodifiers::option,
        carbonmodifiers::control};
    std::vector<Probe> probes;
    for (std::uint16_t virtualKey = 0; virtualKey < 128; ++virtualKey) {
        const auto keycode = xKeycodeFromVirtualKey(virtualKey);
        if (!keycode || *keycode > 255)
            continue;
        for (std::uint32_t combination = 0; combination < 16; ++combination) {
            std::uint32_t modifiers = 0;
            for (std::uint32_t bit = 0; bit < 4; ++bit) {
                if (combination & (1U << bit))
                    modifiers |= modifierBitsInOrder[bit];
            }
            Probe probe{virtualKey,
                        modifiers,
                        static_cast<xcb_keycode_t>(*keycode),
                        d->xMask(modifiers),
                        {}};
            if (d->holds(probe.keycode, probe.mask))
                continue;
            probe.cookie =
                xcb_grab_key_checked(d->connection, 0, d->root, probe.mask, probe.keycode,
                                     XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
            probes.push_back(probe);
        }
    }
    d->sync(); // one round trip answers every probe
    for (const auto& probe : probes) {
        if (xcb_generic_error_t* error = xcb_request_check(d->connection, probe.cookie)) {
            if (error->error_code == badAccess) {
                out.push_back(SymbolicHotKey{true, probe.virtualKey,
                                             static_cast<std::int64_t>(probe.modifiers)});
            }
            std::free(error); // NOLINT(cppcoreguidelines-no-malloc)
        } else {
            xcb_ungrab_key(d->connection, probe.keycode, d->root, probe.mask);
        }
    }
    d->sync();
    return osstatus::noErr;
}

int X11HotKeys::grabCount() const {
    std::set<std::pair<xcb_keycode_t, std::uint16_t>> held;
    for (const auto& grab : d->grabs) {
        if (grab->grabbed)
            held.insert({grab->keycode, grab->mask});
    }
    return static_cast<int>(held.size() * d->lockVariants().size());
}

} // namespace platform::x11
