#pragma once

// What the settings window asks of the desktop beyond the ports: its accessibility settings,
// and starting this program anew.
namespace ui::desktop {

// Opens the desktop's accessibility settings (GNOME's or KDE's, whichever this desktop has);
// false when none is installed.
bool openAccessibilitySettings();

// Starts this executable again with the same arguments, without waiting for it, then quits
// this instance the normal way. Every setting is already stored, so nothing is saved first.
void relaunchApplication();

} // namespace ui::desktop
