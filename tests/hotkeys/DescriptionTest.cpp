// Descriptions, key characters, the special-key table, menu search and the strings.
#include "HotkeysFixture.h"
#include "hotkeys/Localization.h"
#include "hotkeys/SpecialKey.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <set>

using namespace Hotkeys;

namespace {

constexpr EventFlags allModifiers = eventflags::control | eventflags::option | eventflags::shift |
                                    eventflags::command | eventflags::function;

} // namespace

using Description = HotkeysTest;
using MenuSearch = HotkeysTest;

// Symbols: modifiers in their fixed order, then the key or its name; a key without exactly one
// character shows the replacement character. Names, what a person reads in a window: Linux
// words, in the usual order, Command playing Ctrl.
TEST_F(Description, SymbolsAndDisplayNames) {
    layout->setCharacters(Key::e.rawValue, QString());                 // a dead key
    layout->setCharacters(Key::r.rawValue, QStringLiteral("ab"));      // two characters
    layout->setCharacters(Key::t.rawValue, QStringLiteral("e\u0301")); // one, with a mark
    const std::tuple<Shortcut, const char*, const char*> cases[] = {
        {Shortcut(Key::a, allModifiers), "⌃⌥⇧⌘\U0001F310\uFE0EA", "Ctrl+Alt+Shift+Super+Fn+A"},
        {Shortcut(Key::j, eventflags::command | eventflags::shift), "⇧⌘J", "Ctrl+Shift+J"},
        {Shortcut(Key::f5, eventflags::command), "⌘F5", "Ctrl+F5"},
        {Shortcut(Key::f5, 0), "F5", "F5"},
        {Shortcut(Key::minus, 0), "-", "-"},
        {Shortcut(Key::space, eventflags::control | eventflags::option), "⌃⌥Space",
         "Alt+Super+Space"},
        {Shortcut(Key::keypad5, eventflags::command), "⌘5\u20E3", "Ctrl+Keypad 5"},
        {Shortcut(Key::returnKey, eventflags::command), "⌘\u21A9", "Ctrl+Enter"},
        {Shortcut(Key::help, 0), "?\u20DD", "Help"},
        {Shortcut(Key::keypadClear, 0), "\u2612\u20E3", "Clear"},
        {Shortcut(Key::keypadPlus, 0), "+\u20E3", "Keypad +"},
        {Shortcut(Key::pageDown, eventflags::option), "⌥\u21DF", "Alt+Page Down"},
        {Shortcut(Key::slash, eventflags::command), "⌘/", "Ctrl+/"},
        {Shortcut(70000, 0x100), "⌘\uFFFD", "Ctrl+\uFFFD"}, // no such key
        {Shortcut(Key::e, eventflags::command), "⌘\uFFFD", "Ctrl+\uFFFD"},
        {Shortcut(Key::r, eventflags::command), "⌘\uFFFD", "Ctrl+\uFFFD"},
        {Shortcut(Key::t, eventflags::command), "⌘E\u0301", "Ctrl+E\u0301"},
    };
    for (const auto& [shortcut, symbols, name] : cases) {
        EXPECT_EQ(shortcut.description(), QString::fromUtf8(symbols)) << name;
        EXPECT_EQ(shortcut.displayName(), QString::fromUtf8(name)) << symbols;
    }
    // The key's own character ignores the modifiers; special keys have none.
    EXPECT_EQ(Shortcut(Key::j, eventflags::shift).keyToCharacter(), QStringLiteral("j"));
    EXPECT_EQ(Shortcut(Key::slash, 0).keyToCharacter(), QStringLiteral("/"));
    EXPECT_EQ(Shortcut(Key::space, 0).keyToCharacter(), std::nullopt);
    EXPECT_EQ(Shortcut(Key::keypad1, 0).keyToCharacter(), std::nullopt);

    layout->setAvailable(false);
    EXPECT_EQ(Shortcut(Key::j, eventflags::command).description(), QStringLiteral("⌘\uFFFD"));
    EXPECT_EQ(Shortcut(Key::f5, 0).description(), QStringLiteral("F5")); // needs no layout
}

