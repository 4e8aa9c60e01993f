// Hot keys on a real X server (Xvfb with openbox), driven by xdotool.
#include "platform/x11/X11HotKeys.h"

#include "app/HotkeyManager.h"
#include "app/MenuBarView.h"
#include "hotkeys/HotKeyRegistry.h"
#include "hotkeys/Localization.h"
#include "hotkeys/RecorderField.h"
#include "platform/VirtualKeys.h"
#include "platform/sim/SimDesktop.h"
#include "platform/x11/X11KeyboardLayout.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"
#include "tests/hotkeys/AlertAnswerer.h"
#include "tests/hotkeys/HotkeysFixture.h"
#include "tests/x11/DesktopApps.h"

#include <QKeyEvent>
#include <QMenu>
#include <QWidget>
#include <QWindow>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

using namespace Hotkeys;
using namespace std::chrono_literals;

namespace {

// Types `keys` (xdotool's names) on the real keyboard.
void key(const char* keys) {
    x11test::xdotool({QStringLiteral("key"), QString::fromLatin1(keys)});
}

void setLayout(const char* layouts) {
    ASSERT_TRUE(x11test::run(QStringLiteral("setxkbmap"),
                             {QStringLiteral("-layout"), QString::fromLatin1(layouts)}));
    testutil::processEventsFor(200ms);
}

// Another X client, holding a passive grab of `key` with X `modifiers` on the root window for
// as long as it lives.
using Connection = std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)>;
Connection otherClientGrabbing(const Key& key, std::uint16_t modifiers) {
    Connection other(xcb_connect(nullptr, nullptr), &xcb_disconnect);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other.get())).data->root;
    const auto keycode = platform::xKeycodeFromVirtualKey(key.rawValue);
    xcb_generic_error_t* error = xcb_request_check(
        other.get(), xcb_grab_key_checked(other.get(), 0, root, modifiers,
                                          static_cast<xcb_keycode_t>(keycode.value_or(0)),
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    EXPECT_TRUE(keycode && !error) << "the other client could not grab the key";
    std::free(error); // NOLINT(cppcoreguidelines-no-malloc)
    return other;
}

const Shortcut commandShiftJ(Key::j, eventflags::command | eventflags::shift);

class X11Hotkeys : public HotkeysOver<platform::x11::X11HotKeys, platform::x11::X11KeyboardLayout> {
protected:
    void TearDown() override {
        manager.reset();
        HotkeysOver::TearDown();
    }

    // The trigger binding, counting what happens in order.
    void bind() {
        // Which application is in front is handed over as in tests/app/HotkeyManagerTest.cpp.
        manager = std::make_unique<HotkeyManager>(std::make_shared<platform::sim::SimDesktop>());
        manager->registerCallback([this](auto) { happened << QStringLiteral("callback"); });
        onKeyDown(triggerMendwise(), [this] { happened << QStringLiteral("down"); });
    }

    // Waits for the callback, then a little longer for anything that should not come.
    void settle() {
        EXPECT_TRUE(
            testutil::waitUntil([&] { return happened.contains(QStringLiteral("callback")); }, 3s));
        testutil::processEventsFor(300ms);
    }

    // Types `keys` and expects the trigger to fire once, down then the callback.
    void expectFires(const char* keys) {
        happened.clear();
        key(keys);
        settle();
        EXPECT_EQ(happened, fired);
    }

    const QStringList fired{QStringLiteral("down"), QStringLiteral("callback")};

    std::unique_ptr<HotkeyManager> manager;
    QStringList happened;
};

} // namespace

// The trigger fires once, on the release, however long the combination is held, and whatever
// lock keys are on.
TEST_F(X11Hotkeys, HoldingTheCombinationOrALockKeyFiresOnce) {
    bind();
    x11test::xdotool({QStringLiteral("keydown"), QStringLiteral("ctrl+shift+j")});
    testutil::processEventsFor(1200ms); // Xvfb starts repeating after about 660 ms
    EXPECT_EQ(happened, QStringList{QStringLiteral("down")});
    x11test::xdotool({QStringLiteral("keyup"), QStringLiteral("ctrl+shift+j")});
    settle();
    EXPECT_EQ(happened, fired);

    for (const char* lock : {"Num_Lock", "Caps_Lock"}) {
        SCOPED_TRACE(lock);
        key(lock);
        expectFires("ctrl+shift+j");
        key(lock);
    }
}

