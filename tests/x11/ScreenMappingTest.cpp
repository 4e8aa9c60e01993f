#include "platform/freedesktop/ScreenMapping.h"

#include "tests/x11/GeometryPrinters.h"

#include <gtest/gtest.h>

using platform::Point;
using platform::Rect;
using namespace platform::freedesktop;

namespace {

ScreenLayout singleScreen() {
    return {{{QRect(0, 0, 1440, 900), QRect(0, 25, 1440, 875), 1.0}}, 0};
}

// A 1920x1080 primary at (1440, 0) right of a 1440x900 screen at (0, 300), both at ratio 1,
// and a third, 2x screen (native 2560x1440, 1280x720 in Qt) at (3360, 0).
ScreenLayout threeScreens() {
    return {{{QRect(0, 300, 1440, 900), QRect(0, 300, 1440, 900), 1.0},
             {QRect(1440, 0, 1920, 1080), QRect(1440, 0, 1920, 1050), 1.0},
             {QRect(3360, 0, 1280, 720), QRect(3360, 0, 1280, 720), 2.0}},
            1};
}

} // namespace

TEST(ScreenMapping, QtRectanglesTurnIntoBottomLeftGlobalCoordinates) {
    const auto layout = singleScreen();
    EXPECT_EQ(globalFromQt(QRectF(0, 0, 1440, 900), layout), (Rect{0, 0, 1440, 900}));
    // The available area under a 25-pixel top panel keeps its bottom at y 0.
    EXPECT_EQ(globalFromQt(QRectF(0, 25, 1440, 875), layout), (Rect{0, 0, 1440, 875}));
    EXPECT_EQ(globalFromQt(QRectF(100, 200, 300, 20), layout), (Rect{100, 680, 300, 20}));
    EXPECT_EQ(globalFromQt(QPointF(700, 300), layout), (Point{700, 600}));
}

TEST(ScreenMapping, TheOriginIsThePrimaryScreensBottomLeftCorner) {
    const auto layout = threeScreens();
    EXPECT_EQ(globalFromQt(QRectF(1440, 0, 1920, 1080), layout), (Rect{0, 0, 1920, 1080}));
    // The left screen's bottom edge is 120 below the primary's.
    EXPECT_EQ(globalFromQt(QRectF(0, 300, 1440, 900), layout), (Rect{-1440, -120, 1440, 900}));
    EXPECT_EQ(globalFromQt(QPointF(1440, 1080), layout), (Point{0, 0}));
}

TEST(ScreenMapping, WithoutScreensCoordinatesOnlyFlip) {
    const ScreenLayout none;
    EXPECT_EQ(globalFromQt(QRectF(10, 20, 30, 40), none), (Rect{10, -60, 30, 40}));
}

TEST(ScreenMapping, NativePixelsBecomeAccessibilityPointsOfTheScreenTheyAreOn) {
    const auto layout = threeScreens();
    // On the primary screen: relative to its top-left corner.
    EXPECT_EQ(accessibilityFromNative(Point{1540, 50}, layout), (Point{100, 50}));
    // On the left screen, ratio 1: left of and below the primary's origin.
    EXPECT_EQ(accessibilityFromNative(Point{100, 400}, layout), (Point{-1340, 400}));
    // On the 2x screen: offsets inside it halve.
    EXPECT_EQ(accessibilityFromNative(Point{3360 + 400, 200}, layout), (Point{1920 + 200, 100}));
    EXPECT_EQ(accessibilityFromNative(Rect{3360 + 400, 200, 80, 40}, layout),
              (Rect{1920 + 200, 100, 40, 20}));
}

TEST(ScreenMapping, PointsOutsideEveryScreenUseThePrimarysRatio) {
    auto layout = threeScreens();
    layout.screens[1].devicePixelRatio = 2.0;
    EXPECT_EQ(accessibilityFromNative(Point{1440 + 5000, 40}, layout), (Point{2500, 20}));
}
