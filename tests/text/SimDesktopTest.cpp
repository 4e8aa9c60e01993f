#include "platform/sim/SimDesktop.h"

#include "tests/common/TestUtil.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace std::chrono_literals;
using namespace platform;
using platform::sim::AXAnswer;
using platform::sim::CopyBehaviour;
using platform::sim::Element;
using platform::sim::SimDesktop;

namespace {

void press(SimDesktop& desktop, std::uint16_t key, CGEventFlags flags,
           std::optional<std::int32_t> pid) {
    const auto source = desktop.createEventSource(hidSystemState);
    for (const bool down : {true, false}) {
        const auto event = desktop.createKeyboardEvent(source, key, down);
        setEventFlags(event, flags);
        if (pid)
            desktop.postToPid(*pid, event);
        else
            desktop.post(hidEventTap, event);
    }
}

} // namespace

TEST(SimDesktop, ApplicationsAnswerCopyAndPasteChordsOnly) {
    SimDesktop desktop;
    desktop.addApplication({5, QStringLiteral("a.b"), QStringLiteral("A")});
    desktop.setText(5, QStringLiteral("one two"), {4, 3});

    press(desktop, 8, eventflags::command | eventflags::shift, 5);
    press(desktop, 8, 0, 5);
    EXPECT_EQ(desktop.string(), std::nullopt);

    press(desktop, 8, eventflags::command, 5);
    EXPECT_EQ(desktop.string(), QStringLiteral("two"));

    desktop.setString(QStringLiteral("2"));
    press(desktop, 9, eventflags::command, std::nullopt); // nothing in front: lost
    EXPECT_EQ(desktop.text(5), QStringLiteral("one two"));
    desktop.setFrontmost(5);
    press(desktop, 9, eventflags::command, std::nullopt);
    EXPECT_EQ(desktop.text(5), QStringLiteral("one 2"));
    EXPECT_EQ(desktop.selectedRange(5), (CFRange{5, 0}));
    EXPECT_EQ(desktop.postedEvents().size(), 10U);
}

TEST(SimDesktop, DelayedCopyArrivesLater) {
    SimDesktop desktop;
    desktop.addApplication({5, std::nullopt, std::nullopt});
    desktop.setSelectedText(5, QStringLiteral("late"));
    desktop.setCopyBehaviour(5, CopyBehaviour::selection(40ms));
    const auto posted = std::chrono::steady_clock::now();
    press(desktop, 8, eventflags::command, 5);
    EXPECT_EQ(desktop.string(), std::nullopt);
    ASSERT_TRUE(testutil::waitUntil([&] { return desktop.string().has_value(); }, 2s));
    EXPECT_GE(std::chrono::steady_clock::now() - posted, 40ms);
    EXPECT_EQ(desktop.string(), QStringLiteral("late"));

    // A copy still pending when the desktop goes away is dropped quietly.
    auto doomed = std::make_unique<SimDesktop>();
    doomed->addApplication({6, std::nullopt, std::nullopt});
    doomed->setSelectedText(6, QStringLiteral("x"));
    doomed->setCopyBehaviour(6, CopyBehaviour::selection(10s));
    press(*doomed, 8, eventflags::command, 6);
    doomed.reset();
}

TEST(SimDesktop, AccessibilityReadsFollowTrustAndScript) {
    SimDesktop desktop;
    desktop.addApplication({5, std::nullopt, QStringLiteral("Five")});
    const auto baseline = AXObject::liveCount();
    {
        const AXRef app = desktop.createApplication(5);
        EXPECT_EQ(axString(desktop.copyAttributeValue(app, QStringLiteral("AXTitle")).value),
                  QStringLiteral("Five"));
        desktop.setAnswer(5, Element::application, QStringLiteral("AXTitle"),
                          AXAnswer::with(QStringLiteral("Scripted")));
        const AXResult first = desktop.copyAttributeValue(app, QStringLiteral("AXTitle"));
        const AXResult second = desktop.copyAttributeValue(app, QStringLiteral("AXTitle"));
        EXPECT_EQ(axString(first.value), QStringLiteral("Scripted"));
        EXPECT_NE(first.value, second.value); // each read is a new reference

        desktop.setTrusted(false);
        EXPECT_EQ(desktop.copyAttributeValue(app, QStringLiteral("AXTitle")).error,
                  ax::apiDisabled);
        EXPECT_FALSE(desktop.isProcessTrustedWithPrompt());
        EXPECT_EQ(desktop.trustPromptCount(), 1);

        desktop.setTrusted(true);
        desktop.removeApplication(5);
        EXPECT_EQ(desktop.copyAttributeValue(app, QStringLiteral("AXTitle")).error,
                  ax::invalidUIElement);
        EXPECT_EQ(desktop.copyAttributeValue(nullptr, QStringLiteral("AXRole")).error,
                  ax::illegalArgument);
    }
    EXPECT_EQ(AXObject::liveCount(), baseline);
}

TEST(SimDesktop, ScriptingWhileAnotherThreadUsesThePorts) {
    SimDesktop desktop;
    desktop.addApplication({5, std::nullopt, std::nullopt});
    desktop.setFrontmost(5);
    std::atomic<bool> done{false};
    std::thread user([&] {
        while (!done) {
            desktop.setString(QStringLiteral("x"));
            (void)desktop.copyAttributeValue(desktop.createApplication(5),
                                             QStringLiteral("AXFocusedUIElement"));
            press(desktop, 9, eventflags::command, std::nullopt);
            (void)desktop.frontmostApplication();
        }
    });
    for (int i = 0; i < 200; ++i) {
        desktop.setSelectedText(5, QString::number(i));
        desktop.setTrusted(i % 2 == 0);
        desktop.clearPostedEvents();
        desktop.setScreens({Screen{{0, 0, 100.0 + i, 100}, {0, 0, 100.0 + i, 90}}});
    }
    done = true;
    user.join();
    EXPECT_EQ(desktop.screens().front().frame.width, 299);
}
