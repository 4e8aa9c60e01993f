// The popover content: its fixed texts and its two commands.
#include "app/MenuBarView.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

using testutil::buttonWithText;
using testutil::labelTexts;

// What the two commands do is clicked through on the real desktop (tests/e2e/tray.sh).
TEST(MenuBarView, ShowsItsFixedTextsAndItsTwoCommands) {
    const app::MenuBarView view({[] {}, [] {}, {}});
    EXPECT_EQ(view.size(), QSize(280, 200));
    EXPECT_EQ(
        labelTexts(view),
        (QStringList{QStringLiteral("Mendwise"), QStringLiteral("Ctrl+Shift+J to fix typos"),
                     QStringLiteral("Ready"), QStringLiteral("Select text and press hotkey")}));
    EXPECT_NE(buttonWithText(view, QStringLiteral("Settings...")), nullptr);
    EXPECT_NE(buttonWithText(view, QStringLiteral("Quit Mendwise")), nullptr);
}
