#pragma once

class QWidget;

// What the floating panel needs from the window system beyond Qt's own window flags. Each call
// does nothing where the desktop has no such notion (for example without X11).
namespace ui::native {

// Asks the window manager to show the window on every desktop and to keep it out of task bars
// and pagers. Call before each time the window is shown: the hints are dropped whenever the
// window is withdrawn.
void keepOnAllDesktops(QWidget* window);

// Whether a compositing manager runs, so translucent windows blend with what is beneath them.
// True where the question does not arise.
bool hasCompositor();

// Waits until the window system has carried out every request sent so far (a round trip), so
// that other applications see the outcome, for example a keyboard grab let go, before this
// application asks them anything.
void syncWithServer();

} // namespace ui::native
