// Synthetic chords through XTest into real applications: what arrives, with which modifiers,
// on which layout.
#include "platform/x11/X11KeyboardEvents.h"
#include "platform/x11/X11Pasteboard.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"

#include <QRegularExpression>
#include <future>
#include <gtest/gtest.h>

using namespace platform;
using namespace std::chrono_literals;

namespace {

// A whole chord (key-down, then key-up, both with the same flags), as the text service posts it.
void postChord(KeyboardEventsPort& keyboard, std::uint16_t virtualKey, CGEventFlags flags,
               std::optional<std::int32_t> pid) {
    const auto source = keyboard.createEventSource(hidSystemState);
    for (const bool down : {true, false}) {
        const auto event = keyboard.createKeyboardEvent(source, virtualKey, down);
        setEventFlags(event, flags);
        if (pid)
            keyboard.postToPid(*pid, event);
        else
            keyboard.post(hidEventTap, event);
    }
}

constexpr std::uint16_t keyC = 8;
constexpr std::uint16_t keyJ = 38;

const QString sampleText = QStringLiteral("The quick brown fox jumps over the lazy dog");

QStringList keyLines(x11test::App& app) {
    return app.outputLines().filter(QRegularExpression(QStringLiteral("^key:")));
}

bool setLayouts(const QString& layouts) {
    return x11test::run(QStringLiteral("setxkbmap"), {QStringLiteral("-layout"), layouts})
        .has_value();
}

// Puts the US layout back whatever a test switched to.
struct UsLayoutAfterwards {
    ~UsLayoutAfterwards() { setLayouts(QStringLiteral("us")); }
};

class KeyboardEventsTest : public ::testing::Test {
protected:
    x11::X11KeyboardEvents keyboard;
    x11::X11Pasteboard pasteboard;
};

} // namespace

TEST_F(KeyboardEventsTest, CommandFlagsBecomeTheLinuxModifiers) {
    auto app = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(app, nullptr);
    const auto pid = static_cast<std::int32_t>(app->pid());
    // Events for another process are not typed into the focused one.
    postChord(keyboard, keyJ, eventflags::command, pid + 100000);
    postChord(keyboard, keyC, eventflags::command, pid);
    postChord(keyboard, keyJ,
              eventflags::command | eventflags::shift | eventflags::option | eventflags::control,
              pid);
    postChord(keyboard, keyJ, 0, std::nullopt);
    ASSERT_TRUE(testutil::waitUntil([&] { return keyLines(*app).size() >= 3; }));
    EXPECT_EQ(keyLines(*app),
              (QStringList{QStringLiteral("key:Ctrl+C"),
                           QStringLiteral("key:Meta+Ctrl+Alt+Shift+J"), QStringLiteral("key:J")}));
    // The copy reached the editor (which reports a key before it acts on it).
    EXPECT_TRUE(
        testutil::waitUntil([&] { return pasteboard.string() == QStringLiteral("quick brown"); }));
    // An unknown key makes no event; a missing source is no reason to make none.
    EXPECT_EQ(keyboard.createKeyboardEvent(nullptr, 0x7fff, true), nullptr);
    EXPECT_NE(keyboard.createKeyboardEvent(nullptr, keyC, true), nullptr);
}

TEST_F(KeyboardEventsTest, ModifiersTheUserHoldsDoNotJoinTheChord) {
    auto app = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(app, nullptr);
    const auto pid = static_cast<std::int32_t>(app->pid());

    // Held through the whole wait: released for the chord, pressed again after it.
    x11test::xdotool(QStringLiteral("keydown alt"));
    postChord(keyboard, keyC, eventflags::command, pid);
    x11test::xdotool(QStringLiteral("key x"));
    x11test::xdotool(QStringLiteral("keyup alt"));
    ASSERT_TRUE(testutil::waitUntil([&] { return keyLines(*app).size() >= 2; }));
    EXPECT_EQ(keyLines(*app),
              (QStringList{QStringLiteral("key:Ctrl+C"), QStringLiteral("key:Alt+X")}));

    // Let go of during the wait: the chord waits for it.
    x11test::xdotool(QStringLiteral("keydown shift"));
    auto poster = std::async(std::launch::async,
                             [&] { postChord(keyboard, keyC, eventflags::command, pid); });
    testutil::processEventsFor(100ms);
    EXPECT_EQ(poster.wait_for(0s), std::future_status::timeout);
    x11test::xdotool(QStringLiteral("keyup shift"));
    EXPECT_TRUE(
        testutil::waitUntil([&] { return poster.wait_for(0s) == std::future_status::ready; }));
    poster.get();
    ASSERT_TRUE(testutil::waitUntil([&] { return keyLines(*app).size() >= 3; }));
    EXPECT_EQ(keyLines(*app).value(2), QStringLiteral("key:Ctrl+C"));
}

TEST_F(KeyboardEventsTest, LayoutsWithoutLatinLettersStillGetCtrlC) {
    for (const QString& layouts : {QStringLiteral("ru"), QStringLiteral("ru,us")}) {
        SCOPED_TRACE(layouts.toStdString());
        const UsLayoutAfterwards restore;
        ASSERT_TRUE(setLayouts(layouts));
        auto app = x11test::startQtTextApp(sampleText, 4, 11);
        ASSERT_NE(app, nullptr);
        pasteboard.clearContents();
        postChord(keyboard, keyC, eventflags::command, static_cast<std::int32_t>(app->pid()));
        ASSERT_TRUE(testutil::waitUntil([&] { return !keyLines(*app).isEmpty(); }));
        EXPECT_EQ(keyLines(*app), QStringList{QStringLiteral("key:Ctrl+C")});
        EXPECT_TRUE(testutil::waitUntil(
            [&] { return pasteboard.string() == QStringLiteral("quick brown"); }));
        // The layout group the user had is back.
        EXPECT_EQ(x11test::lockedLayoutGroup(), 0);
    }
}
