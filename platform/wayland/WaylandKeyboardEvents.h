#pragma once

#include "platform/KeyboardEvents.h"

// Synthetic keystrokes under Wayland: the core protocol lets no client type into another, so
// without a keystroke channel the events are made but reach nobody, and the port says so
// (canReachApplications), so that text exchange takes its other roads instead of waiting for a
// copy that cannot come.
namespace platform::wayland {

class WaylandKeyboardEvents final : public KeyboardEventsPort {
public:
    EventSourceRef createEventSource(int stateId) override;
    KeyboardEventRef createKeyboardEvent(const EventSourceRef& source, std::uint16_t virtualKey,
                                         bool keyDown) override;
    void postToPid(std::int32_t pid, const KeyboardEventRef& event) override;
    void post(int tap, const KeyboardEventRef& event) override;
    [[nodiscard]] bool canReachApplications() const override { return false; }
};

} // namespace platform::wayland
