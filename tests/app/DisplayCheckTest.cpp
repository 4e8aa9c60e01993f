#include "app/DisplayCheck.h"

#include <QHash>
#include <gtest/gtest.h>

using app::DisplayCheck;

namespace {

DisplayCheck check(const QHash<QString, QString>& env, bool connects = true) {
    QString triedDisplay;
    auto result =
        app::checkDisplay([&](const char* name) { return env.value(QString::fromLatin1(name)); },
                          [&](const QString& display) {
                              triedDisplay = display;
                              return connects;
                          });
    return result;
}

} // namespace

TEST(DisplayCheck, X11SessionRunsQuietly) {
    const auto result = check({{"DISPLAY", ":0"}, {"XDG_SESSION_TYPE", "x11"}});
    EXPECT_EQ(result.outcome, DisplayCheck::Outcome::x11);
    EXPECT_TRUE(result.message.isEmpty());
}

TEST(DisplayCheck, WaylandIsToldPlainly) {
    const auto xwayland = check({{"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-0"}});
    EXPECT_EQ(xwayland.outcome, DisplayCheck::Outcome::xwayland);
    EXPECT_TRUE(xwayland.message.contains(QStringLiteral("Wayland is not supported yet")));

    const auto pure = check({{"XDG_SESSION_TYPE", "Wayland"}});
    EXPECT_EQ(pure.outcome, DisplayCheck::Outcome::unavailable);
    EXPECT_TRUE(pure.message.contains(QStringLiteral("DISPLAY is not set")));
}

TEST(DisplayCheck, MissingOrUnreachableDisplayNamesWhatIsWrong) {
    const auto none = check({});
    EXPECT_EQ(none.outcome, DisplayCheck::Outcome::unavailable);
    EXPECT_TRUE(none.message.contains(QStringLiteral("DISPLAY is not set")));

    const auto refused = check({{"DISPLAY", ":7"}}, false);
    EXPECT_EQ(refused.outcome, DisplayCheck::Outcome::unavailable);
    EXPECT_TRUE(refused.message.contains(QStringLiteral("\":7\"")));
}
