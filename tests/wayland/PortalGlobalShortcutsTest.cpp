// The portal trigger against a stand-in of the desktop portal (python3-dbusmock) on a private
// session bus: what is proposed, what is delivered, what the user reads when it is refused.
#include "platform/wayland/PortalGlobalShortcuts.h"

#include "tests/common/TestUtil.h"
#include "tests/wayland/PortalStandIn.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QWidget>
#include <gtest/gtest.h>

using platform::HotKeyEvent;
using platform::HotKeyEventKind;
using platform::HotKeyID;
using platform::wayland::PortalGlobalShortcuts;
namespace carbon = platform::carbonmodifiers;

namespace {

const HotKeyID triggerID{platform::fourCharCode("HKTS"), 1};
constexpr std::uint32_t keyJ = 38;
using portaltest::portalOnBus;

TEST(PortalTriggerSyntax, TranslatesKeysAndModifierRoles) {
    const struct {
        std::uint32_t key;
        std::uint32_t modifiers;
        std::optional<QString> trigger;
    } cases[] = {
        {keyJ, carbon::command | carbon::shift, QStringLiteral("CTRL+SHIFT+j")},
        {36, carbon::control | carbon::option, QStringLiteral("ALT+LOGO+Return")},
        {122, carbon::command | carbon::alphaLock, QStringLiteral("CTRL+F1")},
        {49, carbon::option, QStringLiteral("ALT+space")},
        {keyJ, carbon::command | carbon::function, std::nullopt},
        {0x7F, carbon::command, std::nullopt}, // no such key
    };
    for (const auto& c : cases)
        EXPECT_EQ(PortalGlobalShortcuts::preferredTrigger(c.key, c.modifiers), c.trigger) << c.key;
    EXPECT_EQ(PortalGlobalShortcuts::shortcutId(triggerID), QStringLiteral("HKTS-1"));
}

class PortalTest : public portaltest::PortalStandInTest {
protected:
    PortalTest() : PortalStandInTest(MENDWISE_PORTAL_TEMPLATE) {}
    void TearDown() override {
        port_.reset();
        PortalStandInTest::TearDown();
    }

    // The portal methods called so far, in order, with a leading string argument (the stand-in's
    // own controls count too).
    static QStringList portalCalls() {
        QStringList names;
        for (const auto& [time, name, args] :
             mockStructs<qulonglong, QString, QVariantList>(QStringLiteral("GetCalls")))
            names.append(name == QLatin1String("Register")
                             ? QString(name + u' ' + args.value(0).toString())
                             : name);
        return names;
    }

    // Registers Ctrl+Shift+J and waits for the desktop's answer.
    void registerTrigger() {
        port_ = std::make_unique<PortalGlobalShortcuts>(QStringLiteral("app.mendwise.Mendwise"));
        QObject::connect(port_.get(), &PortalGlobalShortcuts::bindingChanged,
                         [this](const QString& granted, const QString& error) {
                             answers_.append({granted, error});
                         });
        ASSERT_EQ(port_->registerHotKey(keyJ, carbon::command | carbon::shift, triggerID, ref_),
                  platform::osstatus::noErr);
        ASSERT_TRUE(testutil::waitUntil([this] { return !answers_.isEmpty(); }));
    }

