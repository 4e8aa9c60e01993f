#pragma once

#include "platform/KeyboardEvents.h"

#include <chrono>
#include <memory>

// Synthetic key events on X11, through XTest (events from XSendEvent are ignored by many
// applications). XTest types into whatever window has the keyboard focus.
//
// Keys: a virtual key code stands for the symbol its key types on a US layout ('c' for 8); the
// event goes to the key that types that symbol on the current layout. When the active layout
// group has no such key (a layout without Latin letters), another group that has one is locked
// for the keystroke and restored after it; when no group has one, the symbol is mapped onto a
// key code without symbols, which stays mapped until this object is destroyed.
//
// Modifier flags: Command is pressed as Ctrl, Shift as Shift, Option as Alt and Control as
// Super, for the duration of the key (pressed before its key-down, released after its key-up).
// Other flags (Caps Lock, keypad, fn) are ignored.
//
// Terminal emulators (recognised by WM_CLASS) never receive a bare Ctrl+C, which would
// interrupt the program running in them, or Ctrl+V: Command+C and Command+V become the
// terminal's own chords, Ctrl+Shift+C/V for most, Ctrl+Alt+C/V for rxvt-unicode. xterm has no
// copy chord by default; its selection is PRIMARY the moment the user makes it, so Command+C to
// xterm copies PRIMARY to CLIPBOARD (only when xterm owns PRIMARY), and Command+V puts
// CLIPBOARD on PRIMARY and presses Shift+Insert, xterm's paste.
//
// Modifiers the user still holds would turn Ctrl+C into another chord (Ctrl+Alt+C...). A
// key-down first waits, at most `modifierReleaseWait`, for every modifier key to be up; those
// still down are then released for the keystroke and pressed again after its key-up.
//
// postToPid: XTest cannot address a process; the event goes to the focused window only when
// that window belongs to the process (by _NET_WM_PID) or does not tell its process. Otherwise the
// key-down, and its key-up, are dropped: typing into another application would copy or paste
// there. post(tap) always goes to the focused window.
//
// Callable from any thread; events are delivered one at a time.
namespace platform::x11 {

class X11KeyboardEvents final : public KeyboardEventsPort {
public:
    struct Options {
        std::chrono::milliseconds modifierReleaseWait{250};
        // Some applications (browsers) miss a key released the instant it was pressed.
        std::chrono::milliseconds minimumKeyHold{8};
        // How long the xterm selection transfer waits for the GUI thread to take it up.
        std::chrono::milliseconds guiWait{2000};
    };

    X11KeyboardEvents();
    explicit X11KeyboardEvents(Options options);
    ~X11KeyboardEvents() override;
    X11KeyboardEvents(const X11KeyboardEvents&) = delete;
    X11KeyboardEvents& operator=(const X11KeyboardEvents&) = delete;

    // None when there is no X display or it lacks the XTest extension.
    EventSourceRef createEventSource(int stateId) override;
    // None when there is no X display or the virtual key types no symbol.
    KeyboardEventRef createKeyboardEvent(const EventSourceRef& source, std::uint16_t virtualKey,
                                         bool keyDown) override;
    void postToPid(std::int32_t pid, const KeyboardEventRef& event) override;
    void post(int tap, const KeyboardEventRef& event) override;

private:
    class Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::x11
