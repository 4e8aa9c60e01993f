#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <vector>

// The applications installed on the desktop (XDG desktop entries), read to give a running
// application its human name ("Mousepad" rather than a window title or "mousepad").
namespace platform::freedesktop {

class DesktopEntries {
public:
    struct Entry {
        QString id;             // file name without ".desktop", e.g. "org.xfce.mousepad"
        QString name;           // Name, localized for `locale` when the entry has it
        QString startupWMClass; // StartupWMClass, may be empty
        QString program;        // base name of the Exec program, e.g. "mousepad"
    };

    // Reads every "applications" folder under `dataDirs` (most important first: an entry id
    // found earlier hides later ones, as the desktop does). Hidden entries are skipped.
    // `locale` picks Name[ll_CC] or Name[ll] over Name, e.g. "de_DE".
    static DesktopEntries scan(const QStringList& dataDirs, const QString& locale);
    // XDG_DATA_HOME, then XDG_DATA_DIRS, with the XDG defaults.
    static QStringList standardDataDirs();

    // The name of the application with this WM_CLASS and process name, matched by, in order:
    // StartupWMClass (class, then instance), the entry id or its last dotted part (instance,
    // then class), the Exec program (process name, then instance). Case is ignored.
    [[nodiscard]] std::optional<QString> applicationName(const QString& instance,
                                                         const QString& windowClass,
                                                         const QString& processName) const;

    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

private:
    std::vector<Entry> entries_;
};

// The name the kernel knows a process by (/proc/PID/comm), for matching it to its entry; empty
// when the process is gone or not ours to read.
QString processName(std::int32_t pid);

} // namespace platform::freedesktop
