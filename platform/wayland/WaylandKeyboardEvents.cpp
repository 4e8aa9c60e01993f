#include "platform/wayland/WaylandKeyboardEvents.h"

namespace platform::wayland {

namespace {
class Source final : public EventSource {};
} // namespace

EventSourceRef WaylandKeyboardEvents::createEventSource(int /*stateId*/) {
    return std::make_shared<Source>();
}

KeyboardEventRef WaylandKeyboardEvents::createKeyboardEvent(const EventSourceRef& /*source*/,
                                                            std::uint16_t virtualKey,
                                                            bool keyDown) {
    return std::make_shared<KeyboardEvent>(virtualKey, keyDown);
}

void WaylandKeyboardEvents::postToPid(std::int32_t /*pid*/, const KeyboardEventRef& /*event*/) {}

void WaylandKeyboardEvents::post(int /*tap*/, const KeyboardEventRef& /*event*/) {}

} // namespace platform::wayland
