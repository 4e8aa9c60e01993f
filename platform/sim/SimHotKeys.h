#pragma once

#include "platform/HotKeys.h"

#include <QList>
#include <map>
#include <set>
#include <utility>

// Simulated hot keys: registrations the test can inspect, refusals on demand, and injected
// presses, releases and raw key events delivered to the installed handler.
namespace platform::sim {

class SimHotKeys final : public HotKeysPort {
public:
    struct Registration {
        std::uint32_t keyCode = 0;
        std::uint32_t modifiers = 0;
        HotKeyID id;
        friend bool operator==(const Registration&, const Registration&) = default;
    };

    OSStatus registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, HotKeyID id,
                            HotKeyRef& out) override;
    OSStatus unregisterHotKey(const HotKeyRef& hotKey) override;
    OSStatus installEventHandler(EventHandler handler) override;
    void addEventKinds(const std::vector<HotKeyEventKind>& kinds) override;
    void removeEventKinds(const std::vector<HotKeyEventKind>& kinds) override;
    OSStatus copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) override;
    void setStatusHandler(const StatusHandler& handler) override;

    // A keyboard mapping change: every registration is made again, and the status handler
    // hears how each went (refused while its combination is refused).
    void remapKeyboard();

    // Live registrations, oldest first.
    [[nodiscard]] QList<Registration> registrations() const;
    [[nodiscard]] bool isRegistered(std::uint32_t keyCode, std::uint32_t modifiers) const;
    [[nodiscard]] bool hasEventHandler() const { return static_cast<bool>(handler_); }
    [[nodiscard]] std::set<HotKeyEventKind> listenedKinds() const { return listened_; }

    // Registrations of this combination fail with `status` until allowed again, as when another
    // client holds it.
    void refuse(std::uint32_t keyCode, std::uint32_t modifiers,
                OSStatus status = osstatus::eventHotKeyExistsErr);
    void allow(std::uint32_t keyCode, std::uint32_t modifiers);

    // What copySymbolicHotKeys answers.
    void setSymbolicHotKeys(std::vector<SymbolicHotKey> hotKeys, OSStatus status = osstatus::noErr);

    // Injected events. Each returns the handler's answer, or none when the event was not
    // delivered (no handler, its kind not listened to, or no live registration to fire).
    std::optional<OSStatus> press(std::uint32_t keyCode, std::uint32_t modifiers);
    std::optional<OSStatus> release(std::uint32_t keyCode, std::uint32_t modifiers);
    // A raw key event as an application window receives it (modifiers may hold Caps Lock).
    std::optional<OSStatus> rawKeyDown(std::uint32_t keyCode, std::uint32_t modifiers);
    std::optional<OSStatus> rawKeyUp(std::uint32_t keyCode, std::uint32_t modifiers);
    // Any event, as is.
    std::optional<OSStatus> deliver(const HotKeyEvent& event);

private:
    struct Held;
    std::optional<OSStatus> fire(HotKeyEventKind kind, std::uint32_t keyCode,
                                 std::uint32_t modifiers);

    std::vector<std::shared_ptr<Held>> held_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, OSStatus> refused_;
    EventHandler handler_;
    StatusHandler statusHandler_;
    std::set<HotKeyEventKind> listened_;
    std::vector<SymbolicHotKey> symbolic_;
    OSStatus symbolicStatus_ = osstatus::noErr;
};

} // namespace platform::sim
