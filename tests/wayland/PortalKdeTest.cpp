// The portal trigger against KDE's own portal under a headless KWin (kde-portal-session.sh
// starts them): the binding the desktop grants, a new binding when the user records another
// shortcut, and the shortcut pressed and released on KWin's keyboard.
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

using platform::HotKeyEvent;
using platform::HotKeyEventKind;
using platform::HotKeyID;
using platform::wayland::PortalGlobalShortcuts;
namespace carbon = platform::carbonmodifiers;

namespace {

// Ctrl and Shift down, the key down and up, then Shift and Ctrl up, typed into KWin as by hand.
void typeCtrlShift(int evdevKey) {
    const QString key = QString::number(evdevKey);
    const auto typed = testutil::ChildProcess::run(QStringLiteral(MENDWISE_KWIN_FAKE_KEYS),
                                                   {QStringLiteral("+29"), QStringLiteral("+42"),
                                                    QLatin1Char('+') + key, QLatin1Char('-') + key,
                                                    QStringLiteral("-42"), QStringLiteral("-29")});
    ASSERT_EQ(typed.exitCode, 0) << typed.err.toStdString();
    testutil::processEventsFor(std::chrono::milliseconds(500));
}

TEST(PortalKdeTest, GrantsThePreferredTriggerAndDeliversTypedKeys) {
    ASSERT_TRUE(PortalGlobalShortcuts::available(std::chrono::seconds(5)));
    PortalGlobalShortcuts port(QStringLiteral("app.mendwise.Mendwise"));
    QList<QPair<QString, QString>> answers;
    QObject::connect(&port, &PortalGlobalShortcuts::bindingChanged,
                     [&answers](const QString& trigger, const QString& error) {
                         answers.append({trigger, error});
                     });
    std::vector<HotKeyEvent> events;
    port.installEventHandler([&events](const HotKeyEvent& event) {
        events.push_back(event);
        return platform::osstatus::noErr;
    });
    port.addEventKinds({HotKeyEventKind::hotKeyPressed, HotKeyEventKind::hotKeyReleased});

    // Ctrl+Shift+J under id 1; then, as after recording Ctrl+Shift+K, that under id 2.
    const struct {
        HotKeyID id;
        std::uint32_t virtualKey;
        int evdevKey;
        QString granted;
    } steps[] = {{{platform::fourCharCode("HKTS"), 1}, 38, 36, QStringLiteral("Ctrl+Shift+J")},
                 {{platform::fourCharCode("HKTS"), 2}, 40, 37, QStringLiteral("Ctrl+Shift+K")}};
    platform::HotKeyRef ref;
    for (const auto& step : steps) {
        if (ref) {
            ASSERT_EQ(port.unregisterHotKey(ref), platform::osstatus::noErr);
        }
        answers.clear();
        events.clear();
        ASSERT_EQ(
            port.registerHotKey(step.virtualKey, carbon::command | carbon::shift, step.id, ref),
            platform::osstatus::noErr);
        ASSERT_TRUE(testutil::waitUntil([&answers] { return !answers.isEmpty(); },
                                        std::chrono::seconds(20)));
        // A fresh desktop takes the trigger we prefer.
        EXPECT_EQ(answers.value(0), qMakePair(step.granted, QString()));

        typeCtrlShift(step.evdevKey);
        ASSERT_EQ(events.size(), 2U) << qPrintable(step.granted);
        EXPECT_EQ(events[0].kind, HotKeyEventKind::hotKeyPressed);
        EXPECT_EQ(events[1].kind, HotKeyEventKind::hotKeyReleased);
        for (const auto& event : events)
            EXPECT_EQ(event.hotKeyID, std::optional(step.id));
    }
    // The first shortcut is gone with its registration.
    events.clear();
    typeCtrlShift(steps[0].evdevKey);
    EXPECT_TRUE(events.empty());
}

} // namespace
