#include "hotkeys/Runtime.h"

#include "hotkeys/Testing.h"
#include "platform/KeyboardLayout.h"
#include "support/SettingsFormat.h"

#include <QObject>
#include <QSettings>

namespace Hotkeys::detail {

namespace {

// Stands in until the application hands over its desktop: refuses every hot key.
class InertHotKeys final : public platform::HotKeysPort {
public:
    platform::OSStatus registerHotKey(std::uint32_t, std::uint32_t, platform::HotKeyID,
                                      platform::HotKeyRef&) override {
        return platform::osstatus::eventHotKeyInvalidErr;
    }
    platform::OSStatus unregisterHotKey(const platform::HotKeyRef&) override {
        return platform::osstatus::noErr;
    }
    platform::OSStatus installEventHandler(EventHandler) override {
        return platform::osstatus::noErr;
    }
    void addEventKinds(const std::vector<platform::HotKeyEventKind>&) override {}
    void removeEventKinds(const std::vector<platform::HotKeyEventKind>&) override {}
    platform::OSStatus copySymbolicHotKeys(std::vector<platform::SymbolicHotKey>& out) override {
        out.clear();
        return platform::osstatus::noErr;
    }
};

class InertKeyboardLayout final : public platform::KeyboardLayoutPort {
public:
    std::optional<QString> characters(std::uint16_t) override { return std::nullopt; }
};

std::shared_ptr<Runtime>& slot() {
    static std::shared_ptr<Runtime> state;
    return state;
}

} // namespace

Runtime::Runtime(Ports given) : ports(std::move(given)) {
    if (!ports.hotKeys)
        ports.hotKeys = std::make_shared<InertHotKeys>();
    if (!ports.keyboardLayout)
        ports.keyboardLayout = std::make_shared<InertKeyboardLayout>();
    qRegisterMetaType<Name>();
}

Runtime::~Runtime() {
    for (const auto& [id, hotKey] : hotKeys) {
        if (hotKey->carbonHotKey)
            ports.hotKeys->unregisterHotKey(hotKey->carbonHotKey);
    }
}

Runtime& runtime() {
    auto& state = slot();
    if (!state)
        state = std::make_shared<Runtime>(Ports{});
    return *state;
}

std::weak_ptr<Runtime> weakRuntime() {
    runtime();
    return slot();
}

void replaceRuntime(Ports ports) {
    auto& state = slot();
    // The old state goes first, so its hot keys are released before the new one registers any.
    state.reset();
    state = std::make_shared<Runtime>(std::move(ports));
}

std::unique_ptr<QSettings> openDefaults() {
    return support::openUserSettings();
}

} // namespace Hotkeys::detail

namespace Hotkeys {

void setPorts(Ports ports) {
    auto& state = detail::runtime();
    if (ports.hotKeys && ports.hotKeys != state.ports.hotKeys) {
        state.ports.hotKeys = std::move(ports.hotKeys);
        state.eventHandlerInstalled = false;
    }
    if (ports.keyboardLayout)
        state.ports.keyboardLayout = std::move(ports.keyboardLayout);
}

void resetStateForTesting(Ports ports) {
    detail::replaceRuntime(std::move(ports));
}

} // namespace Hotkeys
