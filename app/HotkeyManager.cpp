#include "app/HotkeyManager.h"

#include "support/Log.h"
#include "support/MainThread.h"

#include <QPointer>

namespace Hotkeys {

Name triggerMendwise() {
    return constantName(QStringLiteral("triggerMendwise"),
                        Shortcut(Key::j, eventflags::command | eventflags::shift));
}

} // namespace Hotkeys

HotkeyManager::HotkeyManager(std::shared_ptr<platform::WorkspacePort> workspace, QObject* parent)
    : QObject(parent), workspace_(std::move(workspace)) {}

HotkeyManager::~HotkeyManager() {
    Hotkeys::disable({Hotkeys::triggerMendwise()});
    callback = nullptr;
}

void HotkeyManager::registerCallback(Callback newCallback) {
    callback = std::move(newCallback);
    Hotkeys::onKeyUp(Hotkeys::triggerMendwise(), [self = QPointer<HotkeyManager>(this)] {
        if (self)
            self->handleHotkey();
    });
    support::log(QStringLiteral("[HotkeyManager] Registered shortcut using Hotkeys library"));
}

void HotkeyManager::handleHotkey() {
    std::optional<platform::RunningApplication> frontmost;
    if (workspace_)
        frontmost = workspace_->frontmostApplication();
    const QString nil = QStringLiteral("nil");
    const QString bundle = frontmost ? frontmost->bundleIdentifier.value_or(nil) : nil;
    const QString name = frontmost ? frontmost->localizedName.value_or(nil) : nil;
    support::log(QStringLiteral("[HotkeyManager] ⌨️  Hotkey fired\n") +
                 QStringLiteral("  - Thread: ") +
                 (support::isMainThread() ? QStringLiteral("main") : QStringLiteral("background")) +
                 QStringLiteral("\n  - Frontmost app bundle: ") + bundle +
                 QStringLiteral("\n  - Frontmost app name:   ") + name);
    // Always a later turn, so the trigger flow starts after this key event is handled.
    support::runOnMain([self = QPointer<HotkeyManager>(this), frontmost] {
        if (self && self->callback)
            self->callback(frontmost);
    });
}
