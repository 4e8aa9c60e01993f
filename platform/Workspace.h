#pragma once

#include <QString>
#include <QUrl>
#include <cstdint>
#include <optional>

// The workspace port: which application is in front, and opening URLs and folders with the
// desktop's handlers.
namespace platform {

// A running application, as captured at one moment. Each property may be unknown; an unknown
// process id is -1.
struct RunningApplication {
    std::int32_t processIdentifier = -1;
    std::optional<QString> bundleIdentifier;
    std::optional<QString> localizedName;
    friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

class WorkspacePort {
public:
    virtual ~WorkspacePort() = default;

    // The application that currently receives key events, or none. Callable from any thread.
    virtual std::optional<RunningApplication> frontmostApplication() = 0;
    // Opens a URL with its default handler; false when nothing could open it.
    virtual bool openURL(const QUrl& url) = 0;
    // Shows a folder in the file manager; false when nothing could open it.
    virtual bool openFolder(const QString& path) = 0;
};

} // namespace platform
