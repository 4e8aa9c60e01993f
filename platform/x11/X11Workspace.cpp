#include "platform/x11/X11Workspace.h"

#include "platform/freedesktop/DesktopEntries.h"
#include "platform/x11/XDisplay.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QProcess>
#include <QUrl>

namespace platform::x11 {

using freedesktop::DesktopEntries;
using freedesktop::processName;

class X11Workspace::Impl {
public:
    explicit Impl(QString opener) : opener(std::move(opener)) {}

    // Desktop entries are read once, on first use; installing an application while Mendwise
    // runs shows its WM_CLASS until the next start.
    const DesktopEntries& entries() {
        std::call_once(scanned, [this] {
            desktopEntries =
                DesktopEntries::scan(DesktopEntries::standardDataDirs(), QLocale::system().name());
        });
        return desktopEntries;
    }

    bool open(const QString& target) const { return QProcess::startDetached(opener, {target}); }

    XDisplay display;
    QString opener;
    std::once_flag scanned;
    DesktopEntries desktopEntries;
};

X11Workspace::X11Workspace(QString opener) : d_(std::make_unique<Impl>(std::move(opener))) {}
X11Workspace::~X11Workspace() = default;

std::optional<RunningApplication> X11Workspace::frontmostApplication() {
    if (!d_->display.isOpen())
        return std::nullopt;
    RunningApplication app;
    std::optional<WindowClass> windowClass;
    std::optional<QString> title;
    {
        const std::lock_guard lock(d_->display.mutex());
        const XWindowId window = d_->display.activeWindow();
        if (window == 0 || !d_->display.windowExists(window))
            return std::nullopt;
        app.processIdentifier = d_->display.windowPid(window).value_or(-1);
        windowClass = d_->display.windowClass(window);
        if (!windowClass || windowClass->name.isEmpty())
            title = d_->display.windowTitle(window);
    }
    if (windowClass && !windowClass->name.isEmpty())
        app.bundleIdentifier = windowClass->name;
    const QString instance = windowClass ? windowClass->instance : QString();
    const QString className = windowClass ? windowClass->name : QString();
    if (auto name =
            d_->entries().applicationName(instance, className, processName(app.processIdentifier)))
        app.localizedName = std::move(name);
    else if (!className.isEmpty())
        app.localizedName = className;
    else if (title && !title->isEmpty())
        app.localizedName = std::move(title);
    return app;
}

bool X11Workspace::openURL(const QUrl& url) {
    if (url.isEmpty() || !url.isValid())
        return false;
    return d_->open(url.toString(QUrl::FullyEncoded));
}

bool X11Workspace::openFolder(const QString& path) {
    const QFileInfo folder(path);
    if (path.isEmpty() || !folder.isDir())
        return false;
    return d_->open(QUrl::fromLocalFile(folder.absoluteFilePath()).toString(QUrl::FullyEncoded));
}

} // namespace platform::x11
