// The portal trigger against KDE's own portal under a headless KWin (kde-portal-session.sh
// starts them): the binding the desktop grants, and the shortcut pressed and released on KWin's
// keyboard.
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <cstdio>
#include <gtest/gtest.h>

using platform::HotKeyEvent;
using platform::HotKeyEventKind;
using platform::wayland::PortalGlobalShortcuts;
namespace carbon = platform::carbonmodifiers;

namespace {

TEST(PortalKdeTest, GrantsThePreferredTriggerAndDeliversTypedKeys) {
    ASSERT_TRUE(PortalGlobalShortcuts::available(std::chrono::seconds(5)));
    PortalGlobalShortcuts port(QStringLiteral("app.mendwise.Mendwise"));
    QString granted;
    QString error;
    bool answered = false;
    QObject::connect(&port, &PortalGlobalShortcuts::bindingChanged,
                     [&](const QString& trigger, const QString& why) {
                         granted = trigger;
                         error = why;
                         answered = true;
                     });
    std::vector<HotKeyEvent> events;
    port.installEventHandler([&events](const HotKeyEvent& event) {
        events.push_back(event);
        return platform::osstatus::noErr;
    });
    port.addEventKinds({HotKeyEventKind::hotKeyPressed, HotKeyEventKind::hotKeyReleased});
    const platform::HotKeyID id{platform::fourCharCode("HKTS"), 1};
    platform::HotKeyRef ref;
    ASSERT_EQ(port.registerHotKey(38, carbon::command | carbon::shift, id, ref),
              platform::osstatus::noErr);
    ASSERT_TRUE(testutil::waitUntil([&answered] { return answered; }, std::chrono::seconds(20)));
    std::printf("granted \"%s\", error \"%s\"\n", qPrintable(granted), qPrintable(error));
    EXPECT_EQ(error, QString());
    EXPECT_EQ(granted, QStringLiteral("Ctrl+Shift+J")); // a fresh desktop takes what we prefer

    // Ctrl, Shift, J down, then up again (evdev codes), typed into KWin as by hand.
    const auto typed = testutil::ChildProcess::run(QStringLiteral(MENDWISE_KWIN_FAKE_KEYS),
                                                   {QStringLiteral("+29"), QStringLiteral("+42"),
                                                    QStringLiteral("+36"), QStringLiteral("-36"),
                                                    QStringLiteral("-42"), QStringLiteral("-29")});
    ASSERT_EQ(typed.exitCode, 0) << typed.err.toStdString();
    ASSERT_TRUE(
        testutil::waitUntil([&events] { return events.size() >= 2; }, std::chrono::seconds(10)));
    testutil::processEventsFor(std::chrono::milliseconds(200));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].kind, HotKeyEventKind::hotKeyPressed);
    EXPECT_EQ(events[1].kind, HotKeyEventKind::hotKeyReleased);
    for (const auto& event : events)
        EXPECT_EQ(event.hotKeyID, std::optional(id));
}

} // namespace
