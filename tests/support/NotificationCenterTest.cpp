#include "support/NotificationCenter.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

using namespace support;

// Delivered by name (or to every name) with the user info, for as long as the observation
// lives, wherever it was moved.
TEST(NotificationCenter, DeliversByNameWithUserInfoWhileTheObservationLives) {
    NotificationCenter center;
    QStringList seen;
    QVariantMap lastInfo;
    auto a = center.addObserver(QStringLiteral("a"), [&](const Notification& n) {
        seen << QStringLiteral("a:") + n.name;
        lastInfo = n.userInfo;
    });
    auto all = center.addObserver(
        QString(), [&](const Notification& n) { seen << QStringLiteral("*:") + n.name; });

    center.post(QStringLiteral("a"), {{QStringLiteral("isActive"), true}});
    center.post(QStringLiteral("b"));
    EXPECT_EQ(seen,
              (QStringList{QStringLiteral("a:a"), QStringLiteral("*:a"), QStringLiteral("*:b")}));
    EXPECT_EQ(lastInfo.value(QStringLiteral("isActive")), QVariant(true));

    seen.clear();
    {
        const Observation moved = std::move(a);
        // NOLINTNEXTLINE(bugprone-use-after-move): what a move leaves behind is the point
        EXPECT_FALSE(a.isActive());
        center.post(QStringLiteral("a"));
    }
    center.post(QStringLiteral("a"));
    EXPECT_EQ(seen,
              (QStringList{QStringLiteral("a:a"), QStringLiteral("*:a"), QStringLiteral("*:a")}));
}

TEST(NotificationCenter, ObserverMayRemoveObserversAndPostDuringDelivery) {
    NotificationCenter center;
    int first = 0;
    int second = 0;
    Observation secondObservation;
    Observation firstObservation =
        center.addObserver(QStringLiteral("x"), [&](const Notification&) {
            ++first;
            firstObservation.reset();
            secondObservation.reset(); // the second must not run after its removal
        });
    secondObservation =
        center.addObserver(QStringLiteral("x"), [&](const Notification&) { ++second; });

    center.post(QStringLiteral("x"));
    center.post(QStringLiteral("x"));
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);

    // And post from its callback.
    QStringList order;
    auto outer = center.addObserver(QStringLiteral("outer"), [&](const Notification&) {
        order << QStringLiteral("outer");
        center.post(QStringLiteral("inner"));
    });
    auto inner = center.addObserver(QStringLiteral("inner"),
                                    [&](const Notification&) { order << QStringLiteral("inner"); });
    center.post(QStringLiteral("outer"));
    EXPECT_EQ(order, (QStringList{QStringLiteral("outer"), QStringLiteral("inner")}));
}
