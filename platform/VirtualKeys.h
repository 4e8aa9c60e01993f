#pragma once

#include "platform/KeyboardEvents.h"

#include <QtCore/qnamespace.h>
#include <cstdint>
#include <optional>

// Virtual key codes (kVK values) are positional: they name a key by where it sits on an ANSI
// keyboard, whatever the layout prints on it. On Linux the evdev code names a key the same way,
// so the two map one to one; X key codes are evdev codes plus 8.
//
// Modifier roles follow Qt's cross-platform convention: Command is played by Ctrl, Control by
// Super (Meta), Option by Alt.
namespace platform {

std::optional<std::uint16_t> virtualKeyFromXKeycode(std::uint32_t xKeycode);
std::optional<std::uint32_t> xKeycodeFromVirtualKey(std::uint16_t virtualKey);

// The keysym the key produces on a US layout without modifiers (e.g. 0x63 'c' for 8), used to
// find the key that types the same symbol on the current layout; none for keys without one.
std::optional<std::uint32_t> usKeysymForVirtualKey(std::uint16_t virtualKey);
// The key that produces `keysym` on a US layout without modifiers.
std::optional<std::uint16_t> usKeysymToVirtualKey(std::uint32_t keysym);

// The virtual key of a Qt key event. The native scan code (an X key code under xcb; 0 on
// platforms without one) is preferred because it does not depend on the layout or on Shift;
// otherwise the Qt key is mapped as a US layout would produce it.
std::optional<std::uint16_t> virtualKeyFromQt(int qtKey, Qt::KeyboardModifiers modifiers,
                                              std::uint32_t nativeScanCode);

// Event modifier flags for Qt's modifier state (keypad keys carry the numeric-pad flag).
CGEventFlags eventFlagsFromQt(Qt::KeyboardModifiers modifiers);

} // namespace platform
