#pragma once

#include "hotkeys/Shortcut.h"

#include <QList>
#include <cstdint>
#include <functional>
#include <optional>

namespace Hotkeys {

// Registers shortcuts as system-wide hot keys through the hot-key port and calls their
// callbacks when they are pressed and released.
//
// While a menu of the application is open, or while shortcuts are switched off, the hot keys
// are withdrawn (their entries and ids are kept). With a menu open, the raw key events that reach
// the application (the open menu holds the keyboard) are matched against the table instead, so
// shortcuts keep working inside the menu and their keys do not reach it.
//
// Main thread only; the state lives with the rest of the subsystem's process-wide state.
class HotKeyRegistry {
public:
    using Callback = std::function<void(const Shortcut&)>;

    // Registers under a fresh id (1, 2, ...; a refused registration consumes its id too). A
    // refusal prints "Error registering hotkey <description>: <status>" and keeps no entry.
    static void registerHotKey(const Shortcut& shortcut, Callback onKeyDown, Callback onKeyUp);
    // Withdraws and forgets every entry with this shortcut.
    static void unregisterHotKey(const Shortcut& shortcut);
    // Brings registrations and listened event kinds in line with shortcutsEnabled() and
    // menuIsOpen().
    static void updateEventHandler();
    // The desktop's enabled reserved shortcuts, in its order.
    static QList<Shortcut> systemHotKeys();

    // The signature of every hot key registered here: 'HKTS'.
    static const std::uint32_t signature;

    // The table, for diagnostics and tests: id, shortcut, and whether the entry is live.
    struct Entry {
        std::int64_t id = 0;
        Shortcut shortcut;
        bool live = false;
    };
    static QList<Entry> entries();
};

} // namespace Hotkeys
