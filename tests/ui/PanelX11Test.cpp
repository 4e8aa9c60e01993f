// The floating panel on a real X11 desktop (Xvfb + openbox): shown in front of another
// application without taking the focus from it, yet receiving the keys typed meanwhile.
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"
#include "ui/ActionPickerView.h"
#include "ui/FloatingPanel.h"
#include "ui/KeyHandler.h"
#include "ui/NativeWindow.h"

#include <QElapsedTimer>
#include <QLineEdit>
#include <gtest/gtest.h>
#include <memory>

using namespace std::chrono_literals;
using x11test::activeWindowId;
using x11test::xdotool;

namespace {

// Another application in front: an xterm, active before the panel appears.
class PanelX11Test : public ::testing::Test {
protected:
    void SetUp() override {
        terminal = std::make_unique<x11test::App>(
            QStringLiteral("xterm"), QStringList{QStringLiteral("-e"), QStringLiteral("cat")});
        ASSERT_TRUE(terminal->waitUntilActive()) << "the terminal never became active";
        before = activeWindowId();
        ui::KeyHandler::shared().reset();
    }
    void TearDown() override {
        panel.hide([] {});
        testutil::waitUntil([&] { return !panel.isVisible(); }, 3s);
        ui::KeyHandler::shared().reset();
        terminal.reset();
    }

    // Shows the panel with `content` and waits until it holds the keyboard.
    bool show(QWidget* content) {
        panel.setContentView(content);
        panel.show(platform::Rect{500, 300, 240, 140});
        return testutil::waitUntil([&] { return panel.hasKeyboardGrab(); }, 3s);
    }

    std::unique_ptr<x11test::App> terminal;
    QString before;
    ui::FloatingPanel panel;
};

} // namespace

// Keys go to the panel's onKey, not to the field that has the focus in it (the picker's tests
// check typing let through and Escape taken from it).
TEST_F(PanelX11Test, ShownWithoutActivationItStillGetsTheKeys) {
    auto* field = new QLineEdit;
    ASSERT_TRUE(show(field));
    field->setFocus();
    testutil::processEventsFor(300ms);
    EXPECT_EQ(activeWindowId(), before) << "the user's application stays active";

    // Above the others, and on every desktop (openbox keeps "all desktops" in _NET_WM_DESKTOP
    // rather than in the sticky state).
    const QString properties =
        x11test::run(QStringLiteral("xprop"),
                     {QStringLiteral("-id"), QString::number(panel.winId()),
                      QStringLiteral("_NET_WM_STATE"), QStringLiteral("_NET_WM_DESKTOP")})
            .value_or(QString());
    for (const char* expected : {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_SKIP_TASKBAR",
                                 "_NET_WM_DESKTOP(CARDINAL) = 4294967295"})
        EXPECT_TRUE(properties.contains(QLatin1String(expected))) << properties.toStdString();

    std::vector<std::uint16_t> seen;
    ui::KeyHandler::shared().setOnKey([&seen](std::uint16_t key) { seen.push_back(key); });
    xdotool(QStringLiteral("key Right a Escape"));
    ASSERT_TRUE(testutil::waitUntil([&] { return seen.size() >= 3; }, 3s));
    EXPECT_EQ(seen, (std::vector<std::uint16_t>{124, 0, 53}));
    EXPECT_EQ(field->text(), QString());

    // Hiding lets the keyboard and the keys go at once, then ends once, after the 0.15 s fade,
    // off screen at full opacity again.
    ui::KeyHandler::shared().setAllowTyping(true);
    int completions = 0;
    QElapsedTimer timer;
    timer.start();
    qint64 completedAfter = -1;
    panel.hide([&] {
        ++completions;
        completedAfter = timer.elapsed();
    });
    EXPECT_FALSE(panel.hasKeyboardGrab()) << "the keyboard is let go before the fade";
    EXPECT_FALSE(ui::KeyHandler::shared().onKey());
    EXPECT_FALSE(ui::KeyHandler::shared().allowTyping());
    EXPECT_TRUE(panel.isVisible()) << "still fading";
    ASSERT_TRUE(testutil::waitUntil([&] { return completions > 0; }, 3s));
    xdotool(QStringLiteral("key Left"));
    testutil::processEventsFor(200ms);
    EXPECT_EQ(seen.size(), 3U) << "no keys once hidden";
    EXPECT_EQ(completions, 1);
    EXPECT_GE(completedAfter, 100);
    EXPECT_FALSE(panel.isVisible());
    EXPECT_DOUBLE_EQ(panel.windowOpacity(), 1.0);
    EXPECT_EQ(activeWindowId(), before);
}