TEST_F(X11Hotkeys, ARecordedShortcutReplacesTheOldOneAndDisableEndsIt) {
    bind();
    setShortcut(Shortcut(Key::k, eventflags::command | eventflags::option), triggerMendwise());
    key("ctrl+shift+j");
    testutil::processEventsFor(300ms);
    EXPECT_TRUE(happened.isEmpty());
    expectFires("ctrl+alt+k");

    disable({triggerMendwise()});
    EXPECT_EQ(hotKeys->grabCount(), 0);
    happened.clear();
    key("ctrl+alt+k");
    testutil::processEventsFor(400ms);
    EXPECT_TRUE(happened.isEmpty()) << "nothing fires once disabled";
}

TEST_F(X11Hotkeys, ACombinationAnotherClientHoldsIsRefused) {
    const Connection other = otherClientGrabbing(Key::k, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT);
    support::LogCapture log;
    const Name name(QStringLiteral("other"),
                    Shortcut(Key::k, eventflags::command | eventflags::shift));
    EXPECT_EQ(log.records(), QStringList{QStringLiteral("Error registering hotkey ⇧⌘K: -9878")});
    EXPECT_TRUE(HotKeyRegistry::entries().isEmpty());
    EXPECT_EQ(hotKeys->grabCount(), 0); // the lock variants it did get were let go

    // The window manager's and the other client's grabs are the system's shortcuts; ours are not.
    bind();
    const auto reserved = HotKeyRegistry::systemHotKeys();
    EXPECT_TRUE(reserved.contains(Shortcut(Key::k, eventflags::command | eventflags::shift)));
    EXPECT_TRUE(reserved.contains(Shortcut(Key::f4, eventflags::option))); // openbox: Alt+F4
    EXPECT_FALSE(reserved.contains(commandShiftJ));
    EXPECT_FALSE(reserved.contains(Shortcut(Key::l, eventflags::command | eventflags::shift)));
    expectFires("ctrl+shift+j"); // the probe left ours alone
}

// The popover tells a trigger another program holds, until a registration holds again.
TEST_F(X11Hotkeys, ARefusedTriggerShowsInThePopover) {
    const Connection other = otherClientGrabbing(Key::j, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT);
    bind();
    app::MenuBarView popover({{}, {}, [] { return registrationError(triggerMendwise()); }});
    const auto texts = [&] { return testutil::labelTexts(popover); };
    EXPECT_TRUE(texts().contains(QStringLiteral("Ctrl+Shift+J is used by another program")))
        << texts().join(u'|').toStdString();
    EXPECT_FALSE(texts().contains(QStringLiteral("Ready")));
    setShortcut(Shortcut(Key::k, eventflags::command | eventflags::shift), triggerMendwise());
    // Its fixed texts and its two commands (tests/e2e/tray.sh finds it by its size and clicks
    // them on the real desktop).
    EXPECT_EQ(
        texts(),
        (QStringList{QStringLiteral("Mendwise"), QStringLiteral("Ctrl+Shift+J to fix typos"),
                     QStringLiteral("Ready"), QStringLiteral("Select text and press hotkey")}));
    EXPECT_NE(testutil::buttonWithText(popover, QStringLiteral("Settings...")), nullptr);
    EXPECT_NE(testutil::buttonWithText(popover, QStringLiteral("Quit Mendwise")), nullptr);
}

