#pragma once

#include "platform/LoginItem.h"

#include <QString>

namespace platform::freedesktop {

// The login item of a freedesktop session: an autostart entry, mendwise.desktop, in
// $XDG_CONFIG_HOME/autostart (~/.config/autostart by default) that starts this executable.
class XdgAutostartLoginItem final : public LoginItemPort {
public:
    // `executable` is what the entry starts; empty means the running executable.
    explicit XdgAutostartLoginItem(QString executable = {});

    [[nodiscard]] std::optional<QString> registerLoginItem() override;
    [[nodiscard]] std::optional<QString> unregisterLoginItem() override;

    // Where the entry lives, from the environment at the time of the call.
    [[nodiscard]] static QString entryPath();
    // The entry's contents for `executable`.
    [[nodiscard]] static QByteArray entryContents(const QString& executable);

private:
    QString executable_;
};

} // namespace platform::freedesktop