// Xvfb runs no compositor: the panel is cut to the shape of the picker's buttons instead of
// showing a black rectangle where it is clear. (Its keys and typing through the grab,
// end-to-end.sh drives in the real program.)
TEST_F(PanelX11Test, WithoutACompositorThePanelIsCutToThePickersShape) {
    auto* picker = new ui::ActionPickerView({}, {}, [] {});
    ASSERT_TRUE(show(picker));
    EXPECT_TRUE(panel.mask().contains(picker->buttonCenter(0)));
    EXPECT_TRUE(panel.mask().contains(picker->buttonCenter(1)));
    EXPECT_FALSE(panel.mask().contains(QPoint(5, 5)));
}

// The user moves on: a click anywhere outside the panel asks for it to go, so the keyboard is
// not left taken.
TEST_F(PanelX11Test, AClickElsewhereAsksThePanelToGo) {
    int dismissals = 0;
    QObject::connect(&panel, &ui::FloatingPanel::dismissRequested, [&] { ++dismissals; });
    ASSERT_TRUE(show(new QWidget));
    testutil::processEventsFor(200ms);
    EXPECT_EQ(dismissals, 0) << "showing it is no reason to go";
    xdotool(QStringLiteral("mousemove 30 30 click 1"));
    EXPECT_TRUE(testutil::waitUntil([&] { return dismissals > 0; }, 3s));
}

// Another program holds the keyboard: the panel gives up after its retries and says so.
TEST_F(PanelX11Test, AKeyboardHeldElsewhereIsReported) {
    // The block holds the keyboard through a connection of its own, as another program would.
    const auto other = ui::native::KeyboardBlock::start();
    ASSERT_NE(other, nullptr);

    bool failed = false;
    QObject::connect(&panel, &ui::FloatingPanel::keyboardGrabFailed, [&] { failed = true; });
    EXPECT_FALSE(show(new QWidget));
    EXPECT_TRUE(testutil::waitUntil([&] { return failed; }, 1s));
}

// While a rewrite runs, the keys the user types reach no application.
TEST_F(PanelX11Test, AKeyboardBlockKeepsTypedKeysFromEveryone) {
    QLineEdit editor;
    editor.show();
    editor.activateWindow();
    ASSERT_TRUE(testutil::waitUntil([&] { return editor.hasFocus(); }, 5s));
    auto block = ui::native::KeyboardBlock::start();
    ASSERT_NE(block, nullptr);
    xdotool({QStringLiteral("type"), QStringLiteral("ab")});
    testutil::processEventsFor(300ms);
    EXPECT_EQ(editor.text(), QString());
    block.reset();
    // The grab's end reaches Qt as a focus change of its own; type once it has settled.
    editor.activateWindow();
    ASSERT_TRUE(testutil::waitUntil([&] { return editor.hasFocus(); }, 5s));
    testutil::processEventsFor(100ms);
    xdotool({QStringLiteral("type"), QStringLiteral("c")});
    EXPECT_TRUE(testutil::waitUntil([&] { return editor.text() == QStringLiteral("c"); }, 3s))
        << editor.text().toStdString();
}