// While it records, the recorder holds the keyboard: a chord another program has taken reaches
// it, the "used by the system" alert appears, and forcing it says it could not be registered.
TEST_F(X11Hotkeys, TheRecorderSeesChordsOtherProgramsHold) {
    const Connection other = otherClientGrabbing(Key::t, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1);
    QWidget window;
    auto* field = new RecorderField(triggerMendwise(), {}, &window);
    window.resize(300, 80);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(testutil::waitUntil([&] { return window.isActiveWindow(); }, 5s));
    testutil::processEventsFor(100ms); // the field refuses the focus for a moment
    field->setFocus(Qt::MouseFocusReason);
    ASSERT_TRUE(testutil::waitUntil([&] { return field->isRecording(); }));

    AlertAnswerer alerts(localizedString(strings::forceUseShortcut));
    key("ctrl+alt+t");
    ASSERT_TRUE(testutil::waitUntil([&] { return alerts.texts.size() >= 2; }, 5s))
        << alerts.texts.join(u'|').toStdString();
    EXPECT_EQ(alerts.texts[0], localizedString(strings::keyboardShortcutUsedBySystem));
    EXPECT_EQ(alerts.texts[1], QStringLiteral("Ctrl+Alt+T is used by another program"));
    EXPECT_EQ(field->text(), QStringLiteral("Ctrl+Alt+T"));
}

TEST_F(X11Hotkeys, InsideAnOpenMenuTheShortcutStillFires) {
    bind();
    QMenu menu;
    menu.addAction(QStringLiteral("First"));
    menu.addAction(QStringLiteral("Second"));
    menu.popup(QPoint(100, 100));
    ASSERT_TRUE(testutil::waitUntil([&] { return menu.isVisible() && menuIsOpen(); }));
    EXPECT_EQ(hotKeys->grabCount(), 0);
    testutil::processEventsFor(200ms); // let the menu take the keyboard
    expectFires("ctrl+shift+j");
    EXPECT_TRUE(menu.isVisible());

    menu.hide();
    EXPECT_GT(hotKeys->grabCount(), 0);
    expectFires("ctrl+shift+j");
}

// A window of ours that holds the keyboard keeps the server from activating our own grab on the
// root; the combination must fire anyway and not reach the window as a key press.
TEST_F(X11Hotkeys, WhileOurWindowHoldsTheKeyboardTheShortcutStillFires) {
#if defined(__SANITIZE_THREAD__)
    // Showing a window wakes Qt's accessibility bridge, whose D-Bus thread copies Qt's shared
    // strings under atomics ThreadSanitizer cannot see; the path tested here is all on one thread.
    GTEST_SKIP() << "not under ThreadSanitizer";
#endif
    bind();
    class KeyCounter final : public QWidget {
    public:
        QList<int> keys;

    protected:
        void keyPressEvent(QKeyEvent* event) override { keys << event->key(); }
    } window;
    window.setAttribute(Qt::WA_ShowWithoutActivating);
    window.setGeometry(50, 50, 200, 100);
    window.show();
    ASSERT_TRUE(testutil::waitUntil([&] { return window.isVisible() && window.windowHandle(); }));
    ASSERT_TRUE(
        testutil::waitUntil([&] { return window.windowHandle()->setKeyboardGrabEnabled(true); }));

    expectFires("ctrl+shift+j");
    key("x"); // other keys still reach the window
    ASSERT_TRUE(testutil::waitUntil([&] { return window.keys.contains(Qt::Key_X); }));
    EXPECT_FALSE(window.keys.contains(Qt::Key_J));
    window.windowHandle()->setKeyboardGrabEnabled(false);
}

TEST_F(X11Hotkeys, LayoutChangesShowInNamesAndKeepTheGrabs) {
    bind();
    setLayout("de");
    EXPECT_EQ(Shortcut(Key::y, eventflags::command).description(), QStringLiteral("⌘Z"));
    // The key left of 1 is a dead circumflex on a German keyboard.
    EXPECT_EQ(Shortcut(Key::backtick, eventflags::command).description(),
              QStringLiteral("⌘\uFFFD"));
    expectFires("ctrl+shift+j");
    // A Russian layout in front: names come from the Latin group behind it.
    setLayout("ru,us");
    EXPECT_EQ(commandShiftJ.displayName(), QStringLiteral("Ctrl+Shift+J"));
    setLayout("us");
    EXPECT_EQ(Shortcut(Key::y, eventflags::command).description(), QStringLiteral("⌘Y"));
}
