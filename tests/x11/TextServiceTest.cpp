// The text service on the real desktop: mousepad (GTK 3), the Qt text editor and terminals,
// read through accessibility or a synthetic copy, pasted over, and the clipboard kept.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "platform/freedesktop/QtScreens.h"
#include "platform/x11/X11KeyboardEvents.h"
#include "platform/x11/X11Pasteboard.h"
#include "platform/x11/X11Workspace.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "tests/x11/GeometryPrinters.h"
#include "text/BoundedAnchor.h"
#include "text/TextSelectionError.h"
#include "text/TextSelectionService.h"

#include <QDir>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <csignal>
#include <gtest/gtest.h>

using namespace platform;
using namespace std::chrono_literals;

namespace {

const QString sampleText = QStringLiteral("The quick brown fox jumps over the lazy dog");

class TextServiceTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(accessibility.setAccessibilityEnabled(true)); }

    QString copySelection() {
        return x11test::offMainThread([this] {
            return service.copySelectedText(workspace.frontmostApplication(), std::stop_token());
        });
    }

    freedesktop::AtspiAccessibility accessibility;
    x11::X11Pasteboard pasteboard;
    x11::X11KeyboardEvents keyboard;
    x11::X11Workspace workspace;
    freedesktop::QtScreens screens;
    TextSelectionService service{accessibility, pasteboard, keyboard, workspace};
};

} // namespace

// Where the anchor stands is checked in every application by the apps matrix; here, asked from
// the GUI thread with a bound: the same answer, and a hung application costs the bound and no more.
TEST_F(TextServiceTest, TheBoundedAnchorGivesUpOnAHungApplication) {
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    const auto pid = static_cast<std::int32_t>(editor->pid());
    const auto sharedAccessibility = std::make_shared<freedesktop::AtspiAccessibility>();
    const auto sharedScreens = std::make_shared<freedesktop::QtScreens>();
    const auto within = [&](std::chrono::milliseconds bound) {
        return selectionAnchorBefore(std::chrono::steady_clock::now() + bound, pid,
                                     sharedAccessibility, sharedScreens);
    };
    const auto anchor = TextSelectionService::selectionAnchor(pid, accessibility, screens);
    ASSERT_TRUE(anchor);
    EXPECT_EQ(within(2s), anchor);
    ASSERT_EQ(::kill(static_cast<pid_t>(pid), SIGSTOP), 0);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(within(100ms), std::nullopt);
    EXPECT_LT(timer.elapsed(), 150);
    ::kill(static_cast<pid_t>(pid), SIGCONT);
}

TEST_F(TextServiceTest, WithoutAccessibilityTheSelectionIsCopiedWithAKeystroke) {
    ASSERT_TRUE(accessibility.setAccessibilityEnabled(false));
    auto mousepad = x11test::startMousepad(sampleText);
    ASSERT_NE(mousepad, nullptr);
    x11test::selectWithKeys(4, 11);
    support::LogCapture log;
    EXPECT_EQ(copySelection(), QStringLiteral("quick brown"));
    // The chord goes to the editor in front (the log texts are checked by the unit tests).
    EXPECT_GE(log.indexOf(QStringLiteral(
                              "[TextSelectionService] ⌨️ Posting Cmd+C via CGEvent to PID ") +
                          QString::number(mousepad->pid()) + QStringLiteral("...")),
              0);
}

