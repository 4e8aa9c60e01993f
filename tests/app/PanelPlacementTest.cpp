#include "app/PanelPlacement.h"

#include "platform/sim/SimDesktop.h"

#include <gtest/gtest.h>

using platform::Point;
using platform::Screen;
using platform::sim::SimDesktop;
using namespace placement;

namespace {

// 1440 x 900 with the menu bar taking the top 25 points.
const Screen laptop{{0, 0, 1440, 900}, {0, 0, 1440, 875}};
// To the right of it, 1920 x 1080, with a dock along its bottom.
const Screen external{{1440, 0, 1920, 1080}, {1440, 60, 1920, 1020}};

Point clamp(Point origin, SimDesktop& desktop, double width = panelWidth,
            double height = panelHeight) {
    return clampToVisibleFrame(origin.x, origin.y, width, height, desktop);
}

} // namespace

TEST(PanelPlacement, OneScreenWithStrictEdgesAndTheLeftAndBottomMarginsWinning) {
    SimDesktop desktop;
    desktop.setScreens({laptop});

    // Well inside, the candidate stands (AppDelegateTest checks that through the controller).
    // Past the right edge: 1440 < 1404 + 240, so x = 1440 - 240 - 8.
    EXPECT_EQ(panelOrigin(Point{1400, 400}, desktop), (Point{1192, 252}));
    // Below the screen: no screen holds (504, -48), the main one is used, y = 0 + 8.
    EXPECT_EQ(panelOrigin(Point{500, 100}, desktop), (Point{504, 8}));
    // Past the top of the visible frame: y = 875 - 140 - 8.
    EXPECT_EQ(panelOrigin(Point{500, 890}, desktop), (Point{504, 727}));
    // Touching the right and top edges exactly is fine.
    EXPECT_EQ(clamp({1200, 735}, desktop), (Point{1200, 735}));
    // One point over each.
    EXPECT_EQ(clamp({1201, 736}, desktop), (Point{1192, 727}));
    // At the left and bottom edges exactly: left alone.
    EXPECT_EQ(clamp({0, 0}, desktop), (Point{0, 0}));
    // Too wide and too high for the frame: moved right of the left edge, above the bottom.
    EXPECT_EQ(clamp({100, 100}, desktop, 2000, 1000), (Point{8, 8}));
}

TEST(PanelPlacement, ChoosesTheScreenHoldingTheOrigin) {
    SimDesktop desktop;
    desktop.setScreens({laptop, external});

    // Inside the external screen: clamped into its visible frame (right 3360, bottom 60).
    EXPECT_EQ(clamp({3300, 500}, desktop), (Point{3112, 500}));
    EXPECT_EQ(clamp({2000, 20}, desktop), (Point{2000, 68}));
    // The shared edge x = 1440 belongs to the external screen, not to the laptop.
    EXPECT_EQ(clamp({1440, 20}, desktop), (Point{1440, 68}));
    // In no screen: the main screen (the laptop here) decides, even far to the right.
    EXPECT_EQ(clamp({3000, -48}, desktop), (Point{1192, 8}));
    // With the external screen as the main one.
    desktop.setScreens({laptop, external}, 1);
    EXPECT_EQ(clamp({3000, -48}, desktop), (Point{3000, 68}));
    // With no main screen, the first of the list.
    desktop.setScreens({external, laptop}, std::nullopt);
    EXPECT_EQ(clamp({-500, 300}, desktop), (Point{1448, 300}));
    // With no screen at all, the origin stays.
    desktop.setScreens({}, std::nullopt);
    EXPECT_EQ(clamp({-5000, 99999}, desktop), (Point{-5000, 99999}));
}
