#pragma once

#include <QString>

// The subsystem's localized strings, kept in its resource bundle "Hotkeys_Hotkeys.bundle".
namespace Hotkeys {

// Finds the resource bundle once: a "Hotkeys_Hotkeys.bundle" folder next to the executable
// (where a packager may put translations), else the one built into the library.
class BundleFinder {
public:
    // The bundle's folder; empty when no candidate holds a bundle.
    static const QString& bundlePath();
};

// The localized text of `key` in the user's language (English when the bundle has no table
// for it); the key itself when the bundle or the entry is missing. The table is read once.
QString localizedString(const QString& key);

namespace strings {
inline constexpr const char* spaceKey = "space_key";
inline constexpr const char* recordShortcut = "record_shortcut";
inline constexpr const char* pressShortcut = "press_shortcut";
// One argument (%1): the menu item's title.
inline constexpr const char* keyboardShortcutUsedByMenuItem = "keyboard_shortcut_used_by_menu_item";
inline constexpr const char* keyboardShortcutDisallowed = "keyboard_shortcut_disallowed";
inline constexpr const char* keyboardShortcutUsedBySystem = "keyboard_shortcut_used_by_system";
inline constexpr const char* keyboardShortcutsCanBeChanged = "keyboard_shortcuts_can_be_changed";
inline constexpr const char* ok = "ok";
inline constexpr const char* forceUseShortcut = "force_use_shortcut";
// One argument (%1): the shortcut's name.
inline constexpr const char* hotkeyTaken = "hotkey_taken";
inline constexpr const char* hotkeyInvalid = "hotkey_invalid";
} // namespace strings

inline QString localizedString(const char* key) {
    return localizedString(QString::fromLatin1(key));
}

} // namespace Hotkeys
