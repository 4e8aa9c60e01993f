// The accessibility backend against real applications on the accessibility bus: mousepad
// (GTK 3) and the Qt text app.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "tests/x11/GeometryPrinters.h"

#include <QElapsedTimer>
#include <algorithm>
#include <csignal>
#include <future>
#include <gtest/gtest.h>

using namespace platform;
using namespace std::chrono_literals;
using freedesktop::AtspiAccessibility;

namespace {

const QString sampleText = QStringLiteral("The quick brown fox jumps over the lazy dog\n"
                                          "and the second line follows here");

bool inside(const Rect& inner, const Rect& outer) {
    return inner.minX() >= outer.minX() && inner.maxX() <= outer.maxX() &&
           inner.minY() >= outer.minY() && inner.maxY() <= outer.maxY();
}

class AccessibilityTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(accessibility.setAccessibilityEnabled(true)); }

    AXRef focusedElementOf(qint64 pid) { return x11test::focusedElement(accessibility, pid, 10s); }
    std::optional<QString> text(const AXRef& element, const char* attribute) {
        const auto result = accessibility.copyAttributeValue(element, attribute);
        return result.error == ax::success ? axString(result.value) : std::nullopt;
    }
    template <typename T> std::optional<T> value(const AXResult& result) {
        T value;
        if (result.error != ax::success || !axValueGetValue(result.value, value))
            return std::nullopt;
        return value;
    }
    std::optional<CFRange> selectedRange(const AXRef& element) {
        return value<CFRange>(accessibility.copyAttributeValue(element, axattr::selectedTextRange));
    }
    std::optional<Rect> bounds(const AXRef& element, CFRange range) {
        return value<Rect>(accessibility.copyParameterizedAttributeValue(
            element, axattr::boundsForRange, makeAX(range)));
    }
    AXError errorOf(const AXRef& element, const char* attribute) {
        return accessibility.copyAttributeValue(element, attribute).error;
    }
    AXError errorOf(const AXRef& element, const char* attribute, const AXRef& parameter) {
        return accessibility.copyParameterizedAttributeValue(element, attribute, parameter).error;
    }

    // Checks the whole selection story on the focused element of one application.
    void expectSelectionStory(qint64 pid, const QString& expectedRole) {
        const AXRef app = accessibility.createApplication(static_cast<std::int32_t>(pid));
        const auto windows = accessibility.copyAttributeValue(app, axattr::windows);
        ASSERT_EQ(windows.error, ax::success);
        const auto* list = std::get_if<std::vector<AXRef>>(&windows.value->payload());
        ASSERT_NE(list, nullptr);
        EXPECT_FALSE(list->empty());

        const AXRef focused = focusedElementOf(pid);
        ASSERT_NE(focused, nullptr);
        EXPECT_EQ(text(focused, axattr::role), expectedRole);
        EXPECT_EQ(text(focused, axattr::selectedText), QStringLiteral("quick brown"));
        const auto range = selectedRange(focused);
        ASSERT_TRUE(range);
        EXPECT_EQ(*range, (CFRange{4, 11}));

        const auto position =
            value<Point>(accessibility.copyAttributeValue(focused, axattr::position));
        const auto size = value<Size>(accessibility.copyAttributeValue(focused, axattr::size));
        ASSERT_TRUE(position && size);
        const Rect element{position->x, position->y, size->width, size->height};
        EXPECT_GT(element.width, 100);
        EXPECT_GT(element.height, 10);

        const auto selection = bounds(focused, *range);
        ASSERT_TRUE(selection);
        EXPECT_TRUE(inside(*selection, element)) << ::testing::PrintToString(*selection);
        EXPECT_GT(selection->width, 20);
        EXPECT_GT(selection->height, 5);
        // "The " comes before the selection on the same line; a longer range reaches further.
        const auto before = bounds(focused, CFRange{0, 4});
        const auto longer = bounds(focused, CFRange{4, 20});
        ASSERT_TRUE(before && longer);
        EXPECT_LE(before->maxX(), selection->minX() + 1);
        EXPECT_NEAR(before->y, selection->y, 2);
        EXPECT_GT(longer->maxX(), selection->maxX());

        // The rectangle is where the text is on screen: a click in its middle puts the caret
        // inside the selected words.
        x11test::xdotool(QStringLiteral("mousemove %1 %2 click 1")
                             .arg(int(selection->x + selection->width / 2))
                             .arg(int(selection->y + selection->height / 2)));
        std::optional<CFRange> caret;
        EXPECT_TRUE(testutil::waitUntil([&] {
            caret = selectedRange(focused);
            return caret && caret->length == 0;
        }));
        ASSERT_TRUE(caret);
        EXPECT_GT(caret->location, 4);
        EXPECT_LT(caret->location, 15);
        // No selection now: an empty selected text, and the caret's bounds at the click.
        EXPECT_EQ(text(focused, axattr::selectedText), QString());
        const auto caretBounds = bounds(focused, *caret);
        ASSERT_TRUE(caretBounds);
        EXPECT_EQ(caretBounds->width, 0);
        EXPECT_NEAR(caretBounds->x, selection->x + selection->width / 2, selection->width / 2 + 1);
        EXPECT_NEAR(caretBounds->y, selection->y, 3);
    }

    AtspiAccessibility accessibility;
};

} // namespace

