#include "support/Error.h"
#include "tests/text/TextExchangeFixture.h"

#include <QStringList>
#include <gmock/gmock.h>
#include <stop_token>

using namespace std::chrono_literals;
using testing::IsEmpty;

namespace {
const QString tag = QStringLiteral("[TextSelectionService] ");
constexpr std::int32_t browserPid = 77;
} // namespace

TEST_F(TextExchangeTest, PasteReplacesTheSelectionOfTheFrontmostApplication) {
    desktop.setText(editorPid, QStringLiteral("Hello wrld!"), {6, 4});
    desktop.putOnPasteboard(QStringLiteral("image/png"), "png");

    const auto started = std::chrono::steady_clock::now();
    inBackground([&] { service.pasteText(QStringLiteral("world"), {}); });
    EXPECT_GE(std::chrono::steady_clock::now() - started, 50ms);

    EXPECT_EQ(desktop.text(editorPid), QStringLiteral("Hello world!"));
    EXPECT_EQ(logs.records(),
              QStringList({
                  tag + QStringLiteral("📤 pasteText BEGIN — 5 chars"),
                  tag + QStringLiteral("✅ Text written to pasteboard"),
                  tag + QStringLiteral("⌨️ Posting Cmd+V to: org.example.editor"),
                  tag + QStringLiteral("✅ pasteText END"),
              }));
    // The pasted text stays on the pasteboard, alone.
    EXPECT_EQ(desktop.types(), QStringList{QStringLiteral("text/plain")});
    EXPECT_EQ(desktop.string(), QStringLiteral("world"));
    expectCommandChord(9 /* V */, editorPid, editorPid);
}

TEST_F(TextExchangeTest, PasteGoesToWhoeverIsInFrontNowOrThroughTheEventTap) {
    desktop.addApplication({browserPid, QStringLiteral("org.example.browser"), std::nullopt});
    desktop.setSelectedText(editorPid, QStringLiteral("source"));
    desktop.setSelectedText(browserPid, QStringLiteral("other"));
    desktop.setFrontmost(browserPid);

    inBackground([&] { service.pasteText(QStringLiteral("👩‍👩‍👧 family"), {}); });

    EXPECT_EQ(desktop.text(browserPid), QStringLiteral("👩‍👩‍👧 family"));
    EXPECT_EQ(desktop.text(editorPid), QStringLiteral("source"));
    EXPECT_EQ(logs.records().value(0), tag + QStringLiteral("📤 pasteText BEGIN — 8 chars"));
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("⌨️ Posting Cmd+V to: org.example.browser")),
              0);

    // With nothing in front, through the event tap.
    desktop.setFrontmost(std::nullopt);
    desktop.clearPostedEvents();
    inBackground([&] { service.pasteText(QStringLiteral("answer"), {}); });

    EXPECT_GE(logs.indexOf(tag + QStringLiteral("⌨️ Posting Cmd+V to: nil")), 0);
    expectCommandChord(9 /* V */, std::nullopt, std::nullopt);
    EXPECT_EQ(desktop.string(), QStringLiteral("answer"));
}

TEST_F(TextExchangeTest, CancelledPasteSendsNoKeystroke) {
    desktop.setSelectedText(editorPid, QStringLiteral("keep"));
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(inBackground([&] { service.pasteText(QStringLiteral("new"), stop.get_token()); }),
                 support::CancellationError);
    EXPECT_THAT(desktop.postedEvents(), IsEmpty());
    EXPECT_EQ(desktop.text(editorPid), QStringLiteral("keep"));
    EXPECT_EQ(logs.indexOf(tag + QStringLiteral("✅ pasteText END")), -1);
}

