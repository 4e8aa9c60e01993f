#include "tests/text/TextExchangeFixture.h"

#include <gmock/gmock.h>

using platform::Point;
using platform::Rect;
using platform::Screen;
using platform::sim::AXAnswer;
using platform::sim::Element;
using testing::ElementsAre;

class SelectionAnchorTest : public TextExchangeTest {
protected:
    void SetUp() override {
        TextExchangeTest::SetUp();
        desktop.setText(editorPid, QStringLiteral("Some text here"), {5, 4});
        desktop.setSelectionBounds(editorPid, Rect{100, 200, 300, 20});
        desktop.setElementFrame(editorPid, Rect{50, 100, 400, 300});
    }

    std::optional<Point> anchorOf(std::int32_t pid = editorPid) {
        return TextSelectionService::selectionAnchor(pid, desktop, desktop);
    }
};

TEST_F(SelectionAnchorTest, BelowTheRightEndOfTheSelection) {
    EXPECT_EQ(anchorOf(), (Point{400, 680}));
    EXPECT_THAT(desktop.accessibilityCallLog(),
                ElementsAre(QStringLiteral("isProcessTrusted"),
                            QStringLiteral("createApplication 42"),
                            QStringLiteral("read 42 application AXFocusedUIElement"),
                            QStringLiteral("read 42 focused AXSelectedTextRange"),
                            QStringLiteral("readParameterized 42 focused AXBoundsForRange")));

    // The flip uses the main screen's height, and 900 when there is no main screen.
    desktop.setScreens({Screen{{0, 0, 1920, 1080}, {0, 0, 1920, 1055}}});
    EXPECT_EQ(anchorOf(), (Point{400, 860}));
    desktop.setScreens({Screen{{0, 0, 1920, 1080}, {0, 0, 1920, 1055}}}, std::nullopt);
    EXPECT_EQ(anchorOf(), (Point{400, 680}));
    desktop.setScreens({}, std::nullopt);
    EXPECT_EQ(anchorOf(), (Point{400, 680}));

    // A bare caret still takes this path.
    desktop.setText(editorPid, QStringLiteral("Some text here"), {5, 0});
    desktop.setSelectionBounds(editorPid, Rect{140, 200, 0, 18});
    EXPECT_EQ(anchorOf(), (Point{140, 682}));
}

// Without usable bounds of the selection, the middle of the focused element; without its frame
// either, no anchor. One answer differs in each case.
TEST_F(SelectionAnchorTest, FallsBackToTheFocusedElementThenToNone) {
    const std::optional<Point> middle = Point{250, 500};
    const struct {
        bool bounds; // whether the selection has any
        Element element;
        const char* attribute;
        AXAnswer answer;
        std::optional<Point> anchor;
    } cases[] = {
        {true, Element::focused, "AXSelectedTextRange",
         AXAnswer::failure(platform::ax::attributeUnsupported), middle},
        {true, Element::focused, "AXSelectedTextRange", AXAnswer::noValue(), middle},
        {true, Element::focused, "AXBoundsForRange",
         AXAnswer::failure(platform::ax::cannotComplete), middle},
        {true, Element::focused, "AXBoundsForRange", AXAnswer::with(Point{1, 2}), middle},
        // An element position of the wrong kind counts as zero.
        {false, Element::focused, "AXPosition", AXAnswer::with(platform::Size{7, 7}),
         Point{200, 600}},
        {false, Element::focused, "AXPosition", AXAnswer::failure(platform::ax::cannotComplete),
         std::nullopt},
        {false, Element::focused, "AXSize", AXAnswer::failure(platform::ax::attributeUnsupported),
         std::nullopt},
        {false, Element::focused, "AXSize", AXAnswer::noValue(), std::nullopt},
        {true, Element::application, "AXFocusedUIElement", AXAnswer::noValue(), std::nullopt},
    };
    for (const auto& c : cases) {
        const QString attribute = QString::fromLatin1(c.attribute);
        desktop.setSelectionBounds(editorPid, c.bounds ? std::optional(Rect{100, 200, 300, 20})
                                                       : std::nullopt);
        desktop.setAnswer(editorPid, c.element, attribute, c.answer);
        desktop.clearAccessibilityCalls();
        EXPECT_EQ(anchorOf(), c.anchor) << c.attribute;
        if (c.answer.error != platform::ax::success && attribute == u"AXPosition") {
            EXPECT_FALSE(desktop.accessibilityCallLog().contains(
                QStringLiteral("read 42 focused AXSize"))); // never asked without a position
        }
        desktop.clearAnswer(editorPid, c.element, attribute);
    }
}

TEST_F(SelectionAnchorTest, NoAnchorWithoutFocusOrTrust) {
    // No focused element, or an application that is gone.
    desktop.setFocusedElement(editorPid, false);
    EXPECT_EQ(anchorOf(), std::nullopt);
    desktop.setFocusedElement(editorPid, true);
    EXPECT_EQ(anchorOf(9999), std::nullopt);

    // Without trust, no application is asked at all.
    desktop.setTrusted(false);
    desktop.clearAccessibilityCalls();
    EXPECT_EQ(anchorOf(), std::nullopt);
    EXPECT_THAT(desktop.accessibilityCallLog(), ElementsAre(QStringLiteral("isProcessTrusted")));
}
