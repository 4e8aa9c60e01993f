#pragma once

#include "platform/Pasteboard.h"

#include <chrono>
#include <memory>

// The pasteboard on X11 is the CLIPBOARD selection, through Qt's clipboard. X11 has no shared
// clipboard storage: the owner of the selection serves every paste itself, so what Mendwise
// puts there is served by Mendwise's event loop for as long as it runs (a clipboard manager, if
// the desktop has one, takes it over when Mendwise quits).
//
// Callable from any thread: calls from other threads are carried to the GUI thread and wait
// for it there. A call from another thread gives up after `guiWait` if the GUI thread does not
// get to it (busy, or no longer running an event loop); it then answers no text, no types, and
// false, and changes nothing. Reading another application's clipboard waits for that
// application (Qt gives up after 5 s). Do not block the GUI thread on a thread that uses this
// port: the call would wait for `guiWait` and fail.
//
// Taking or clearing the selection first brings Qt's notion of the server time up to date
// (Qt would otherwise use the time of the last event it saw, and the server ignores a claim
// older than the current owner's, e.g. an editor's copy made meanwhile); this briefly runs the
// GUI thread's event loop for X events. setString then asks the server who owns the selection.
//
// Construct and destroy on the GUI thread, after the QGuiApplication exists.
namespace platform::x11 {

class X11Pasteboard final : public PasteboardPort {
public:
    explicit X11Pasteboard(std::chrono::milliseconds guiWait = std::chrono::seconds(2));
    ~X11Pasteboard() override;
    X11Pasteboard(const X11Pasteboard&) = delete;
    X11Pasteboard& operator=(const X11Pasteboard&) = delete;

    std::optional<QString> string() override;
    // Leaves the selection without an owner: every flavour is gone and a paste elsewhere
    // inserts nothing.
    void clearContents() override;
    // Takes the selection with this one text (X11 has one owner: whatever another application
    // offered is gone). False when Mendwise could not take the selection.
    bool setString(const QString& text) override;
    // Taking the selection with the new text replaces every flavour at once.
    bool replaceContents(const QString& text) override { return setString(text); }
    // Grows by one for every change of the CLIPBOARD selection Qt reports: new contents set by
    // Mendwise, or another application taking the selection.
    std::int64_t changeCount() override;
    QStringList types() override;
    // The _NET_WM_PID of the managed window made by the X client that owns CLIPBOARD (X
    // resource ids carry their client's base); this process's id when Qt owns it.
    std::optional<std::int32_t> ownerProcess() override;

private:
    class Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::x11
