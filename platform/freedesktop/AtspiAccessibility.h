#pragma once

#include "platform/Accessibility.h"

#include <QStringList>
#include <chrono>
#include <functional>
#include <memory>

// Accessibility on Linux through AT-SPI 2, the desktop's accessibility bus (a D-Bus bus of its
// own, found through org.a11y.Bus on the session bus). Spoken over QtDBus rather than libatspi:
// QtDBus calls are thread-safe, take a timeout per call and need no GLib main loop, where
// libatspi is single-threaded and has one process-wide timeout.
//
// Trust: the process is trusted when the accessibility bus answers and the desktop's
// accessibility support is switched on (org.a11y.Status IsEnabled, which the bus launcher keeps
// in the GSettings key org.gnome.desktop.interface toolkit-accessibility). Asking with the
// prompt switches it on and prints how to keep it on. What applications read at start,
// measured on Debian 12: GTK 3 and GTK 4 join the bus whatever the switch; Qt 6, Firefox and
// Chromium need IsEnabled; Qt 5 (KDE) needs ScreenReaderEnabled, or the bus address on the X11
// root window, which the prompt publishes. Qt does not notice the switch while running.
//
// Elements: createApplication(pid) stands for the application whose connection to the bus
// belongs to that process; it is looked up in the bus's registry on first use (answers
// cannotComplete when the process has none: not running, or not accessible). Attributes:
// - on the application: "AXRole" ("application"), "AXWindows" (its top-level windows, an array),
//   "AXFocusedUIElement" (the object with the focused state; while the application is not
//   active, the object it last had focused when asked, if that is still alive, since that is
//   where its focus returns: our own panel may hold the keyboard meanwhile). Found with one
//   Collection query the application answers itself; applications without Collection are walked,
//   active window first, visible objects only, at most 2000 objects within the time budget;
// - on any object: "AXRole" (the AT-SPI role name: "text", "entry", "push button", ...),
//   "AXPosition" and "AXSize" (its extents on screen);
// - on text objects: "AXSelectedText" (the first selection; "" when nothing is selected),
//   "AXSelectedTextRange" (that selection, or the caret with length 0, in characters, i.e.
//   Unicode code points), "AXValue" (the whole text), and the parameterized
//   "AXBoundsForRange" (the screen extents of a range; for a zero-length range the caret's
//   position with zero width; noValue when the application reports an empty rectangle).
// Geometry is in accessibility coordinates: points, origin at the top-left corner of the
// primary screen, y down (AT-SPI's screen pixels divided by the screen's device pixel ratio).
//
// Error codes:
// - trust missing (bus unreachable or accessibility switched off) -> apiDisabled;
// - element not made by this port, parameter not a range, negative range -> illegalArgument;
// - no application for the pid on the bus, a call timing out or getting no reply (a hung
//   application), the time budget of one read used up -> cannotComplete;
// - application gone or object destroyed (ServiceUnknown, NameHasNoOwner, UnknownObject,
//   Disconnected) -> invalidUIElement;
// - attribute unknown, or its interface not implemented by the object (UnknownMethod,
//   UnknownInterface, UnknownProperty) -> attributeUnsupported, or
//   parameterizedAttributeUnsupported for a parameterized read;
// - rejected arguments (InvalidArgs, InvalidSignature) -> illegalArgument;
// - AccessDenied -> apiDisabled;
// - nothing to answer (no focused object, no caret, empty extents) -> noValue;
// - any other D-Bus error or an answer of the wrong shape -> failure.
//
// Time: every D-Bus call waits at most `call`, and one attribute read, whatever calls it makes,
// at most `read`. Callable from any thread; converting geometry briefly asks the GUI thread
// for the screen layout (falling back to the last one it saw).
namespace platform::freedesktop {

class AtspiAccessibility final : public AccessibilityPort {
public:
    struct Timeouts {
        std::chrono::milliseconds call{1500};
        std::chrono::milliseconds read{3000};
    };

    AtspiAccessibility();
    explicit AtspiAccessibility(Timeouts timeouts);
    ~AtspiAccessibility() override;
    AtspiAccessibility(const AtspiAccessibility&) = delete;
    AtspiAccessibility& operator=(const AtspiAccessibility&) = delete;

    bool isProcessTrusted() override;
    // Switches accessibility on when the bus answers but it is off, and prints what was done
    // and how to keep it on; answers the trust afterwards.
    bool isProcessTrustedWithPrompt() override;
    AXRef createApplication(std::int32_t pid) override;
    AXResult copyAttributeValue(const AXRef& element, const QString& attribute) override;
    AXResult copyParameterizedAttributeValue(const AXRef& element, const QString& attribute,
                                             const AXRef& parameter) override;
    // "AXSelectedText" of an editable text object: deletes the selection, inserts the text
    // there (at the caret when nothing is selected), leaves the caret after it and reads it
    // back (attributeUnsupported for objects that are not editable, failure when the text did
    // not arrive).
    AXError setAttributeValue(const AXRef& element, const QString& attribute,
                              const AXRef& value) override;

    // Sets org.a11y.Status IsEnabled; false when the bus launcher did not take it.
    bool setAccessibilityEnabled(bool enabled);

    // Under Wayland applications answer extents relative to their own window, which places
    // nothing on screen: with false, "AXPosition", "AXSize" and "AXBoundsForRange" are
    // unsupported instead of wrong.
    void setScreenCoordinatesKnown(bool known);

    // The application whose window is active (has the keyboard), other than `ignoredPid`
    // (ourselves); none when no application on the bus says so.
    struct ActiveApplication {
        std::int32_t pid = -1;
        QString name; // the toolkit's application name, e.g. "mousepad"
    };
    std::optional<ActiveApplication> activeApplication(std::int32_t ignoredPid);
    // How applications started from now on find the bus besides asking the session bus (on X11:
    // a property of the root window); run by the prompt once the bus answers.
    void setBusAddressPublisher(std::function<void(const QString& address)> publish);

    // Names of running Qt applications of this user that are not on the bus: they read the
    // switch only at start, so their text is read through the copy until they restart.
    QStringList applicationsNeedingRestart();

private:
    class Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::freedesktop
