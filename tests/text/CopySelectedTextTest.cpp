#include "platform/wayland/WaylandKeyboardEvents.h"
#include "support/Error.h"
#include "tests/text/TextExchangeFixture.h"

#include <QStringList>
#include <gmock/gmock.h>
#include <stop_token>
#include <thread>

using namespace std::chrono_literals;
using platform::sim::AXAnswer;
using platform::sim::CopyBehaviour;
using platform::sim::Element;
using testing::IsEmpty;

namespace {

const QString tag = QStringLiteral("[TextSelectionService] ");

// Sixty-one user-perceived characters of two code units each (e + combining acute).
QString accentedRun(int characters) {
    QString text;
    for (int i = 0; i < characters; ++i)
        text += QStringLiteral("e\u0301");
    return text;
}

} // namespace

TEST_F(TextExchangeTest, SelectionOfSpacesComesThroughAccessibilityAlone) {
    desktop.setSelectedText(editorPid, QStringLiteral("   "));
    desktop.setString(QStringLiteral("clipboard"));
    const auto changeCount = desktop.changeCount();

    const QString text = inBackground([&] { return service.copySelectedText(editor, {}); });

    EXPECT_EQ(text, QStringLiteral("   "));
    EXPECT_EQ(
        logs.records(),
        QStringList({
            QStringLiteral("[TextSelectionService] ─────────────────────────────────\n"
                           "[TextSelectionService] 📋 copySelectedText BEGIN\n"
                           "  - sourceApp bundle:  org.example.editor\n"
                           "  - sourceApp name:    Editor\n"
                           "  - AX trusted:        true\n"
                           "  - Current frontmost: org.example.editor"),
            QStringLiteral("[TextSelectionService] 🔍 Trying AX API for PID 42..."),
            QStringLiteral("[TextSelectionService] AX: kAXWindowsAttribute result: 0 (0=success)"),
            QStringLiteral("[TextSelectionService] AX: kAXFocusedUIElement result: 0 (0=success)"),
            QStringLiteral("[TextSelectionService] AX: focused element role: AXTextArea"),
            QStringLiteral("[TextSelectionService] AX: kAXSelectedText result: 0 (0=success)"),
            QStringLiteral("[TextSelectionService] ✅ AX SUCCESS — 3 chars: \"   \""),
            QStringLiteral("[TextSelectionService] ─────────────────────────────────"),
        }));
    // The pasteboard is not touched and no keystroke is sent on this path.
    EXPECT_EQ(desktop.string(), QStringLiteral("clipboard"));
    EXPECT_EQ(desktop.changeCount(), changeCount);
    EXPECT_THAT(desktop.postedEvents(), IsEmpty());
}

// The selection equal to what the clipboard holds already: the clear before the copy still
// tells the copy apart from no copy, found at the first poll.
TEST_F(TextExchangeTest, EmptyAccessibilityTextFallsBackToSyntheticCopy) {
    desktop.setText(editorPid, QStringLiteral("Hello world"), {6, 5});
    desktop.setString(QStringLiteral("world"));
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedText"),
                      AXAnswer::with(QString()));

    const auto started = std::chrono::steady_clock::now();
    const QString text = inBackground([&] { return service.copySelectedText(editor, {}); });

    EXPECT_EQ(text, QStringLiteral("world"));
    // 200 ms for the modifiers plus at least one 50 ms poll, and well short of the 0.5 s
    // deadline that a failure waits for.
    const auto elapsed = std::chrono::steady_clock::now() - started;
    EXPECT_GE(elapsed, 250ms);
    EXPECT_LT(elapsed, 650ms);
    const QStringList records = logs.records();
    ASSERT_EQ(records.size(), 17) << records.join(u'\n').toStdString();
    EXPECT_EQ(
        records.mid(6),
        QStringList({
            tag + QStringLiteral("AX: attribute returned empty or non-string value: \"\""),
            tag + QStringLiteral("⚠️ AX returned nothing — falling back to CGEvent copy"),
            tag + QStringLiteral("📌 Pasteboard BEFORE clear: \"world\""),
            tag + QStringLiteral("🧹 Pasteboard cleared"),
            tag + QStringLiteral("⏱ Waiting 200ms for modifier keys to release..."),
            tag + QStringLiteral("⏱ Done. Frontmost: org.example.editor"),
            tag + QStringLiteral("⌨️ Posting Cmd+C via CGEvent to PID 42..."),
            tag + QStringLiteral("📋 Pasteboard AFTER copy: \"world\""),
            tag + QStringLiteral("📋 Pasteboard change count: %1").arg(desktop.changeCount()),
            tag + QStringLiteral("✅ copySelectedText SUCCESS — 5 chars"),
            separator(),
        }));
    // Command+C went to the source application's process.
    expectCommandChord(8 /* C */, editorPid, editorPid);
    // The copied selection stays on the pasteboard, as plain text only.
    EXPECT_EQ(desktop.string(), QStringLiteral("world"));
}

