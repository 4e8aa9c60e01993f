// Keystrokes through a stand-in of the RemoteDesktop portal (python3-dbusmock) on a private
// session bus: what reaches the portal, what is remembered across starts, what a refusal leaves.
#include "platform/wayland/PortalRemoteDesktop.h"

#include "tests/common/TestUtil.h"
#include "tests/wayland/PortalStandIn.h"

#include <QElapsedTimer>
#include <future>
#include <gtest/gtest.h>

using platform::wayland::PortalRemoteDesktop;
using State = platform::wayland::KeystrokeChannel::State;

namespace {

using portaltest::portalOnBus;
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

class RemoteDesktopTest : public portaltest::PortalStandInTest {
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

TEST(RemoteDesktopAbsentTest, AnswersQuicklyThatNothingCanBeTyped) {
    ASSERT_TRUE(portalOnBus(false));
    QElapsedTimer probe;
    probe.start();
    EXPECT_FALSE(PortalRemoteDesktop::available());
    EXPECT_LT(probe.elapsed(), 300);
    PortalRemoteDesktop keyboard({}, {});
    EXPECT_EQ(prepareOffThread(keyboard, 5000), State::unavailable);
}

} // namespace
