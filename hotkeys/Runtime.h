#pragma once

// The subsystem's process-wide state, in one place. Internal to hotkeys/.

#include "hotkeys/HotKeyRegistry.h"
#include "hotkeys/Hotkeys.h"
#include "platform/HotKeys.h"

#include <QHash>
#include <QList>
#include <QUuid>
#include <map>
#include <memory>
#include <unordered_map>
#include <unordered_set>

class QObject;
class QSettings;

namespace Hotkeys::detail {

// One registration of the registry.
struct HotKey {
    Shortcut shortcut;
    std::int64_t carbonHotKeyId = 0;
    platform::HotKeyRef carbonHotKey; // empty while withdrawn
    HotKeyRegistry::Callback onKeyDown;
    HotKeyRegistry::Callback onKeyUp;
};

using Sink = std::function<void(EventType)>;
using Sinks = QHash<QUuid, Sink>;

struct Runtime {
    explicit Runtime(Ports given);
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    platform::HotKeysPort& hotKeyPort() const { return *ports.hotKeys; }
    platform::KeyboardLayoutPort& keyboardLayoutPort() const { return *ports.keyboardLayout; }

    Ports ports;

    // The shortcut model.
    std::unordered_set<Shortcut> liveShortcuts;
    QHash<Name, QList<Action>> keyDownActions;
    QHash<Name, QList<Action>> keyUpActions;
    QHash<Name, Sinks> keyDownStreams;
    QHash<Name, Sinks> keyUpStreams;
    bool shortcutsEnabled = true;
    bool recorderIsActive = false;
    bool menuIsOpen = false;
    bool menuObserversInstalled = false;
    std::unique_ptr<QObject> menuObserver;
    // Names created once per process through constantName().
    QHash<QString, Name> constants;

    // The hot-key registry.
    std::map<std::int64_t, std::shared_ptr<HotKey>> hotKeys;
    std::int64_t nextHotKeyId = 0;
    bool eventHandlerInstalled = false;
    // Why the desktop does not hold a shortcut that was asked for, for the user.
    std::unordered_map<Shortcut, QString> registrationErrors;
};

// The current state, created on first use.
Runtime& runtime();
std::weak_ptr<Runtime> weakRuntime();

// Replaces the state with a fresh one over the given ports (missing ports are inert).
void replaceRuntime(Ports ports);

// The defaults store shared with the application's settings.
std::unique_ptr<QSettings> openDefaults();

// Sets or clears the user-facing error of a shortcut; posts the change.
void setRegistrationError(Runtime& state, const Shortcut& shortcut,
                          const std::optional<QString>& error);
// A value read from the store as the subsystem sees it: the words true and false as Booleans,
// anything else unchanged.
QVariant normalizedStoredValue(QVariant value);
// The shortcut in a (normalized) stored value; none for the false marker, anything that is not
// a shortcut's JSON text, or values out of range.
std::optional<Shortcut> decodeStoredShortcut(const QVariant& stored);
// The JSON text stored for a shortcut; none when its values could not be read back.
std::optional<QString> encodeStoredShortcut(const Shortcut& shortcut);

// The registry's event handler, installed on the hot-key port.
platform::OSStatus handleHotKeyEvent(Runtime& state, const platform::HotKeyEvent& event);

} // namespace Hotkeys::detail
