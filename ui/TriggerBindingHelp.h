#pragma once

#include <QString>

// Where a desktop gives programs no global shortcuts, the user binds Mendwise's trigger command
// in the desktop's own keyboard settings. These are the steps for the desktop named by
// XDG_CURRENT_DESKTOP (GNOME, KDE, sway, Hyprland, or general ones), as plain text.
namespace ui {

// `command` is what the binding runs, e.g. "mendwise --trigger" or an absolute path.
QString triggerBindingHelp(const QString& currentDesktop, const QString& command);

} // namespace ui
