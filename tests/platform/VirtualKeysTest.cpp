#include "platform/VirtualKeys.h"

#include "hotkeys/Shortcut.h"
#include "platform/wayland/XkbKeymap.h"

#include <gtest/gtest.h>
#include <set>
#include <xkbcommon/xkbcommon-keysyms.h>

using namespace platform;

namespace {
// Every virtual key code a shortcut can name, except Function, which has no key of its own on
// Linux.
const std::vector<std::uint16_t> allKeys = [] {
    std::vector<std::uint16_t> keys;
    for (const Hotkeys::Key key : Hotkeys::Key::all) {
        if (key != Hotkeys::Key::function)
            keys.push_back(static_cast<std::uint16_t>(key.rawValue));
    }
    return keys;
}();
} // namespace

// Two key constants with one value would share an X keycode, too. Which keysym types C, V
// and J is seen on the real desktop (tests/x11: the copy and paste chords).
TEST(VirtualKeys, EveryKeyHasOneXKeycodeAndOneUsKeysymAndBack) {
    ASSERT_EQ(allKeys.size(), 112u);
    std::set<std::uint32_t> xKeycodes;
    std::set<std::uint32_t> keysyms;
    for (const auto key : allKeys) {
        const auto xKeycode = xKeycodeFromVirtualKey(key);
        ASSERT_TRUE(xKeycode.has_value()) << "key " << key;
        EXPECT_TRUE(xKeycodes.insert(*xKeycode).second) << "X keycode used twice: " << *xKeycode;
        EXPECT_EQ(virtualKeyFromXKeycode(*xKeycode), key);
        if (const auto keysym = usKeysymForVirtualKey(key)) {
            EXPECT_TRUE(keysyms.insert(*keysym).second) << "keysym used twice: " << *keysym;
            EXPECT_EQ(usKeysymToVirtualKey(*keysym), key);
        }
    }
    EXPECT_EQ(usKeysymToVirtualKey(0xffbe), 122);        // F1
    EXPECT_EQ(xKeycodeFromVirtualKey(63), std::nullopt); // Function
    EXPECT_EQ(virtualKeyFromXKeycode(3), std::nullopt);
    EXPECT_EQ(virtualKeyFromXKeycode(999), std::nullopt);
}

TEST(VirtualKeys, QtEventsMapToPositionalKeys) {
    // Scan code first: X keycode 44 is the J key whatever the layout says.
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Z, {}, 44), 38);
    // Without a scan code (offscreen), the Qt key as a US layout makes it.
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_J, Qt::ControlModifier | Qt::ShiftModifier, 0), 38);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Exclam, Qt::ShiftModifier, 0), 18);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_5, Qt::KeypadModifier, 0), 87);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_5, {}, 0), 23);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Return, {}, 0), 36);
    // A virtual keyboard numbers its keys as it likes: a named key goes by its name.
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Return, {}, 10), 36);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Enter, Qt::KeypadModifier, 0), 76);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Escape, {}, 0), 53);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_F12, {}, 0), 111);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_Backtab, Qt::ShiftModifier, 0), 48);
    EXPECT_EQ(virtualKeyFromQt(Qt::Key_unknown, {}, 0), std::nullopt);
}

// A keystroke asks for the key that types a symbol in the layout in force.
TEST(XkbKeymap, FindsTheKeyThatTypesASymbol) {
    struct Case {
        const char* layout;
        const char* variant;
        std::uint32_t keysym;
        std::optional<wayland::KeyPlace> place;
    };
    const Case cases[] = {
        {"us", nullptr, XKB_KEY_c, wayland::KeyPlace{46, 0, false}},    // KEY_C
        {"us", "dvorak", XKB_KEY_c, wayland::KeyPlace{23, 0, false}},   // where QWERTY has i
        {"ru,us", nullptr, XKB_KEY_c, wayland::KeyPlace{46, 1, false}}, // the Latin group
        {"us", nullptr, XKB_KEY_C, wayland::KeyPlace{46, 0, true}},     // with Shift
        {"us", nullptr, XKB_KEY_Control_L, wayland::KeyPlace{29, 0, false}},
        {"ru", nullptr, XKB_KEY_c, std::nullopt},
    };
    // Compared as one value, which a failure prints whole.
    const auto tied = [](const std::optional<wayland::KeyPlace>& p) {
        return p ? std::optional(std::tuple(p->evdevCode, p->layout, p->shifted)) : std::nullopt;
    };
    for (const Case& c : cases) {
        const auto keymap = wayland::XkbKeymap::fromNames(c.layout, c.variant);
        ASSERT_TRUE(keymap) << c.layout;
        EXPECT_EQ(tied(keymap->locate(c.keysym)), tied(c.place)) << c.layout << " " << c.keysym;
    }
}
