#pragma once

#include "hotkeys/Hotkeys.h"

// For tests only.
namespace Hotkeys::testing {

// Drops all of the subsystem's process-wide state (registrations, actions, streams, flags,
// menu observers, once-created names) and starts afresh over the given ports. The defaults
// store is left alone.
void resetState(Ports ports);

} // namespace Hotkeys::testing
