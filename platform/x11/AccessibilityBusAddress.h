#pragma once

#include <QString>

namespace platform::x11 {

// Publishes the accessibility bus address on the root window (AT_SPI_BUS), as the desktop's
// bus launcher does when it knows the display. Qt applications read it at start and join the
// bus, which Qt 5 otherwise does only while a screen reader is on (ScreenReaderEnabled); that
// switch is not ours to flip, as it starts the screen reader on GNOME. False when there is no
// display.
bool publishAccessibilityBusAddress(const QString& address);

} // namespace platform::x11
