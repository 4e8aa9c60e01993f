#include "hotkeys/HotKeyRegistry.h"

#include "hotkeys/Localization.h"
#include "hotkeys/Runtime.h"
#include "support/Log.h"

namespace Hotkeys {

using detail::HotKey;
using detail::runtime;
using detail::Runtime;
using platform::HotKeyEventKind;
using platform::OSStatus;
namespace osstatus = platform::osstatus;

const std::uint32_t HotKeyRegistry::signature = platform::fourCharCode("HKTS");

namespace {

const std::vector<HotKeyEventKind> hotKeyEventTypes{HotKeyEventKind::hotKeyPressed,
                                                    HotKeyEventKind::hotKeyReleased};
const std::vector<HotKeyEventKind> rawKeyEventTypes{HotKeyEventKind::rawKeyDown,
                                                    HotKeyEventKind::rawKeyUp};

bool fitsUInt32(std::int64_t value) {
    return value >= 0 && value <= 0xFFFFFFFF;
}

OSStatus registerWithPort(Runtime& state, const Shortcut& shortcut, std::int64_t id,
                          platform::HotKeyRef& out) {
    // Values beyond 32 bits can only come from an edited store or an exhausted counter.
    if (!fitsUInt32(shortcut.carbonKeyCode) || !fitsUInt32(shortcut.carbonModifiers) ||
        !fitsUInt32(id))
        return osstatus::paramErr;
    const platform::HotKeyID hotKeyID{HotKeyRegistry::signature, static_cast<std::uint32_t>(id)};
    return state.hotKeyPort().registerHotKey(static_cast<std::uint32_t>(shortcut.carbonKeyCode),
                                             static_cast<std::uint32_t>(shortcut.carbonModifiers),
                                             hotKeyID, out);
}

// The log line keeps its own format; the user reads the reason in Linux words.
void reportRefusal(Runtime& state, const Shortcut& shortcut, OSStatus status) {
    support::log(QStringLiteral("Error registering hotkey ") + shortcut.description() +
                 QStringLiteral(":") + QStringLiteral(" ") + QString::number(status));
    const char* reason =
        status == osstatus::eventHotKeyExistsErr ? strings::hotkeyTaken : strings::hotkeyInvalid;
    detail::setRegistrationError(state, shortcut,
                                 localizedString(reason).arg(shortcut.displayName()));
}

// The desktop dropped a registration by itself, or made it again.
void registrationStatusChanged(Runtime& state, const platform::HotKeyRef& ref, OSStatus status) {
    for (const auto& [id, hotKey] : state.hotKeys) {
        if (hotKey->carbonHotKey != ref)
            continue;
        if (status == osstatus::noErr)
            detail::setRegistrationError(state, hotKey->shortcut, std::nullopt);
        else
            reportRefusal(state, hotKey->shortcut, status);
        return;
    }
}

void registerWithdrawn(Runtime& state) {
    std::vector<std::int64_t> refused;
    for (const auto& [id, hotKey] : state.hotKeys) {
        if (hotKey->carbonHotKey)
            continue;
        platform::HotKeyRef ref;
        const OSStatus status = registerWithPort(state, hotKey->shortcut, id, ref);
        if (status == osstatus::noErr && ref) {
            hotKey->carbonHotKey = std::move(ref);
            detail::setRegistrationError(state, hotKey->shortcut, std::nullopt);
        } else {
            reportRefusal(state, hotKey->shortcut, status);
            refused.push_back(id);
        }
    }
    for (const auto id : refused)
        state.hotKeys.erase(id);
}

void withdrawAll(Runtime& state) {
    for (const auto& [id, hotKey] : state.hotKeys) {
        if (hotKey->carbonHotKey) {
            state.hotKeyPort().unregisterHotKey(hotKey->carbonHotKey);
            hotKey->carbonHotKey.reset();
        }
    }
}

OSStatus dispatchHotKey(Runtime& state, const platform::HotKeyEvent& event) {
    if (!event.hotKeyID)
        return osstatus::eventParameterNotFoundErr;
    if (event.hotKeyID->signature != HotKeyRegistry::signature)
        return osstatus::eventNotHandledErr;
    const auto it = state.hotKeys.find(event.hotKeyID->id);
    if (it == state.hotKeys.end())
        return osstatus::eventNotHandledErr;
    // A recorder takes every chord, ours too: where the desktop hands the event on, it gets it.
    if (state.recorderIsActive)
        return osstatus::eventNotHandledErr;
    const std::shared_ptr<HotKey> hotKey = it->second; // a callback may unregister it
    if (event.kind == HotKeyEventKind::hotKeyPressed)
        hotKey->onKeyDown(hotKey->shortcut);
    else
        hotKey->onKeyUp(hotKey->shortcut);
    return osstatus::noErr;
}

OSStatus dispatchRawKey(Runtime& state, const platform::HotKeyEvent& event) {
    if (!event.keyCode || !event.modifiers)
        return osstatus::eventParameterNotFoundErr;
    const std::int64_t keyCode = *event.keyCode;
    const std::int64_t modifiers = toCarbon(fromCarbon(*event.modifiers));
    std::shared_ptr<HotKey> match;
    for (const auto& [id, hotKey] : state.hotKeys) {
        if (hotKey->shortcut.carbonKeyCode == keyCode &&
            hotKey->shortcut.carbonModifiers == modifiers) {
            match = hotKey;
            break;
        }
    }
    if (!match)
        return osstatus::eventNotHandledErr;
    if (event.kind == HotKeyEventKind::rawKeyDown)
        match->onKeyDown(match->shortcut);
    else if (event.kind == HotKeyEventKind::rawKeyUp)
        match->onKeyUp(match->shortcut);
    else
        return osstatus::eventNotHandledErr;
    return osstatus::noErr;
}

} // namespace

OSStatus detail::handleHotKeyEvent(Runtime& state, const platform::HotKeyEvent& event) {
    switch (event.kind) {
    case HotKeyEventKind::hotKeyPressed:
    case HotKeyEventKind::hotKeyReleased:
        return dispatchHotKey(state, event);
    case HotKeyEventKind::rawKeyDown:
    case HotKeyEventKind::rawKeyUp:
        return dispatchRawKey(state, event);
    }
    return osstatus::eventNotHandledErr;
}

void HotKeyRegistry::registerHotKey(const Shortcut& shortcut, Callback onKeyDown,
                                    Callback onKeyUp) {
    auto& state = runtime();
    const std::int64_t id = ++state.nextHotKeyId;
    platform::HotKeyRef ref;
    const OSStatus status = registerWithPort(state, shortcut, id, ref);
    if (status != osstatus::noErr || !ref) {
        reportRefusal(state, shortcut, status);
        return;
    }
    detail::setRegistrationError(state, shortcut, std::nullopt);
    state.hotKeys[id] = std::make_shared<HotKey>(
        HotKey{shortcut, id, std::move(ref), std::move(onKeyDown), std::move(onKeyUp)});
    if (!state.eventHandlerInstalled) {
        const OSStatus installed = state.hotKeyPort().installEventHandler(
            [weak = detail::weakRuntime()](const platform::HotKeyEvent& event) {
                const auto owner = weak.lock();
                if (!owner)
                    return osstatus::eventNotHandledErr;
                return detail::handleHotKeyEvent(*owner, event);
            });
        state.hotKeyPort().setStatusHandler(
            [weak = detail::weakRuntime()](const platform::HotKeyRef& hotKey, OSStatus result) {
                if (const auto owner = weak.lock())
                    registrationStatusChanged(*owner, hotKey, result);
            });
        if (installed == osstatus::noErr) {
            state.eventHandlerInstalled = true;
            updateEventHandler();
        }
    }
}

void HotKeyRegistry::unregisterHotKey(const Shortcut& shortcut) {
    auto& state = runtime();
    for (auto it = state.hotKeys.begin(); it != state.hotKeys.end();) {
        if (it->second->shortcut == shortcut) {
            if (it->second->carbonHotKey)
                state.hotKeyPort().unregisterHotKey(it->second->carbonHotKey);
            it = state.hotKeys.erase(it);
        } else {
            ++it;
        }
    }
    // Not wanted any more, so nothing is wrong with it.
    detail::setRegistrationError(state, shortcut, std::nullopt);
}

// The open menu holds the keyboard, so its key events reach the application as raw key events;
// the handler listens to those (and takes the ones of its shortcuts) while the hot keys are
// withdrawn.
void HotKeyRegistry::updateEventHandler() {
    auto& state = runtime();
    if (!state.eventHandlerInstalled)
        return;
    auto& port = state.hotKeyPort();
    if (state.shortcutsEnabled && !state.menuIsOpen) {
        registerWithdrawn(state);
        port.removeEventKinds(rawKeyEventTypes);
        port.addEventKinds(hotKeyEventTypes);
    } else if (state.shortcutsEnabled) {
        withdrawAll(state);
        port.removeEventKinds(hotKeyEventTypes);
        port.addEventKinds(rawKeyEventTypes);
    } else {
        withdrawAll(state);
        port.removeEventKinds(hotKeyEventTypes);
        port.removeEventKinds(rawKeyEventTypes);
    }
}

QList<Shortcut> HotKeyRegistry::systemHotKeys() {
    std::vector<platform::SymbolicHotKey> symbolic;
    if (runtime().hotKeyPort().copySymbolicHotKeys(symbolic) != osstatus::noErr)
        return {};
    QList<Shortcut> shortcuts;
    for (const auto& entry : symbolic) {
        if (entry.enabled != true || !entry.keyCode || !entry.modifiers)
            continue;
        shortcuts.append(Shortcut(*entry.keyCode, toCarbon(fromCarbon(*entry.modifiers))));
    }
    return shortcuts;
}

QList<HotKeyRegistry::Entry> HotKeyRegistry::entries() {
    QList<Entry> result;
    for (const auto& [id, hotKey] : runtime().hotKeys)
        result.append(Entry{id, hotKey->shortcut, hotKey->carbonHotKey != nullptr});
    return result;
}

} // namespace Hotkeys
