#include "platform/wayland/WaylandKeyboardEvents.h"

#include "platform/VirtualKeys.h"
#include "platform/freedesktop/DesktopEntries.h"
#include "platform/freedesktop/Terminals.h"
#include "platform/wayland/XkbKeymap.h"

#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace platform::wayland {

using freedesktop::TerminalChords;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t virtualKeyC = 8;
constexpr std::uint16_t virtualKeyV = 9;

// What one key-down pressed, so that its key-up undoes exactly that.
struct PressedChord {
    std::vector<std::uint32_t> keys; // modifiers first, the key last
    bool steppedAside = false;
    Clock::time_point downAt;
};

bool has(CGEventFlags flags, CGEventFlags flag) {
    return (flags & flag) != 0;
}

} // namespace

struct WaylandKeyboardEvents::Impl {
    std::unique_ptr<KeystrokeChannel> channel;
    Options options;
    std::mutex mutex; // one event at a time
    FocusHandOff handOff;
    std::function<void(std::int32_t)> keystrokeObserver;
    std::map<std::uint16_t, PressedChord> pending;
    QString keymapText;
    std::unique_ptr<XkbKeymap> keymap;

    // The keymap the channel types with; the session's layout names when it does not say.
    XkbKeymap* currentKeymap() {
        const QString text = channel->keymap();
        if (!keymap || text != keymapText) {
            keymapText = text;
            keymap = text.isEmpty() ? XkbKeymap::fromNames() : XkbKeymap::fromText(text.toUtf8());
        }
        return keymap.get();
    }

    // The chord the target takes for this event; none when it must not get one.
    std::optional<CGEventFlags> chordFlags(const KeyboardEvent& event,
                                           std::optional<std::int32_t> pid) {
        CGEventFlags flags = event.flags;
        const bool copyOrPaste =
            (event.virtualKey == virtualKeyC || event.virtualKey == virtualKeyV) &&
            has(flags, eventflags::command) &&
            !has(flags, eventflags::shift | eventflags::option | eventflags::control);
        if (!copyOrPaste || !pid || *pid <= 0)
            return flags;
        const QString program = freedesktop::processName(*pid);
        switch (freedesktop::terminalChordsFor(program, program)) {
        case TerminalChords::none:
            return flags;
        case TerminalChords::ctrlShift:
            return flags | eventflags::shift;
        case TerminalChords::ctrlAlt:
            return flags | eventflags::option;
        case TerminalChords::xtermSelection:
            // xterm's copy is its PRIMARY selection, out of reach of a keystroke here; a bare
            // Ctrl+C would interrupt its program.
            return std::nullopt;
        }
        return flags;
    }

    void keyDown(const KeyboardEvent& event, std::optional<std::int32_t> pid) {
        PressedChord chord;
        const auto flags = chordFlags(event, pid);
        const auto keysym = usKeysymForVirtualKey(event.virtualKey);
        const auto waitMs = static_cast<int>(options.prepareWait.count());
        if (flags && keysym && channel->prepare(waitMs) == KeystrokeChannel::State::ready) {
            if (XkbKeymap* map = currentKeymap())
                chord = press(*map, *keysym, *flags, pid.value_or(-1));
        }
        pending[event.virtualKey] = std::move(chord);
    }

    PressedChord press(XkbKeymap& map, std::uint32_t keysym, CGEventFlags flags, std::int32_t pid) {
        PressedChord chord;
        const auto key = map.locate(keysym);
        if (!key)
            return chord;
        std::vector<std::uint32_t> modifierSyms;
        if (has(flags, eventflags::control))
            modifierSyms.push_back(XKB_KEY_Super_L);
        if (has(flags, eventflags::command))
            modifierSyms.push_back(XKB_KEY_Control_L);
        if (has(flags, eventflags::option))
            modifierSyms.push_back(XKB_KEY_Alt_L);
        if (has(flags, eventflags::shift) || key->shifted)
            modifierSyms.push_back(XKB_KEY_Shift_L);
        std::vector<std::uint32_t> codes;
        for (const std::uint32_t sym : modifierSyms) {
            if (const auto modifier = map.locate(sym))
                codes.push_back(modifier->evdevCode);
        }
        codes.push_back(key->evdevCode);

        if (handOff.stepAside) {
            handOff.stepAside();
            chord.steppedAside = true;
        }
        if (keystrokeObserver)
            keystrokeObserver(pid);
        channel->chooseLayout(key->layout);
        for (const std::uint32_t code : codes) {
            if (!channel->sendKey(code, true))
                break;
            chord.keys.push_back(code);
        }
        chord.downAt = Clock::now();
        return chord;
    }

