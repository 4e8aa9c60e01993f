#pragma once

#include "platform/Accessibility.h"
#include "platform/KeyboardEvents.h"
#include "platform/Pasteboard.h"
#include "platform/Screens.h"
#include "platform/Workspace.h"

#include <memory>

namespace app {

// The desktop services the application controller works with: the real X11 ones in the
// program, the simulated desktop in tests.
struct Desktop {
    std::shared_ptr<platform::AccessibilityPort> accessibility;
    std::shared_ptr<platform::PasteboardPort> pasteboard;
    std::shared_ptr<platform::KeyboardEventsPort> keyboardEvents;
    std::shared_ptr<platform::WorkspacePort> workspace;
    std::shared_ptr<platform::ScreensPort> screens;
    // Whether the answer goes in through accessibility before any keystroke: where keystrokes
    // cannot reach other applications (Wayland).
    bool replaceThroughAccessibility = false;
};

} // namespace app
