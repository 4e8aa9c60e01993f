#pragma once

#include <QString>

// Terminal emulators read Ctrl+C as "interrupt the running program" and Ctrl+V as "insert the
// next character literally", so the copy and paste chords must be translated for them.
namespace platform::freedesktop {

enum class TerminalChords {
    none,          // not a terminal: Ctrl+C / Ctrl+V
    ctrlShift,     // Ctrl+Shift+C / Ctrl+Shift+V (GNOME Terminal, Konsole, kitty, st, ...)
    ctrlAlt,       // Ctrl+Alt+C / Ctrl+Alt+V (rxvt-unicode)
    xtermSelection // xterm: no copy chord; its selection is already PRIMARY, Shift+Insert
                   // inserts PRIMARY
};

// Which chords the application with this WM_CLASS (instance and class, compared without
// regard to case) takes.
TerminalChords terminalChordsFor(const QString& instance, const QString& windowClass);

} // namespace platform::freedesktop
