#pragma once

#include "hotkeys/Hotkeys.h"

namespace Hotkeys {

// For tests only: drops all of the subsystem's process-wide state (registrations, actions,
// streams, flags, menu observers, once-created names) and starts afresh over the given ports.
// The defaults store is left alone.
void resetStateForTesting(Ports ports);

} // namespace Hotkeys
