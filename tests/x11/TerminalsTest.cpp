#include "platform/freedesktop/Terminals.h"

#include <gtest/gtest.h>

using namespace platform::freedesktop;

TEST(Terminals, KnownTerminalsAreRecognisedByClassOrInstanceWhateverTheCase) {
    EXPECT_EQ(terminalChordsFor(QStringLiteral("xterm"), QStringLiteral("XTerm")),
              TerminalChords::xtermSelection);
    EXPECT_EQ(terminalChordsFor(QStringLiteral("gnome-terminal-server"),
                                QStringLiteral("Gnome-terminal")),
              TerminalChords::ctrlShift);
    EXPECT_EQ(terminalChordsFor(QStringLiteral("konsole"), QStringLiteral("konsole")),
              TerminalChords::ctrlShift);
    EXPECT_EQ(terminalChordsFor(QStringLiteral("st-256color"), QStringLiteral("st-256color")),
              TerminalChords::ctrlShift);
    EXPECT_EQ(terminalChordsFor(QStringLiteral("urxvt"), QStringLiteral("URxvt")),
              TerminalChords::ctrlAlt);
    // A renamed class still gives the instance away.
    EXPECT_EQ(terminalChordsFor(QStringLiteral("Alacritty"), QStringLiteral("MyTerm")),
              TerminalChords::ctrlShift);
}

TEST(Terminals, OtherApplicationsAreNotTerminals) {
    EXPECT_EQ(terminalChordsFor(QStringLiteral("mousepad"), QStringLiteral("Mousepad")),
              TerminalChords::none);
    EXPECT_EQ(terminalChordsFor(QString(), QString()), TerminalChords::none);
    // Names that merely contain a terminal's name are not that terminal.
    EXPECT_EQ(terminalChordsFor(QStringLiteral("xterminal-notes"), QStringLiteral("Stickies")),
              TerminalChords::none);
}
