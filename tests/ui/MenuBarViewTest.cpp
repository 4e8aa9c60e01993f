// The popover content: fixed texts and its two commands.
#include "app/MenuBarView.h"

#include "tests/common/TestUtil.h"

#include <QAbstractButton>
#include <QTest>
#include <gtest/gtest.h>

using testutil::buttonWithText;
using testutil::labelTexts;

TEST(MenuBarView, ShowsItsFixedTextsAndItsCommandsCallTheirCallbacks) {
    int settings = 0;
    int quits = 0;
    app::MenuBarView view({[&] { ++settings; }, [&] { ++quits; }, {}});
    EXPECT_EQ(view.size(), QSize(280, 200));
    EXPECT_EQ(
        labelTexts(view),
        (QStringList{QStringLiteral("Mendwise"), QStringLiteral("Ctrl+Shift+J to fix typos"),
                     QStringLiteral("Ready"), QStringLiteral("Select text and press hotkey")}));
    view.show();
    QAbstractButton* openSettings = buttonWithText(view, QStringLiteral("Settings..."));
    QAbstractButton* quit = buttonWithText(view, QStringLiteral("Quit Mendwise"));
    ASSERT_TRUE(openSettings && quit);
    QTest::mouseClick(openSettings, Qt::LeftButton);
    QTest::mouseClick(openSettings, Qt::LeftButton);
    EXPECT_EQ(settings, 2);
    EXPECT_EQ(quits, 0);
    QTest::mouseClick(quit, Qt::LeftButton);
    EXPECT_EQ(quits, 1);
}
