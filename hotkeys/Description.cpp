#include "hotkeys/Localization.h"
#include "hotkeys/Runtime.h"
#include "hotkeys/SpecialKey.h"
#include "platform/KeyboardLayout.h"
#include "platform/VirtualKeys.h"
#include "support/Graphemes.h"

#include <QAction>
#include <QHash>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>

namespace Hotkeys {

namespace {

struct SpecialKeyRow {
    SpecialKey key;
    std::int64_t keyCode;
    const char16_t* display; // null: localized (Space)
    const char16_t* menu;    // null: none (keypad)
};

// clang-format off
constexpr SpecialKeyRow specialKeyRows[specialKeyCount] = {
    {SpecialKey::returnKey, 36, u"\u21A9", u"\u21A9"},
    {SpecialKey::deleteKey, 51, u"\u232B", u"\u232B"},
    {SpecialKey::deleteForward, 117, u"\u2326", u"\u2326"},
    {SpecialKey::end, 119, u"\u2198", u"\u2198"},
    {SpecialKey::escape, 53, u"\u238B", u"\u238B"},
    {SpecialKey::help, 114, u"?\u20DD", u"?\u20DD"},
    {SpecialKey::home, 115, u"\u2196", u"\u2196"},
    {SpecialKey::space, 49, nullptr, u" "},
    {SpecialKey::tab, 48, u"\u21E5", u"\u21E5"},
    {SpecialKey::pageUp, 116, u"\u21DE", u"\u21DE"},
    {SpecialKey::pageDown, 121, u"\u21DF", u"\u21DF"},
    {SpecialKey::upArrow, 126, u"\u2191", u"\u2191"},
    {SpecialKey::rightArrow, 124, u"\u2192", u"\u2192"},
    {SpecialKey::downArrow, 125, u"\u2193", u"\u2193"},
    {SpecialKey::leftArrow, 123, u"\u2190", u"\u2190"},
    {SpecialKey::f1, 122, u"F1", u"\uF704"},
    {SpecialKey::f2, 120, u"F2", u"\uF705"},
    {SpecialKey::f3, 99, u"F3", u"\uF706"},
    {SpecialKey::f4, 118, u"F4", u"\uF707"},
    {SpecialKey::f5, 96, u"F5", u"\uF708"},
    {SpecialKey::f6, 97, u"F6", u"\uF709"},
    {SpecialKey::f7, 98, u"F7", u"\uF70A"},
    {SpecialKey::f8, 100, u"F8", u"\uF70B"},
    {SpecialKey::f9, 101, u"F9", u"\uF70C"},
    {SpecialKey::f10, 109, u"F10", u"\uF70D"},
    {SpecialKey::f11, 103, u"F11", u"\uF70E"},
    {SpecialKey::f12, 111, u"F12", u"\uF70F"},
    {SpecialKey::f13, 105, u"F13", u"\uF710"},
    {SpecialKey::f14, 107, u"F14", u"\uF711"},
    {SpecialKey::f15, 113, u"F15", u"\uF712"},
    {SpecialKey::f16, 106, u"F16", u"\uF713"},
    {SpecialKey::f17, 64, u"F17", u"\uF714"},
    {SpecialKey::f18, 79, u"F18", u"\uF715"},
    {SpecialKey::f19, 80, u"F19", u"\uF716"},
    {SpecialKey::f20, 90, u"F20", u"\uF717"},
    {SpecialKey::keypad0, 82, u"0\u20E3", nullptr},
    {SpecialKey::keypad1, 83, u"1\u20E3", nullptr},
    {SpecialKey::keypad2, 84, u"2\u20E3", nullptr},
    {SpecialKey::keypad3, 85, u"3\u20E3", nullptr},
    {SpecialKey::keypad4, 86, u"4\u20E3", nullptr},
    {SpecialKey::keypad5, 87, u"5\u20E3", nullptr},
    {SpecialKey::keypad6, 88, u"6\u20E3", nullptr},
    {SpecialKey::keypad7, 89, u"7\u20E3", nullptr},
    {SpecialKey::keypad8, 91, u"8\u20E3", nullptr},
    {SpecialKey::keypad9, 92, u"9\u20E3", nullptr},
    {SpecialKey::keypadClear, 71, u"\u2612\u20E3", nullptr},
    {SpecialKey::keypadDecimal, 65, u".\u20E3", nullptr},
    {SpecialKey::keypadDivide, 75, u"/\u20E3", nullptr},
    {SpecialKey::keypadEnter, 76, u"\u21A9\u20E3", nullptr},
    {SpecialKey::keypadEquals, 81, u"=\u20E3", nullptr},
    {SpecialKey::keypadMinus, 78, u"-\u20E3", nullptr},
    {SpecialKey::keypadMultiply, 67, u"*\u20E3", nullptr},
    {SpecialKey::keypadPlus, 69, u"+\u20E3", nullptr},
};
// clang-format on

const SpecialKeyRow& row(SpecialKey key) {
    return specialKeyRows[static_cast<std::size_t>(key)];
}

// Words (runs between white space) with the first letter upper case and the rest lower case,
// whatever the locale.
QString capitalized(const QString& text) {
    QString result;
    result.reserve(text.size());
    bool wordStart = true;
    for (const char32_t codePoint : text.toUcs4()) {
        if (QChar::isSpace(codePoint)) {
            wordStart = true;
            result += QString::fromUcs4(&codePoint, 1);
            continue;
        }
        const char32_t mapped =
            wordStart ? QChar::toTitleCase(codePoint) : QChar::toLower(codePoint);
        result += QString::fromUcs4(&mapped, 1);
        wordStart = false;
    }
    return result;
}

std::optional<SpecialKey> specialKeyForQtKey(int key) {
    if (key >= Qt::Key_F1 && key <= Qt::Key_F20)
        return static_cast<SpecialKey>(static_cast<int>(SpecialKey::f1) + (key - Qt::Key_F1));
    switch (key) {
    case Qt::Key_Return:
        return SpecialKey::returnKey;
    case Qt::Key_Enter: // the keypad's Enter
        return SpecialKey::keypadEnter;
    case Qt::Key_Backspace:
        return SpecialKey::deleteKey;
    case Qt::Key_Delete:
        return SpecialKey::deleteForward;
    case Qt::Key_End:
        return SpecialKey::end;
    case Qt::Key_Escape:
        return SpecialKey::escape;
    case Qt::Key_Help:
        return SpecialKey::help;
    case Qt::Key_Home:
        return SpecialKey::home;
    case Qt::Key_Space:
        return SpecialKey::space;
    case Qt::Key_Tab:
    case Qt::Key_Backtab:
        return SpecialKey::tab;
    case Qt::Key_PageUp:
        return SpecialKey::pageUp;
    case Qt::Key_PageDown:
        return SpecialKey::pageDown;
    case Qt::Key_Up:
        return SpecialKey::upArrow;
    case Qt::Key_Right:
        return SpecialKey::rightArrow;
    case Qt::Key_Down:
        return SpecialKey::downArrow;
    case Qt::Key_Left:
        return SpecialKey::leftArrow;
    default:
        return std::nullopt;
    }
}

QAction* findItem(const QList<QAction*>& items, EventFlags modifiers, const QString& keyText) {
    for (QAction* item : items) {
        auto [key, mask] = keyEquivalent(item->shortcut());
        if ((modifiers & eventflags::shift) && key != key.toLower()) {
            key = key.toLower();
            mask |= eventflags::shift;
        }
        if (keyText == key && modifiers == mask)
            return item;
        if (const QMenu* submenu = item->menu()) {
            if (QAction* found = findItem(submenu->actions(), modifiers, keyText))
                return found;
        }
    }
    return nullptr;
}

} // namespace

const std::array<SpecialKey, specialKeyCount>& allSpecialKeys() {
    static const auto keys = [] {
        std::array<SpecialKey, specialKeyCount> result{};
        for (std::size_t i = 0; i < specialKeyCount; ++i)
            result[i] = specialKeyRows[i].key;
        return result;
    }();
    return keys;
}

std::optional<SpecialKey> specialKey(std::int64_t keyCode) {
    static const auto table = [] {
        QHash<std::int64_t, SpecialKey> byKeyCode;
        for (const auto& entry : specialKeyRows)
            byKeyCode.insert(entry.keyCode, entry.key);
        return byKeyCode;
    }();
    const auto it = table.constFind(keyCode);
    if (it == table.constEnd())
        return std::nullopt;
    return *it;
}

std::int64_t keyCode(SpecialKey key) {
    return row(key).keyCode;
}

QString displayText(SpecialKey key) {
    const auto* text = row(key).display;
    if (!text)
        return capitalized(localizedString(strings::spaceKey));
    return QString::fromUtf16(text);
}

std::optional<QString> menuKeyEquivalent(SpecialKey key) {
    const auto* text = row(key).menu;
    if (!text)
        return std::nullopt;
    return QString::fromUtf16(text);
}

KeyEquivalent keyEquivalent(const QKeySequence& sequence) {
    if (sequence.count() != 1)
        return {};
    const QKeyCombination combination = sequence[0];
    const Qt::KeyboardModifiers qtModifiers = combination.keyboardModifiers();
    const int key = combination.key();
    KeyEquivalent result;
    result.modifierMask = platform::eventFlagsFromQt(qtModifiers);
    if (const auto special = specialKeyForQtKey(key)) {
        result.key = menuKeyEquivalent(*special).value_or(QString());
        return result;
    }
    if (key <= 0 || key > 0x10FFFF || !QChar::isPrint(static_cast<char32_t>(key)))
        return result;
    const auto codePoint = static_cast<char32_t>(key);
    if (QChar::isLetter(codePoint)) {
        // Qt names a letter key by its upper-case letter and spells Shift out; a menu stores
        // the shifted letter in upper case and leaves Shift out of the mask.
        if (qtModifiers.testFlag(Qt::ShiftModifier)) {
            const char32_t upper = QChar::toUpper(codePoint);
            result.key = QString::fromUcs4(&upper, 1);
            result.modifierMask &= ~eventflags::shift;
        } else {
            const char32_t lower = QChar::toLower(codePoint);
            result.key = QString::fromUcs4(&lower, 1);
        }
        return result;
    }
    result.key = QString::fromUcs4(&codePoint, 1);
    return result;
}

std::optional<QString> Shortcut::keyToCharacter() const {
    if (carbonKeyCode < 0 || carbonKeyCode > 0xFFFF)
        return std::nullopt;
    if (specialKey(carbonKeyCode))
        return std::nullopt;
    auto text = detail::runtime().keyboardLayoutPort().characters(
        static_cast<std::uint16_t>(carbonKeyCode));
    if (!text || support::graphemeCount(*text) != 1)
        return std::nullopt;
    return text;
}

QString Shortcut::description() const {
    const EventFlags flags = modifiers();
    QString text;
    if (flags & eventflags::control)
        text += u'\u2303';
    if (flags & eventflags::option)
        text += u'\u2325';
    if (flags & eventflags::shift)
        text += u'\u21E7';
    if (flags & eventflags::command)
        text += u'\u2318';
    if (flags & eventflags::function)
        text += QStringView(u"\U0001F310\uFE0E");
    if (const auto special = specialKey(carbonKeyCode))
        text += displayText(*special);
    else if (const auto character = keyToCharacter())
        text += capitalized(*character);
    else
        text += u'\uFFFD';
    return text;
}

namespace {

// A special key as Linux keyboard settings name it.
QString linuxKeyName(SpecialKey key) {
    const auto index = static_cast<int>(key);
    if (index >= static_cast<int>(SpecialKey::f1) && index <= static_cast<int>(SpecialKey::f20))
        return QStringLiteral("F%1").arg(index - static_cast<int>(SpecialKey::f1) + 1);
    if (index >= static_cast<int>(SpecialKey::keypad0) &&
        index <= static_cast<int>(SpecialKey::keypad9))
        return QStringLiteral("Keypad %1").arg(index - static_cast<int>(SpecialKey::keypad0));
    switch (key) {
    case SpecialKey::returnKey:
        return QStringLiteral("Enter");
    case SpecialKey::deleteKey:
        return QStringLiteral("Backspace");
    case SpecialKey::deleteForward:
        return QStringLiteral("Delete");
    case SpecialKey::end:
        return QStringLiteral("End");
    case SpecialKey::escape:
        return QStringLiteral("Esc");
    case SpecialKey::help:
        return QStringLiteral("Help");
    case SpecialKey::home:
        return QStringLiteral("Home");
    case SpecialKey::space:
        return capitalized(localizedString(strings::spaceKey));
    case SpecialKey::tab:
        return QStringLiteral("Tab");
    case SpecialKey::pageUp:
        return QStringLiteral("Page Up");
    case SpecialKey::pageDown:
        return QStringLiteral("Page Down");
    case SpecialKey::upArrow:
        return QStringLiteral("Up");
    case SpecialKey::rightArrow:
        return QStringLiteral("Right");
    case SpecialKey::downArrow:
        return QStringLiteral("Down");
    case SpecialKey::leftArrow:
        return QStringLiteral("Left");
    case SpecialKey::keypadClear:
        return QStringLiteral("Clear");
    case SpecialKey::keypadEnter:
        return QStringLiteral("Keypad Enter");
    default:
        // The remaining keypad keys: the character on the key cap.
        return QStringLiteral("Keypad ") + displayText(key).left(1);
    }
}

} // namespace

QString Shortcut::displayName() const {
    const EventFlags flags = modifiers();
    QStringList parts;
    if (flags & eventflags::command)
        parts << QStringLiteral("Ctrl");
    if (flags & eventflags::option)
        parts << QStringLiteral("Alt");
    if (flags & eventflags::shift)
        parts << QStringLiteral("Shift");
    if (flags & eventflags::control)
        parts << QStringLiteral("Super");
    if (flags & eventflags::function)
        parts << QStringLiteral("Fn");
    if (const auto special = specialKey(carbonKeyCode))
        parts << linuxKeyName(*special);
    else if (const auto character = keyToCharacter())
        parts << character->toUpper();
    else
        parts << QString(u'\uFFFD');
    return parts.join(u'+');
}

namespace {

std::optional<QString> menuKeyText(const Shortcut& shortcut) {
    if (const auto special = specialKey(shortcut.carbonKeyCode))
        return menuKeyEquivalent(*special);
    return shortcut.keyToCharacter();
}

} // namespace

QAction* Shortcut::menuItemWithMatchingShortcut(const QMenu* menu) const {
    const auto keyText = menuKeyText(*this);
    if (!menu || !keyText)
        return nullptr;
    return findItem(menu->actions(), modifiers(), *keyText);
}

QAction* Shortcut::menuItemWithMatchingShortcut(const QMenuBar* menuBar) const {
    const auto keyText = menuKeyText(*this);
    if (!menuBar || !keyText)
        return nullptr;
    return findItem(menuBar->actions(), modifiers(), *keyText);
}

} // namespace Hotkeys