// A copy that finds nothing selected puts the user's clipboard back; a clipboard manager that
// refills an emptied clipboard is not taken for the selection either.
TEST_F(TextServiceTest, AFailedCopyPutsTheUsersClipboardBackAndARefillIsNoSelection) {
    ASSERT_TRUE(accessibility.setAccessibilityEnabled(false));
    auto empty = x11test::startQtTextApp(sampleText, 4, 0); // nothing selected
    ASSERT_NE(empty, nullptr);
    ASSERT_TRUE(pasteboard.setString(QStringLiteral("the user's clipboard")));
    try {
        copySelection();
        ADD_FAILURE() << "a copy without a selection succeeded";
    } catch (const TextSelectionError& error) {
        EXPECT_EQ(error.errorCase(), TextSelectionError::noTextSelected);
    }
    EXPECT_EQ(pasteboard.string(), QStringLiteral("the user's clipboard"));
    EXPECT_EQ(x11test::pastedElsewhere(), QStringLiteral("the user's clipboard"));

    // parcellite, told to put its last entry back whenever the clipboard is emptied.
    ASSERT_TRUE(
        x11test::writeFile(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                               QStringLiteral("/parcellite/parcelliterc"),
                           "[rc]\nrestore_empty=true\n"));
    x11test::App manager(QStringLiteral("parcellite"), {});
    const QString old = QStringLiteral("the user's old clipboard");
    // It polls the clipboard, and a loaded machine starts it slowly: offer the entry until it
    // has taken it into its history.
    const auto refilled = [&] {
        EXPECT_TRUE(pasteboard.setString(old));
        testutil::processEventsFor(2s);
        pasteboard.clearContents();
        return testutil::waitUntil([&] { return pasteboard.string() == old; }, 3s);
    };
    ASSERT_TRUE(refilled() || refilled() || refilled())
        << "parcellite never refilled the clipboard";
    EXPECT_THROW(copySelection(), TextSelectionError);
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    EXPECT_EQ(copySelection(), QStringLiteral("quick brown"));
}

// Terminal emulators get their own copy and paste chords, never a bare Ctrl+C: the program
// running in each dies on SIGINT and says so.
class TerminalTextServiceTest : public TextServiceTest,
                                public ::testing::WithParamInterface<const char*> {};

TEST_P(TerminalTextServiceTest, CopyAndPasteUseTheTerminalsOwnChordsNeverCtrlC) {
    const QString report = QDir::home().filePath(QStringLiteral("service-sentinel.txt"));
    auto terminal = x11test::startTerminal(QString::fromLatin1(GetParam()), report);
    ASSERT_NE(terminal, nullptr);
    x11test::selectFirstTerminalWord();
    // Terminals differ in what a double click takes; what they hold on PRIMARY is the selection.
    const QString selected =
        x11test::pastedElsewhere(QStringLiteral("primary")).value_or(QString());
    ASSERT_TRUE(selected.startsWith(QLatin1String("sentinelword"))) << selected.toStdString();
    EXPECT_EQ(copySelection(), selected);

    // One line without its end: rxvt-unicode asks before pasting several lines.
    x11test::offMainThread([&] {
        service.pasteText(QStringLiteral("pasted by the service"), std::stop_token());
        return true;
    });
    x11test::xdotool(QStringLiteral("key Return"));
    EXPECT_TRUE(testutil::waitUntil([&] {
        return x11test::readFile(report).contains(QLatin1String("line:pasted by the service"));
    })) << x11test::readFile(report).toStdString();
    testutil::processEventsFor(200ms);
    EXPECT_FALSE(x11test::readFile(report).contains(QLatin1String("SIGINT")));
    EXPECT_EQ(x11test::activeWindowPid(), terminal->pid()); // still there

    // The control: a bare Ctrl+C does reach the program and ends it.
    x11test::xdotool(QStringLiteral("key ctrl+c"));
    EXPECT_TRUE(testutil::waitUntil(
        [&] { return x11test::readFile(report).contains(QLatin1String("SIGINT")); }));
}

INSTANTIATE_TEST_SUITE_P(
    Terminals, TerminalTextServiceTest,
    ::testing::Values("xterm -geometry 80x10+0+0 -e", "stterm -g 80x10+0+0 -e",
                      "urxvt -geometry 80x10+0+0 -e"),
    [](const auto& param) {
        return QString::fromLatin1(param.param).section(u' ', 0, 0).toStdString();
    });