// Each problem alone, logged as these consecutive records; nothing is asked of a focused element
// that did not come back.
TEST_F(TextExchangeTest, AccessibilityReadLogsEveryProblemWithItsCode) {
    const struct {
        Element element;
        const char* attribute;
        AXAnswer answer;
        const char* logged;
    } cases[] = {
        // Success without an element is logged as error 0; a failure with its own signed code.
        {Element::application, "AXFocusedUIElement", AXAnswer::noValue(),
         "AX: could not get focused element (error 0)"},
        {Element::application, "AXFocusedUIElement",
         AXAnswer::failure(platform::ax::cannotComplete),
         "AX: kAXFocusedUIElement result: -25204 (0=success)\n"
         "AX: could not get focused element (error -25204)"},
        {Element::application, "AXWindows", AXAnswer::failure(platform::ax::apiDisabled),
         "AX: kAXWindowsAttribute result: -25211 (0=success)"},
        {Element::focused, "AXRole", AXAnswer::failure(platform::ax::attributeUnsupported),
         "AX: focused element role: unknown"},
        {Element::focused, "AXSelectedText", AXAnswer::with(5.0),
         "AX: attribute returned empty or non-string value: 5"},
        {Element::focused, "AXSelectedText", AXAnswer::noValue(),
         "AX: attribute returned empty or non-string value: nil"},
        {Element::focused, "AXSelectedText", AXAnswer::failure(platform::ax::noValue),
         "AX: kAXSelectedText result: -25212 (0=success)\n"
         "AX: could not read kAXSelectedTextAttribute (error -25212)"},
    };
    for (const auto& c : cases) {
        const QString attribute = QString::fromLatin1(c.attribute);
        desktop.setAnswer(editorPid, c.element, attribute, c.answer);
        desktop.clearAccessibilityCalls();
        logs.clear();
        EXPECT_EQ(service.readSelectedTextViaAX(editorPid), std::nullopt) << c.logged;
        const QString expected = tag + QString::fromUtf8(c.logged).replace(u'\n', u'\n' + tag);
        EXPECT_TRUE(logs.records().join(u'\n').contains(expected)) << c.logged;
        if (attribute == u"AXFocusedUIElement") {
            for (const auto& call : desktop.accessibilityCalls())
                EXPECT_NE(call.element, Element::focused) << call.toString().toStdString();
        }
        desktop.clearAnswer(editorPid, c.element, attribute);
    }
}

TEST_F(TextExchangeTest, WithoutSourceApplicationTheCopyGoesThroughTheEventTap) {
    desktop.setSelectedText(editorPid, QStringLiteral("typed text"));

    const QString text = inBackground([&] { return service.copySelectedText(std::nullopt, {}); });

    EXPECT_EQ(text, QStringLiteral("typed text"));
    const QStringList records = logs.records();
    ASSERT_FALSE(records.isEmpty());
    const QString noSource = QStringLiteral("  - sourceApp bundle:  EMPTY ⚠️\n"
                                            "  - sourceApp name:    nil\n");
    EXPECT_TRUE(records[0].contains(noSource)) << records[0].toStdString();
    EXPECT_EQ(records[1], tag + QStringLiteral("📌 Pasteboard BEFORE clear: empty"));
    EXPECT_EQ(logs.indexOfPrefix(tag + QStringLiteral("🔍 Trying AX API")), -1);
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("⌨️ Posting Cmd+C via CGEvent to PID -1...")),
              0);
    // Only the trust test touched the accessibility interface.
    for (const auto& call : desktop.accessibilityCalls())
        EXPECT_FALSE(call.touchesApplication()) << call.toString().toStdString();
    expectCommandChord(8 /* C */, std::nullopt, editorPid);

    // A source application without a bundle identifier reads as missing too.
    logs.clear();
    const platform::RunningApplication anonymous{editorPid, QString(), std::nullopt};
    EXPECT_EQ(inBackground([&] { return service.copySelectedText(anonymous, {}); }),
              QStringLiteral("typed text"));
    EXPECT_TRUE(logs.records().value(0).contains(noSource));
}

