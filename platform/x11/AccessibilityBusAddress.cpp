#include "platform/x11/AccessibilityBusAddress.h"

#include "platform/x11/XDisplay.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace platform::x11 {

bool publishAccessibilityBusAddress(const QString& address) {
    XDisplay display;
    if (!display.isOpen())
        return false;
    const std::lock_guard lock(display.mutex());
    const QByteArray value = address.toUtf8();
    return display.checked([&] {
        XChangeProperty(display.get(), display.rootWindow(),
                        XInternAtom(display.get(), "AT_SPI_BUS", False), XA_STRING, 8,
                        PropModeReplace, reinterpret_cast<const unsigned char*>(value.constData()),
                        static_cast<int>(value.size()));
    });
}

} // namespace platform::x11
