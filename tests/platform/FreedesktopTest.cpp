// The pure parts of the Linux desktop layer: screen coordinates, terminal detection and the
// names in desktop entries.
#include "platform/freedesktop/DesktopEntries.h"
#include "platform/freedesktop/ScreenMapping.h"
#include "platform/freedesktop/Terminals.h"
#include "tests/x11/GeometryPrinters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using platform::Point;
using platform::Rect;
using namespace platform::freedesktop;

TEST(ScreenMapping, GlobalCoordinatesStartAtThePrimarysBottomLeftAndNativeOnesScale) {
    // One 1440x900 screen under a 25-pixel top panel.
    const ScreenLayout one{{{QRect(0, 0, 1440, 900), QRect(0, 25, 1440, 875), 1.0}}, 0};
    EXPECT_EQ(globalFromQt(QRectF(0, 25, 1440, 875), one), (Rect{0, 0, 1440, 875}));
    EXPECT_EQ(globalFromQt(QRectF(100, 200, 300, 20), one), (Rect{100, 680, 300, 20}));
    EXPECT_EQ(globalFromQt(QRectF(10, 20, 30, 40), ScreenLayout{}), (Rect{10, -60, 30, 40}));

    // A 1920x1080 primary right of a 1440x900 screen at (0, 300), and a 2x screen (native
    // 2560x1440, 1280x720 in Qt) at (3360, 0).
    ScreenLayout three{{{QRect(0, 300, 1440, 900), QRect(0, 300, 1440, 900), 1.0},
                        {QRect(1440, 0, 1920, 1080), QRect(1440, 0, 1920, 1050), 1.0},
                        {QRect(3360, 0, 1280, 720), QRect(3360, 0, 1280, 720), 2.0}},
                       1};
    EXPECT_EQ(globalFromQt(QRectF(1440, 0, 1920, 1080), three), (Rect{0, 0, 1920, 1080}));
    EXPECT_EQ(globalFromQt(QRectF(0, 300, 1440, 900), three), (Rect{-1440, -120, 1440, 900}));
    EXPECT_EQ(accessibilityFromNative(Point{1540, 50}, three), (Point{100, 50}));
    EXPECT_EQ(accessibilityFromNative(Point{100, 400}, three), (Point{-1340, 400}));
    EXPECT_EQ(accessibilityFromNative(Rect{3760, 200, 80, 40}, three),
              (Rect{2120, 100, 40, 20})); // offsets inside the 2x screen halve
    // Outside every screen the primary's ratio applies.
    three.screens[1].devicePixelRatio = 2.0;
    EXPECT_EQ(accessibilityFromNative(Point{6440, 40}, three), (Point{2500, 20}));
}

// xterm, st and urxvt copy and paste on the real desktop (tests/x11/TextServiceTest.cpp).
TEST(Terminals, KnownByClassOrInstanceWhateverTheCaseAndOnlyByWholeNames) {
    const struct {
        const char* instance;
        const char* windowClass;
        TerminalChords chords;
    } cases[] = {
        {"gnome-terminal-server", "Gnome-terminal", TerminalChords::ctrlShift},
        {"konsole", "konsole", TerminalChords::ctrlShift},
        {"Alacritty", "MyTerm", TerminalChords::ctrlShift}, // a renamed class
        {"mousepad", "Mousepad", TerminalChords::none},
        {"", "", TerminalChords::none},
        {"xterminal-notes", "Stickies", TerminalChords::none},
    };
    for (const auto& c : cases)
        EXPECT_EQ(
            terminalChordsFor(QString::fromLatin1(c.instance), QString::fromLatin1(c.windowClass)),
            c.chords)
            << c.instance;
}

TEST(DesktopEntries, NamesComeFromTheMatchingEntryLocalizedByLocaleThenLanguage) {
    QTemporaryDir home;
    QTemporaryDir system;
    const auto write = [](const QTemporaryDir& dir, const QString& name, const QByteArray& body) {
        const QString path = dir.filePath(QStringLiteral("applications/") + name);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(body.startsWith('[') ? body : "[Desktop Entry]\nType=Application\n" + body);
    };
    write(system, QStringLiteral("org.xfce.mousepad.desktop"),
          "Name=Mousepad\nName[de]=Mousepad-DE\nExec=mousepad %U\n\n[Desktop Action p]\n"
          "Name=Mousepad Preferences\nExec=mousepad --preferences\n");
    write(system, QStringLiteral("org.xfce.mousepad-settings.desktop"),
          "Name=Text Editor Settings\nExec=mousepad --preferences\n");
    write(system, QStringLiteral("kde/konsole.desktop"),
          "Name=Konsole\nName[de_CH]=Konsole-CH\nExec=\"/opt/kde/bin/konsole\" --x\n");
    write(system, QStringLiteral("tool.desktop"), "Name=Tool\nExec=env LANG=C /usr/bin/the-tool\n");
    write(system, QStringLiteral("editor.desktop"), "Name=System Editor\nExec=editor\n");
    write(home, QStringLiteral("editor.desktop"), "Name=My Editor\nExec=editor\n");
    write(system, QStringLiteral("hidden.desktop"), "Name=Hidden\nExec=hidden\nHidden=true\n");
    write(system, QStringLiteral("broken.desktop"), "[\xff\xfe garbage = = [\n");

    // By StartupWMClass: on the real desktop, tests/x11/WorkspaceTest.cpp.
    const auto entries =
        DesktopEntries::scan({home.path(), system.path()}, QStringLiteral("en_US"));
    const struct {
        const char* instance;
        const char* windowClass;
        const char* program;
        const char* name; // nullptr: no name
    } cases[] = {
        {"mousepad", "Mousepad", "", "Mousepad"}, // by the end of a reverse-domain id
        {"x", "Y", "konsole", "Konsole"},         // by a quoted Exec path, in a subfolder
        {"", "", "the-tool", "Tool"},             // the program after "env VAR=value"
        {"", "editor", "", "My Editor"},          // the user's entry hides the system's
        {"", "hidden", "hidden", nullptr},
        {"unknown", "Unknown", "unknown", nullptr},
        {"", "", "", nullptr},
    };
    for (const auto& c : cases)
        EXPECT_EQ(entries.applicationName(QString::fromLatin1(c.instance),
                                          QString::fromLatin1(c.windowClass),
                                          QString::fromLatin1(c.program)),
                  c.name ? std::optional(QString::fromLatin1(c.name)) : std::nullopt)
            << c.instance << '/' << c.windowClass << '/' << c.program;

    const auto swiss = DesktopEntries::scan({system.path()}, QStringLiteral("de_CH"));
    EXPECT_EQ(swiss.applicationName({}, {}, QStringLiteral("konsole")),
              QStringLiteral("Konsole-CH"));
    EXPECT_EQ(swiss.applicationName(QStringLiteral("mousepad"), {}, {}),
              QStringLiteral("Mousepad-DE"));
    const auto german = DesktopEntries::scan({system.path()}, QStringLiteral("de_DE"));
    EXPECT_EQ(german.applicationName({}, {}, QStringLiteral("konsole")), QStringLiteral("Konsole"));
}
