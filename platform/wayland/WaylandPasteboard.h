#pragma once

#include "platform/Pasteboard.h"

#include <atomic>

// The clipboard under Wayland, through wl-clipboard's wl-copy and wl-paste. Only the focused
// client may use the core clipboard protocol; wl-clipboard speaks the data-control protocol
// where the compositor offers it (sway, KDE Plasma, Hyprland) and otherwise briefly takes the
// focus with a surface of its own, so it works whichever window holds the keyboard. What
// wl-copy puts there stays after Mendwise exits (wl-copy keeps serving it).
//
// Every call waits at most `timeout` for the tool; a missing tool reads as an empty clipboard
// and refuses writes.
namespace platform::wayland {

class WaylandPasteboard final : public PasteboardPort {
public:
    explicit WaylandPasteboard(int timeoutMs = 1500) : timeoutMs_(timeoutMs) {}

    std::optional<QString> string() override;
    void clearContents() override;
    bool setString(const QString& text) override;
    // Counts the changes made through this port; other clients' changes are not seen.
    std::int64_t changeCount() override;
    QStringList types() override;

    // Whether wl-copy and wl-paste are installed.
    static bool available();

private:
    int timeoutMs_;
    std::atomic<std::int64_t> changes_{0};
};

} // namespace platform::wayland
