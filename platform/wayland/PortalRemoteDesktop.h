#pragma once

#include "platform/wayland/KeystrokeChannel.h"

#include <QString>
#include <chrono>
#include <functional>
#include <memory>

// Keystrokes through the desktop portal's RemoteDesktop interface (KDE Plasma, GNOME), keyboard
// only.
//
// The desktop asks the user once whether Mendwise may control the keyboard. The session asks to
// be remembered until the user revokes it, and the portal's restore token from each granted
// start is handed to `saveToken`, so that the next start (with `loadToken`'s token) is granted
// without a dialog. Sessions are created and started asynchronously on the GUI thread, which
// never waits for the user; keys are sent from the calling thread.
namespace platform::wayland {

class PortalRemoteDesktop final : public KeystrokeChannel {
public:
    using LoadToken = std::function<QString()>;
    using SaveToken = std::function<void(const QString&)>;

    // What a person reads while the desktop has not let Mendwise type (for the settings window).
    static const QString notAllowedText;

    // Whether the session bus has a desktop portal whose RemoteDesktop interface offers a
    // keyboard, answered within `timeout`. Blocks the calling thread at most that long.
    static bool available(std::chrono::milliseconds timeout = std::chrono::milliseconds(250));

    // Construct on the GUI thread. Both callbacks run there; either may be empty.
    PortalRemoteDesktop(LoadToken loadToken, SaveToken saveToken);
    ~PortalRemoteDesktop() override;
    PortalRemoteDesktop(const PortalRemoteDesktop&) = delete;
    PortalRemoteDesktop& operator=(const PortalRemoteDesktop&) = delete;

    // Asks the desktop for the keyboard (again, after a refusal or a closed session). Returns at
    // once; the answer arrives as a state change. Nothing happens while a start is under way or
    // the keyboard is granted.
    void start();

    bool sendKey(std::uint32_t evdevCode, bool down) override;
    // Starts unless refused or granted, then waits (off the GUI thread) for the answer.
    State prepare(int timeoutMs) override;
    [[nodiscard]] State state() const override;
    [[nodiscard]] QString name() const override;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace platform::wayland
