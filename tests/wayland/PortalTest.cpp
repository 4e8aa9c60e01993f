// The portal trigger and the portal keystrokes against stand-ins of the desktop portal
// (python3-dbusmock with the templates here) on a private session bus that starts nothing by
// itself: what is proposed, delivered and typed, what is remembered across starts, and what the
// user reads when the portal refuses or is missing.
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "platform/wayland/PortalRemoteDesktop.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QWidget>
#include <future>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

using platform::HotKeyEvent;
using platform::HotKeyEventKind;
using platform::HotKeyID;
using platform::wayland::PortalGlobalShortcuts;
using platform::wayland::PortalRemoteDesktop;
using State = platform::wayland::KeystrokeChannel::State;
namespace carbon = platform::carbonmodifiers;

namespace {

const QString portalName = QStringLiteral("org.freedesktop.portal.Desktop");

// Waits until the portal is on the bus (or gone from it); whether that came.
bool portalOnBus(bool expected) {
    return testutil::waitUntil([expected] {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(portalName) ==
               expected;
    });
}

// A portal stand-in with the given template, started before each test and ended after it.
class PortalStandInTest : public ::testing::Test {
protected:
    explicit PortalStandInTest(const char* dbusmockTemplate)
        : portal_(QStringLiteral("/usr/bin/python3"),
                  {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("-l"),
                   QStringLiteral("/dev/null"), QStringLiteral("--template"),
                   QString::fromUtf8(dbusmockTemplate)}) {}

    void SetUp() override {
        ASSERT_TRUE(portal_.started());
        ASSERT_TRUE(portalOnBus(true)) << "the portal stand-in did not start";
    }
    void TearDown() override {
        portal_.finish({}, std::chrono::milliseconds(1));
        portalOnBus(false);
    }

    // Calls a method of the stand-in's own control interface.
    static QDBusMessage mock(const QString& method, const QVariantList& arguments = {}) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            portalName, QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.freedesktop.DBus.Mock"), method);
        call.setArguments(arguments);
        QDBusMessage reply = QDBusConnection::sessionBus().call(call);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply;
    }

    // The array of structures a method of the stand-in's control interface answers.
    template <typename... Fields>
    static std::vector<std::tuple<Fields...>> mockStructs(const QString& method) {
        const auto array = mock(method).arguments().value(0).value<QDBusArgument>();
        std::vector<std::tuple<Fields...>> rows;
        array.beginArray();
        while (!array.atEnd()) {
            std::tuple<Fields...> row;
            array.beginStructure();
            std::apply([&array](auto&... field) { (array >> ... >> field); }, row);
            array.endStructure();
            rows.push_back(row);
        }
        array.endArray();
        return rows;
    }

private:
    testutil::ChildProcess portal_;
};

const HotKeyID triggerID{platform::fourCharCode("HKTS"), 1};
constexpr std::uint32_t keyJ = 38;

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

// Registers Ctrl+Shift+J with `port` and waits for the desktop's first answer; its answers
// (the trigger granted, the error) collect in `answers`.
void registerTrigger(PortalGlobalShortcuts& port, QList<QPair<QString, QString>>& answers) {
    QObject::connect(&port, &PortalGlobalShortcuts::bindingChanged,
                     [&answers](const QString& granted, const QString& error) {
                         answers.append({granted, error});
                     });
    platform::HotKeyRef ref;
    ASSERT_EQ(port.registerHotKey(keyJ, carbon::command | carbon::shift, triggerID, ref),
              platform::osstatus::noErr);
    ASSERT_TRUE(testutil::waitUntil([&answers] { return !answers.isEmpty(); }));
}

class PortalTest : public PortalStandInTest {
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

    std::unique_ptr<PortalGlobalShortcuts> port_;
    QList<QPair<QString, QString>> answers_;
};

TEST_F(PortalTest, BindsThePreferredTriggerAndFollowsARebind) {
    EXPECT_TRUE(PortalGlobalShortcuts::available());

    // A newer portal learns our app id from its host registry, before anything else.
    mock(QStringLiteral("AddMethod"),
         {QStringLiteral("org.freedesktop.host.portal.Registry"), QStringLiteral("Register"),
          QStringLiteral("sa{sv}"), QString(), QString()});
    port_ = std::make_unique<PortalGlobalShortcuts>(QStringLiteral("app.mendwise.Mendwise"));
    registerTrigger(*port_, answers_);
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
    port_ = std::make_unique<PortalGlobalShortcuts>(QStringLiteral("app.mendwise.Mendwise"));
    registerTrigger(*port_, answers_);
    EXPECT_EQ(answers_.value(0), qMakePair(QString(), PortalGlobalShortcuts::refusedText));
}

