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

QAction* addItem(QMenu& menu, const QString& title, const QKeySequence& keys) {
    QAction* action = menu.addAction(title);
    action->setShortcut(keys);
    return action;
}

} // namespace

using Description = HotkeysTest;
using MenuSearch = HotkeysTest;

TEST_F(Description, ModifierSymbolsInTheirFixedOrderThenTheKeyOrItsName) {
    const std::pair<Shortcut, const char*> cases[] = {
        {Shortcut(Key::a, allModifiers), "⌃⌥⇧⌘\U0001F310\uFE0EA"},
        {Shortcut(Key::j, eventflags::command | eventflags::shift), "⇧⌘J"},
        {Shortcut(Key::f5, eventflags::command), "⌘F5"},
        {Shortcut(Key::minus, 0), "-"},
        {Shortcut(Key::space, eventflags::control | eventflags::option), "⌃⌥Space"},
        {Shortcut(Key::keypad5, eventflags::command), "⌘5\u20E3"},
        {Shortcut(Key::returnKey, 0), "\u21A9"},
        {Shortcut(Key::help, 0), "?\u20DD"},
        {Shortcut(Key::keypadClear, 0), "\u2612\u20E3"},
        {Shortcut(70000, 0x100), "⌘\uFFFD"}, // no such key
    };
    for (const auto& [shortcut, expected] : cases)
        EXPECT_EQ(shortcut.description(), QString::fromUtf8(expected)) << expected;
}

// What a person reads in a window: Linux words, in the usual order, Command playing Ctrl.
TEST_F(Description, DisplayNamesUseLinuxWords) {
    const std::pair<Shortcut, const char*> cases[] = {
        {Shortcut(Key::j, eventflags::command | eventflags::shift), "Ctrl+Shift+J"},
        {Shortcut(Key::a, allModifiers), "Ctrl+Alt+Shift+Super+Fn+A"},
        {Shortcut(Key::space, eventflags::control | eventflags::option), "Alt+Super+Space"},
        {Shortcut(Key::f5, 0), "F5"},
        {Shortcut(Key::returnKey, eventflags::command), "Ctrl+Enter"},
        {Shortcut(Key::keypad5, eventflags::command), "Ctrl+Keypad 5"},
        {Shortcut(Key::keypadPlus, 0), "Keypad +"},
        {Shortcut(Key::pageDown, eventflags::option), "Alt+Page Down"},
        {Shortcut(Key::slash, eventflags::command), "Ctrl+/"},
    };
    for (const auto& [shortcut, expected] : cases)
        EXPECT_EQ(shortcut.displayName(), QString::fromUtf8(expected)) << expected;
    layout->setCharacters(Key::e.rawValue, QString()); // a dead key
    EXPECT_EQ(Shortcut(Key::e, eventflags::command).displayName(), QStringLiteral("Ctrl+\uFFFD"));
}

TEST_F(Description, KeysWithoutOneCharacterShowTheReplacementCharacter) {
    layout->setCharacters(Key::e.rawValue, QString());                 // a dead key
    layout->setCharacters(Key::r.rawValue, QStringLiteral("ab"));      // two characters
    layout->setCharacters(Key::t.rawValue, QStringLiteral("e\u0301")); // one, with a mark
    EXPECT_EQ(Shortcut(Key::e, eventflags::command).description(), QStringLiteral("⌘\uFFFD"));
    EXPECT_EQ(Shortcut(Key::r, eventflags::command).description(), QStringLiteral("⌘\uFFFD"));
    EXPECT_EQ(Shortcut(Key::t, eventflags::command).description(), QStringLiteral("⌘E\u0301"));

    layout->setAvailable(false);
    EXPECT_EQ(Shortcut(Key::j, eventflags::command).description(), QStringLiteral("⌘\uFFFD"));
    EXPECT_EQ(Shortcut(Key::f5, 0).description(), QStringLiteral("F5")); // needs no layout
}

TEST_F(Description, KeyToCharacterIgnoresModifiersAndSpecialKeys) {
    EXPECT_EQ(Shortcut(Key::j, eventflags::shift).keyToCharacter(), QStringLiteral("j"));
    EXPECT_EQ(Shortcut(Key::slash, 0).keyToCharacter(), QStringLiteral("/"));
    EXPECT_EQ(Shortcut(Key::space, 0).keyToCharacter(), std::nullopt);
    EXPECT_EQ(Shortcut(Key::keypad1, 0).keyToCharacter(), std::nullopt);
}

TEST(SpecialKeys, TableCoversFiftyThreeDistinctKeys) {
    std::set<std::int64_t> codes;
    int withoutMenuText = 0;
    for (const SpecialKey key : allSpecialKeys()) {
        codes.insert(keyCode(key));
        EXPECT_EQ(specialKey(keyCode(key)), key);
        EXPECT_FALSE(displayText(key).isEmpty());
        if (!menuKeyEquivalent(key))
            ++withoutMenuText;
    }
    EXPECT_EQ(allSpecialKeys().size(), 53u);
    EXPECT_EQ(codes.size(), 53u);
    EXPECT_EQ(withoutMenuText, 18); // the keypad keys
    EXPECT_FALSE(specialKey(Key::j.rawValue).has_value());
    EXPECT_EQ(menuKeyEquivalent(SpecialKey::f1), QString(QChar(0xF704)));
    EXPECT_EQ(menuKeyEquivalent(SpecialKey::f20), QString(QChar(0xF717)));
    EXPECT_EQ(menuKeyEquivalent(SpecialKey::space), QStringLiteral(" "));
    EXPECT_EQ(keyCode(SpecialKey::deleteForward), 117);
}

