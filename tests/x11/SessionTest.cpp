#include "platform/x11/Session.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

using platform::x11::unsupportedSessionMessage;
using testutil::ScopedEnv;

// This program's QApplication runs on the offscreen platform; only the X11 desktop tests run
// on xcb.
TEST(Session, WaylandAndMissingDisplaysAreNamed) {
    {
        ScopedEnv type("XDG_SESSION_TYPE", QStringLiteral("wayland"));
        ScopedEnv display("DISPLAY", QStringLiteral(":0"));
        ASSERT_TRUE(unsupportedSessionMessage());
        EXPECT_TRUE(unsupportedSessionMessage()->startsWith(
            QLatin1String("Wayland sessions are not yet supported")));
    }
    {
        ScopedEnv type("XDG_SESSION_TYPE", QStringLiteral("x11"));
        ScopedEnv wayland("WAYLAND_DISPLAY", QStringLiteral("wayland-0"));
        ASSERT_TRUE(unsupportedSessionMessage());
        EXPECT_TRUE(unsupportedSessionMessage()->startsWith(QLatin1String("Wayland")));
    }
    {
        ScopedEnv type("XDG_SESSION_TYPE", std::nullopt);
        ScopedEnv wayland("WAYLAND_DISPLAY", std::nullopt);
        ScopedEnv display("DISPLAY", std::nullopt);
        ASSERT_TRUE(unsupportedSessionMessage());
        EXPECT_TRUE(unsupportedSessionMessage()->contains(QLatin1String("DISPLAY is not set")));
    }
    {
        ScopedEnv type("XDG_SESSION_TYPE", QStringLiteral("x11"));
        ScopedEnv wayland("WAYLAND_DISPLAY", std::nullopt);
        ScopedEnv display("DISPLAY", QStringLiteral(":0"));
        ASSERT_TRUE(unsupportedSessionMessage());
        EXPECT_TRUE(unsupportedSessionMessage()->contains(QLatin1String("\"offscreen\" platform")));
    }
}
