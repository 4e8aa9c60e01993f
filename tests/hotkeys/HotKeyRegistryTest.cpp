// The hot-key registry over simulated hot keys.
#include "hotkeys/HotKeyRegistry.h"

#include "HotkeysFixture.h"
#include "support/Log.h"
#include "support/NotificationCenter.h"
#include "tests/common/TestUtil.h"

#include <QMenu>

using namespace Hotkeys;
using platform::HotKeyEvent;
using platform::HotKeyEventKind;
using platform::HotKeyID;
namespace osstatus = platform::osstatus;

namespace {

const Shortcut commandShiftJ(Key::j, eventflags::command | eventflags::shift);
const Shortcut commandShiftK(Key::k, eventflags::command | eventflags::shift);
const Shortcut optionSpace(Key::space, eventflags::option);

} // namespace

class Registry : public HotkeysTest {
protected:
    void registerCounting(const Shortcut& shortcut) {
        HotKeyRegistry::registerHotKey(
            shortcut, [this](const Shortcut& s) { downs.append(s); },
            [this](const Shortcut& s) { ups.append(s); });
    }

    QList<std::int64_t> ids() const {
        QList<std::int64_t> result;
        for (const auto& entry : HotKeyRegistry::entries())
            result.append(entry.id);
        return result;
    }

    QList<Shortcut> downs;
    QList<Shortcut> ups;
};

TEST_F(Registry, IdsCountUpAndARefusalConsumesItsId) {
    support::LogCapture log;
    hotKeys->refuse(40, 768);
    registerCounting(commandShiftJ);
    registerCounting(optionSpace);
    registerCounting(commandShiftK);
    registerCounting(Shortcut(Key::l, eventflags::command));

    EXPECT_EQ(ids(), (QList<std::int64_t>{1, 2, 4}));
    const auto registrations = hotKeys->registrations();
    ASSERT_EQ(registrations.size(), 3);
    EXPECT_EQ(registrations[0].id, (HotKeyID{HotKeyRegistry::signature, 1}));
    EXPECT_EQ(registrations[1].keyCode, 49u);
    EXPECT_EQ(registrations[1].modifiers, 0x800u);
    EXPECT_EQ(registrations[2].id.id, 4u);
    EXPECT_EQ(HotKeyRegistry::signature, 0x484B5453u); // 'HKTS'

    registerCounting(Shortcut(std::int64_t{1} << 32, 0)); // beyond 32 bits
    EXPECT_EQ(hotKeys->registrations().size(), 3);
    EXPECT_EQ(log.records(), (QStringList{QStringLiteral("Error registering hotkey ⇧⌘K: -9878"),
                                          QStringLiteral("Error registering hotkey \uFFFD: -50")}));
}

// Duplicates go together; hot keys not ours, or ours no more, pass on.
TEST_F(Registry, DuplicatesGoTogetherAndUnknownHotKeysPassOn) {
    registerCounting(commandShiftJ);
    registerCounting(commandShiftJ);
    registerCounting(optionSpace);
    EXPECT_EQ(hotKeys->registrations().size(), 3);
    HotKeyRegistry::unregisterHotKey(commandShiftJ);
    EXPECT_EQ(ids(), QList<std::int64_t>{3});
    EXPECT_EQ(hotKeys->registrations().size(), 1);

    const auto foreign = HotKeyID{platform::fourCharCode("ABCD"), 3};
    EXPECT_EQ(hotKeys->deliver(HotKeyEvent{HotKeyEventKind::hotKeyPressed, foreign, {}, {}}),
              osstatus::eventNotHandledErr);
    const auto removed = HotKeyID{HotKeyRegistry::signature, 1};
    EXPECT_EQ(hotKeys->deliver(HotKeyEvent{HotKeyEventKind::hotKeyReleased, removed, {}, {}}),
              osstatus::eventNotHandledErr);
    EXPECT_EQ(hotKeys->deliver(HotKeyEvent{HotKeyEventKind::hotKeyPressed, {}, {}, {}}),
              osstatus::eventParameterNotFoundErr);
    EXPECT_TRUE(downs.isEmpty());
    EXPECT_TRUE(ups.isEmpty());
}