TEST(KeyEquivalents, QtShortcutsTakeTheFormMenusStore) {
    EXPECT_EQ(keyEquivalent(QKeySequence(QStringLiteral("Ctrl+Shift+J"))),
              (KeyEquivalent{QStringLiteral("J"), eventflags::command}));
    EXPECT_EQ(keyEquivalent(QKeySequence(QStringLiteral("Ctrl+Alt+J"))),
              (KeyEquivalent{QStringLiteral("j"), eventflags::command | eventflags::option}));
    EXPECT_EQ(keyEquivalent(QKeySequence(QStringLiteral("Meta+F5"))),
              (KeyEquivalent{QString(QChar(0xF708)), eventflags::control}));
    EXPECT_EQ(keyEquivalent(QKeySequence(QStringLiteral("Ctrl+?"))),
              (KeyEquivalent{QStringLiteral("?"), eventflags::command}));
    EXPECT_EQ(keyEquivalent(QKeySequence(QStringLiteral("Ctrl+K, Ctrl+S"))).key, QString());
    EXPECT_EQ(keyEquivalent(QKeySequence()).key, QString());
}

// Depth first through submenus and menu bars; the masks must be equal, an upper-case item
// takes Command+Shift, and keypad keys never match.
TEST_F(MenuSearch, FindsTheFirstItemWithTheSameKeyEquivalent) {
    QMenuBar bar;
    QMenu* file = bar.addMenu(QStringLiteral("File"));
    QMenu* recent = file->addMenu(QStringLiteral("Recent"));
    QAction* clear =
        addItem(*recent, QStringLiteral("Clear"), QKeySequence(QStringLiteral("Ctrl+F5")));
    addItem(*file, QStringLiteral("Reload"), QKeySequence(QStringLiteral("Ctrl+F5")));
    QAction* quit = addItem(*file, QStringLiteral("Quit"), QKeySequence(QStringLiteral("Ctrl+Q")));
    QAction* next =
        addItem(*file, QStringLiteral("Next"), QKeySequence(QStringLiteral("Ctrl+Return")));
    QAction* jump =
        addItem(*file, QStringLiteral("Jump"), QKeySequence(QStringLiteral("Ctrl+Shift+J")));
    QAction* join =
        addItem(*file, QStringLiteral("Join"), QKeySequence(QStringLiteral("Ctrl+Alt+K")));
    QAction* five = addItem(*file, QStringLiteral("Five"), QKeySequence(QStringLiteral("Ctrl+5")));
    addItem(*file, QStringLiteral("Keypad six"),
            QKeySequence(QKeyCombination(Qt::ControlModifier | Qt::KeypadModifier, Qt::Key_6)));
    const std::pair<Shortcut, QAction*> cases[] = {
        {Shortcut(Key::f5, eventflags::command), clear},
        {Shortcut(Key::q, eventflags::command), quit},
        {Shortcut(Key::returnKey, eventflags::command), next},
        {Shortcut(Key::j, eventflags::command | eventflags::shift), jump},
        {Shortcut(Key::j, eventflags::command), nullptr},
        {Shortcut(Key::k, eventflags::command), nullptr},
        {Shortcut(Key::k, eventflags::command | eventflags::option), join},
        {Shortcut(Key::five, eventflags::command), five},
        {Shortcut(Key::keypad5, eventflags::command), nullptr},
        {Shortcut(Key::keypad6, eventflags::command), nullptr},
    };
    for (const auto& [shortcut, item] : cases)
        EXPECT_EQ(shortcut.menuItemWithMatchingShortcut(&bar), item)
            << shortcut.description().toStdString();
    EXPECT_EQ(Shortcut(Key::f5, eventflags::command).menuItemWithMatchingShortcut(file), clear);
}

TEST(Strings, KeysHaveTheirEnglishTextsAndUnknownKeysStayAsTheyAre) {
    EXPECT_EQ(localizedString(strings::recordShortcut), QStringLiteral("Record Shortcut"));
    EXPECT_EQ(localizedString(strings::keyboardShortcutUsedByMenuItem).arg(QStringLiteral("Quit")),
              QStringLiteral("This keyboard shortcut cannot be used as it's already used by the "
                             "“Quit” menu item."));
    EXPECT_EQ(localizedString(QStringLiteral("no_such_key")), QStringLiteral("no_such_key"));
    for (const char* key :
         {strings::spaceKey, strings::pressShortcut, strings::keyboardShortcutDisallowed,
          strings::keyboardShortcutUsedBySystem, strings::keyboardShortcutsCanBeChanged,
          strings::ok, strings::forceUseShortcut})
        EXPECT_NE(localizedString(key), QString::fromLatin1(key)) << "no English text: " << key;
}