TEST_F(TextExchangeTest, KeystrokeIsCommandAloneWhateverTheUserHolds) {
    desktop.setHeldModifiers(platform::eventflags::shift | platform::eventflags::option);
    desktop.setSelectedText(editorPid, QStringLiteral("abc"));
    desktop.setText(editorPid, QStringLiteral("abc"), {3, 0});
    desktop.setString(QStringLiteral("d"));

    service.postCommandKeystroke(TextSelectionService::keyCodeV, editor);

    // With Shift and Option still on the event, the editor would not have taken it as a paste.
    EXPECT_EQ(desktop.text(editorPid), QStringLiteral("abcd"));
    for (const auto& event : desktop.postedEvents())
        EXPECT_EQ(event.flags, platform::eventflags::command);
}

TEST_F(TextExchangeTest, EventsThatCannotBeCreatedAreSkipped) {
    desktop.setText(editorPid, QStringLiteral("abc"), {0, 3});
    desktop.setString(QStringLiteral("xyz"));

    desktop.setKeyboardEventCreationFails(true, false);
    service.postCommandKeystroke(TextSelectionService::keyCodeV, editor);
    auto events = desktop.postedEvents();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_FALSE(events[0].keyDown);
    EXPECT_EQ(desktop.text(editorPid), QStringLiteral("abc")); // a bare key-up pastes nothing

    desktop.clearPostedEvents();
    desktop.setKeyboardEventCreationFails(true, true);
    inBackground([&] { service.pasteText(QStringLiteral("quiet"), {}); });
    EXPECT_THAT(desktop.postedEvents(), IsEmpty());
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("✅ pasteText END")), 0);

    // Without an event source the events are still made and sent.
    desktop.setKeyboardEventCreationFails(false, false);
    desktop.setEventSourceCreationFails(true);
    service.postCommandKeystroke(TextSelectionService::keyCodeV, editor);
    events = desktop.postedEvents();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].sourceState, -1);
    EXPECT_EQ(desktop.text(editorPid), QStringLiteral("quiet"));
}

// Where keystrokes may not reach the application (Wayland), the answer goes in through
// accessibility; without either road it stays on the clipboard and the user is told.
TEST_F(TextExchangeTest, WithoutKeystrokesTheAnswerTakesTheRoadThatIsLeft) {
    struct Case {
        bool editable;
        bool keystrokes;
        QString road;
        QString textAfter;
        bool leftOnClipboard;
    };
    const QString replaced = QStringLiteral("🛣 Paste road: accessibility — the selection of "
                                            "org.example.editor was replaced directly");
    const Case cases[] = {
        {true, false, replaced, QStringLiteral("Hello world!"), false},
        {true, true, replaced, QStringLiteral("Hello world!"), false},
        {false, true, QStringLiteral("🛣 Paste road: keystroke"), QStringLiteral("Hello world!"),
         false},
        {false, false,
         QStringLiteral("🛣 Paste road: none — the answer stays on the clipboard"),
         QStringLiteral("Hello wrld!"), true},
    };
    for (const Case& c : cases) {
        platform::sim::SimDesktop wayland;
        wayland.addApplication(editor);
        wayland.setFrontmost(editorPid);
        wayland.setText(editorPid, QStringLiteral("Hello wrld!"), {6, 4});
        wayland.setEditable(editorPid, c.editable);
        wayland.setKeystrokesReachApplications(c.keystrokes);
        TextSelectionService roads{wayland, wayland, wayland, wayland,
                                   TextSelectionService::PasteRoad::accessibilityFirst};
        logs.clear();
        const auto failure = failureOf([&] { roads.pasteText(QStringLiteral("world"), {}); });
        SCOPED_TRACE(c.road.toStdString());
        EXPECT_TRUE(logs.records().contains(tag + c.road));
        EXPECT_EQ(wayland.text(editorPid), c.textAfter);
        EXPECT_EQ(failure == TextSelectionError::answerOnClipboard, c.leftOnClipboard);
        EXPECT_EQ(wayland.string(), QStringLiteral("world"));
        EXPECT_EQ(wayland.postedEvents().empty(), c.editable || !c.keystrokes);
    }
}
