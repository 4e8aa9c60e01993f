// Screens and the mouse from Qt, in global bottom-left coordinates, on the 1440x900 test screen.
#include "platform/freedesktop/QtScreens.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "tests/x11/GeometryPrinters.h"

#include <gtest/gtest.h>

using namespace platform;

TEST(Screens, TheTestScreenInGlobalCoordinates) {
    freedesktop::QtScreens screens;
    const auto all = screens.screens();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].frame, (Rect{0, 0, 1440, 900}));
    const Rect visible = all[0].visibleFrame;
    EXPECT_GE(visible.minX(), 0);
    EXPECT_GE(visible.minY(), 0);
    EXPECT_LE(visible.maxX(), 1440);
    EXPECT_LE(visible.maxY(), 900);
    EXPECT_GT(visible.width * visible.height, 0);
    EXPECT_EQ(screens.mainScreen(), all[0]);
}

TEST(Screens, TheMouseIsMeasuredFromTheBottom) {
    freedesktop::QtScreens screens;
    x11test::xdotool(QStringLiteral("mousemove 100 200"));
    EXPECT_TRUE(testutil::waitUntil([&] {
        return screens.mouseLocation() == Point{100, 700};
    })) << screens.mouseLocation().x
        << "," << screens.mouseLocation().y;

    // From another thread the answer is fetched from the GUI thread.
    x11test::xdotool(QStringLiteral("mousemove 1439 0"));
    EXPECT_EQ(x11test::offMainThread([&] { return screens.mouseLocation(); }), (Point{1439, 900}));
    EXPECT_EQ(x11test::offMainThread([&] { return screens.screens(); }), screens.screens());
}
