// The action picker inside the floating panel, driven by keys and clicks, offscreen.
#include "tests/common/TestUtil.h"
#include "ui/ActionPickerView.h"
#include "ui/FloatingPanel.h"
#include "ui/KeyHandler.h"

#include <QAbstractButton>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QTest>
#include <gtest/gtest.h>
#include <thread>

using namespace std::chrono_literals;
using ui::ActionPickerView;
using Kind = ActionPickerView::Phase::Kind;

namespace {

// A picker in the panel, with callbacks that record their calls and keep the completion so
// the test decides when and how the action ends.
class PickerTest : public ::testing::Test {
protected:
    void SetUp() override { picker = makePicker(); }

    ActionPickerView* makePicker() {
        auto* view = new ActionPickerView(
            [this](ActionPickerView::Completion done) {
                ++fixCalls;
                if (fixThrows)
                    std::rethrow_exception(fixThrows);
                pending = std::move(done);
            },
            [this](const QString& prompt, ActionPickerView::Completion done) {
                prompts << prompt;
                pending = std::move(done);
            },
            [this] {
                ++dismissals;
                dismissedAfter = sinceFinish.elapsed();
            });
        panel.setContentView(view);
        panel.show(platform::Rect{100, 100, 240, 140});
        return view;
    }

    void TearDown() override {
        panel.hide([] {});
        testutil::waitUntil([&] { return !panel.isVisible(); });
    }

    // A key press as the window system delivers it: to the panel's focused widget.
    void press(Qt::Key key) {
        QWidget* target = panel.focusWidget() ? panel.focusWidget() : &panel;
        QTest::keyClick(target, key);
    }
    // A click as the window system delivers it: to the topmost widget under the point.
    void click(QPoint inPicker) {
        QWidget* target = picker->childAt(inPicker);
        if (!target)
            target = picker;
        QTest::mouseClick(target, Qt::LeftButton, {}, target->mapFrom(picker, inPicker));
    }
    void type(const QString& text) { QTest::keyClicks(picker->instructionField(), text); }

    void openField() {
        press(Qt::Key_Right);
        press(Qt::Key_Return);
        ASSERT_EQ(picker->phase().kind(), Kind::custom);
        ASSERT_TRUE(testutil::waitUntil([&] { return picker->focused(); }, 2s));
    }

    ui::FloatingPanel panel;
    ActionPickerView* picker = nullptr;
    int fixCalls = 0;
    QStringList prompts;
    int dismissals = 0;
    qint64 dismissedAfter = -1;
    ActionPickerView::Completion pending;
    std::exception_ptr fixThrows; // the fix action throws it instead of reporting
    QElapsedTimer sinceFinish;
};

} // namespace

TEST_F(PickerTest, ArrowsMoveTheHighlightReturnRunsItAndEscapeDismisses) {
    EXPECT_EQ(picker->selected(), 0);
    const std::pair<Qt::Key, int> moves[] = {
        {Qt::Key_Right, 1}, {Qt::Key_Up, 0}, {Qt::Key_Down, 1}, {Qt::Key_Left, 0}};
    for (const auto& [key, selected] : moves) {
        press(key);
        EXPECT_EQ(picker->selected(), selected) << key;
    }
    for (Qt::Key key : {Qt::Key_1, Qt::Key_2, Qt::Key_Tab, Qt::Key_J, Qt::Key_Space})
        press(key);
    EXPECT_EQ(picker->phase().kind(), Kind::picker);
    EXPECT_EQ(picker->selected(), 0);
    EXPECT_EQ(fixCalls + dismissals, 0);
    EXPECT_EQ(picker->prompt(), QString()) << "typed keys are swallowed in the button phase";

    press(Qt::Key_Escape);
    EXPECT_EQ(dismissals, 1);
    press(Qt::Key_Return);
    EXPECT_EQ(fixCalls, 1);
    EXPECT_EQ(picker->phase(), ActionPickerView::Phase::loading());
}

// Escape closes the open field and drops what was typed (typing through the panel's keyboard
// grab, end-to-end.sh); a blank instruction does nothing, a padded one is sent trimmed; the
// submit button comes with the first character.
TEST_F(PickerTest, TheInstructionFieldTakesTypingAndSendsItTrimmed) {
    openField();
    EXPECT_TRUE(ui::KeyHandler::shared().allowTyping());
    type(QStringLiteral("abc"));
    press(Qt::Key_Escape);
    EXPECT_EQ(picker->phase().kind(), Kind::picker);
    EXPECT_EQ(picker->prompt(), QString());
    EXPECT_EQ(picker->selected(), 1);
    EXPECT_FALSE(ui::KeyHandler::shared().allowTyping());
    EXPECT_FALSE(picker->focused());
    EXPECT_EQ(dismissals, 0);

    press(Qt::Key_Return);
    ASSERT_TRUE(testutil::waitUntil([&] { return picker->focused(); }, 2s));
    QAbstractButton* submit = picker->submitButton();
    EXPECT_FALSE(submit->isVisible());
    type(QStringLiteral("   "));
    EXPECT_TRUE(submit->isVisible()) << "a lone space counts";
    press(Qt::Key_Return);
    EXPECT_EQ(picker->phase().kind(), Kind::custom);
    EXPECT_TRUE(prompts.isEmpty());
    EXPECT_TRUE(ui::KeyHandler::shared().allowTyping());
    picker->instructionField()->clear();
    EXPECT_TRUE(testutil::waitUntil([&] { return !submit->isVisible(); }, 2s));

    type(QStringLiteral(" make it formal \t"));
    ASSERT_TRUE(submit->isVisible());
    testutil::processEventsFor(600ms); // fully grown
    QTest::mouseClick(submit, Qt::LeftButton, {}, submit->rect().center());
    EXPECT_EQ(prompts, QStringList{QStringLiteral("make it formal")});
    EXPECT_EQ(picker->phase().kind(), Kind::loading);
    EXPECT_FALSE(ui::KeyHandler::shared().allowTyping());
    EXPECT_EQ(fixCalls, 0);
}