TEST_F(AccessibilityTest, MousepadSelectionIsReadWithItsRangeAndScreenBounds) {
    auto mousepad = x11test::startMousepad(sampleText);
    ASSERT_NE(mousepad, nullptr);
    x11test::selectWithKeys(4, 11); // "quick brown"
    expectSelectionStory(mousepad->pid(), QStringLiteral("text"));
}

TEST_F(AccessibilityTest, QtTextWidgetsAnswerTheSameWay) {
    {
        auto editor = x11test::startQtTextApp(sampleText, 4, 11);
        ASSERT_NE(editor, nullptr);
        expectSelectionStory(editor->pid(), QStringLiteral("text"));
    }
    auto field = x11test::startQtTextApp(QStringLiteral("The quick brown fox"), 4, 11, true);
    ASSERT_NE(field, nullptr);
    const AXRef focused = focusedElementOf(field->pid());
    ASSERT_NE(focused, nullptr);
    EXPECT_EQ(text(focused, axattr::selectedText), QStringLiteral("quick brown"));
    EXPECT_EQ(text(focused, "AXValue"), QStringLiteral("The quick brown fox"));
}

TEST_F(AccessibilityTest, TrustFollowsTheDesktopSwitchAndThePromptTurnsItOn) {
    ASSERT_TRUE(accessibility.setAccessibilityEnabled(false));
    EXPECT_FALSE(accessibility.isProcessTrusted());
    // A Qt application started while accessibility is off, and not told by its environment to
    // join anyway, stays off the bus until it restarts.
    const testutil::ScopedEnv withoutAlwaysOn("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", std::nullopt);
    auto before = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(before, nullptr);
    const AXRef beforeApp =
        accessibility.createApplication(static_cast<std::int32_t>(before->pid()));
    EXPECT_EQ(errorOf(beforeApp, axattr::focusedUIElement), ax::apiDisabled);

    support::LogCapture log;
    EXPECT_TRUE(accessibility.isProcessTrustedWithPrompt());
    ASSERT_EQ(log.records().size(), 2);
    EXPECT_TRUE(log.records().first().contains(
        QLatin1String("gsettings set org.gnome.desktop.interface toolkit-accessibility true")));
    EXPECT_TRUE(log.records().last().endsWith(QLatin1String(": mendwise_qt_text_app")))
        << log.records().last().toStdString();
    EXPECT_EQ(errorOf(beforeApp, axattr::focusedUIElement), ax::cannotComplete);
    // One started afterwards joins.
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    const AXRef app = accessibility.createApplication(static_cast<std::int32_t>(editor->pid()));
    EXPECT_NE(focusedElementOf(editor->pid()), nullptr);
    EXPECT_TRUE(accessibility.isProcessTrusted());
    EXPECT_EQ(errorOf(app, axattr::focusedUIElement), ax::success);
    // Already on: the prompt has nothing to say.
    EXPECT_TRUE(accessibility.isProcessTrustedWithPrompt());
    EXPECT_EQ(log.records().size(), 2);
}

