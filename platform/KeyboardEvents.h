#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

// The keyboard-events port: synthetic key presses posted into other applications.
//
// Key codes are virtual key codes (kVK values: C is 8, V is 9) and modifiers are event flags
// (Command 0x100000); a backend translates both to the real keyboard. Callable from any thread.
namespace platform {

using CGEventFlags = std::uint64_t;

namespace eventflags {
inline constexpr CGEventFlags alphaShift = 0x10000; // Caps Lock
inline constexpr CGEventFlags shift = 0x20000;
inline constexpr CGEventFlags control = 0x40000;
inline constexpr CGEventFlags option = 0x80000;
inline constexpr CGEventFlags command = 0x100000;
inline constexpr CGEventFlags numericPad = 0x200000;
inline constexpr CGEventFlags function = 0x800000;
} // namespace eventflags

// Event source state for synthetic events: the hardware (HID system) state.
inline constexpr int hidSystemState = 1;
// Event tap for untargeted posting: whatever has the keyboard focus.
inline constexpr int hidEventTap = 0;

class EventSource {
public:
    virtual ~EventSource() = default;
};
using EventSourceRef = std::shared_ptr<EventSource>;

// One key-down or key-up event. Counts live instances so tests can check release.
struct KeyboardEvent {
    KeyboardEvent(std::uint16_t key, bool down) : virtualKey(key), keyDown(down) { ++live(); }
    ~KeyboardEvent() { --live(); }
    KeyboardEvent(const KeyboardEvent&) = delete;
    KeyboardEvent& operator=(const KeyboardEvent&) = delete;

    std::uint16_t virtualKey;
    bool keyDown;
    CGEventFlags flags = 0;

    static std::atomic<std::int64_t>& live() {
        static std::atomic<std::int64_t> count{0};
        return count;
    }
};
using KeyboardEventRef = std::shared_ptr<KeyboardEvent>;

// Replaces the event's modifier flags.
inline void setEventFlags(const KeyboardEventRef& event, CGEventFlags flags) {
    if (event)
        event->flags = flags;
}

class KeyboardEventsPort {
public:
    virtual ~KeyboardEventsPort() = default;

    // An event source for the given state; none when the system refuses.
    virtual EventSourceRef createEventSource(int stateId) = 0;
    // A key-down (true) or key-up (false) event; none when it cannot be created.
    virtual KeyboardEventRef createKeyboardEvent(const EventSourceRef& source,
                                                 std::uint16_t virtualKey, bool keyDown) = 0;
    // Delivers the event to one process.
    virtual void postToPid(std::int32_t pid, const KeyboardEventRef& event) = 0;
    // Delivers the event through the given tap to whatever has the keyboard focus.
    virtual void post(int tap, const KeyboardEventRef& event) = 0;

    // Whether this desktop lets synthetic keystrokes reach other applications at all (a
    // Wayland session without a keystroke channel does not). Events can still be made; they
    // just go nowhere.
    [[nodiscard]] virtual bool canReachApplications() const { return true; }
};

} // namespace platform