TEST_F(Registry, OpenMenuMatchesRawKeysAndReRegistersUnderTheSameIds) {
    const Name name(QStringLiteral("n"), commandShiftJ);
    int fired = 0;
    onKeyDown(name, [&] { ++fired; });
    registerCounting(optionSpace);
    installMenuObservers();

    QMenu menu;
    QMenu* submenu = menu.addMenu(QStringLiteral("More"));
    submenu->addAction(QStringLiteral("Item"));
    menu.popup(QPoint(5, 5));
    ASSERT_TRUE(menuIsOpen()); // the grabs withdrawn: tests/hotkeys/X11HotKeysTest.cpp
    EXPECT_EQ(HotKeyRegistry::entries().size(), 2);
    submenu->popup(QPoint(40, 40));
    ASSERT_TRUE(testutil::waitUntil([&] { return submenu->isVisible(); }));
    submenu->hide();
    EXPECT_TRUE(menuIsOpen()) << "the outer menu is still open";

    // Raw keys are listened to (the desktop delivers only those listened to). Caps Lock (0x400) in
    // the raw modifiers is dropped before matching.
    EXPECT_EQ(hotKeys->rawKeyDown(38, 768 | 0x400), osstatus::noErr);
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(hotKeys->rawKeyDown(38, 0x100), osstatus::eventNotHandledErr);
    EXPECT_EQ(hotKeys->rawKeyUp(49, 0x800), osstatus::noErr);
    EXPECT_EQ(ups, QList<Shortcut>{optionSpace});
    EXPECT_EQ(hotKeys->deliver(HotKeyEvent{HotKeyEventKind::rawKeyDown, {}, 38u, {}}),
              osstatus::eventParameterNotFoundErr);

    menu.hide();
    ASSERT_FALSE(menuIsOpen());
    const auto registrations = hotKeys->registrations();
    ASSERT_EQ(registrations.size(), 2);
    EXPECT_EQ(registrations[0].id.id, 1u);
    EXPECT_EQ(registrations[1].id.id, 2u); // firing again: tests/hotkeys/X11HotKeysTest.cpp
    EXPECT_EQ(hotKeys->rawKeyDown(38, 768), std::nullopt);
}

// The status the popover and the settings read: set by a refusal, cleared by a registration
// that holds, and settable from outside (a desktop that refuses later).
TEST_F(Registry, ARefusedShortcutIsKnownUntilARegistrationHolds) {
    // A refusal and a registration that holds after it: on the real desktop, in
    // tests/hotkeys/X11HotKeysTest.cpp (the popover's text).
    const Name name(QStringLiteral("trigger"), commandShiftK);
    int posts = 0;
    const auto observer = support::NotificationCenter::defaultCenter().addObserver(
        QString::fromLatin1(registrationStatusDidChange), [&](const auto&) { ++posts; });
    setRegistrationError(name, QStringLiteral("Refused by the desktop"));
    EXPECT_EQ(registrationError(name), QStringLiteral("Refused by the desktop"));
    setRegistrationError(name, QStringLiteral("Refused by the desktop"));
    EXPECT_EQ(posts, 1) << "only changes are posted";

    // Lost when the keyboard mapping changes, back at the next change.
    setRegistrationError(name, std::nullopt);
    hotKeys->refuse(40, 768);
    hotKeys->remapKeyboard();
    EXPECT_EQ(registrationError(name), QStringLiteral("Ctrl+Shift+K is used by another program"));
    hotKeys->allow(40, 768);
    hotKeys->remapKeyboard();
    EXPECT_EQ(registrationError(name), std::nullopt);
}

TEST_F(Registry, SwitchingShortcutsOffWithdrawsAndKeepsEntriesUntilARefusal) {
    registerCounting(commandShiftJ);
    setShortcutsEnabled(false);
    EXPECT_TRUE(hotKeys->registrations().isEmpty());
    EXPECT_TRUE(hotKeys->listenedKinds().empty());
    ASSERT_EQ(HotKeyRegistry::entries().size(), 1);
    EXPECT_FALSE(HotKeyRegistry::entries()[0].live);
    EXPECT_EQ(hotKeys->press(38, 768), std::nullopt);

    setShortcutsEnabled(false); // no change: nothing happens
    setShortcutsEnabled(true);
    ASSERT_EQ(hotKeys->registrations().size(), 1);
    EXPECT_EQ(hotKeys->registrations()[0].id.id, 1u);
    EXPECT_EQ(hotKeys->press(38, 768), osstatus::noErr);
    EXPECT_EQ(downs.size(), 1);

    // A re-registration the desktop refuses drops that entry alone.
    registerCounting(commandShiftK);
    setShortcutsEnabled(false);
    hotKeys->refuse(38, 768, -9878);
    setShortcutsEnabled(true);
    EXPECT_EQ(ids(), QList<std::int64_t>{2});
}

TEST_F(Registry, SystemHotKeysKeepEnabledWellFormedEntriesInOrder) {
    using platform::SymbolicHotKey;
    hotKeys->setSymbolicHotKeys({
        SymbolicHotKey{true, 49, 0x100},
        SymbolicHotKey{false, 48, 0x100},
        SymbolicHotKey{true, std::nullopt, 0x100},
        SymbolicHotKey{std::nullopt, 50, 0x100},
        SymbolicHotKey{true, 122, 0x800 | 0x400 | 0x80},
    });
    EXPECT_EQ(HotKeyRegistry::systemHotKeys(),
              (QList<Shortcut>{Shortcut(49, 0x100), Shortcut(122, 0x800)}));
    hotKeys->setSymbolicHotKeys({SymbolicHotKey{true, 49, 0x100}}, -1);
    EXPECT_TRUE(HotKeyRegistry::systemHotKeys().isEmpty());
}
