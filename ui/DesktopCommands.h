#pragma once

#include <QString>

// What the windows ask of the desktop beyond the ports: its accessibility settings, a
// notification, and starting this program anew.
namespace ui::desktop {

// Opens the desktop's accessibility settings (GNOME's or KDE's, whichever this desktop has);
// false when none is installed.
bool openAccessibilitySettings();

// Shows a desktop notification through the notification server of the session bus, if one
// runs; never starts one. Returns at once.
void notify(const QString& summary, const QString& body);

// Starts this executable again with the same arguments, without waiting for it, then quits
// this instance the normal way. Every setting is already stored, so nothing is saved first.
void relaunchApplication();

} // namespace ui::desktop
