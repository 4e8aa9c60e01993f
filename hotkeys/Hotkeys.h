#pragma once

#include "hotkeys/Shortcut.h"

#include <QList>
#include <QMetaType>
#include <QSet>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace platform {
class HotKeysPort;
class KeyboardLayoutPort;
} // namespace platform

// The public face of the keyboard-shortcut subsystem: named shortcuts, their storage in the
// defaults store, the actions they run and the switches that enable, disable and reset them.
//
// Storage: the defaults store (QSettings, organization and application "Mendwise"), one entry
// per name at the top level under "Hotkeys_" + the name:
//   - a shortcut:                        the JSON text {"carbonKeyCode":38,"carbonModifiers":768}
//   - cleared, for a name with a default: the Boolean false
//   - cleared, for a name without one:    no entry
// QSettings writes a Boolean to its INI file as the bare word `false` and reads it back as the
// text "false" (a JSON string is written the same way, so the file alone cannot tell them
// apart). The store therefore reads the word false, or a real Boolean from a native store, as
// the false marker. A shortcut is always a JSON object, never that word, so the three states
// stay distinct.
//
// Everything here runs on the main thread.
namespace Hotkeys {

// The desktop services the subsystem uses. Hand them over once at start-up, before the first
// name is created; until then every hot key is refused and no key has a character.
struct Ports {
    std::shared_ptr<platform::HotKeysPort> hotKeys;
    std::shared_ptr<platform::KeyboardLayoutPort> keyboardLayout;
};
void setPorts(Ports ports);

// The name under which an application keeps one user-configurable shortcut.
class Name {
public:
    // An empty name, for containers and QVariant.
    Name() = default;
    // A name without default.
    explicit Name(QString rawValue);
    // A name with an optional default: the default is stored (and registered) when nothing is
    // stored for the name yet; a user's shortcut or a cleared entry is never overwritten.
    Name(QString rawValue, std::optional<Shortcut> defaultShortcut);

    [[nodiscard]] const QString& rawValue() const { return rawValue_; }
    [[nodiscard]] const std::optional<Shortcut>& defaultShortcut() const {
        return defaultShortcut_;
    }
    // "Hotkeys_" + the raw value.
    [[nodiscard]] QString storageKey() const;

    // The stored shortcut: shortcut(for:) and setShortcut(_:for:).
    [[nodiscard]] std::optional<Shortcut> shortcut() const;
    void setShortcut(const std::optional<Shortcut>& shortcut) const;

    friend bool operator==(const Name& a, const Name& b) { return a.rawValue_ == b.rawValue_; }

private:
    QString rawValue_;
    std::optional<Shortcut> defaultShortcut_;
};

inline size_t qHash(const Name& name, size_t seed = 0) {
    return qHash(name.rawValue(), seed);
}

// A name created once per process, on first use: the first call creates it as the constructor
// does (storing its default); later calls return that same name.
Name constantName(const QString& rawValue,
                  const std::optional<Shortcut>& defaultShortcut = std::nullopt);

using Action = std::function<void()>;

// Posted on the default notification centre whenever a name's stored shortcut changes; the
// user info holds the Name under "name".
inline constexpr const char* shortcutByNameDidChange = "Hotkeys_shortcutByNameDidChange";
inline constexpr const char* storageKeyPrefix = "Hotkeys_";

// The name's stored shortcut; none when nothing usable is stored (no entry, the false marker,
// text that is not a shortcut, or values out of range).
std::optional<Shortcut> shortcut(const Name& name);
// Stores the shortcut (re-registering the hot key) or clears it, and posts the change.
void setShortcut(const std::optional<Shortcut>& shortcut, const Name& name);
// Whether anything is stored for the name (a shortcut or the false marker).
bool hasStoredValue(const Name& name);

// Stores each name's default again (or removes the entry of a name without default).
void reset(const QList<Name>& names);
// Resets every name found in the store.
void resetAll();
// Every name with an entry in the store (as a name without default).
QSet<Name> storedNames();

// Registers or unregisters the hot keys of the names' stored shortcuts; the stored shortcuts
// and the actions stay.
void enable(const QList<Name>& names);
void disable(const QList<Name>& names);
// Whether the name's shortcut is registered (and shortcuts are enabled).
bool isEnabled(const Name& name);

// Appends an action run when the name's shortcut is pressed (released), and registers its hot
// key. Actions are never replaced.
void onKeyDown(const Name& name, Action action);
void onKeyUp(const Name& name, Action action);
// Drops the name's actions, and its hot key unless a stream still uses that shortcut.
void removeActions(const Name& name);
// Drops every action, and every hot key no stream uses.
void removeAllActions();

// A subscription to a name's key events. Its sink is added in a later turn of the main loop;
// ending the subscription (or destroying it) stops delivery at once and removes the sink in a
// later turn, unregistering the hot key when nothing else uses it.
class EventStream {
public:
    EventStream() = default;
    ~EventStream();
    EventStream(EventStream&& other) noexcept;
    EventStream& operator=(EventStream&& other) noexcept;
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    void end();
    [[nodiscard]] bool isActive() const { return alive_ != nullptr; }

private:
    friend EventStream events(const Name& name, std::function<void(EventType)> sink);
    struct Alive;
    std::shared_ptr<Alive> alive_;
};

// Every key-down and key-up of the name's shortcut.
[[nodiscard]] EventStream events(const Name& name, std::function<void(EventType)> sink);
// Only the events of one type.
[[nodiscard]] EventStream events(EventType type, const Name& name, std::function<void()> sink);

// Whether the desktop holds the name's shortcut as a hot key: none while it does (or while the
// name has no shortcut, or nothing asked for it), otherwise a short text for the user saying
// why not, e.g. "Ctrl+Shift+J is used by another program".
std::optional<QString> registrationError(const Name& name);
// Sets or clears the error of the name's shortcut from outside the registry, for a desktop
// that accepts or refuses a binding later on; posts registrationStatusDidChange on a change.
void setRegistrationError(const Name& name, const std::optional<QString>& error);
// Posted on the default notification centre whenever the error of a shortcut changes, and
// after a name's stored shortcut changed (its status may be another one's now).
inline constexpr const char* registrationStatusDidChange = "Hotkeys_registrationStatusDidChange";

// When false, every hot key is withdrawn (the entries are kept) until it is set back to true.
bool shortcutsEnabled();
void setShortcutsEnabled(bool enabled);

// True while a recorder records; then no action and no stream runs.
bool recorderIsActive();
void setRecorderIsActive(bool active);

// True while a menu of this application is open (kept by the menu observers).
bool menuIsOpen();
// Starts following the application's menus, once per process.
void installMenuObservers();

} // namespace Hotkeys

Q_DECLARE_METATYPE(Hotkeys::Name)
