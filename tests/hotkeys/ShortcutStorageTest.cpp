// The shortcut model: storage in the defaults store, the change notification, actions,
// streams and the switches.
#include "HotkeysFixture.h"
#include "hotkeys/HotKeyRegistry.h"
#include "tests/common/TestUtil.h"

#include <QFile>
#include <QKeyEvent>

using namespace Hotkeys;

namespace {

const Shortcut commandShiftJ(Key::j, eventflags::command | eventflags::shift);
const Shortcut commandK(Key::k, eventflags::command);

} // namespace

using ShortcutModel = HotkeysTest;
using Storage = HotkeysTest;
using Actions = HotkeysTest;

// Each modifier's own bit shows in the descriptions (tests/hotkeys/DescriptionTest.cpp).
TEST(ShortcutValues, UnknownModifierBitsDropAndTheFunctionBitStaysOutOfEvents) {
    // Caps Lock, numeric pad and the low device bits have no Carbon counterpart.
    EXPECT_EQ(toCarbon(0x10000 | 0x200000 | 0xFF), 0);
    EXPECT_EQ(fromCarbon(0x100 | 0x1000), eventflags::command | eventflags::control);
    EXPECT_EQ(fromCarbon(0x400), 0u); // Carbon's Caps Lock
    const EventFlags flags = eventflags::command | eventflags::shift | eventflags::function;
    EXPECT_EQ(Shortcut(Key::j, flags).carbonModifiers, 0x20300);

    const auto fromKeyDown = Shortcut::fromEvent(KeyEvent{KeyEvent::keyDownType, 38, flags});
    ASSERT_TRUE(fromKeyDown.has_value());
    EXPECT_EQ(*fromKeyDown, Shortcut(38, 0x300));
    const auto fromKeyUp = Shortcut::fromEvent(KeyEvent{KeyEvent::keyUpType, 38, flags});
    EXPECT_EQ(fromKeyUp, fromKeyDown);
    EXPECT_FALSE(Shortcut::fromEvent(KeyEvent{12, 38, flags}).has_value()); // flags changed
    // Qt's key presses, the recorder's: tests/ui/RecorderTest.cpp.
    const QKeyEvent shortcutOverride(QEvent::ShortcutOverride, Qt::Key_J, Qt::ControlModifier);
    EXPECT_FALSE(Shortcut::fromEvent(shortcutOverride).has_value());
}

// The default is written once, on a fresh store; a user's shortcut or the false marker (the bare
// word in the ini file) survives every launch after, until a reset.
TEST_F(Storage, DefaultIsWrittenOnceAndNeverOverwritesTheUsersChoice) {
    const Name name(QStringLiteral("trigger"), commandShiftJ);
    EXPECT_EQ(store().value(QStringLiteral("Hotkeys_trigger")).toString(),
              QStringLiteral(R"({"carbonKeyCode":38,"carbonModifiers":768})"));
    ASSERT_EQ(changed.size(), 1);
    EXPECT_EQ(changed[0].rawValue(), QStringLiteral("trigger")); // its grab: the X11 test

    relaunch();
    EXPECT_EQ(shortcut(Name(QStringLiteral("trigger"), commandK)), commandShiftJ);
    EXPECT_EQ(changed.size(), 1);
    setShortcut(commandK, name);
    relaunch();
    EXPECT_EQ(shortcut(Name(QStringLiteral("trigger"), commandShiftJ)), commandK);

    setShortcut(std::nullopt, name);
    EXPECT_FALSE(shortcut(name).has_value());
    EXPECT_TRUE(hasStoredValue(name));
    store().sync();
    QFile file(store().fileName());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << store().fileName().toStdString();
    const QByteArray contents = file.readAll();
    EXPECT_TRUE(contents.contains("Hotkeys_trigger=false\n")) << contents.toStdString();
    relaunch();
    const Name recreated(QStringLiteral("trigger"), commandShiftJ);
    EXPECT_FALSE(shortcut(recreated).has_value());
    reset({recreated});
    EXPECT_EQ(shortcut(recreated), commandShiftJ);
}

