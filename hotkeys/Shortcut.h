#pragma once

#include <QHashFunctions>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>

class QAction;
class QKeyEvent;
class QKeySequence;
class QMenu;
class QMenuBar;

// The keyboard-shortcut subsystem: named, user-configurable global shortcuts.
namespace Hotkeys {

// Event modifier flags (Command 0x100000, Shift 0x20000, Option 0x80000, Control 0x40000,
// Function 0x800000), as key events carry them.
using EventFlags = std::uint64_t;

namespace eventflags {
inline constexpr EventFlags shift = 0x20000;
inline constexpr EventFlags control = 0x40000;
inline constexpr EventFlags option = 0x80000;
inline constexpr EventFlags command = 0x100000;
inline constexpr EventFlags function = 0x800000;
} // namespace eventflags

namespace carbon {
inline constexpr std::int64_t command = 0x100;
inline constexpr std::int64_t shift = 0x200;
inline constexpr std::int64_t option = 0x800;
inline constexpr std::int64_t control = 0x1000;
inline constexpr std::int64_t function = 0x20000;
} // namespace carbon

// Carbon modifier bits <-> event modifier flags. Only Command, Shift, Option, Control and
// Function have a counterpart; every other bit is dropped by either conversion.
std::int64_t toCarbon(EventFlags flags);
EventFlags fromCarbon(std::int64_t carbonModifiers);

// A virtual key code.
struct Key {
    std::int64_t rawValue = 0;
    friend bool operator==(const Key&, const Key&) = default;

    static const Key a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, r, s, t, u, v, w, x, y, z;
    static const Key zero, one, two, three, four, five, six, seven, eight, nine;
    static const Key capsLock, shift, function, control, option, command, rightCommand, rightOption,
        rightControl, rightShift;
    static const Key returnKey, backslash, backtick, comma, equal, minus, period, quote, semicolon,
        slash, space, tab, leftBracket, rightBracket;
    static const Key pageUp, pageDown, home, end, upArrow, rightArrow, downArrow, leftArrow;
    static const Key escape, deleteKey, deleteForward, help, mute, volumeUp, volumeDown;
    static const Key f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12, f13, f14, f15, f16, f17,
        f18, f19, f20;
    static const Key keypad0, keypad1, keypad2, keypad3, keypad4, keypad5, keypad6, keypad7,
        keypad8, keypad9, keypadClear, keypadDecimal, keypadDivide, keypadEnter, keypadEquals,
        keypadMinus, keypadMultiply, keypadPlus;

    // Every constant above, in that order.
    static const std::array<Key, 113> all;
};

// The kinds of events a shortcut produces.
enum class EventType { keyDown, keyUp };

// A key event as the recorder sees it: its type (keyDownType or keyUpType; anything else is
// not a key event), its 16-bit key code and its modifier flags.
struct KeyEvent {
    static constexpr int keyDownType = 10;
    static constexpr int keyUpType = 11;
    int type = keyDownType;
    std::uint16_t keyCode = 0;
    EventFlags modifierFlags = 0;
};

// A key with Carbon modifier bits.
struct Shortcut {
    std::int64_t carbonKeyCode = 0;
    std::int64_t carbonModifiers = 0;

    Shortcut() = default;
    // The two values as stored, without any mapping.
    Shortcut(std::int64_t keyCode, std::int64_t modifiers)
        : carbonKeyCode(keyCode), carbonModifiers(modifiers) {}
    // A key with event modifier flags; only the five known modifiers are kept.
    Shortcut(Key key, EventFlags modifiers);

    // A shortcut from a key-down or key-up event; none for any other event. The Function flag
    // of the event is dropped.
    static std::optional<Shortcut> fromEvent(const KeyEvent& event);
    // The same for a Qt key press or release (virtual key from the native scan code or the Qt
    // key; Ctrl is Command, Meta is Control, Alt is Option).
    static std::optional<Shortcut> fromEvent(const QKeyEvent& event);

    [[nodiscard]] Key key() const { return Key{carbonKeyCode}; }
    // The modifiers as event flags.
    [[nodiscard]] EventFlags modifiers() const { return fromCarbon(carbonModifiers); }

    // What the user sees: the modifier symbols (⌃⌥⇧⌘🌐︎, in that order) and the key's
    // name or character, e.g. ⇧⌘J.
    [[nodiscard]] QString description() const;
    // The same in the words of a Linux desktop, for windows and alerts: the modifiers spelled
    // out in the usual order (Ctrl, Alt, Shift, Super; Fn) and the key's name or upper-case
    // character, joined by "+", e.g. Ctrl+Shift+J. Command plays Ctrl's role, Control Super's.
    [[nodiscard]] QString displayName() const;
    // The character the key types on the current layout, ignoring the modifiers; none for a
    // special key, or when the key types no single character.
    [[nodiscard]] std::optional<QString> keyToCharacter() const;
    // The first item of the menu (searched depth first) whose shortcut equals this one.
    [[nodiscard]] QAction* menuItemWithMatchingShortcut(const QMenu* menu) const;
    [[nodiscard]] QAction* menuItemWithMatchingShortcut(const QMenuBar* menuBar) const;

    friend bool operator==(const Shortcut&, const Shortcut&) = default;
};

inline size_t qHash(const Shortcut& shortcut, size_t seed = 0) {
    return qHashMulti(seed, shortcut.carbonKeyCode, shortcut.carbonModifiers);
}

} // namespace Hotkeys

template <> struct std::hash<Hotkeys::Shortcut> {
    size_t operator()(const Hotkeys::Shortcut& shortcut) const noexcept {
        return Hotkeys::qHash(shortcut);
    }
};
