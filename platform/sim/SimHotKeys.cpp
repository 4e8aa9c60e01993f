#include "platform/sim/SimHotKeys.h"

#include <algorithm>

namespace platform::sim {

struct SimHotKeys::Held final : HotKeyRegistration {
    Registration registration;
};

OSStatus SimHotKeys::registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, HotKeyID id,
                                    HotKeyRef& out) {
    const auto refusal = refused_.find({keyCode, modifiers});
    if (refusal != refused_.end())
        return refusal->second;
    auto held = std::make_shared<Held>();
    held->registration = Registration{keyCode, modifiers, id};
    held_.push_back(held);
    out = held;
    return osstatus::noErr;
}

OSStatus SimHotKeys::unregisterHotKey(const HotKeyRef& hotKey) {
    const auto it = std::find(held_.begin(), held_.end(), hotKey);
    if (it == held_.end())
        return osstatus::paramErr;
    held_.erase(it);
    return osstatus::noErr;
}

OSStatus SimHotKeys::installEventHandler(EventHandler handler) {
    handler_ = std::move(handler);
    return osstatus::noErr;
}

void SimHotKeys::addEventKinds(const std::vector<HotKeyEventKind>& kinds) {
    listened_.insert(kinds.begin(), kinds.end());
}

void SimHotKeys::removeEventKinds(const std::vector<HotKeyEventKind>& kinds) {
    for (const auto kind : kinds)
        listened_.erase(kind);
}

void SimHotKeys::setStatusHandler(const StatusHandler& handler) {
    statusHandler_ = handler;
}

void SimHotKeys::remapKeyboard() {
    // Copied: the handler may unregister.
    const auto held = held_;
    for (const auto& hotKey : held) {
        const auto refusal =
            refused_.find({hotKey->registration.keyCode, hotKey->registration.modifiers});
        if (statusHandler_)
            statusHandler_(hotKey, refusal == refused_.end() ? osstatus::noErr : refusal->second);
    }
}

OSStatus SimHotKeys::copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) {
    out = symbolic_;
    return symbolicStatus_;
}

QList<SimHotKeys::Registration> SimHotKeys::registrations() const {
    QList<Registration> result;
    for (const auto& held : held_)
        result.append(held->registration);
    return result;
}

bool SimHotKeys::isRegistered(std::uint32_t keyCode, std::uint32_t modifiers) const {
    return std::any_of(held_.begin(), held_.end(), [&](const auto& held) {
        return held->registration.keyCode == keyCode && held->registration.modifiers == modifiers;
    });
}

void SimHotKeys::refuse(std::uint32_t keyCode, std::uint32_t modifiers, OSStatus status) {
    refused_[{keyCode, modifiers}] = status;
}

void SimHotKeys::allow(std::uint32_t keyCode, std::uint32_t modifiers) {
    refused_.erase({keyCode, modifiers});
}

void SimHotKeys::setSymbolicHotKeys(std::vector<SymbolicHotKey> hotKeys, OSStatus status) {
    symbolic_ = std::move(hotKeys);
    symbolicStatus_ = status;
}

std::optional<OSStatus> SimHotKeys::fire(HotKeyEventKind kind, std::uint32_t keyCode,
                                         std::uint32_t modifiers) {
    const auto it = std::find_if(held_.begin(), held_.end(), [&](const auto& held) {
        return held->registration.keyCode == keyCode && held->registration.modifiers == modifiers;
    });
    if (it == held_.end())
        return std::nullopt;
    HotKeyEvent event;
    event.kind = kind;
    event.hotKeyID = (*it)->registration.id;
    return deliver(event);
}

std::optional<OSStatus> SimHotKeys::press(std::uint32_t keyCode, std::uint32_t modifiers) {
    return fire(HotKeyEventKind::hotKeyPressed, keyCode, modifiers);
}

std::optional<OSStatus> SimHotKeys::release(std::uint32_t keyCode, std::uint32_t modifiers) {
    return fire(HotKeyEventKind::hotKeyReleased, keyCode, modifiers);
}

std::optional<OSStatus> SimHotKeys::rawKeyDown(std::uint32_t keyCode, std::uint32_t modifiers) {
    return deliver(HotKeyEvent{HotKeyEventKind::rawKeyDown, std::nullopt, keyCode, modifiers});
}

std::optional<OSStatus> SimHotKeys::rawKeyUp(std::uint32_t keyCode, std::uint32_t modifiers) {
    return deliver(HotKeyEvent{HotKeyEventKind::rawKeyUp, std::nullopt, keyCode, modifiers});
}

std::optional<OSStatus> SimHotKeys::deliver(const HotKeyEvent& event) {
    if (!handler_ || !listened_.contains(event.kind))
        return std::nullopt;
    // A copy: the handler may install another one.
    const EventHandler handler = handler_;
    return handler(event);
}

} // namespace platform::sim
