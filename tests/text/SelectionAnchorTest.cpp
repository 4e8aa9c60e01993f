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

TEST_F(SelectionAnchorTest, FallsBackToTheFocusedElement) {
    // No selected-text range at all.
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedTextRange"),
                      AXAnswer::failure(platform::ax::attributeUnsupported));
    EXPECT_EQ(anchorOf(), (Point{250, 500}));
    desktop.clearAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedTextRange"));

    // A range, but its bounds fail; then bounds of the wrong kind.
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXBoundsForRange"),
                      AXAnswer::failure(platform::ax::cannotComplete));
    EXPECT_EQ(anchorOf(), (Point{250, 500}));
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXBoundsForRange"),
                      AXAnswer::with(Point{1, 2}));
    desktop.clearAccessibilityCalls();
    EXPECT_EQ(anchorOf(), (Point{250, 500}));
    EXPECT_THAT(desktop.accessibilityCallLog(),
                ElementsAre(QStringLiteral("isProcessTrusted"),
                            QStringLiteral("createApplication 42"),
                            QStringLiteral("read 42 application AXFocusedUIElement"),
                            QStringLiteral("read 42 focused AXSelectedTextRange"),
                            QStringLiteral("readParameterized 42 focused AXBoundsForRange"),
                            QStringLiteral("read 42 focused AXPosition"),
                            QStringLiteral("read 42 focused AXSize")));

    // A range that is present but empty-valued goes straight to the element.
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSelectedTextRange"),
                      AXAnswer::noValue());
    EXPECT_EQ(anchorOf(), (Point{250, 500}));

    // An element position of the wrong kind counts as zero.
    desktop.setSelectionBounds(editorPid, std::nullopt);
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXPosition"),
                      AXAnswer::with(platform::Size{7, 7}));
    EXPECT_EQ(anchorOf(), (Point{200, 600}));
}

TEST_F(SelectionAnchorTest, NoAnchorWithoutUsableGeometryFocusOrTrust) {
    desktop.setSelectionBounds(editorPid, std::nullopt);

    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSize"),
                      AXAnswer::failure(platform::ax::attributeUnsupported));
    EXPECT_EQ(anchorOf(), std::nullopt);

    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXSize"), AXAnswer::noValue());
    EXPECT_EQ(anchorOf(), std::nullopt);

    // A failed position read means the size is never asked for.
    desktop.setAnswer(editorPid, Element::focused, QStringLiteral("AXPosition"),
                      AXAnswer::failure(platform::ax::cannotComplete));
    desktop.clearAccessibilityCalls();
    EXPECT_EQ(anchorOf(), std::nullopt);
    EXPECT_FALSE(desktop.accessibilityCallLog().contains(QStringLiteral("read 42 focused AXSize")));

    // No focused element, or one without a value.
    desktop.setFocusedElement(editorPid, false);
    EXPECT_EQ(anchorOf(), std::nullopt);

    desktop.setFocusedElement(editorPid, true);
    desktop.setAnswer(editorPid, Element::application, QStringLiteral("AXFocusedUIElement"),
                      AXAnswer::noValue());
    EXPECT_EQ(anchorOf(), std::nullopt);

    // An application that is gone.
    EXPECT_EQ(anchorOf(9999), std::nullopt);

    // Without trust, no application is asked at all.
    desktop.setTrusted(false);
    desktop.clearAccessibilityCalls();
    EXPECT_EQ(anchorOf(), std::nullopt);
    EXPECT_THAT(desktop.accessibilityCallLog(), ElementsAre(QStringLiteral("isProcessTrusted")));
}