TEST_F(TextExchangeTest, UntrustedProcessStillTriesTheCopy) {
    desktop.setTrusted(false);
    desktop.setSelectedText(editorPid, QStringLiteral("secret"));
    desktop.setFrontmost(std::nullopt);

    const QString text = inBackground([&] { return service.copySelectedText(editor, {}); });

    EXPECT_EQ(text, QStringLiteral("secret"));
    const QStringList records = logs.records();
    ASSERT_GE(records.size(), 4);
    EXPECT_TRUE(records[0].endsWith(QStringLiteral("  - AX trusted:        false\n"
                                                   "  - Current frontmost: nil")));
    EXPECT_EQ(records[1], tag + QStringLiteral("🔍 Trying AX API for PID 42..."));
    EXPECT_EQ(records[2],
              tag + QStringLiteral("AX: ❌ NOT TRUSTED — open System Settings → Privacy & "
                                   "Security → Accessibility and enable Mendwise, then QUIT and "
                                   "RELAUNCH the app"));
    EXPECT_EQ(records[3],
              tag + QStringLiteral("⚠️ AX returned nothing — falling back to CGEvent copy"));
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("⏱ Done. Frontmost: nil")), 0);
    for (const auto& call : desktop.accessibilityCalls())
        EXPECT_FALSE(call.touchesApplication()) << call.toString().toStdString();
}

TEST_F(TextExchangeTest, LongSelectionsAreCountedAndPreviewedInCharacters) {
    const QString selection = accentedRun(61);
    ASSERT_EQ(selection.size(), 122);
    const QString preview = u'"' + accentedRun(60) + u'"';

    desktop.setSelectedText(editorPid, selection);
    EXPECT_EQ(inBackground([&] { return service.copySelectedText(editor, {}); }), selection);
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("✅ AX SUCCESS — 61 chars: ") + preview), 0);

    // The same through the synthetic copy, and for the pasteboard text it replaces.
    logs.clear();
    desktop.setString(accentedRun(70));
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedText"),
                      AXAnswer::failure(platform::ax::attributeUnsupported));
    EXPECT_EQ(inBackground([&] { return service.copySelectedText(editor, {}); }), selection);
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("📌 Pasteboard BEFORE clear: ") + preview), 0);
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("📋 Pasteboard AFTER copy: ") + preview), 0);
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("✅ copySelectedText SUCCESS — 61 chars")), 0);
}

// Only text is saved and put back: an image alone counts as nothing saved, and is lost.
TEST_F(TextExchangeTest, ImageOnlyPasteboardIsLostEitherWay) {
    const QByteArray png("\x89PNG\r\n\x1a\n", 8);
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedText"),
                      AXAnswer::failure(platform::ax::attributeUnsupported));
    desktop.setSelectedText(editorPid, QStringLiteral("caption"));

    desktop.putOnPasteboard(QStringLiteral("image/png"), png);
    desktop.setCopyBehaviour(editorPid, CopyBehaviour::never());
    EXPECT_EQ(failureOf([&] { return service.copySelectedText(editor, {}); }),
              TextSelectionError::noTextSelected);
    EXPECT_GE(logs.indexOf(tag + QStringLiteral("📌 Pasteboard BEFORE clear: empty")), 0);
    EXPECT_EQ(logs.indexOfPrefix(tag + QStringLiteral("↩️")), -1);
    EXPECT_THAT(desktop.types(), IsEmpty());

    desktop.putOnPasteboard(QStringLiteral("image/png"), png);
    desktop.setCopyBehaviour(editorPid, CopyBehaviour::selection());
    EXPECT_EQ(inBackground([&] { return service.copySelectedText(editor, {}); }),
              QStringLiteral("caption"));
    EXPECT_EQ(desktop.types(), QStringList{QStringLiteral("text/plain")});
    EXPECT_EQ(desktop.string(), QStringLiteral("caption"));
}

TEST_F(TextExchangeTest, EmptyAnswerFailsAtTheDeadlineAndRestoresTheSavedText) {
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedText"),
                      AXAnswer::noValue());
    desktop.setSelectedText(editorPid, QStringLiteral("ignored"));
    desktop.setCopyBehaviour(editorPid, CopyBehaviour::emptyText(10ms));
    desktop.setString(QStringLiteral("saved clip"));
    desktop.putOnPasteboard(QStringLiteral("text/html"), "<b>saved clip</b>");

    const auto changesBefore = desktop.changeCount();
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(failureOf([&] { return service.copySelectedText(editor, {}); }),
              TextSelectionError::noTextSelected);
    // The texts the user reads; the last two cases exist for the user interface.
    EXPECT_EQ(TextSelectionError(TextSelectionError::noTextSelected).errorDescription(),
              QStringLiteral("No text is currently selected."));
    EXPECT_EQ(TextSelectionError(TextSelectionError::copyFailed).errorDescription(),
              QStringLiteral("Failed to copy selected text. Make sure accessibility permissions "
                             "are granted."));
    EXPECT_EQ(QString::fromUtf8(TextSelectionError(TextSelectionError::pasteFailed).what()),
              QStringLiteral("Failed to paste text. Make sure accessibility permissions are "
                             "granted."));
    const auto elapsed = std::chrono::steady_clock::now() - started;
    EXPECT_GE(elapsed, 700ms); // 200 ms, then polling until the 0.5 s deadline
    EXPECT_LT(elapsed, 3s);

    const QStringList records = logs.records();
    const qsizetype after =
        logs.indexOf(tag + QStringLiteral("📋 Pasteboard AFTER copy: still empty ⚠️"));
    ASSERT_GE(after, 0);
    // The change count shows our clear and the editor's own clear and (empty) write.
    EXPECT_EQ(records.mid(after),
              QStringList({
                  tag + QStringLiteral("📋 Pasteboard AFTER copy: still empty ⚠️"),
                  tag + QStringLiteral("📋 Pasteboard change count: %1").arg(changesBefore + 3),
                  tag + QStringLiteral("↩️ Restored previous pasteboard contents"),
                  tag + QStringLiteral("❌ copySelectedText FAILED — throwing noTextSelected"),
                  separator(),
              }));
    // Only the plain text comes back; the other flavour went with the clear.
    EXPECT_EQ(desktop.string(), QStringLiteral("saved clip"));
    EXPECT_EQ(desktop.types(), QStringList{QStringLiteral("text/plain")});
}

