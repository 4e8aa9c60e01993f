#include "ui/TriggerBindingHelp.h"

#include <QStringList>

namespace ui {

QString triggerBindingHelp(const QString& currentDesktop, const QString& command) {
    // XDG_CURRENT_DESKTOP is a colon-separated list, most specific first ("ubuntu:GNOME").
    const QStringList desktops = currentDesktop.toLower().split(u':', Qt::SkipEmptyParts);
    const auto is = [&desktops](const char* name) {
        return desktops.contains(QLatin1String(name));
    };
    const QString intro =
        QStringLiteral("This desktop does not let programs set global shortcuts. Bind the "
                       "command\n\n    %1\n\nto Ctrl+Shift+J yourself:\n\n")
            .arg(command);
    if (is("gnome") || is("ubuntu") || is("unity") || is("budgie") || is("pantheon")) {
        return intro + QStringLiteral("Settings → Keyboard → View and Customize Shortcuts → Custom "
                                      "Shortcuts → Add Shortcut (+). Name: Mendwise. Command: %1. "
                                      "Shortcut: press Ctrl+Shift+J.")
                           .arg(command);
    }
    if (is("kde")) {
        return intro + QStringLiteral("System Settings → Shortcuts → Add New → Command or "
                                      "Script… Command: %1. Then set its shortcut to "
                                      "Ctrl+Shift+J.")
                           .arg(command);
    }
    if (is("sway")) {
        return intro + QStringLiteral("Add this line to ~/.config/sway/config, then run "
                                      "\"swaymsg reload\":\n\n    bindsym Ctrl+Shift+j exec %1")
                           .arg(command);
    }
    if (is("hyprland")) {
        return intro + QStringLiteral("Add this line to ~/.config/hypr/hyprland.conf:\n\n    "
                                      "bind = CTRL SHIFT, J, exec, %1")
                           .arg(command);
    }
    return intro + QStringLiteral("Open your desktop's keyboard or shortcut settings, add a "
                                  "custom shortcut that runs the command above, and give it "
                                  "Ctrl+Shift+J.");
}

} // namespace ui
