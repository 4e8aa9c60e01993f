#pragma once

#include "platform/Accessibility.h"
#include "platform/Geometry.h"
#include "platform/Screens.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

// The selection anchor (TextSelectionService::selectionAnchor) for the GUI thread: asked on a
// thread of its own and given up at `deadline`, so an application that is slow to answer
// cannot freeze the user interface (the caller then places the panel at the mouse). While it
// waits, the calling thread keeps running the work other threads hand to it (screen geometry),
// but no user input. A late answer is dropped; the thread keeps the ports alive until then.
std::optional<platform::Point>
selectionAnchorBefore(std::chrono::steady_clock::time_point deadline, std::int32_t pid,
                      std::shared_ptr<platform::AccessibilityPort> accessibility,
                      std::shared_ptr<platform::ScreensPort> screens);