    void keyUp(const KeyboardEvent& event) {
        const auto found = pending.find(event.virtualKey);
        if (found == pending.end())
            return; // no key-down of ours to end
        const PressedChord chord = std::move(found->second);
        pending.erase(found);
        if (!chord.keys.empty()) {
            std::this_thread::sleep_until(chord.downAt + options.minimumKeyHold);
            for (auto code = chord.keys.rbegin(); code != chord.keys.rend(); ++code)
                channel->sendKey(*code, false);
        }
        // After a paste the application may still be reading the clipboard; taking its focus
        // away then risks the paste (one went missing in a test run), so the panel stays aside
        // and the outcome shows as the text arriving.
        if (chord.steppedAside && handOff.comeBack && event.virtualKey != virtualKeyV)
            handOff.comeBack();
    }

    void deliver(const KeyboardEventRef& event, std::optional<std::int32_t> pid) {
        if (!event || !channel)
            return;
        const std::lock_guard lock(mutex);
        if (event->keyDown)
            keyDown(*event, pid);
        else
            keyUp(*event);
    }
};

namespace {
class Source final : public EventSource {};
} // namespace

WaylandKeyboardEvents::WaylandKeyboardEvents(std::unique_ptr<KeystrokeChannel> channel)
    : WaylandKeyboardEvents(std::move(channel), Options{}) {}

WaylandKeyboardEvents::WaylandKeyboardEvents(std::unique_ptr<KeystrokeChannel> channel,
                                             Options options)
    : d_(std::make_unique<Impl>()) {
    d_->channel = std::move(channel);
    d_->options = options;
}

WaylandKeyboardEvents::~WaylandKeyboardEvents() {
    // Keys still held (a key-up that never came) are let go.
    if (!d_->channel)
        return;
    for (const auto& [virtualKey, chord] : d_->pending) {
        for (auto code = chord.keys.rbegin(); code != chord.keys.rend(); ++code)
            d_->channel->sendKey(*code, false);
    }
}

void WaylandKeyboardEvents::setFocusHandOff(FocusHandOff handOff) {
    const std::lock_guard lock(d_->mutex);
    d_->handOff = std::move(handOff);
}

void WaylandKeyboardEvents::setKeystrokeObserver(std::function<void(std::int32_t)> observer) {
    const std::lock_guard lock(d_->mutex);
    d_->keystrokeObserver = std::move(observer);
}

KeystrokeChannel* WaylandKeyboardEvents::channel() const {
    return d_->channel.get();
}

EventSourceRef WaylandKeyboardEvents::createEventSource(int /*stateId*/) {
    return std::make_shared<Source>();
}

KeyboardEventRef WaylandKeyboardEvents::createKeyboardEvent(const EventSourceRef& /*source*/,
                                                            std::uint16_t virtualKey,
                                                            bool keyDown) {
    return std::make_shared<KeyboardEvent>(virtualKey, keyDown);
}

void WaylandKeyboardEvents::postToPid(std::int32_t pid, const KeyboardEventRef& event) {
    d_->deliver(event, pid);
}

void WaylandKeyboardEvents::post(int /*tap*/, const KeyboardEventRef& event) {
    d_->deliver(event, std::nullopt);
}

bool WaylandKeyboardEvents::canReachApplications() const {
    if (!d_->channel)
        return false;
    const auto state = d_->channel->state();
    return state == KeystrokeChannel::State::ready ||
           state == KeystrokeChannel::State::needsPermission;
}

} // namespace platform::wayland
