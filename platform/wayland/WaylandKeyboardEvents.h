#pragma once

#include "platform/KeyboardEvents.h"
#include "platform/wayland/KeystrokeChannel.h"

#include <chrono>
#include <functional>
#include <memory>

// Synthetic keystrokes under Wayland. The core protocol lets no client type into another, so
// keys go through a keystroke channel (the compositor's virtual keyboard or the RemoteDesktop
// portal); without one the events are made but reach nobody, and the port says so
// (canReachApplications), so that text exchange takes its other roads instead of waiting for a
// copy that cannot come.
//
// Keys: a virtual key code stands for the symbol its key types on a US layout ('c' for 8); the
// event goes to the key that types that symbol in the channel's keymap, in the first layout
// that has it (a Russian user's Ctrl+C is typed with the Latin layout). Command is pressed as
// Ctrl, Shift as Shift, Option as Alt and Control as Super, for the duration of the key.
// Terminals (known by their program's name) get their own copy and paste chords.
//
// Keys reach whichever window has the keyboard focus, and on Wayland the panel takes it: before
// a key-down the focus hand-off lets Mendwise's windows step aside, and after the key-up they
// may come back. postToPid cannot check the focused window's process; the hand-off makes it the
// source application's.
//
// Callable from any thread; events are delivered one at a time.
namespace platform::wayland {

class WaylandKeyboardEvents final : public KeyboardEventsPort {
public:
    struct FocusHandOff {
        // Gives the keyboard focus back to the application behind Mendwise's windows and
        // returns once they have lost it (bounded). Called on a background thread.
        std::function<void()> stepAside;
        // The keystroke is done: Mendwise's windows may take the focus again.
        std::function<void()> comeBack;
    };
    struct Options {
        // Some applications miss a key released the instant it was pressed.
        std::chrono::milliseconds minimumKeyHold{8};
        // How long a channel may take to be ready (a permission the desktop is asking for).
        std::chrono::milliseconds prepareWait{30000};
    };

    explicit WaylandKeyboardEvents(std::unique_ptr<KeystrokeChannel> channel = nullptr);
    WaylandKeyboardEvents(std::unique_ptr<KeystrokeChannel> channel, Options options);
    ~WaylandKeyboardEvents() override;
    WaylandKeyboardEvents(const WaylandKeyboardEvents&) = delete;
    WaylandKeyboardEvents& operator=(const WaylandKeyboardEvents&) = delete;

    void setFocusHandOff(FocusHandOff handOff);
    // Told, on the calling thread, of each chord about to be typed and the process it is for
    // (-1 when unknown): the clipboard learns whose copy comes next.
    void setKeystrokeObserver(std::function<void(std::int32_t pid)> observer);
    // None without a channel.
    [[nodiscard]] KeystrokeChannel* channel() const;

    EventSourceRef createEventSource(int stateId) override;
    KeyboardEventRef createKeyboardEvent(const EventSourceRef& source, std::uint16_t virtualKey,
                                         bool keyDown) override;
    void postToPid(std::int32_t pid, const KeyboardEventRef& event) override;
    void post(int tap, const KeyboardEventRef& event) override;
    // With a channel that is ready or may still be granted.
    [[nodiscard]] bool canReachApplications() const override;

private:
    struct Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::wayland
