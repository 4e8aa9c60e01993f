// The frontmost application and the desktop's opener.
#include "platform/x11/X11Workspace.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using platform::x11::X11Workspace;

TEST(Workspace, FrontmostApplicationsComeWithPidClassAndName) {
    const std::pair<std::function<std::unique_ptr<x11test::App>()>, QString> cases[] = {
        {[] { return x11test::startMousepad(QStringLiteral("text")); }, QStringLiteral("Mousepad")},
        {[] {
             return x11test::startTerminal(
                 QStringLiteral("xterm -e"),
                 QDir::home().filePath(QStringLiteral("workspace-sentinel.txt")));
         },
         QStringLiteral("XTerm")},
    };
    for (const auto& [start, name] : cases) {
        const auto started = start();
        ASSERT_NE(started, nullptr) << name.toStdString();
        const auto app = X11Workspace().frontmostApplication();
        ASSERT_TRUE(app);
        EXPECT_EQ(app->processIdentifier, started->pid());
        EXPECT_EQ(app->bundleIdentifier, name);
        EXPECT_EQ(app->localizedName, name);
    }
}

TEST(Workspace, TheNameComesFromTheDesktopEntryElseTheClass) {
    auto editor = x11test::startQtTextApp(QStringLiteral("text"), 0, 0);
    ASSERT_NE(editor, nullptr);
    const auto plain = X11Workspace().frontmostApplication();
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->processIdentifier, editor->pid());
    ASSERT_TRUE(plain->bundleIdentifier);
    // Without a desktop entry the class stands in for the name.
    EXPECT_EQ(plain->localizedName, plain->bundleIdentifier);

    // An entry installed for the user names it (read when the workspace is made).
    ASSERT_TRUE(x11test::writeFile(
        qEnvironmentVariable("XDG_DATA_HOME") +
            QStringLiteral("/applications/mendwise-editor.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Plain Editor\nExec=true\n"
                       "StartupWMClass=%1\n")
            .arg(*plain->bundleIdentifier)
            .toUtf8()));
    const auto named = X11Workspace().frontmostApplication();
    ASSERT_TRUE(named);
    EXPECT_EQ(named->localizedName, QStringLiteral("Plain Editor"));
    EXPECT_EQ(named->bundleIdentifier, plain->bundleIdentifier);
}

TEST(Workspace, NoActiveWindowMeansNoFrontmostApplication) {
    // This test program shows no window of its own; with every app gone nothing is active.
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
