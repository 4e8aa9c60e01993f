#pragma once

#include "platform/HotKeys.h"

#include <QObject>
#include <QString>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

// Hot keys through the desktop portal's GlobalShortcuts interface, the one way a Wayland client
// may have a system-wide shortcut.
//
// The desktop owns the binding: Mendwise only proposes a shortcut (an id, a description and a
// preferred trigger), the desktop may ask the user, keep an older choice or refuse, and says
// which keys it granted. Every registration becomes one shortcut whose id is derived from its
// HotKeyID, so the desktop finds the user's binding again at the next start. A portal session
// binds its shortcuts only once, so any change of the live set is bound in a fresh session,
// asynchronously (the desktop may be showing a dialog); registerHotKey answers at once and the
// outcome arrives through bindingChanged.
//
// Activated and Deactivated signals become hotKeyPressed and hotKeyReleased events on the GUI
// thread. Raw key events are the key events of the application's own windows. The desktop
// arbitrates conflicts, so there are no reserved shortcuts to report.
namespace platform::wayland {

class PortalGlobalShortcuts final : public QObject, public HotKeysPort {
    Q_OBJECT
public:
    // The texts a person reads when the desktop does not bind the shortcut.
    static const QString refusedText;
    static const QString unavailableText;
    static const QString noKeysText;

    // Whether the session bus has a desktop portal whose GlobalShortcuts interface answers with
    // its version within `timeout`. Blocks the calling thread at most that long.
    static bool available(std::chrono::milliseconds timeout = std::chrono::milliseconds(250));

    // `appId` is registered with the portal's host registry where it offers one (newer portals
    // outside a sandbox learn the app id that way).
    explicit PortalGlobalShortcuts(QString appId, QObject* parent = nullptr);
    ~PortalGlobalShortcuts() override;
    PortalGlobalShortcuts(const PortalGlobalShortcuts&) = delete;
    PortalGlobalShortcuts& operator=(const PortalGlobalShortcuts&) = delete;

    OSStatus registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, HotKeyID id,
                            HotKeyRef& out) override;
    OSStatus unregisterHotKey(const HotKeyRef& hotKey) override;
    OSStatus installEventHandler(EventHandler handler) override;
    void addEventKinds(const std::vector<HotKeyEventKind>& kinds) override;
    void removeEventKinds(const std::vector<HotKeyEventKind>& kinds) override;
    OSStatus copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) override;

    // The id the desktop keeps a registration's binding under.
    static QString shortcutId(HotKeyID id);
    // A combination in the portal's trigger syntax ("CTRL+SHIFT+j" for Command+Shift+J); none
    // when the syntax cannot express it (the Function modifier, a key without a name).
    static std::optional<QString> preferredTrigger(std::uint32_t keyCode, std::uint32_t modifiers);

    // What the desktop granted, in its own words (several bound shortcuts joined by ", "), and
    // why nothing was granted; both empty until the desktop has answered.
    [[nodiscard]] QString grantedTrigger() const;
    [[nodiscard]] QString bindingError() const;

Q_SIGNALS:
    // The desktop answered a binding, or the user changed the keys in the desktop's settings.
    void bindingChanged(const QString& grantedTrigger, const QString& error);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace platform::wayland