// The check shows for about 0.4 s, the cross with the description for a second; then the
// picker asks to be dismissed, once. Any exception, even one the action throws rather than
// reports, ends in the error phase (the controller's tests show its own errors' descriptions).
TEST_F(PickerTest, TheOutcomeShowsForItsTimeThenDismisses) {
    const struct {
        std::exception_ptr thrown;
        ActionPickerView::Phase phase;
        qint64 minimum;
    } cases[] = {{nullptr, ActionPickerView::Phase::success(), 390},
                 {std::make_exception_ptr(std::runtime_error("socket closed")),
                  ActionPickerView::Phase::error(QStringLiteral("socket closed")), 990}};
    for (const auto& c : cases) {
        dismissals = 0;
        fixThrows = c.thrown;
        picker = makePicker();
        sinceFinish.start();
        press(Qt::Key_Return);
        if (!c.thrown && pending)
            pending(nullptr);
        EXPECT_EQ(picker->phase(), c.phase);
        testutil::processEventsFor(std::chrono::milliseconds(c.minimum - 150));
        EXPECT_EQ(dismissals, 0);
        ASSERT_TRUE(testutil::waitUntil([&] { return dismissals > 0; }, 4s));
        EXPECT_GE(dismissedAfter, c.minimum);
        EXPECT_LT(dismissedAfter, c.minimum + 1500);
        testutil::processEventsFor(200ms);
        EXPECT_EQ(dismissals, 1);
    }
}

// Keys change nothing while the action runs or its outcome shows; of two completions from
// another thread the first counts, on the main thread.
TEST_F(PickerTest, KeysChangeNothingWhileBusyAndTheFirstCompletionCounts) {
    press(Qt::Key_Return);
    const auto pressAll = [&] {
        for (Qt::Key key : {Qt::Key_Return, Qt::Key_Escape, Qt::Key_Left, Qt::Key_Right, Qt::Key_Up,
                            Qt::Key_Down})
            press(key);
    };
    pressAll();
    EXPECT_EQ(picker->phase().kind(), Kind::loading);
    EXPECT_EQ(fixCalls, 1);
    EXPECT_EQ(picker->selected(), 0);

    ActionPickerView::Completion done = pending;
    std::thread worker([done] {
        done(nullptr);
        done(std::make_exception_ptr(std::runtime_error("late")));
    });
    worker.join();
    EXPECT_EQ(picker->phase().kind(), Kind::loading) << "delivered on the main thread, later";
    ASSERT_TRUE(testutil::waitUntil([&] { return picker->phase().kind() != Kind::loading; }));
    testutil::processEventsFor(50ms);
    EXPECT_EQ(picker->phase().kind(), Kind::success) << "the first outcome counts";
    pressAll();
    EXPECT_EQ(picker->phase().kind(), Kind::success);
    EXPECT_EQ(dismissals, 0);
    EXPECT_EQ(fixCalls, 1);
}

TEST_F(PickerTest, ClicksSelectAndTheDimmedRowIgnoresThem) {
    click(picker->buttonCenter(1));
    EXPECT_EQ(picker->phase().kind(), Kind::custom);
    EXPECT_EQ(picker->selected(), 1);
    EXPECT_TRUE(ui::KeyHandler::shared().allowTyping());

    // The row stays dimmed under the open field: clicking where the fix button was does not
    // run it.
    click(picker->buttonCenter(0));
    click(picker->buttonCenter(1));
    EXPECT_EQ(picker->phase().kind(), Kind::custom);
    EXPECT_EQ(fixCalls, 0);

    press(Qt::Key_Escape);
    testutil::processEventsFor(600ms); // the field is gone
    click(picker->buttonCenter(0));
    EXPECT_EQ(fixCalls, 1);
    EXPECT_EQ(picker->phase().kind(), Kind::loading);
}

TEST_F(PickerTest, AReplacedPickerLeavesItsSuccessorInCharge) {
    openField();
    ActionPickerView* first = picker;
    QPointer<ActionPickerView> guard(first);
    picker = makePicker(); // a new trigger while the field was open
    EXPECT_TRUE(guard.isNull());
    EXPECT_FALSE(ui::KeyHandler::shared().allowTyping()) << "a new picker starts with typing off";

    press(Qt::Key_Right);
    EXPECT_EQ(picker->selected(), 1) << "keys go to the new picker";
    press(Qt::Key_Left);
    press(Qt::Key_Return);
    EXPECT_EQ(fixCalls, 1);
}
