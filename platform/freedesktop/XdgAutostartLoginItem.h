#pragma once

#include "platform/LoginItem.h"

#include <QString>

namespace platform::freedesktop {

// The login item of a freedesktop session: an autostart entry named by the application id
// (app.mendwise.Mendwise.desktop) in $XDG_CONFIG_HOME/autostart (~/.config/autostart by
// default) that starts this executable. The mendwise.desktop of earlier versions is removed
// whenever the item is registered or unregistered, so there is never a second entry.
class XdgAutostartLoginItem final : public LoginItemPort {
public:
    // `executable` is what the entry starts; empty means the running executable, named by its
    // installed path when it is the installed program.
    explicit XdgAutostartLoginItem(QString executable = {});

    [[nodiscard]] std::optional<QString> registerLoginItem() override;
    [[nodiscard]] std::optional<QString> unregisterLoginItem() override;

    // Where the entry lives, from the environment at the time of the call.
    [[nodiscard]] static QString entryPath();
    // Where earlier versions put it.
    [[nodiscard]] static QString legacyEntryPath();
    // What the entry starts when `running` runs: `installed` when both are the same file (so a
    // symlinked or moved installation stays reachable by its installed name), else `running`
    // itself, such as a program in a developer's build tree.
    [[nodiscard]] static QString programToStart(const QString& running, const QString& installed);
    // The entry's contents for `executable`.
    [[nodiscard]] static QByteArray entryContents(const QString& executable);

private:
    QString executable_;
};

} // namespace platform::freedesktop
