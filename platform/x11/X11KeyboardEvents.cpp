#include "platform/x11/X11KeyboardEvents.h"

#include "platform/VirtualKeys.h"
#include "platform/freedesktop/Terminals.h"
#include "platform/x11/SelectionTransfer.h"
#include "platform/x11/XDisplay.h"

#include <algorithm>
#include <map>
#include <optional>
#include <thread>
#include <vector>

// Xlib last: its macros (None, Bool, KeyPress...) would break the headers above.
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace platform::x11 {

using freedesktop::TerminalChords;
using freedesktop::terminalChordsFor;

namespace {

using Clock = std::chrono::steady_clock;
using XKeycode = unsigned int;

constexpr std::uint16_t virtualKeyC = 8;
constexpr std::uint16_t virtualKeyV = 9;

struct KeyLocation {
    XKeycode keycode = 0;
    int group = 0;
    int level = 0;
};

// A fresh copy of the server's keyboard map: Xlib's own cache is only refreshed by event
// processing, which this connection never does.
class KeyboardMap {
public:
    explicit KeyboardMap(Display* display)
        : desc_(XkbGetMap(display, XkbAllClientInfoMask, XkbUseCoreKbd)) {}
    ~KeyboardMap() {
        if (desc_ != nullptr)
            XkbFreeKeyboard(desc_, 0, True);
    }
    KeyboardMap(const KeyboardMap&) = delete;
    KeyboardMap& operator=(const KeyboardMap&) = delete;

    [[nodiscard]] bool valid() const { return desc_ != nullptr; }

    // The key typing `keysym` at level 0 or 1 (Shift) in `group`, level 0 preferred. Keys with
    // fewer groups wrap the group, as XKB does by default.
    [[nodiscard]] std::optional<KeyLocation> find(KeySym keysym, int group) const {
        std::optional<KeyLocation> shifted;
        for (XKeycode code = desc_->min_key_code; code <= desc_->max_key_code; ++code) {
            const int groups = XkbKeyNumGroups(desc_, code);
            if (groups == 0)
                continue;
            const int effective = group % groups;
            const int width = XkbKeyGroupWidth(desc_, code, effective);
            for (int level = 0; level < std::min(width, 2); ++level) {
                if (XkbKeySymEntry(desc_, code, level, effective) != keysym)
                    continue;
                if (level == 0)
                    return KeyLocation{code, group, 0};
                if (!shifted)
                    shifted = KeyLocation{code, group, 1};
            }
        }
        return shifted;
    }

    // The key typing `keysym` in the current group, else in the first other group that has it.
    [[nodiscard]] std::optional<KeyLocation> locate(KeySym keysym, int currentGroup) const {
        if (auto here = find(keysym, currentGroup))
            return here;
        for (int group = 0; group < XkbNumKbdGroups; ++group) {
            if (group == currentGroup)
                continue;
            if (auto there = find(keysym, group); there && groupExists(group))
                return there;
        }
        return std::nullopt;
    }

    // A key code no layout group gives a symbol to, for mapping a missing symbol onto.
    [[nodiscard]] std::optional<XKeycode> spareKeycode() const {
        for (XKeycode code = desc_->max_key_code; code > desc_->min_key_code; --code) {
            if (XkbKeyNumGroups(desc_, code) == 0)
                return code;
        }
        return std::nullopt;
    }

private:
    [[nodiscard]] bool groupExists(int group) const {
        for (XKeycode code = desc_->min_key_code; code <= desc_->max_key_code; ++code) {
            if (XkbKeyNumGroups(desc_, code) > group)
                return true;
        }
        return false;
    }

    XkbDescPtr desc_;
};

// What one key-down pressed, so that its key-up undoes exactly that.
struct PressedChord {
    bool delivered = false;
    std::vector<XKeycode> pressed; // modifiers first, the key last
    std::vector<XKeycode> userModifiers;
    std::optional<int> restoreGroup;
    Clock::time_point downAt;
};

// What the target window calls for.
struct ChordPlan {
    bool deliver = true;
    std::uint16_t virtualKey = 0;
    KeySym keysym = 0;
    CGEventFlags flags = 0;
    enum class Transfer { none, primaryToClipboard, clipboardToPrimary } transfer = Transfer::none;
};

bool isModifierFlag(CGEventFlags flags, CGEventFlags flag) {
    return (flags & flag) != 0;
}

} // namespace

class X11KeyboardEvents::Impl {
public:
    explicit Impl(Options options) : options(options) {
        if (!display.isOpen())
            return;
        const std::lock_guard lock(display.mutex());
        int eventBase = 0;
        int errorBase = 0;
        int major = 0;
        int minor = 0;
        hasXTest = XTestQueryExtension(display.get(), &eventBase, &errorBase, &major, &minor) != 0;
    }

    ~Impl() {
        if (!display.isOpen())
            return;
        const std::lock_guard lock(display.mutex());
        Display* dpy = display.get();
        for (const auto& [code, chord] : pressed)
            releaseChord(dpy, chord);
        // Give the borrowed key codes back, unless the layout was reloaded meanwhile.
        for (const auto& [code, keysym] : remapped) {
            int perCode = 0;
            KeySym* current = XGetKeyboardMapping(dpy, static_cast<KeyCode>(code), 1, &perCode);
            const bool stillOurs = current != nullptr && perCode > 0 && current[0] == keysym;
            if (current != nullptr)
                XFree(current);
            if (stillOurs) {
                KeySym nothing[2] = {NoSymbol, NoSymbol};
                XChangeKeyboardMapping(dpy, static_cast<int>(code), 2, nothing, 1);
            }
        }
        XSync(dpy, False);
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void deliver(const KeyboardEventRef& event, std::optional<std::int32_t> pid) {
        if (!event || !display.isOpen() || !hasXTest)
            return;
        if (event->keyDown)
            keyDown(*event, pid);
        else
            keyUp(*event);
    }

    void keyDown(const KeyboardEvent& event, std::optional<std::int32_t> pid) {
        const ChordPlan plan = planFor(event, pid);
        // The GUI thread may be waiting for the display lock: hop to it without holding that.
        bool deliver = plan.deliver && plan.keysym != 0;
        if (plan.transfer == ChordPlan::Transfer::primaryToClipboard)
            copyPrimaryToClipboard(options.guiWait);
        else if (plan.transfer == ChordPlan::Transfer::clipboardToPrimary)
            deliver = deliver && copyClipboardToPrimary(options.guiWait);

        PressedChord chord;
        if (deliver) {
            const std::lock_guard lock(display.mutex());
            chord = press(plan);
        }
        remember(event.virtualKey, std::move(chord));
    }

    void keyUp(const KeyboardEvent& event) {
        std::optional<PressedChord> chord;
        {
            const std::lock_guard lock(pendingMutex);
            auto found = pending.find(event.virtualKey);
            if (found == pending.end())
                return; // no key-down of ours to end
            chord = std::move(found->second);
            pending.erase(found);
        }
        if (!chord->delivered)
            return;
        std::this_thread::sleep_until(chord->downAt + options.minimumKeyHold);
        const std::lock_guard lock(display.mutex());
        releaseChord(display.get(), *chord);
        pressed.erase(chordKey(*chord));
        XSync(display.get(), False);
    }

private:
    static XKeycode chordKey(const PressedChord& chord) {
        return chord.pressed.empty() ? 0 : chord.pressed.back();
    }

    void remember(std::uint16_t virtualKey, PressedChord chord) {
        const std::lock_guard lock(pendingMutex);
        pending[virtualKey] = std::move(chord);
    }

    // Looks at the focused window: whether the event may go there, and what it becomes there.
    ChordPlan planFor(const KeyboardEvent& event, std::optional<std::int32_t> pid) {
        ChordPlan plan;
        plan.virtualKey = event.virtualKey;
        plan.keysym = usKeysymForVirtualKey(event.virtualKey).value_or(0);
        plan.flags = event.flags;

        const std::lock_guard lock(display.mutex());
        const XWindowId target = display.focusedClientWindow();
        if (pid && *pid > 0 && target != 0) {
            const auto owner = display.windowPid(target);
            if (owner && *owner != *pid) {
                plan.deliver = false;
                return plan;
            }
        }
        const bool copyOrPaste =
            (event.virtualKey == virtualKeyC || event.virtualKey == virtualKeyV) &&
            isModifierFlag(event.flags, eventflags::command) &&
            !isModifierFlag(event.flags,
                            eventflags::shift | eventflags::option | eventflags::control);
        if (!copyOrPaste || target == 0)
            return plan;
        const auto windowClass = display.windowClass(target);
        if (!windowClass)
            return plan;
        const bool copy = event.virtualKey == virtualKeyC;
        switch (terminalChordsFor(windowClass->instance, windowClass->name)) {
        case TerminalChords::none:
            break;
        case TerminalChords::ctrlShift:
            plan.flags |= eventflags::shift;
            break;
        case TerminalChords::ctrlAlt:
            plan.flags |= eventflags::option;
            break;
        case TerminalChords::xtermSelection:
            if (copy) {
                // No keystroke: the copy is PRIMARY, if that is xterm's selection.
                plan.deliver = false;
                if (ownsPrimary(target))
                    plan.transfer = ChordPlan::Transfer::primaryToClipboard;
            } else {
                plan.transfer = ChordPlan::Transfer::clipboardToPrimary;
                plan.keysym = XK_Insert;
                plan.flags = eventflags::shift;
            }
            break;
        }
        return plan;
    }

    bool ownsPrimary(XWindowId target) {
        Window owner = 0;
        if (!display.checked([&] { owner = XGetSelectionOwner(display.get(), XA_PRIMARY); }) ||
            owner == 0)
            return false;
        const XWindowId ownerTop = display.topLevelAncestor(owner);
        return ownerTop != 0 && ownerTop == display.topLevelAncestor(target);
    }

    // Display lock held.
    PressedChord press(const ChordPlan& plan) {
        Display* dpy = display.get();
        PressedChord chord;
        const KeyboardMap map(dpy);
        if (!map.valid())
            return chord;
        XkbStateRec state{};
        XkbGetState(dpy, XkbUseCoreKbd, &state);
        const int currentGroup = state.group;

        std::optional<KeyLocation> key = map.locate(plan.keysym, currentGroup);
        if (!key)
            key = borrowKeycode(dpy, map, plan.keysym, currentGroup);
        if (!key)
            return chord;

        std::vector<KeySym> modifiers;
        if (isModifierFlag(plan.flags, eventflags::control))
            modifiers.push_back(XK_Super_L);
        if (isModifierFlag(plan.flags, eventflags::command))
            modifiers.push_back(XK_Control_L);
        if (isModifierFlag(plan.flags, eventflags::option))
            modifiers.push_back(XK_Alt_L);
        if (isModifierFlag(plan.flags, eventflags::shift) || key->level == 1)
            modifiers.push_back(XK_Shift_L);
        std::vector<XKeycode> modifierCodes;
        for (const KeySym modifier : modifiers) {
            if (auto location = map.locate(modifier, currentGroup))
                modifierCodes.push_back(location->keycode);
        }

        chord.userModifiers = releaseHeldModifiers(dpy);
        if (key->group != currentGroup) {
            chord.restoreGroup = state.locked_group;
            XkbLockGroup(dpy, XkbUseCoreKbd, static_cast<unsigned int>(key->group));
        }
        for (const XKeycode code : modifierCodes) {
            XTestFakeKeyEvent(dpy, code, True, CurrentTime);
            chord.pressed.push_back(code);
        }
        XTestFakeKeyEvent(dpy, key->keycode, True, CurrentTime);
        chord.pressed.push_back(key->keycode);
        XSync(dpy, False);
        chord.delivered = true;
        chord.downAt = Clock::now();
        pressed[key->keycode] = chord;
        return chord;
    }

    // Maps `keysym` onto a key code without symbols. The mapping stays for later keystrokes:
    // undoing it at once could reach a client before that client has read the key event.
    std::optional<KeyLocation> borrowKeycode(Display* dpy, const KeyboardMap& map, KeySym keysym,
                                             int currentGroup) {
        const auto spare = map.spareKeycode();
        if (!spare)
            return std::nullopt;
        KeySym symbols[2] = {keysym, keysym};
        if (!display.checked(
                [&] { XChangeKeyboardMapping(dpy, static_cast<int>(*spare), 2, symbols, 1); }))
            return std::nullopt;
        remapped[*spare] = keysym;
        return KeyLocation{*spare, currentGroup, 0};
    }

    // Waits, bounded, for the user to let go of every modifier key; releases those still
    // down and returns them, to be pressed again after the keystroke.
    std::vector<XKeycode> releaseHeldModifiers(Display* dpy) {
        std::vector<XKeycode> modifierKeys;
        XModifierKeymap* modmap = XGetModifierMapping(dpy);
        if (modmap == nullptr)
            return {};
        for (int index = 0; index < 8; ++index) {
            if (index == LockMapIndex)
                continue; // Caps Lock is a lock, not held
            for (int slot = 0; slot < modmap->max_keypermod; ++slot) {
                const KeyCode code = modmap->modifiermap[index * modmap->max_keypermod + slot];
                if (code != 0 && !pressedByUs(code))
                    modifierKeys.push_back(code);
            }
        }
        XFreeModifiermap(modmap);

        const auto held = [&] {
            char keys[32] = {};
            XQueryKeymap(dpy, keys);
            std::vector<XKeycode> down;
            for (const XKeycode code : modifierKeys) {
                if ((keys[code / 8] & (1 << (code % 8))) != 0 &&
                    std::find(down.begin(), down.end(), code) == down.end())
                    down.push_back(code);
            }
            return down;
        };
        const auto deadline = Clock::now() + options.modifierReleaseWait;
        std::vector<XKeycode> down = held();
        while (!down.empty() && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            down = held();
        }
        for (const XKeycode code : down)
            XTestFakeKeyEvent(dpy, code, False, CurrentTime);
        return down;
    }

    [[nodiscard]] bool pressedByUs(XKeycode code) const {
        return std::any_of(pressed.begin(), pressed.end(), [code](const auto& entry) {
            const auto& keys = entry.second.pressed;
            return std::find(keys.begin(), keys.end(), code) != keys.end();
        });
    }

    // Display lock held.
    static void releaseChord(Display* dpy, const PressedChord& chord) {
        for (auto code = chord.pressed.rbegin(); code != chord.pressed.rend(); ++code)
            XTestFakeKeyEvent(dpy, *code, False, CurrentTime);
        if (chord.restoreGroup)
            XkbLockGroup(dpy, XkbUseCoreKbd, static_cast<unsigned int>(*chord.restoreGroup));
        for (const XKeycode code : chord.userModifiers)
            XTestFakeKeyEvent(dpy, code, True, CurrentTime);
    }

public:
    Options options;
    XDisplay display;
    bool hasXTest = false;

private:
    // Chords pressed and not yet released, by the key code of their key (display lock).
    std::map<XKeycode, PressedChord> pressed;
    // Key codes given a symbol they lacked (display lock).
    std::map<XKeycode, KeySym> remapped;
    // Key-downs waiting for their key-up, by virtual key.
    std::mutex pendingMutex;
    std::map<std::uint16_t, PressedChord> pending;
};

X11KeyboardEvents::X11KeyboardEvents() : X11KeyboardEvents(Options{}) {}
X11KeyboardEvents::X11KeyboardEvents(Options options) : d_(std::make_unique<Impl>(options)) {}
X11KeyboardEvents::~X11KeyboardEvents() = default;

EventSourceRef X11KeyboardEvents::createEventSource(int /*stateId*/) {
    if (!d_->display.isOpen() || !d_->hasXTest)
        return nullptr;
    return std::make_shared<EventSource>();
}

KeyboardEventRef X11KeyboardEvents::createKeyboardEvent(const EventSourceRef& /*source*/,
                                                        std::uint16_t virtualKey, bool keyDown) {
    if (!d_->display.isOpen() || !d_->hasXTest || !usKeysymForVirtualKey(virtualKey))
        return nullptr;
    return std::make_shared<KeyboardEvent>(virtualKey, keyDown);
}

void X11KeyboardEvents::postToPid(std::int32_t pid, const KeyboardEventRef& event) {
    d_->deliver(event, pid);
}

void X11KeyboardEvents::post(int /*tap*/, const KeyboardEventRef& event) {
    d_->deliver(event, std::nullopt);
}

} // namespace platform::x11
