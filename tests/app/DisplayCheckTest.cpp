#include "app/DisplayCheck.h"

#include <QHash>
#include <gtest/gtest.h>

using app::DisplayCheck;
using Outcome = DisplayCheck::Outcome;

TEST(DisplayCheck, PrefersNativeWaylandAndNamesWhatIsWrong) {
    struct Case {
        QHash<QString, QString> env;
        bool x11Connects;
        bool waylandConnects;
        Outcome outcome;
        QString inMessage; // empty: no message at all
    };
    const QHash<QString, QString> x11{{"DISPLAY", ":0"}};
    const QHash<QString, QString> wayland{{"WAYLAND_DISPLAY", "wayland-0"}};
    const QHash<QString, QString> both{{"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-0"}};
    const Case cases[] = {
        {x11, true, true, Outcome::x11, {}},
        {wayland, false, true, Outcome::wayland, {}},
        {both, true, true, Outcome::wayland, {}},
        {both, true, false, Outcome::x11, "X11 applications only"},
        {{{"WAYLAND_DISPLAY", "wayland-9"}}, true, false, Outcome::unavailable, "\"wayland-9\""},
        {{}, true, true, Outcome::unavailable, "neither WAYLAND_DISPLAY nor DISPLAY"},
        {{{"DISPLAY", ":7"}}, false, true, Outcome::unavailable, "\":7\""},
    };
    for (const Case& c : cases) {
        const auto result = app::checkDisplay(
            [&](const char* name) { return c.env.value(QString::fromLatin1(name)); },
            [&](const QString&) { return c.x11Connects; },
            [&](const QString&) { return c.waylandConnects; });
        SCOPED_TRACE(c.inMessage.toStdString());
        EXPECT_EQ(result.outcome, c.outcome);
        if (c.inMessage.isEmpty())
            EXPECT_TRUE(result.message.isEmpty());
        else
            EXPECT_TRUE(result.message.contains(c.inMessage)) << result.message.toStdString();
    }
}
