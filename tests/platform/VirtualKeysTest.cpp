#include "platform/VirtualKeys.h"

#include <gtest/gtest.h>
#include <set>

using namespace platform;

namespace {
// Every virtual key code a shortcut can name (letters, digits, modifiers, punctuation,
// navigation, function keys, keypad), except Function, which has no key of its own on Linux.
const std::vector<std::uint16_t> allKeys{
    0,  11,  8,   2,   14,  3,   5,   4,   34,  38,  40,  37,  46,  45,  31, 35, 12, 15,  1,
    17, 32,  9,   13,  7,   16,  6,   29,  18,  19,  20,  21,  23,  22,  26, 28, 25, 57,  56,
    59, 58,  55,  54,  61,  62,  60,  36,  42,  50,  43,  24,  27,  47,  39, 41, 44, 49,  48,
    33, 30,  116, 121, 115, 119, 126, 124, 125, 123, 53,  51,  117, 114, 74, 72, 73, 122, 120,
    99, 118, 96,  97,  98,  100, 101, 109, 103, 111, 105, 107, 113, 106, 64, 79, 80, 90,  82,
    83, 84,  85,  86,  87,  88,  89,  91,  92,  71,  65,  75,  76,  81,  78, 67, 69};
} // namespace

TEST(VirtualKeys, EveryKeyHasOneXKeycodeAndBack) {
    ASSERT_EQ(allKeys.size(), 112u);
    std::set<std::uint32_t> seen;
    for (const auto key : allKeys) {
        const auto xKeycode = xKeycodeFromVirtualKey(key);
        ASSERT_TRUE(xKeycode.has_value()) << "key " << key;
        EXPECT_TRUE(seen.insert(*xKeycode).second) << "X keycode used twice: " << *xKeycode;
        EXPECT_EQ(virtualKeyFromXKeycode(*xKeycode), key);
    }
    EXPECT_EQ(xKeycodeFromVirtualKey(63), std::nullopt); // Function
    EXPECT_EQ(virtualKeyFromXKeycode(3), std::nullopt);
    EXPECT_EQ(virtualKeyFromXKeycode(999), std::nullopt);
}

TEST(VirtualKeys, KeysymsNameTheUsLayout) {
    EXPECT_EQ(usKeysymForVirtualKey(8), 'c');
    EXPECT_EQ(usKeysymForVirtualKey(9), 'v');
    EXPECT_EQ(usKeysymForVirtualKey(38), 'j');
    EXPECT_EQ(usKeysymToVirtualKey('j'), 38);
    EXPECT_EQ(usKeysymToVirtualKey(0xffbe), 122); // F1
    std::set<std::uint32_t> keysyms;
    for (const auto key : allKeys) {
        if (auto keysym = usKeysymForVirtualKey(key)) {
            EXPECT_TRUE(keysyms.insert(*keysym).second) << "keysym used twice: " << *keysym;
        }
    }
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

TEST(VirtualKeys, ModifierRolesFollowQt) {
    const auto flags = eventFlagsFromQt(Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(flags, eventflags::command | eventflags::shift);
    EXPECT_EQ(eventFlagsFromQt(Qt::MetaModifier | Qt::AltModifier),
              eventflags::control | eventflags::option);
    EXPECT_EQ(
        qtModifiersFromEventFlags(eventflags::command | eventflags::option | eventflags::function),
        Qt::ControlModifier | Qt::AltModifier);
}
