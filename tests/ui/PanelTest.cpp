// The floating panel and the key routing of KeyHandler, offscreen.
#include "tests/common/TestUtil.h"
#include "ui/FloatingPanel.h"
#include "ui/KeyHandler.h"
#include "ui/ScreenGeometry.h"

#include <QLineEdit>
#include <QTest>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using ui::FloatingPanel;
using ui::KeyHandler;

namespace {

// A panel whose content is a text field, as the picker's instruction field would be.
class PanelTest : public ::testing::Test {
protected:
    void SetUp() override {
        field = new QLineEdit;
        panel.setContentView(field);
        panel.show(platform::Rect{100, 100, 240, 140});
        field->setFocus();
        KeyHandler::shared().reset();
    }
    void TearDown() override {
        KeyHandler::shared().reset();
        panel.hide([] {});
        ASSERT_TRUE(testutil::waitUntil([&] { return !panel.isVisible(); }));
    }

    FloatingPanel panel;
    QLineEdit* field = nullptr;
};

} // namespace

TEST_F(PanelTest, PassesEverythingOnWithoutOnKeyAndForOtherWindows) {
    QTest::keyClicks(field, QStringLiteral("ab"));
    EXPECT_EQ(field->text(), QStringLiteral("ab")) << "no onKey: keys reach the field";

    std::vector<std::uint16_t> seen;
    KeyHandler::shared().setOnKey([&seen](std::uint16_t key) { seen.push_back(key); });
    QLineEdit settingsField; // any other window, such as the settings window
    settingsField.show();
    QTest::keyClicks(&settingsField, QStringLiteral("xy"));
    QTest::keyClick(&settingsField, Qt::Key_Escape);
    EXPECT_EQ(settingsField.text(), QStringLiteral("xy"));
    EXPECT_TRUE(seen.empty());
}

// The panel fades in from transparent (where show() places it, the controller's tests check);
// a show during the hide fade keeps it and ends that hide at once.
TEST_F(PanelTest, FadesInAndAShowDuringTheHideFadeKeepsIt) {
    EXPECT_TRUE(panel.isVisible());
    EXPECT_LT(panel.windowOpacity(), 0.5);
    ASSERT_TRUE(testutil::waitUntil([&] { return panel.windowOpacity() == 1.0; }, 2s));

    int completions = 0;
    panel.hide([&] { ++completions; });
    testutil::processEventsFor(40ms);
    panel.show(platform::Rect{100, 100, 240, 140});
    EXPECT_EQ(completions, 1) << "the cancelled hide ends at once";
    testutil::processEventsFor(500ms);
    EXPECT_TRUE(panel.isVisible());
    EXPECT_DOUBLE_EQ(panel.windowOpacity(), 1.0);
    EXPECT_EQ(completions, 1);
}

TEST(KeyHandlerOwnership, ClearingOnlyRemovesTheOwnersOwnRouting) {
    KeyHandler& keys = KeyHandler::shared();
    int a = 0; // each counter is also its routing's owner
    int b = 0;
    keys.setOnKey([&](std::uint16_t) { ++a; }, &a);
    keys.setOnKey([&](std::uint16_t) { ++b; }, &b);
    keys.clearOnKey(&a);
    ASSERT_TRUE(keys.onKey());
    keys.onKey()(36);
    EXPECT_EQ(b, 1);
    EXPECT_EQ(a, 0);
    keys.clearOnKey(&b);
    EXPECT_FALSE(keys.onKey());
}

TEST(ScreenGeometry, FlipsGlobalFramesAgainstThePrimaryScreen) {
    // Global y counts up from the primary screen's bottom edge.
    EXPECT_EQ(ui::qtRectFromGlobal({504, 252, 240, 140}, QRect(0, 0, 1440, 900)),
              QRect(504, 508, 240, 140));
    // A primary screen that does not start at Qt's origin.
    EXPECT_EQ(ui::qtRectFromGlobal({10, 20, 100, 50}, QRect(1920, 100, 1280, 1024)),
              QRect(1930, 1054, 100, 50));
    // A frame on a screen above the primary one has a negative Qt y.
    EXPECT_EQ(ui::qtRectFromGlobal({0, 1000, 240, 140}, QRect(0, 0, 1440, 900)),
              QRect(0, -240, 240, 140));
}
