// The trigger binding over the simulated hot keys.
#include "app/HotkeyManager.h"

#include "platform/sim/SimDesktop.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"
#include "tests/hotkeys/HotkeysFixture.h"

#include <gtest/gtest.h>

using platform::RunningApplication;

namespace {

const RunningApplication editor{4242, QStringLiteral("org.example.Editor"),
                                QStringLiteral("Editor")};

class HotkeyManagerTest : public HotkeysTest {
protected:
    std::shared_ptr<platform::sim::SimDesktop> workspace =
        std::make_shared<platform::sim::SimDesktop>();
};

} // namespace

// The release (not the press) logs and hands over the application in front, or none, in a later
// turn of the main loop.
TEST_F(HotkeyManagerTest, ReleaseHandsTheFrontmostApplicationOverInALaterTurn) {
    HotkeyManager manager(workspace);
    QList<std::optional<RunningApplication>> received;
    manager.registerCallback([&](auto application) { received.append(application); });
    const QString fired =
        QStringLiteral("[HotkeyManager] ⌨️  Hotkey fired\n  - Thread: main\n");
    const std::optional<RunningApplication> fronts[] = {
        editor, RunningApplication{7, std::nullopt, std::nullopt}, std::nullopt};
    for (const auto& front : fronts) {
        if (front)
            workspace->addApplication(*front);
        workspace->setFrontmost(front ? std::optional(front->processIdentifier) : std::nullopt);
        received.clear();
        support::LogCapture log;
        hotKeys->press(38, 768);
        EXPECT_TRUE(log.records().isEmpty());
        hotKeys->release(38, 768);
        EXPECT_EQ(log.records(),
                  QStringList{fired + (front && front->bundleIdentifier
                                           ? QStringLiteral("  - Frontmost app bundle: "
                                                            "org.example.Editor\n"
                                                            "  - Frontmost app name:   Editor")
                                           : QStringLiteral("  - Frontmost app bundle: nil\n"
                                                            "  - Frontmost app name:   nil"))});
        EXPECT_TRUE(received.isEmpty()); // not in the hot key's own turn
        ASSERT_TRUE(testutil::waitUntil([&] { return !received.isEmpty(); }));
        testutil::processEventsFor(std::chrono::milliseconds(20));
        EXPECT_EQ(received, (QList<std::optional<RunningApplication>>{front}));
    }
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
    hotKeys->press(38, 768);
    hotKeys->release(38, 768);
    testutil::processEventsFor(std::chrono::milliseconds(20));
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(fired, 0);
}
