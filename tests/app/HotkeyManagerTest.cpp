// The trigger binding over the simulated hot keys.
#include "app/HotkeyManager.h"

#include "hotkeys/Testing.h"
#include "platform/sim/SimHotKeys.h"
#include "platform/sim/SimKeyboardLayout.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"

#include <QSettings>
#include <gtest/gtest.h>

using platform::RunningApplication;

namespace {

// The application in front, as the test sets it.
class FrontmostWorkspace final : public platform::WorkspacePort {
public:
    std::optional<RunningApplication> frontmostApplication() override { return frontmost; }
    bool openURL(const QUrl&) override { return false; }
    bool openFolder(const QString&) override { return false; }

    std::optional<RunningApplication> frontmost;
};

const RunningApplication editor{4242, QStringLiteral("org.example.Editor"),
                                QStringLiteral("Editor")};

class HotkeyManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        settings.clear();
        Hotkeys::resetStateForTesting(
            {hotKeys, std::make_shared<platform::sim::SimKeyboardLayout>()});
    }
    void TearDown() override {
        Hotkeys::resetStateForTesting({});
        settings.clear();
    }

    // Cmd+Shift+J: key 38, Carbon Command + Shift.
    void pressAndRelease() {
        hotKeys->press(38, 768);
        hotKeys->release(38, 768);
    }

    QSettings settings{QStringLiteral("Mendwise"), QStringLiteral("Mendwise")};
    std::shared_ptr<platform::sim::SimHotKeys> hotKeys =
        std::make_shared<platform::sim::SimHotKeys>();
    std::shared_ptr<FrontmostWorkspace> workspace = std::make_shared<FrontmostWorkspace>();
};

} // namespace

TEST_F(HotkeyManagerTest, RegisteringStoresTheDefaultAndBindsTheRelease) {
    support::LogCapture log;
    HotkeyManager manager(workspace);
    manager.registerCallback([](auto) {});
    EXPECT_EQ(log.records(), QStringList{QStringLiteral(
                                 "[HotkeyManager] Registered shortcut using Hotkeys library")});
    EXPECT_EQ(settings.value(QStringLiteral("Hotkeys_triggerMendwise")).toString(),
              QStringLiteral(R"({"carbonKeyCode":38,"carbonModifiers":768})"));
    EXPECT_TRUE(hotKeys->isRegistered(38, 768));
}

TEST_F(HotkeyManagerTest, ReleaseHandsTheFrontmostApplicationOverInALaterTurn) {
    workspace->frontmost = editor;
    HotkeyManager manager(workspace);
    QList<std::optional<RunningApplication>> received;
    manager.registerCallback([&](auto application) { received.append(application); });

    support::LogCapture log;
    hotKeys->press(38, 768);
    EXPECT_TRUE(log.records().isEmpty()); // the press does not fire
    hotKeys->release(38, 768);
    EXPECT_EQ(log.records(),
              QStringList{QStringLiteral("[HotkeyManager] ⌨️  Hotkey fired\n"
                                         "  - Thread: main\n"
                                         "  - Frontmost app bundle: org.example.Editor\n"
                                         "  - Frontmost app name:   Editor")});
    EXPECT_TRUE(received.isEmpty()); // not in the hot key's own turn
    ASSERT_TRUE(testutil::waitUntil([&] { return !received.isEmpty(); }));
    testutil::processEventsFor(std::chrono::milliseconds(20));
    EXPECT_EQ(received, (QList<std::optional<RunningApplication>>{editor}));
}

TEST_F(HotkeyManagerTest, NoFrontmostApplicationShowsNil) {
    workspace->frontmost = RunningApplication{7, std::nullopt, std::nullopt};
    HotkeyManager manager(workspace);
    QList<std::optional<RunningApplication>> received;
    manager.registerCallback([&](auto application) { received.append(application); });
    support::LogCapture log;
    pressAndRelease();
    workspace->frontmost.reset();
    pressAndRelease();
    ASSERT_EQ(log.records().size(), 2);
    for (const QString& record : log.records()) {
        EXPECT_TRUE(record.endsWith(QStringLiteral("  - Frontmost app bundle: nil\n"
                                                   "  - Frontmost app name:   nil")))
            << record.toStdString();
    }
    ASSERT_TRUE(testutil::waitUntil([&] { return received.size() == 2; }));
    EXPECT_EQ(received[0], (RunningApplication{7, std::nullopt, std::nullopt}));
    EXPECT_EQ(received[1], std::nullopt);
}

TEST_F(HotkeyManagerTest, TheBindingFollowsARecordedShortcut) {
    HotkeyManager manager(workspace);
    int fired = 0;
    manager.registerCallback([&](auto) { ++fired; });
    Hotkeys::setShortcut(Hotkeys::Shortcut(Hotkeys::Key::k, Hotkeys::eventflags::command),
                         Hotkeys::triggerMendwise());
    EXPECT_EQ(hotKeys->release(38, 768), std::nullopt);
    hotKeys->release(40, 256);
    ASSERT_TRUE(testutil::waitUntil([&] { return fired == 1; }));

    // A later launch keeps the recorded shortcut.
    Hotkeys::resetStateForTesting({hotKeys, nullptr});
    HotkeyManager next(workspace);
    next.registerCallback([&](auto) { ++fired; });
    EXPECT_TRUE(hotKeys->isRegistered(40, 256));
    EXPECT_FALSE(hotKeys->isRegistered(38, 768));
}

TEST_F(HotkeyManagerTest, DestructionReleasesTheBindingAndQueuedCallsDoNothing) {
    int fired = 0;
    {
        HotkeyManager manager(workspace);
        manager.registerCallback([&](auto) { ++fired; });
        hotKeys->release(38, 768); // queued, then the manager goes
    }
    EXPECT_FALSE(hotKeys->isRegistered(38, 768));
    EXPECT_TRUE(Hotkeys::shortcut(Hotkeys::triggerMendwise()).has_value());
    testutil::processEventsFor(std::chrono::milliseconds(20));
    EXPECT_EQ(fired, 0);

    // An emptied callback: the diagnostic is printed, nothing is called.
    HotkeyManager manager(workspace);
    manager.registerCallback([&](auto) { ++fired; });
    manager.callback = nullptr;
    support::LogCapture log;
    pressAndRelease();
    testutil::processEventsFor(std::chrono::milliseconds(20));
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(fired, 0);
}