    std::unique_ptr<PortalGlobalShortcuts> port_;
    platform::HotKeyRef ref_;
    QList<QPair<QString, QString>> answers_;
};

TEST_F(PortalTest, BindsThePreferredTriggerAndFollowsARebind) {
    EXPECT_TRUE(PortalGlobalShortcuts::available());

    // A newer portal learns our app id from its host registry, before anything else.
    mock(QStringLiteral("AddMethod"),
         {QStringLiteral("org.freedesktop.host.portal.Registry"), QStringLiteral("Register"),
          QStringLiteral("sa{sv}"), QString(), QString()});
    registerTrigger();
    EXPECT_EQ(portalCalls(),
              QStringList({QStringLiteral("Register app.mendwise.Mendwise"),
                           QStringLiteral("CreateSession"), QStringLiteral("BindShortcuts")}));
    // The stand-in grants what was preferred, so this is the trigger we proposed.
    ASSERT_EQ(answers_.size(), 1);
    EXPECT_EQ(answers_[0], qMakePair(QStringLiteral("CTRL+SHIFT+j"), QString()));

    // The user picks other keys in the desktop's settings.
    mock(QStringLiteral("Rebind"),
         {PortalGlobalShortcuts::shortcutId(triggerID), QStringLiteral("Ctrl+Alt+M")});
    ASSERT_TRUE(testutil::waitUntil([this] { return answers_.size() == 2; }));
    EXPECT_EQ(answers_[1], qMakePair(QStringLiteral("Ctrl+Alt+M"), QString()));
    // Press, release and withdrawal are checked against KDE's own portal (PortalKdeTest).
}

TEST_F(PortalTest, RefusedBindReachesTheUser) {
    mock(QStringLiteral("SetBindResponse"), {1U});
    registerTrigger();
    EXPECT_EQ(answers_.value(0), qMakePair(QString(), PortalGlobalShortcuts::refusedText));
}

TEST(PortalAbsentTest, SaysThereAreNoGlobalShortcuts) {
    ASSERT_TRUE(portalOnBus(false));
    QElapsedTimer probe;
    probe.start();
    EXPECT_FALSE(PortalGlobalShortcuts::available());
    EXPECT_LT(probe.elapsed(), 300);

    PortalGlobalShortcuts port(QStringLiteral("app.mendwise.Mendwise"));
    QString error;
    QObject::connect(&port, &PortalGlobalShortcuts::bindingChanged,
                     [&error](const QString&, const QString& why) { error = why; });
    platform::HotKeyRef ref;
    ASSERT_EQ(port.registerHotKey(keyJ, carbon::command | carbon::shift, triggerID, ref),
              platform::osstatus::noErr);
    ASSERT_TRUE(testutil::waitUntil([&error] { return !error.isEmpty(); }));
    EXPECT_EQ(error, PortalGlobalShortcuts::unavailableText);
}

// With a menu open the registry matches the application's own key events; a press it takes
// must not reach the window, and neither must its release.
TEST(PortalRawKeysTest, TakenKeysDoNotReachTheWindow) {
    PortalGlobalShortcuts port(QStringLiteral("app.mendwise.Mendwise"));
    std::vector<HotKeyEvent> events;
    port.installEventHandler([&events](const HotKeyEvent& event) {
        events.push_back(event);
        return event.keyCode == keyJ ? platform::osstatus::noErr
                                     : platform::osstatus::eventNotHandledErr;
    });
    port.addEventKinds({HotKeyEventKind::rawKeyDown, HotKeyEventKind::rawKeyUp});
    QWidget window;
    const auto send = [&window](QEvent::Type type, int key) {
        QKeyEvent event(type, key, Qt::ControlModifier | Qt::ShiftModifier);
        return QCoreApplication::sendEvent(&window, &event) && event.isAccepted();
    };
    EXPECT_TRUE(send(QEvent::KeyPress, Qt::Key_J));
    EXPECT_TRUE(send(QEvent::KeyRelease, Qt::Key_J));
    EXPECT_FALSE(send(QEvent::KeyPress, Qt::Key_K)); // not taken: QWidget ignores it
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].kind, HotKeyEventKind::rawKeyDown);
    EXPECT_EQ(events[1].kind, HotKeyEventKind::rawKeyUp);
    EXPECT_EQ(events[0].modifiers, std::optional(carbon::command | carbon::shift));

    port.removeEventKinds({HotKeyEventKind::rawKeyDown, HotKeyEventKind::rawKeyUp});
    send(QEvent::KeyPress, Qt::Key_J);
    EXPECT_EQ(events.size(), 3U);
}

} // namespace
