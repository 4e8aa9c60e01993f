#pragma once

#include "platform/Workspace.h"

#include <QString>
#include <memory>

// The workspace on X11. The frontmost application is the owner of the window manager's
// active window (_NET_ACTIVE_WINDOW, an EWMH window manager is needed):
// - processIdentifier: the window's _NET_WM_PID (-1 when the window has none);
// - bundleIdentifier: the class part of its WM_CLASS (e.g. "Mousepad", "XTerm");
// - localizedName: the application's name from its desktop entry (e.g. "Mousepad"), matched by
//   WM_CLASS or process name; else the WM_CLASS class; else the window title.
// The application's name is preferred over the window title because the title changes with the
// document and is not what the user calls the application.
//
// URLs and folders are handed to the desktop's opener (xdg-open) without waiting for it.
// Every operation is callable from any thread.
namespace platform::x11 {

class X11Workspace final : public WorkspacePort {
public:
    // `opener`: the program that opens URLs and folders.
    explicit X11Workspace(QString opener = QStringLiteral("xdg-open"));
    ~X11Workspace() override;
    X11Workspace(const X11Workspace&) = delete;
    X11Workspace& operator=(const X11Workspace&) = delete;

    std::optional<RunningApplication> frontmostApplication() override;
    // False when the URL is empty or invalid, or when the opener could not be started; whether
    // the opener then finds a handler is not awaited.
    bool openURL(const QUrl& url) override;
    // False when the path is not an existing folder or the opener could not be started.
    bool openFolder(const QString& path) override;

private:
    class Impl;
    std::unique_ptr<Impl> d_;
};

} // namespace platform::x11