TEST_F(TextExchangeTest, CancelledCopyEndsEarlyAndGivesTheClipboardBack) {
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedText"),
                      AXAnswer::noValue());
    desktop.setCopyBehaviour(editorPid, CopyBehaviour::never());

    for (const auto cancelAfter : {60ms, 400ms}) { // during the modifier wait, then while polling
        logs.clear();
        desktop.clearPostedEvents();
        desktop.setString(QStringLiteral("before"));
        std::stop_source stop;
        const auto started = std::chrono::steady_clock::now();
        auto copy = std::async(std::launch::async,
                               [&] { return service.copySelectedText(editor, stop.get_token()); });
        std::this_thread::sleep_for(cancelAfter);
        stop.request_stop();
        EXPECT_THROW(copy.get(), support::CancellationError);
        EXPECT_LT(std::chrono::steady_clock::now() - started, cancelAfter + 400ms);
        EXPECT_EQ(desktop.string(), QStringLiteral("before"));
        EXPECT_GE(
            logs.indexOf(tag + QStringLiteral("↩️ Restored previous pasteboard contents")), 0);
        EXPECT_EQ(logs.indexOfPrefix(tag + QStringLiteral("❌")), -1);
        // Cancelled during the modifier wait, no Command+C was sent at all.
        EXPECT_EQ(desktop.postedEvents().empty(), cancelAfter < 200ms);
    }
}

TEST_F(TextExchangeTest, WithoutKeystrokesNoCopyIsAttemptedAndTheClipboardIsKept) {
    desktop.setFocusedElement(editorPid, false);
    desktop.setKeystrokesReachApplications(false);
    desktop.setString(QStringLiteral("the user's"));
    EXPECT_EQ(failureOf([&] { return service.copySelectedText(editor, {}); }),
              TextSelectionError::noAccessibleText);
    EXPECT_EQ(desktop.string(), QStringLiteral("the user's"));
    EXPECT_TRUE(desktop.postedEvents().empty());
}

// A Wayland desktop that asks the user only when the first key goes out, and is told no: one
// clear failure for the copy and for the paste, the clipboard kept, no key typed.
TEST_F(TextExchangeTest, APermissionRefusedAtTheFirstKeystrokeEndsWithoutTyping) {
    class RefusingChannel final : public platform::wayland::KeystrokeChannel {
    public:
        bool sendKey(std::uint32_t, bool) override { return ++sent, true; }
        State prepare(int) override { return state_ = State::refused; }
        [[nodiscard]] State state() const override { return state_; }
        [[nodiscard]] QString name() const override { return QStringLiteral("refusing"); }
        int sent = 0;

    private:
        State state_ = State::needsPermission;
    };
    for (const bool copy : {true, false}) {
        auto channel = std::make_unique<RefusingChannel>();
        RefusingChannel& refusing = *channel;
        platform::wayland::WaylandKeyboardEvents keys(std::move(channel));
        TextSelectionService wayland{desktop, desktop, keys, desktop};
        desktop.setFocusedElement(editorPid, false);
        desktop.setString(QStringLiteral("the user's"));
        EXPECT_EQ(failureOf([&] {
                      if (copy)
                          wayland.copySelectedText(editor, {});
                      else
                          wayland.pasteText(QStringLiteral("answer"), {});
                  }),
                  copy ? TextSelectionError::noAccessibleText
                       : TextSelectionError::answerOnClipboard);
        EXPECT_EQ(desktop.string(), copy ? QStringLiteral("the user's") : QStringLiteral("answer"));
        EXPECT_EQ(refusing.sent, 0);
    }
}
