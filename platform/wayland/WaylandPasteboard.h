#pragma once

#include "platform/Pasteboard.h"

#include <atomic>
#include <chrono>
#include <memory>

// The clipboard under Wayland, through wl-clipboard's wl-copy and wl-paste. Only the focused
// client may use the core clipboard protocol; wl-clipboard speaks the data-control protocol
// where the compositor offers it (sway, KDE Plasma, Hyprland) and otherwise briefly takes the
// focus with a surface of its own, so it works whichever window holds the keyboard. What
// wl-copy puts there stays after Mendwise exits (wl-copy keeps serving it).
//
// Every call waits at most `timeout` for the tool; a missing tool reads as an empty clipboard
// and refuses writes.
namespace platform::wayland {

// Owners: Wayland tells no client who owns the clipboard. Where the compositor offers the
// data-control protocol, a watcher (wl-paste --watch) sees every change, whoever makes it; with
// the keystrokes noted by noteKeystroke, what changed after a keystroke is taken to be the copy
// of the application it went to, and what changed only before it is nobody's. A clipboard
// manager that refills an emptied clipboard (Klipper does by default) may still put an old
// text back, late: text equal to what the clipboard held before clearContents or at the
// keystroke is believed to be the copy only once the keystroke is `lateCopy` old and nothing
// else came, as when the selection is the very text the user had copied. Without the watcher,
// owners are unknown.
class WaylandPasteboard final : public PasteboardPort {
public:
    explicit WaylandPasteboard(int timeoutMs = 1500);
    ~WaylandPasteboard() override;
    WaylandPasteboard(const WaylandPasteboard&) = delete;
    WaylandPasteboard& operator=(const WaylandPasteboard&) = delete;

    std::optional<QString> string() override;
    // Leaves an empty text (see the .cpp for why); the text read is then empty.
    void clearContents() override;
    bool setString(const QString& text) override;
    // wl-copy takes the selection with the new text, replacing every flavour at once.
    bool replaceContents(const QString& text) override { return setString(text); }
    // Counts the changes made through this port; other clients' changes are not seen.
    std::int64_t changeCount() override;
    QStringList types() override;
    std::optional<std::int32_t> ownerProcess() override;

    // Starts the watcher; false where the compositor does not let it watch.
    bool watchChanges();
    // A keystroke is about to go to process `pid` (-1: to whatever has the focus).
    void noteKeystroke(std::int32_t pid);

    // Shorter than the copy's wait for the clipboard (500 ms), so a copy of the old text is
    // still taken at its end.
    static constexpr std::chrono::milliseconds lateCopy{350};

    // Whether wl-copy and wl-paste are installed.
    static bool available();

private:
    int timeoutMs_;
    std::atomic<std::int64_t> changes_{0};
    struct Watcher;
    std::unique_ptr<Watcher> watcher_;
};

} // namespace platform::wayland