TEST_F(AccessibilityTest, FailuresMapOntoAccessibilityErrors) {
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    const AXRef app = accessibility.createApplication(static_cast<std::int32_t>(editor->pid()));
    const AXRef focused = focusedElementOf(editor->pid());
    ASSERT_NE(focused, nullptr);

    EXPECT_EQ(errorOf(app, axattr::role), ax::success);
    EXPECT_EQ(errorOf(focused, "AXNoSuchThing"), ax::attributeUnsupported);
    EXPECT_EQ(errorOf(focused, "AXLineForIndex", makeAX(1.0)),
              ax::parameterizedAttributeUnsupported);
    EXPECT_EQ(errorOf(focused, axattr::boundsForRange, makeAX(QStringLiteral("0-4"))),
              ax::illegalArgument);
    EXPECT_EQ(errorOf(focused, axattr::boundsForRange, makeAX(CFRange{-1, 4})),
              ax::illegalArgument);
    EXPECT_EQ(errorOf(nullptr, axattr::role), ax::illegalArgument);
    EXPECT_EQ(errorOf(makeAX(QStringLiteral("not an element")), axattr::role), ax::illegalArgument);
    // A process with no application on the bus.
    EXPECT_EQ(errorOf(accessibility.createApplication(1), axattr::focusedUIElement),
              ax::cannotComplete);
    // An element whose application has gone.
    editor->stop();
    EXPECT_EQ(errorOf(focused, axattr::selectedText), ax::invalidUIElement);
    EXPECT_EQ(errorOf(app, axattr::focusedUIElement), ax::cannotComplete);
}

TEST_F(AccessibilityTest, AHungApplicationCostsBoundedTime) {
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    AtspiAccessibility impatient({300ms, 800ms});
    const AXRef focused = focusedElementOf(editor->pid());
    ASSERT_NE(focused, nullptr);
    const AXRef app = impatient.createApplication(static_cast<std::int32_t>(editor->pid()));
    ASSERT_EQ(impatient.copyAttributeValue(app, axattr::focusedUIElement).error, ax::success);

    ASSERT_EQ(::kill(static_cast<pid_t>(editor->pid()), SIGSTOP), 0);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(impatient.copyAttributeValue(focused, axattr::selectedText).error,
              ax::cannotComplete);
    EXPECT_EQ(impatient.copyAttributeValue(app, axattr::focusedUIElement).error,
              ax::cannotComplete);
    EXPECT_LT(timer.elapsed(), 3000);
    ::kill(static_cast<pid_t>(editor->pid()), SIGCONT);
    EXPECT_TRUE(testutil::waitUntil([&] {
        return impatient.copyAttributeValue(focused, axattr::selectedText).error == ax::success;
    }));
}

TEST_F(AccessibilityTest, ReadsWorkFromSeveralThreadsAtOnce) {
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    ASSERT_NE(focusedElementOf(editor->pid()), nullptr);
    const auto pid = static_cast<std::int32_t>(editor->pid());
    std::atomic<int> correct{0};
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i) {
                const auto app = accessibility.createApplication(pid);
                const auto focused =
                    accessibility.copyAttributeValue(app, axattr::focusedUIElement);
                if (focused.error != ax::success)
                    continue;
                if (text(focused.value, axattr::selectedText) == QStringLiteral("quick brown"))
                    ++correct;
            }
        });
    }
    // Geometry reads hop to this (GUI) thread: keep its event loop running meanwhile.
    testutil::waitUntil([&] { return correct.load() == 15; }, 20s);
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(correct.load(), 15);
}