// Clearing writes the false marker for a name with a default and removes the entry of one
// without; reset all removes shortcuts alone, keeping the markers and every other setting.
TEST_F(Storage, ClearingResettingAllAndRefusingOutOfRange) {
    const Name withDefault(QStringLiteral("a"), commandShiftJ);
    const Name withoutDefault(QStringLiteral("b"));
    setShortcut(commandK, withoutDefault);
    changed.clear();
    // Out-of-range shortcuts are not stored.
    setShortcut(Shortcut(70000, 256), withoutDefault);
    setShortcut(Shortcut(40, -1), withoutDefault);
    EXPECT_EQ(shortcut(withoutDefault), commandK);
    EXPECT_TRUE(changed.isEmpty());
    EXPECT_TRUE(hotKeys->isRegistered(40, 256));

    setShortcut(std::nullopt, withDefault);
    setShortcut(std::nullopt, withoutDefault);
    EXPECT_TRUE(hasStoredValue(withDefault));
    EXPECT_FALSE(hasStoredValue(withoutDefault));
    EXPECT_FALSE(hotKeys->isRegistered(38, 768));
    EXPECT_FALSE(hotKeys->isRegistered(40, 256));
    EXPECT_EQ(changed.size(), 2);

    // Nothing stored any more: nothing written, nothing posted.
    setShortcut(std::nullopt, withDefault);
    setShortcut(std::nullopt, withoutDefault);
    EXPECT_EQ(changed.size(), 2);
    EXPECT_FALSE(hasStoredValue(withoutDefault));

    setShortcut(commandK, withoutDefault);
    store().setValue(QStringLiteral("apiKey"), QStringLiteral("secret"));
    changed.clear();
    EXPECT_EQ(storedNames(), (QSet<Name>{withDefault, withoutDefault}));
    resetAll();
    EXPECT_FALSE(hasStoredValue(withoutDefault));
    EXPECT_FALSE(hotKeys->isRegistered(40, 256));
    EXPECT_EQ(store().value(QStringLiteral("Hotkeys_a")).toBool(), false);
    EXPECT_EQ(store().value(QStringLiteral("apiKey")).toString(), QStringLiteral("secret"));
    EXPECT_EQ(changed, QList<Name>{withoutDefault});
}

TEST_F(Storage, MalformedEntriesReadAsNoShortcutAndStayUntouched) {
    const Name name(QStringLiteral("edited"));
    // Whatever a decoder that is too lenient would take: crashes are the fuzzer's
    // (tests/fuzz/StoredShortcutFuzz.cpp).
    const QVariantList malformed{
        QStringLiteral(R"({"carbonKeyCode":38})"),
        QStringLiteral(R"({"carbonKeyCode":"38","carbonModifiers":768})"),
        QStringLiteral(R"({"carbonKeyCode":38.5,"carbonModifiers":768})"),
        QStringLiteral(R"({"carbonKeyCode":-1,"carbonModifiers":768})"),
        QStringLiteral(R"({"carbonKeyCode":65536,"carbonModifiers":768})"),
        QStringLiteral(R"({"carbonKeyCode":38,"carbonModifiers":4294967296})"),
        QStringLiteral(R"({"carbonKeyCode":1e400,"carbonModifiers":0})"),
        QStringLiteral("true"),
        QStringList{QStringLiteral("a")},
    };
    for (const QVariant& value : malformed) {
        store().setValue(name.storageKey(), value);
        EXPECT_FALSE(shortcut(name).has_value()) << value.toString().toStdString();
        EXPECT_EQ(store().value(name.storageKey()), value);
    }

    // The largest values still read, in any member order and spacing.
    store().setValue(
        name.storageKey(),
        QStringLiteral(R"( { "carbonModifiers" : 4294967295, "carbonKeyCode": 65535 } )"));
    EXPECT_EQ(shortcut(name), Shortcut(65535, 4294967295));
}