TEST(SpecialKeys, TableCoversFiftyThreeDistinctKeys) {
    std::set<std::int64_t> codes;
    for (const SpecialKey key : allSpecialKeys()) {
        codes.insert(keyCode(key));
        EXPECT_EQ(specialKey(keyCode(key)), key);
    }
    EXPECT_EQ(codes.size(), 53u); // keypad keys without menu text: the menu search below
    EXPECT_FALSE(specialKey(Key::j.rawValue).has_value());
    EXPECT_EQ(menuKeyEquivalent(SpecialKey::space), QStringLiteral(" "));
    EXPECT_EQ(keyCode(SpecialKey::deleteForward), 117);
}

TEST(KeyEquivalents, QtShortcutsTakeTheFormMenusStore) {
    const std::pair<const char*, KeyEquivalent> cases[] = {
        {"Ctrl+Shift+J", {QStringLiteral("J"), eventflags::command}},
        {"Ctrl+Alt+J", {QStringLiteral("j"), eventflags::command | eventflags::option}},
        {"Meta+F5", {QString(QChar(0xF708)), eventflags::control}},
        {"Ctrl+?", {QStringLiteral("?"), eventflags::command}},
        {"Ctrl+K, Ctrl+S", {QString(), 0}}, // no sequences
        {"", {QString(), 0}},
    };
    for (const auto& [keys, expected] : cases)
        EXPECT_EQ(keyEquivalent(QKeySequence(QString::fromLatin1(keys))), expected) << keys;
}

// Depth first through submenus and menu bars; the masks must be equal, an upper-case item
// takes Command+Shift, and keypad keys never match.
TEST_F(MenuSearch, FindsTheFirstItemWithTheSameKeyEquivalent) {
    QMenuBar bar;
    QMenu* file = bar.addMenu(QStringLiteral("File"));
    file->addMenu(QStringLiteral("Recent"))
        ->addAction(QStringLiteral("Clear"))
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+F5")));
    const std::pair<const char*, const char*> items[] = {
        {"Reload", "Ctrl+F5"},    {"Quit", "Ctrl+Q"},     {"Next", "Ctrl+Return"},
        {"Jump", "Ctrl+Shift+J"}, {"Join", "Ctrl+Alt+K"}, {"Five", "Ctrl+5"}};
    for (const auto& [title, keys] : items)
        file->addAction(QString::fromLatin1(title))
            ->setShortcut(QKeySequence(QString::fromLatin1(keys)));
    file->addAction(QStringLiteral("Keypad six"))
        ->setShortcut(
            QKeySequence(QKeyCombination(Qt::ControlModifier | Qt::KeypadModifier, Qt::Key_6)));
    const std::pair<Shortcut, const char*> cases[] = {
        {Shortcut(Key::f5, eventflags::command), "Clear"},
        {Shortcut(Key::q, eventflags::command), "Quit"},
        {Shortcut(Key::returnKey, eventflags::command), "Next"},
        {Shortcut(Key::j, eventflags::command | eventflags::shift), "Jump"},
        {Shortcut(Key::j, eventflags::command), ""},
        {Shortcut(Key::k, eventflags::command), ""},
        {Shortcut(Key::k, eventflags::command | eventflags::option), "Join"},
        {Shortcut(Key::five, eventflags::command), "Five"},
        {Shortcut(Key::keypad5, eventflags::command), ""},
        {Shortcut(Key::keypad6, eventflags::command), ""},
    };
    for (const auto& [shortcut, title] : cases) {
        const QAction* item = shortcut.menuItemWithMatchingShortcut(&bar);
        EXPECT_EQ(item ? item->text() : QString(), QString::fromLatin1(title))
            << shortcut.description().toStdString();
    }
    EXPECT_EQ(Shortcut(Key::f5, eventflags::command).menuItemWithMatchingShortcut(file)->text(),
              QStringLiteral("Clear"));
}

// The English texts are checked where the recorder shows them (tests/ui/RecorderTest.cpp).
TEST(Strings, UnknownKeysStayAsTheyAre) {
    EXPECT_EQ(localizedString(QStringLiteral("no_such_key")), QStringLiteral("no_such_key"));
}
