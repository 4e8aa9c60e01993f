#pragma once

#include "hotkeys/Shortcut.h"

#include <QString>
#include <array>
#include <cstdint>
#include <optional>

class QKeySequence;

namespace Hotkeys {

// Keys that type no ordinary character; each has a display text and, except the keypad keys,
// the text a menu stores as the key equivalent.
enum class SpecialKey {
    returnKey,
    deleteKey,
    deleteForward,
    end,
    escape,
    help,
    home,
    space,
    tab,
    pageUp,
    pageDown,
    upArrow,
    rightArrow,
    downArrow,
    leftArrow,
    f1,
    f2,
    f3,
    f4,
    f5,
    f6,
    f7,
    f8,
    f9,
    f10,
    f11,
    f12,
    f13,
    f14,
    f15,
    f16,
    f17,
    f18,
    f19,
    f20,
    keypad0,
    keypad1,
    keypad2,
    keypad3,
    keypad4,
    keypad5,
    keypad6,
    keypad7,
    keypad8,
    keypad9,
    keypadClear,
    keypadDecimal,
    keypadDivide,
    keypadEnter,
    keypadEquals,
    keypadMinus,
    keypadMultiply,
    keypadPlus,
};

inline constexpr std::size_t specialKeyCount = 53;

// Every case, in declaration order.
const std::array<SpecialKey, specialKeyCount>& allSpecialKeys();

// The special key of a key code; none when the key code is not special.
std::optional<SpecialKey> specialKey(std::int64_t keyCode);
std::int64_t keyCode(SpecialKey key);
// What the user sees for the key (the localized name for Space).
QString displayText(SpecialKey key);
// The key-equivalent text a menu item stores for the key; none for the keypad keys.
std::optional<QString> menuKeyEquivalent(SpecialKey key);

// A menu item's key equivalent: the text of its key and its modifier mask (event flags).
struct KeyEquivalent {
    QString key;
    EventFlags modifierMask = 0;
    friend bool operator==(const KeyEquivalent&, const KeyEquivalent&) = default;
};

// The key equivalent of a Qt shortcut, in the form a menu item stores it. A letter typed with
// Shift is stored as the upper-case letter without Shift in the mask (Ctrl+Shift+J becomes "J"
// with Command), any other letter as the lower-case letter; other printable keys as their
// character; the special keys as their menu text (F1 is U+F704); the mask holds the event flags
// of the Qt modifiers (Ctrl is Command, Meta is Control, Alt is Option, Keypad the numeric-pad
// flag, which no shortcut matches). Empty, or a sequence of several chords, gives an empty key.
KeyEquivalent keyEquivalent(const QKeySequence& sequence);

} // namespace Hotkeys
