#include "platform/freedesktop/Terminals.h"

#include <array>
#include <string_view>

namespace platform::freedesktop {

namespace {

struct KnownTerminal {
    std::string_view name; // lower case; matched against WM_CLASS instance and class
    TerminalChords chords;
};

constexpr std::array knownTerminals{
    KnownTerminal{"xterm", TerminalChords::xtermSelection},
    KnownTerminal{"uxterm", TerminalChords::xtermSelection},
    KnownTerminal{"urxvt", TerminalChords::ctrlAlt},
    KnownTerminal{"gnome-terminal", TerminalChords::ctrlShift},
    KnownTerminal{"gnome-terminal-server", TerminalChords::ctrlShift},
    KnownTerminal{"kgx", TerminalChords::ctrlShift},
    KnownTerminal{"org.gnome.console", TerminalChords::ctrlShift},
    KnownTerminal{"konsole", TerminalChords::ctrlShift},
    KnownTerminal{"yakuake", TerminalChords::ctrlShift},
    KnownTerminal{"xfce4-terminal", TerminalChords::ctrlShift},
    KnownTerminal{"mate-terminal", TerminalChords::ctrlShift},
    KnownTerminal{"lxterminal", TerminalChords::ctrlShift},
    KnownTerminal{"qterminal", TerminalChords::ctrlShift},
    KnownTerminal{"terminator", TerminalChords::ctrlShift},
    KnownTerminal{"tilix", TerminalChords::ctrlShift},
    KnownTerminal{"guake", TerminalChords::ctrlShift},
    KnownTerminal{"tilda", TerminalChords::ctrlShift},
    KnownTerminal{"sakura", TerminalChords::ctrlShift},
    KnownTerminal{"roxterm", TerminalChords::ctrlShift},
    KnownTerminal{"terminology", TerminalChords::ctrlShift},
    KnownTerminal{"alacritty", TerminalChords::ctrlShift},
    KnownTerminal{"kitty", TerminalChords::ctrlShift},
    KnownTerminal{"wezterm", TerminalChords::ctrlShift},
    KnownTerminal{"org.wezfurlong.wezterm", TerminalChords::ctrlShift},
    KnownTerminal{"st", TerminalChords::ctrlShift},
    KnownTerminal{"st-256color", TerminalChords::ctrlShift},
    KnownTerminal{"stterm", TerminalChords::ctrlShift},
    KnownTerminal{"stterm-256color", TerminalChords::ctrlShift},
    KnownTerminal{"cool-retro-term", TerminalChords::ctrlShift},
    KnownTerminal{"foot", TerminalChords::ctrlShift},
    KnownTerminal{"ghostty", TerminalChords::ctrlShift},
    KnownTerminal{"com.mitchellh.ghostty", TerminalChords::ctrlShift},
};

TerminalChords lookup(const QString& name) {
    const QByteArray lower = name.trimmed().toLower().toUtf8();
    const std::string_view key(lower.constData(), static_cast<std::size_t>(lower.size()));
    for (const auto& terminal : knownTerminals) {
        if (terminal.name == key)
            return terminal.chords;
    }
    return TerminalChords::none;
}

} // namespace

TerminalChords terminalChordsFor(const QString& instance, const QString& windowClass) {
    if (const auto byClass = lookup(windowClass); byClass != TerminalChords::none)
        return byClass;
    return lookup(instance);
}

} // namespace platform::freedesktop
