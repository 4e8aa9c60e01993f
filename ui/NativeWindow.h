#pragma once

#include <functional>
#include <memory>

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
// that other applications see the outcome, for example a keyboard grab let go or a window
// hidden, before this application asks them anything or types to them. Call on the GUI thread.
void syncWithServer();

// Keeps every key the user types from reaching any application while it lives, without any
// window of ours in front: a keyboard grab of its own connection, whose events nobody reads.
// Safe to use from any one thread. None where the desktop has no such grab (without X11), or
// while another client holds the keyboard.
class KeyboardBlock {
public:
    static std::unique_ptr<KeyboardBlock> start();
    virtual ~KeyboardBlock() = default;
    KeyboardBlock(const KeyboardBlock&) = delete;
    KeyboardBlock& operator=(const KeyboardBlock&) = delete;

protected:
    KeyboardBlock() = default;
};

// Calls `onChange` when the window manager makes another window the active one, until the watch
// is destroyed. None where the desktop does not tell (without X11).
class ActiveWindowWatch {
public:
    static std::unique_ptr<ActiveWindowWatch> start(std::function<void()> onChange);
    virtual ~ActiveWindowWatch() = default;
    ActiveWindowWatch(const ActiveWindowWatch&) = delete;
    ActiveWindowWatch& operator=(const ActiveWindowWatch&) = delete;

protected:
    ActiveWindowWatch() = default;
};

} // namespace ui::native
