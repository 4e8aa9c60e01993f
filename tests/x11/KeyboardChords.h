#pragma once

#include "platform/KeyboardEvents.h"

#include <optional>

// Posting a whole chord (key-down, then key-up, both with the same flags) the way the text
// service does.
namespace x11test {

inline void postChord(platform::KeyboardEventsPort& keyboard, std::uint16_t virtualKey,
                      platform::CGEventFlags flags, std::optional<std::int32_t> pid) {
    const auto source = keyboard.createEventSource(platform::hidSystemState);
    for (const bool down : {true, false}) {
        const auto event = keyboard.createKeyboardEvent(source, virtualKey, down);
        platform::setEventFlags(event, flags);
        if (pid)
            keyboard.postToPid(*pid, event);
        else
            keyboard.post(platform::hidEventTap, event);
    }
}

inline constexpr std::uint16_t keyC = 8;
inline constexpr std::uint16_t keyV = 9;
inline constexpr std::uint16_t keyJ = 38;

} // namespace x11test
