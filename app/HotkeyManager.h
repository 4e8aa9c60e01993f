#pragma once

#include "hotkeys/Hotkeys.h"
#include "platform/Workspace.h"

#include <QObject>
#include <functional>
#include <memory>
#include <optional>

namespace Hotkeys {
// The trigger shortcut: J with Command and Shift (Ctrl+Shift+J on Linux) unless the user
// recorded another. Created, and its default stored, on first use.
Name triggerMendwise();
} // namespace Hotkeys

// Binds the trigger shortcut to the application controller: each release of the shortcut
// hands the application that was in front at that moment to `callback`, in a later turn of the
// main loop.
class HotkeyManager : public QObject {
    Q_OBJECT

public:
    using Callback = std::function<void(std::optional<platform::RunningApplication>)>;

    explicit HotkeyManager(std::shared_ptr<platform::WorkspacePort> workspace,
                           QObject* parent = nullptr);
    // Disables the trigger shortcut and drops the callback.
    ~HotkeyManager() override;

    // register(callback:): stores the callback and attaches the key-up action. Call once.
    void registerCallback(Callback newCallback);

    // What a release of the trigger shortcut does; also run for `mendwise --trigger`, which a
    // desktop without global shortcuts for programs binds in its own keyboard settings.
    void handleHotkey();

    // The controller clears it at termination.
    Callback callback;

private:
    std::shared_ptr<platform::WorkspacePort> workspace_;
};
