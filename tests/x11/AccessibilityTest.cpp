// The accessibility backend against the Qt text app on the accessibility bus: what the apps
// matrix does not read, failures, hangs and threads.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "tests/x11/GeometryPrinters.h"

#include <QElapsedTimer>
#include <csignal>
#include <future>
#include <gtest/gtest.h>

using namespace platform;
using namespace std::chrono_literals;
using freedesktop::AtspiAccessibility;

namespace {

const QString sampleText = QStringLiteral("The quick brown fox jumps over the lazy dog\n"
                                          "and the second line follows here, with words "
                                          "enough to pass a hundred");

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
    AXError errorOf(const AXRef& element, const char* attribute) {
        return accessibility.copyAttributeValue(element, attribute).error;
    }
    AXError errorOf(const AXRef& element, const char* attribute, const AXRef& parameter) {
        return accessibility.copyParameterizedAttributeValue(element, attribute, parameter).error;
    }

    AtspiAccessibility accessibility;
};

} // namespace

// The selection's text and its corner on screen, and a bare caret's, are read in every
// application by the apps matrix. Here: the range, and the element's box (where the anchor falls
// back to) around the selection's, in a Qt editor; a one-line field's text.
TEST_F(AccessibilityTest, QtTextWidgetsGiveTheRangeAndTheBoxAroundIt) {
    {
        auto editor = x11test::startQtTextApp(sampleText, 4, 11);
        ASSERT_NE(editor, nullptr);
        const AXRef focused = focusedElementOf(editor->pid());
        ASSERT_NE(focused, nullptr);
        EXPECT_EQ(text(focused, axattr::role), QStringLiteral("text"));
        const auto range =
            value<CFRange>(accessibility.copyAttributeValue(focused, axattr::selectedTextRange));
        ASSERT_TRUE(range);
        EXPECT_EQ(*range, (CFRange{4, 11}));
        const auto position =
            value<Point>(accessibility.copyAttributeValue(focused, axattr::position));
        const auto size = value<Size>(accessibility.copyAttributeValue(focused, axattr::size));
        const auto bounds = [&](CFRange of) {
            return value<Rect>(accessibility.copyParameterizedAttributeValue(
                focused, axattr::boundsForRange, makeAX(of)));
        };
        const auto selection = bounds(*range);
        const auto before = bounds(CFRange{0, 4}); // "The "
        ASSERT_TRUE(position && size && selection && before);
        EXPECT_TRUE(inside(*selection, Rect{position->x, position->y, size->width, size->height}))
            << ::testing::PrintToString(*selection);
        // The box is the range's, not the line's.
        EXPECT_GT(selection->width, 20);
        EXPECT_LE(before->maxX(), selection->minX() + 1);
        // A range of over a hundred characters is placed by its two ends: it holds both.
        const auto length = static_cast<std::int64_t>(sampleText.size());
        const auto whole = bounds(CFRange{0, length});
        const auto last = bounds(CFRange{length - 1, 1});
        ASSERT_TRUE(whole && last);
        EXPECT_TRUE(inside(*before, *whole) && inside(*last, *whole))
            << ::testing::PrintToString(*whole) << " " << ::testing::PrintToString(*last);
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
    EXPECT_NE(focusedElementOf(editor->pid()), nullptr);
    EXPECT_TRUE(accessibility.isProcessTrusted());
    // Already on: the prompt has nothing to say.
    EXPECT_TRUE(accessibility.isProcessTrustedWithPrompt());
    EXPECT_EQ(log.records().size(), 2);
}

TEST_F(AccessibilityTest, FailuresMapOntoAccessibilityErrorsAndAHangCostsBoundedTime) {
    auto editor = x11test::startQtTextApp(sampleText, 4, 11);
    ASSERT_NE(editor, nullptr);
    const AXRef app = accessibility.createApplication(static_cast<std::int32_t>(editor->pid()));
    const AXRef focused = focusedElementOf(editor->pid());
    ASSERT_NE(focused, nullptr);

    EXPECT_EQ(errorOf(app, axattr::windows), ax::success);
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

    // A hung application costs the bound, then answers again.
    AtspiAccessibility impatient({300ms, 800ms});
    const AXRef impatientApp =
        impatient.createApplication(static_cast<std::int32_t>(editor->pid()));
    ASSERT_EQ(::kill(static_cast<pid_t>(editor->pid()), SIGSTOP), 0);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(impatient.copyAttributeValue(focused, axattr::selectedText).error,
              ax::cannotComplete);
    EXPECT_EQ(impatient.copyAttributeValue(impatientApp, axattr::focusedUIElement).error,
              ax::cannotComplete);
    EXPECT_LT(timer.elapsed(), 3000);
    ::kill(static_cast<pid_t>(editor->pid()), SIGCONT);
    EXPECT_TRUE(testutil::waitUntil([&] {
        return impatient.copyAttributeValue(focused, axattr::selectedText).error == ax::success;
    }));

    // An element whose application has gone.
    editor->stop();
    EXPECT_EQ(errorOf(focused, axattr::selectedText), ax::invalidUIElement);
    EXPECT_EQ(errorOf(app, axattr::focusedUIElement), ax::cannotComplete);
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
