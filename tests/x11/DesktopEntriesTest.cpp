#include "platform/freedesktop/DesktopEntries.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace platform::freedesktop;

namespace {

void writeEntry(const QString& dataDir, const QString& relativePath, const QByteArray& content) {
    const QString path = dataDir + QStringLiteral("/applications/") + relativePath;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

class DesktopEntriesTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(home.isValid() && system.isValid());
        writeEntry(system.path(), QStringLiteral("org.xfce.mousepad.desktop"),
                   "[Desktop Entry]\nType=Application\nName=Mousepad\nName[de]=Mousepad-DE\n"
                   "Exec=mousepad %U\n\n[Desktop Action preferences]\nName=Mousepad "
                   "Preferences\nExec=mousepad --preferences\n");
        writeEntry(system.path(), QStringLiteral("org.xfce.mousepad-settings.desktop"),
                   "[Desktop Entry]\nType=Application\nName=Text Editor Settings\n"
                   "Exec=mousepad --preferences\n");
        writeEntry(system.path(), QStringLiteral("debian-xterm.desktop"),
                   "[Desktop Entry]\nType=Application\nName=XTerm\nExec=xterm\n"
                   "StartupWMClass=XTerm\n");
        writeEntry(system.path(), QStringLiteral("kde/konsole.desktop"),
                   "[Desktop Entry]\nType=Application\nName=Konsole\nName[de_CH]=Konsole-CH\n"
                   "Exec=\"/opt/kde/bin/konsole\" --x\n");
        writeEntry(system.path(), QStringLiteral("tool.desktop"),
                   "[Desktop Entry]\nType=Application\nName=Tool\n"
                   "Exec=env LANG=C /usr/bin/the-tool\n");
        // The user's own entry hides the system one with the same id.
        writeEntry(system.path(), QStringLiteral("editor.desktop"),
                   "[Desktop Entry]\nType=Application\nName=System Editor\nExec=editor\n");
        writeEntry(home.path(), QStringLiteral("editor.desktop"),
                   "[Desktop Entry]\nType=Application\nName=My Editor\nExec=editor\n");
        writeEntry(system.path(), QStringLiteral("hidden.desktop"),
                   "[Desktop Entry]\nType=Application\nName=Hidden\nExec=hidden\nHidden=true\n");
        writeEntry(system.path(), QStringLiteral("broken.desktop"), "\xff\xfe garbage = = [\n");
    }

    QTemporaryDir home;
    QTemporaryDir system;
};

} // namespace

TEST_F(DesktopEntriesTest, NamesComeFromTheEntryThatMatchesTheWindowClassOrProcess) {
    const auto entries =
        DesktopEntries::scan({home.path(), system.path()}, QStringLiteral("en_US"));
    // By StartupWMClass.
    EXPECT_EQ(entries.applicationName(QStringLiteral("xterm"), QStringLiteral("XTerm"), {}),
              QStringLiteral("XTerm"));
    // By the last part of a reverse-domain id, not by the settings entry with the same program.
    EXPECT_EQ(entries.applicationName(QStringLiteral("mousepad"), QStringLiteral("Mousepad"), {}),
              QStringLiteral("Mousepad"));
    // By a quoted Exec program with a path, found in a subfolder.
    EXPECT_EQ(entries.applicationName(QStringLiteral("x"), QStringLiteral("Y"),
                                      QStringLiteral("konsole")),
              QStringLiteral("Konsole"));
    // By the program after "env VAR=value".
    EXPECT_EQ(entries.applicationName({}, {}, QStringLiteral("the-tool")), QStringLiteral("Tool"));
    EXPECT_EQ(entries.applicationName({}, QStringLiteral("editor"), {}),
              QStringLiteral("My Editor"));
    EXPECT_FALSE(entries.applicationName({}, QStringLiteral("hidden"), QStringLiteral("hidden")));
    EXPECT_FALSE(entries.applicationName(QStringLiteral("unknown"), QStringLiteral("Unknown"),
                                         QStringLiteral("unknown")));
    EXPECT_FALSE(entries.applicationName({}, {}, {}));
}

TEST_F(DesktopEntriesTest, NamesAreLocalizedByFullLocaleThenLanguage) {
    const auto swiss = DesktopEntries::scan({system.path()}, QStringLiteral("de_CH"));
    EXPECT_EQ(swiss.applicationName({}, {}, QStringLiteral("konsole")),
              QStringLiteral("Konsole-CH"));
    EXPECT_EQ(swiss.applicationName(QStringLiteral("mousepad"), {}, {}),
              QStringLiteral("Mousepad-DE"));
    const auto german = DesktopEntries::scan({system.path()}, QStringLiteral("de_DE"));
    EXPECT_EQ(german.applicationName({}, {}, QStringLiteral("konsole")), QStringLiteral("Konsole"));
}
