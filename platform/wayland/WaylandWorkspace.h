#pragma once

#include "platform/Workspace.h"

#include <QString>
#include <memory>

namespace platform::freedesktop {
class AtspiAccessibility;
}

// The application in front under Wayland, which tells no client about other clients' windows.
// Asked, in order:
// - the compositor, where it answers over IPC (sway: the focused window's pid and app id);
// - the accessibility bus: the application whose window has the active state.
// Mendwise's own windows never count: while the panel holds the keyboard the answer is the
// application that was in front before it, the one the user's text belongs to.
namespace platform::wayland {

class WaylandWorkspace final : public WorkspacePort {
public:
    WaylandWorkspace(std::shared_ptr<freedesktop::AtspiAccessibility> accessibility,
                     QString opener = QStringLiteral("xdg-open"));
    ~WaylandWorkspace() override;
    WaylandWorkspace(const WaylandWorkspace&) = delete;
    WaylandWorkspace& operator=(const WaylandWorkspace&) = delete;

    std::optional<RunningApplication> frontmostApplication() override;
    bool openURL(const QUrl& url) override;
    bool openFolder(const QString& path) override;

private:
    class Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::wayland