// Keystrokes through the RemoteDesktop portal's stand-in.
constexpr std::uint32_t keyLeftCtrl = 29;
constexpr std::uint32_t keyC = 46;

// prepare() from a background thread, as the fixing code calls it, while this (GUI) thread
// runs the event loop that does the portal's work.
State prepareOffThread(PortalRemoteDesktop& channel, int timeoutMs) {
    auto state = std::async(std::launch::async, [&] { return channel.prepare(timeoutMs); });
    testutil::waitUntil(
        [&] { return state.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
        std::chrono::seconds(10));
    return state.get();
}

class RemoteDesktopTest : public PortalStandInTest {
protected:
    RemoteDesktopTest() : PortalStandInTest(MENDWISE_REMOTE_DESKTOP_TEMPLATE) {}

    std::unique_ptr<PortalRemoteDesktop> channel() {
        return std::make_unique<PortalRemoteDesktop>([this] { return token_; },
                                                     [this](const QString& t) { token_ = t; });
    }

    // The (key code, state) pairs the portal received, in order.
    static std::vector<std::tuple<int, uint>> keys() {
        return mockStructs<int, uint>(QStringLiteral("Keys"));
    }

    QString token_;
};

TEST_F(RemoteDesktopTest, GrantedSessionTypesKeysAndIsRestoredAtTheNextStart) {
    EXPECT_TRUE(PortalRemoteDesktop::available());

    auto keyboard = channel();
    std::vector<State> seen;
    keyboard->setStateObserver([&seen](State state) { seen.push_back(state); });
    EXPECT_FALSE(keyboard->sendKey(keyC, true)) << "typed before the session was granted";
    EXPECT_EQ(prepareOffThread(*keyboard, 5000), State::ready);
    for (const auto& [code, down] : {std::pair{keyLeftCtrl, true}, std::pair{keyC, true},
                                     std::pair{keyC, false}, std::pair{keyLeftCtrl, false}})
        EXPECT_TRUE(keyboard->sendKey(code, down));
    EXPECT_EQ(keys(), (std::vector<std::tuple<int, uint>>{{29, 1}, {46, 1}, {46, 0}, {29, 0}}));
    EXPECT_EQ(token_, QStringLiteral("restore-1"));

    // The desktop ends the session; the next start hands over the token and gets a new one.
    mock(QStringLiteral("CloseSessions"));
    ASSERT_TRUE(testutil::waitUntil([&] { return keyboard->state() == State::unavailable; }));
    EXPECT_FALSE(keyboard->sendKey(keyC, true));
    keyboard->start();
    ASSERT_TRUE(testutil::waitUntil([&] { return keyboard->state() == State::ready; }));
    EXPECT_EQ(qdbus_cast<QStringList>(mock(QStringLiteral("RestoreTokens")).arguments().value(0)),
              QStringList({QString(), QStringLiteral("restore-1")}));
    EXPECT_EQ(token_, QStringLiteral("restore-2"));
    EXPECT_EQ(seen, (std::vector{State::ready, State::unavailable, State::ready}));
}

TEST_F(RemoteDesktopTest, RefusalsTypeNothingAndAreNotAskedAgainUnprompted) {
    const struct {
        uint response;
        uint devices; // what Start grants
    } cases[] = {{1, 1}, {2, 1}, {0, 2 /* the pointer alone */}};
    for (const auto& c : cases) {
        mock(QStringLiteral("SetStart"), {c.response, c.devices});
        auto keyboard = channel();
        keyboard->start();
        ASSERT_TRUE(
            testutil::waitUntil([&] { return keyboard->state() != State::needsPermission; }));
        EXPECT_EQ(keyboard->state(), State::refused) << c.response << ' ' << c.devices;
        EXPECT_EQ(keyboard->prepare(1000), State::refused);
        EXPECT_FALSE(keyboard->sendKey(keyC, true));
    }
    EXPECT_TRUE(keys().empty());
    EXPECT_TRUE(token_.isEmpty());
}

TEST(PortalAbsentTest, NeitherTheTriggerNorKeystrokesAndQuicklySaid) {
    ASSERT_TRUE(portalOnBus(false));
    QElapsedTimer probe;
    probe.start();
    EXPECT_FALSE(PortalGlobalShortcuts::available());
    EXPECT_FALSE(PortalRemoteDesktop::available());
    EXPECT_LT(probe.elapsed(), 600); // 300 ms each
    PortalRemoteDesktop keyboard({}, {});
    EXPECT_EQ(prepareOffThread(keyboard, 5000), State::unavailable);

    PortalGlobalShortcuts port(QStringLiteral("app.mendwise.Mendwise"));
    QList<QPair<QString, QString>> answers;
    registerTrigger(port, answers);
    EXPECT_EQ(answers.value(0), qMakePair(QString(), PortalGlobalShortcuts::unavailableText));
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
