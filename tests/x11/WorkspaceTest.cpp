// The frontmost application, the desktop's opener, the screens and the mouse.
#include "platform/freedesktop/QtScreens.h"
#include "platform/x11/X11Workspace.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "tests/x11/GeometryPrinters.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using namespace platform;
using x11::X11Workspace;

// The class names the application, unless a desktop entry matches it (mousepad and xterm come
// with theirs; a user's entry, read when the workspace is made, counts too).
TEST(Workspace, FrontmostApplicationsComeWithPidClassAndNameOrNoneAtAll) {
    const QString report = QDir::home().filePath(QStringLiteral("workspace-sentinel.txt"));
    const std::pair<std::function<std::unique_ptr<x11test::App>()>, QString> cases[] = {
        {[] { return x11test::startMousepad(QStringLiteral("text")); }, QStringLiteral("Mousepad")},
        {[&] { return x11test::startTerminal(QStringLiteral("xterm -e"), report); },
         QStringLiteral("XTerm")},
        {[] { return x11test::startQtTextApp(QStringLiteral("text"), 0, 0); },
         QStringLiteral("mendwise_qt_text_app")},
    };
    std::unique_ptr<x11test::App> started;
    for (const auto& [start, name] : cases) {
        started = start();
        ASSERT_NE(started, nullptr) << name.toStdString();
        const auto app = X11Workspace().frontmostApplication();
        ASSERT_TRUE(app);
        EXPECT_EQ(app->processIdentifier, started->pid());
        EXPECT_EQ(app->bundleIdentifier, name);
        EXPECT_EQ(app->localizedName, name);
    }
    ASSERT_TRUE(
        x11test::writeFile(qEnvironmentVariable("XDG_DATA_HOME") +
                               QStringLiteral("/applications/mendwise-editor.desktop"),
                           "[Desktop Entry]\nType=Application\nName=Plain Editor\nExec=true\n"
                           "StartupWMClass=mendwise_qt_text_app\n"));
    const auto named = X11Workspace().frontmostApplication();
    ASSERT_TRUE(named);
    EXPECT_EQ(named->localizedName, QStringLiteral("Plain Editor"));

    // This test program shows no window of its own; with every app gone nothing is active.
    started.reset();
    ASSERT_TRUE(testutil::waitUntil([] { return x11test::activeWindowPid() == -1; }, 5s));
    EXPECT_EQ(X11Workspace().frontmostApplication(), std::nullopt);
}

TEST(Workspace, UrlsAndFoldersGoToTheOpenerWithoutWaitingForIt) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString log = dir.filePath(QStringLiteral("opened.txt"));
    const QString opener = dir.filePath(QStringLiteral("opener"));
    // A slow opener: the calls must come back long before it is done.
    ASSERT_TRUE(x11test::writeFile(
        opener,
        QStringLiteral("#!/bin/sh\nsleep 1\nprintf '%s\\n' \"$*\" >> '%1'\n").arg(log).toUtf8(),
        true));
    X11Workspace workspace(opener);

    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(
        workspace.openURL(QUrl(QStringLiteral("https://console.anthropic.com/settings/keys"))));
    EXPECT_TRUE(workspace.openFolder(dir.path()));
    EXPECT_LT(timer.elapsed(), 900);
    EXPECT_FALSE(workspace.openURL(QUrl()));
    EXPECT_FALSE(workspace.openURL(QUrl(QStringLiteral("http://[::1"))));
    EXPECT_FALSE(workspace.openFolder(dir.filePath(QStringLiteral("missing"))));
    EXPECT_FALSE(workspace.openFolder(opener)); // a file, not a folder
    EXPECT_FALSE(X11Workspace(dir.filePath(QStringLiteral("no-such-opener")))
                     .openURL(QUrl(QStringLiteral("https://example.com"))));

    ASSERT_TRUE(testutil::waitUntil([&] { return x11test::readFile(log).count(u'\n') == 2; }, 5s));
    const QStringList opened = x11test::readFile(log).split(u'\n', Qt::SkipEmptyParts);
    EXPECT_TRUE(opened.contains(QStringLiteral("https://console.anthropic.com/settings/keys")));
    EXPECT_TRUE(opened.contains(QUrl::fromLocalFile(dir.path()).toString()));
}

// Screens and the mouse, in global bottom-left coordinates, on the 1440x900 test screen.
TEST(Screens, TheTestScreenInGlobalCoordinates) {
    freedesktop::QtScreens screens;
    const auto all = screens.screens();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].frame, (Rect{0, 0, 1440, 900}));
    const Rect visible = all[0].visibleFrame;
    EXPECT_GE(visible.minX(), 0);
    EXPECT_GE(visible.minY(), 0);
    EXPECT_LE(visible.maxX(), 1440);
    EXPECT_LE(visible.maxY(), 900);
    EXPECT_GT(visible.width * visible.height, 0);
    EXPECT_EQ(screens.mainScreen(), all[0]);
}

TEST(Screens, TheMouseIsMeasuredFromTheBottom) {
    freedesktop::QtScreens screens;
    x11test::xdotool(QStringLiteral("mousemove 100 200"));
    EXPECT_TRUE(testutil::waitUntil([&] {
        return screens.mouseLocation() == Point{100, 700};
    })) << screens.mouseLocation().x
        << "," << screens.mouseLocation().y;

    // From another thread the answer is fetched from the GUI thread.
    x11test::xdotool(QStringLiteral("mousemove 1439 0"));
    EXPECT_EQ(x11test::offMainThread([&] { return screens.mouseLocation(); }), (Point{1439, 900}));
    EXPECT_EQ(x11test::offMainThread([&] { return screens.screens(); }), screens.screens());
}
