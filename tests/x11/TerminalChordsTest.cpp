// Terminal emulators get their own copy and paste chords. The program running in each terminal
// dies on SIGINT and says so: a bare Ctrl+C would show.
#include "platform/x11/X11KeyboardEvents.h"
#include "platform/x11/X11Pasteboard.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "tests/x11/KeyboardChords.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace platform;
using namespace std::chrono_literals;

namespace {

class TerminalChordsTest : public ::testing::TestWithParam<x11test::Terminal> {
protected:
    x11::X11KeyboardEvents keyboard;
    x11::X11Pasteboard pasteboard;
    const QString report = QDir::home().filePath(QStringLiteral("sentinel-report.txt"));
};

} // namespace

TEST_P(TerminalChordsTest, CopyAndPasteUseTheTerminalsOwnChordsNeverCtrlC) {
    auto terminal = x11test::startTerminal(GetParam().command, report);
    ASSERT_NE(terminal, nullptr);
    const auto pid = static_cast<std::int32_t>(terminal->pid());

    // Select the word the sentinel printed on the first row, as a user would.
    x11test::selectFirstTerminalWord();
    // Terminals differ in what a double click takes; what they hold on PRIMARY is the selection.
    const QString selected =
        x11test::pastedElsewhere(QStringLiteral("primary")).value_or(QString());
    ASSERT_TRUE(selected.startsWith(QLatin1String("sentinelword"))) << selected.toStdString();
    pasteboard.clearContents();
    x11test::postChord(keyboard, x11test::keyC, eventflags::command, pid);
    EXPECT_TRUE(testutil::waitUntil([&] { return pasteboard.string() == selected; }))
        << pasteboard.string().value_or(QStringLiteral("<none>")).toStdString();

    // One line without its end: rxvt-unicode asks before pasting several lines.
    ASSERT_TRUE(pasteboard.setString(QStringLiteral("typed by the paste")));
    x11test::postChord(keyboard, x11test::keyV, eventflags::command, pid);
    x11test::xdotool({QStringLiteral("key"), QStringLiteral("Return")});
    EXPECT_TRUE(testutil::waitUntil([&] {
        return x11test::readFile(report).contains(QLatin1String("line:typed by the paste"));
    })) << x11test::readFile(report).toStdString();
    testutil::processEventsFor(200ms);
    EXPECT_FALSE(x11test::readFile(report).contains(QLatin1String("SIGINT")));
    EXPECT_TRUE(terminal->isRunning());

    // The control: a bare Ctrl+C does reach the program and ends it.
    x11test::xdotool({QStringLiteral("key"), QStringLiteral("ctrl+c")});
    EXPECT_TRUE(testutil::waitUntil(
        [&] { return x11test::readFile(report).contains(QLatin1String("SIGINT")); }));
}

INSTANTIATE_TEST_SUITE_P(Terminals, TerminalChordsTest,
                         ::testing::Values(x11test::xterm, x11test::st, x11test::urxvt),
                         [](const auto& param) { return std::string(param.param.name); });