TEST_F(Actions, TwoNamesWithOneShortcutBothRunInOrder) {
    const Name first(QStringLiteral("first"));
    const Name second(QStringLiteral("second"));
    setShortcut(commandK, first);
    setShortcut(commandK, second);
    QStringList ran;
    onKeyUp(first, [&] { ran << QStringLiteral("first 1"); });
    onKeyUp(second, [&] { ran << QStringLiteral("second"); });
    onKeyUp(first, [&] { ran << QStringLiteral("first 2"); });
    onKeyDown(first, [&] { ran << QStringLiteral("down"); });
    EXPECT_EQ(hotKeys->registrations().size(), 1);

    ASSERT_EQ(hotKeys->press(40, 256), platform::osstatus::noErr);
    EXPECT_EQ(ran, QStringList{QStringLiteral("down")});
    ran.clear();
    ASSERT_EQ(hotKeys->release(40, 256), platform::osstatus::noErr);
    ASSERT_EQ(ran.size(), 3);
    EXPECT_LT(ran.indexOf(QStringLiteral("first 1")), ran.indexOf(QStringLiteral("first 2")));
    EXPECT_TRUE(ran.contains(QStringLiteral("second")));
}

// While the recorder records, neither actions nor streams hear the keys. Removing actions lets
// go of the hot keys that no stream uses.
TEST_F(Actions, RecorderActivityBlocksThemAndStreamsKeepTheirHotKeys) {
    const Name withStream(QStringLiteral("a"), commandShiftJ);
    const Name plain(QStringLiteral("b"), commandK);
    int actions = 0;
    int events = 0;
    onKeyUp(withStream, [&] { ++actions; });
    onKeyUp(plain, [] {});
    auto stream = Hotkeys::events(withStream, [&](EventType) { ++events; });
    testutil::processEventsFor(std::chrono::milliseconds(10));

    setRecorderIsActive(true);
    hotKeys->press(38, 768);
    hotKeys->release(38, 768);
    EXPECT_EQ(actions + events, 0);
    setRecorderIsActive(false);
    hotKeys->release(38, 768);
    EXPECT_EQ(actions, 1);
    EXPECT_EQ(events, 1);

    removeActions(withStream);
    EXPECT_TRUE(hotKeys->isRegistered(38, 768));
    removeAllActions();
    EXPECT_TRUE(hotKeys->isRegistered(38, 768));
    EXPECT_FALSE(hotKeys->isRegistered(40, 256));

    stream.end();
    testutil::processEventsFor(std::chrono::milliseconds(10));
    EXPECT_FALSE(hotKeys->isRegistered(38, 768));
}

// A name's enabled state; then its streams, which join late and leave at once.
TEST_F(ShortcutModel, EnabledStateAndStreamsThatJoinLaterAndLeaveAtOnce) {
    const Name name(QStringLiteral("n"), commandShiftJ);
    EXPECT_TRUE(isEnabled(name));
    disable({name}); // the grab let go: tests/hotkeys/X11HotKeysTest.cpp
    EXPECT_FALSE(isEnabled(name));
    EXPECT_EQ(shortcut(name), commandShiftJ);
    enable({name});
    EXPECT_TRUE(isEnabled(name));

    setShortcutsEnabled(false);
    EXPECT_FALSE(isEnabled(name));
    setShortcutsEnabled(true);
    EXPECT_TRUE(isEnabled(name));
    EXPECT_FALSE(isEnabled(Name(QStringLiteral("unset"))));

    disable({name});
    QList<EventType> all;
    int releases = 0;
    auto stream = Hotkeys::events(name, [&](EventType type) { all << type; });
    auto upOnly = Hotkeys::events(EventType::keyUp, name, [&] { ++releases; });
    // Added in a later turn of the main loop, which also registers the shortcut.
    EXPECT_FALSE(hotKeys->isRegistered(38, 768));
    testutil::processEventsFor(std::chrono::milliseconds(10));
    ASSERT_TRUE(hotKeys->isRegistered(38, 768));

    hotKeys->press(38, 768);
    hotKeys->release(38, 768);
    EXPECT_EQ(all, (QList<EventType>{EventType::keyDown, EventType::keyUp}));
    EXPECT_EQ(releases, 1);

    stream.end();
    hotKeys->release(38, 768);
    EXPECT_EQ(all.size(), 2);
    EXPECT_EQ(releases, 2);
    {
        const EventStream moved = std::move(upOnly);
        EXPECT_FALSE(upOnly.isActive()); // NOLINT(bugprone-use-after-move)
    }
    testutil::processEventsFor(std::chrono::milliseconds(10));
    EXPECT_FALSE(hotKeys->isRegistered(38, 768));
    EXPECT_EQ(hotKeys->release(38, 768), std::nullopt);
}
