#include "support/Graphemes.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

using namespace support;

namespace {
// Family of four joined by zero-width joiners: seven code points, one user-perceived character.
const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466");
const QString flagFrance = QStringLiteral("\U0001F1EB\U0001F1F7");
const QString flagJapan = QStringLiteral("\U0001F1EF\U0001F1F5");
const QString eAcuteCombining = QStringLiteral("e\u0301");
const QString thumbsUpDark = QStringLiteral("\U0001F44D\U0001F3FF");
} // namespace

TEST(Graphemes, CountsAndPrefixesGoByUserPerceivedCharacters) {
    EXPECT_EQ(graphemeCount(QString()), 0);
    EXPECT_EQ(graphemeCount(QStringLiteral("abc")), 3);
    EXPECT_EQ(graphemeCount(family), 1);
    EXPECT_EQ(graphemeCount(flagFrance + flagJapan), 2); // regional indicators pair up
    EXPECT_EQ(graphemeCount(eAcuteCombining + QStringLiteral("x")), 2);
    EXPECT_EQ(graphemeCount(QStringLiteral("a\u0308\u0301b")), 2); // two marks on one base
    EXPECT_EQ(graphemeCount(thumbsUpDark), 1);
    EXPECT_EQ(graphemeCount(QStringLiteral("\r\n")), 1);
    // Text that came from invalid UTF-16 still counts every unit it holds.
    const QString broken = QString(QChar(0xD800)) + QStringLiteral("a");
    EXPECT_EQ(graphemeCount(broken), 2);
    EXPECT_EQ(graphemePrefix(broken, 1).size(), 1);

    // A prefix never splits a cluster.
    const QString text = family + flagFrance + eAcuteCombining + QStringLiteral("z");
    EXPECT_EQ(graphemePrefix(text, 1), family);
    EXPECT_EQ(graphemePrefix(text, 2), QString(family + flagFrance));
    EXPECT_EQ(graphemePrefix(text, 3), QString(family + flagFrance + eAcuteCombining));
    EXPECT_EQ(graphemePrefix(text, 4), text);
    EXPECT_EQ(graphemePrefix(text, 100), text);
    EXPECT_EQ(graphemePrefix(text, 0), QString());
}
