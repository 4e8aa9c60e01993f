#include "platform/VirtualKeys.h"

#include <array>

namespace platform {

namespace {

struct KeyRow {
    std::uint16_t virtualKey;
    std::uint16_t evdev;  // 0: no evdev key
    std::uint32_t keysym; // US layout, no modifiers; 0: none
};

// kVK value, evdev code, US keysym.
constexpr KeyRow keyTable[] = {
    {0, 30, 'a'},          {1, 31, 's'},          {2, 32, 'd'},       {3, 33, 'f'},
    {4, 35, 'h'},          {5, 34, 'g'},          {6, 44, 'z'},       {7, 45, 'x'},
    {8, 46, 'c'},          {9, 47, 'v'},          {10, 86, 0x3c},     {11, 48, 'b'},
    {12, 16, 'q'},         {13, 17, 'w'},         {14, 18, 'e'},      {15, 19, 'r'},
    {16, 21, 'y'},         {17, 20, 't'},         {18, 2, '1'},       {19, 3, '2'},
    {20, 4, '3'},          {21, 5, '4'},          {22, 7, '6'},       {23, 6, '5'},
    {24, 13, '='},         {25, 10, '9'},         {26, 8, '7'},       {27, 12, '-'},
    {28, 9, '8'},          {29, 11, '0'},         {30, 27, ']'},      {31, 24, 'o'},
    {32, 22, 'u'},         {33, 26, '['},         {34, 23, 'i'},      {35, 25, 'p'},
    {36, 28, 0xff0d},      {37, 38, 'l'},         {38, 36, 'j'},      {39, 40, '\''},
    {40, 37, 'k'},         {41, 39, ';'},         {42, 43, '\\'},     {43, 51, ','},
    {44, 53, '/'},         {45, 49, 'n'},         {46, 50, 'm'},      {47, 52, '.'},
    {48, 15, 0xff09},      {49, 57, ' '},         {50, 41, '`'},      {51, 14, 0xff08},
    {53, 1, 0xff1b},       {54, 97, 0xffe4},      {55, 29, 0xffe3},   {56, 42, 0xffe1},
    {57, 58, 0xffe5},      {58, 56, 0xffe9},      {59, 125, 0xffeb},  {60, 54, 0xffe2},
    {61, 100, 0xffea},     {62, 126, 0xffec},     {64, 187, 0xffce},  {65, 83, 0xffae},
    {67, 55, 0xffaa},      {69, 78, 0xffab},      {71, 69, 0xff7f},   {72, 115, 0x1008ff13},
    {73, 114, 0x1008ff11}, {74, 113, 0x1008ff12}, {75, 98, 0xffaf},   {76, 96, 0xff8d},
    {78, 74, 0xffad},      {79, 188, 0xffcf},     {80, 189, 0xffd0},  {81, 117, 0xffbd},
    {82, 82, 0xffb0},      {83, 79, 0xffb1},      {84, 80, 0xffb2},   {85, 81, 0xffb3},
    {86, 75, 0xffb4},      {87, 76, 0xffb5},      {88, 77, 0xffb6},   {89, 71, 0xffb7},
    {90, 190, 0xffd1},     {91, 72, 0xffb8},      {92, 73, 0xffb9},   {96, 63, 0xffc2},
    {97, 64, 0xffc3},      {98, 65, 0xffc4},      {99, 61, 0xffc0},   {100, 66, 0xffc5},
    {101, 67, 0xffc6},     {103, 87, 0xffc8},     {105, 183, 0xffca}, {106, 186, 0xffcd},
    {107, 184, 0xffcb},    {109, 68, 0xffc7},     {111, 88, 0xffc9},  {113, 185, 0xffcc},
    {114, 110, 0xff63},    {115, 102, 0xff50},    {116, 104, 0xff55}, {117, 111, 0xffff},
    {118, 62, 0xffc1},     {119, 107, 0xff57},    {120, 60, 0xffbf},  {121, 109, 0xff56},
    {122, 59, 0xffbe},     {123, 105, 0xff51},    {124, 106, 0xff53}, {125, 108, 0xff54},
    {126, 103, 0xff52},
};

const KeyRow* rowForVirtualKey(std::uint16_t virtualKey) {
    for (const auto& row : keyTable) {
        if (row.virtualKey == virtualKey)
            return &row;
    }
    return nullptr;
}

constexpr std::uint32_t evdevOffset = 8;

// Qt keys that a US layout produces with Shift, mapped back to their key.
std::optional<std::uint16_t> shiftedSymbolKey(int qtKey) {
    switch (qtKey) {
    case Qt::Key_Exclam:
        return 18;
    case Qt::Key_At:
        return 19;
    case Qt::Key_NumberSign:
        return 20;
    case Qt::Key_Dollar:
        return 21;
    case Qt::Key_Percent:
        return 23;
    case Qt::Key_AsciiCircum:
        return 22;
    case Qt::Key_Ampersand:
        return 26;
    case Qt::Key_Asterisk:
        return 28;
    case Qt::Key_ParenLeft:
        return 25;
    case Qt::Key_ParenRight:
        return 29;
    case Qt::Key_Underscore:
        return 27;
    case Qt::Key_Plus:
        return 24;
    case Qt::Key_BraceLeft:
        return 33;
    case Qt::Key_BraceRight:
        return 30;
    case Qt::Key_Bar:
        return 42;
    case Qt::Key_Colon:
        return 41;
    case Qt::Key_QuoteDbl:
        return 39;
    case Qt::Key_AsciiTilde:
        return 50;
    case Qt::Key_Less:
        return 43;
    case Qt::Key_Greater:
        return 47;
    case Qt::Key_Question:
        return 44;
    default:
        return std::nullopt;
    }
}

std::optional<std::uint16_t> keypadKey(int qtKey) {
    if (qtKey >= Qt::Key_0 && qtKey <= Qt::Key_9) {
        static constexpr std::array<std::uint16_t, 10> digits{82, 83, 84, 85, 86,
                                                              87, 88, 89, 91, 92};
        return digits[static_cast<std::size_t>(qtKey - Qt::Key_0)];
    }
    switch (qtKey) {
    case Qt::Key_Period:
        return 65;
    case Qt::Key_Asterisk:
        return 67;
    case Qt::Key_Plus:
        return 69;
    case Qt::Key_Clear:
        return 71;
    case Qt::Key_Slash:
        return 75;
    case Qt::Key_Enter:
        return 76;
    case Qt::Key_Minus:
        return 78;
    case Qt::Key_Equal:
        return 81;
    default:
        return std::nullopt;
    }
}

std::optional<std::uint16_t> virtualKeyFromQtKey(int qtKey, Qt::KeyboardModifiers modifiers) {
    if (modifiers.testFlag(Qt::KeypadModifier)) {
        if (auto key = keypadKey(qtKey))
            return key;
    }
    if (qtKey >= Qt::Key_A && qtKey <= Qt::Key_Z)
        return usKeysymToVirtualKey(static_cast<std::uint32_t>('a' + (qtKey - Qt::Key_A)));
    if (qtKey >= Qt::Key_0 && qtKey <= Qt::Key_9)
        return usKeysymToVirtualKey(static_cast<std::uint32_t>('0' + (qtKey - Qt::Key_0)));
    if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F20)
        return usKeysymToVirtualKey(0xffbeU + static_cast<std::uint32_t>(qtKey - Qt::Key_F1));
    switch (qtKey) {
    case Qt::Key_Minus:
        return 27;
    case Qt::Key_Equal:
        return 24;
    case Qt::Key_BracketLeft:
        return 33;
    case Qt::Key_BracketRight:
        return 30;
    case Qt::Key_Backslash:
        return 42;
    case Qt::Key_Semicolon:
        return 41;
    case Qt::Key_Apostrophe:
        return 39;
    case Qt::Key_QuoteLeft:
        return 50;
    case Qt::Key_Comma:
        return 43;
    case Qt::Key_Period:
        return 47;
    case Qt::Key_Slash:
        return 44;
    case Qt::Key_Space:
        return 49;
    case Qt::Key_Return:
        return 36;
    case Qt::Key_Enter:
        return 76;
    case Qt::Key_Tab:
    case Qt::Key_Backtab:
        return 48;
    case Qt::Key_Backspace:
        return 51;
    case Qt::Key_Escape:
        return 53;
    case Qt::Key_Delete:
        return 117;
    case Qt::Key_Insert:
    case Qt::Key_Help:
        return 114;
    case Qt::Key_Home:
        return 115;
    case Qt::Key_End:
        return 119;
    case Qt::Key_PageUp:
        return 116;
    case Qt::Key_PageDown:
        return 121;
    case Qt::Key_Left:
        return 123;
    case Qt::Key_Right:
        return 124;
    case Qt::Key_Down:
        return 125;
    case Qt::Key_Up:
        return 126;
    case Qt::Key_Clear:
        return 71;
    case Qt::Key_VolumeMute:
        return 74;
    case Qt::Key_VolumeUp:
        return 72;
    case Qt::Key_VolumeDown:
        return 73;
    case Qt::Key_Control:
        return 55;
    case Qt::Key_Meta:
        return 59;
    case Qt::Key_Alt:
        return 58;
    case Qt::Key_AltGr:
        return 61;
    case Qt::Key_Shift:
        return 56;
    case Qt::Key_CapsLock:
        return 57;
    default:
        return shiftedSymbolKey(qtKey);
    }
}

} // namespace

std::optional<std::uint16_t> usKeysymToVirtualKey(std::uint32_t keysym) {
    for (const auto& row : keyTable) {
        if (row.keysym == keysym && keysym != 0)
            return row.virtualKey;
    }
    return std::nullopt;
}

std::optional<std::uint16_t> virtualKeyFromXKeycode(std::uint32_t xKeycode) {
    if (xKeycode <= evdevOffset)
        return std::nullopt;
    const std::uint32_t evdev = xKeycode - evdevOffset;
    for (const auto& row : keyTable) {
        if (row.evdev == evdev && row.evdev != 0)
            return row.virtualKey;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> xKeycodeFromVirtualKey(std::uint16_t virtualKey) {
    const KeyRow* row = rowForVirtualKey(virtualKey);
    if (!row || row->evdev == 0)
        return std::nullopt;
    return row->evdev + evdevOffset;
}

std::optional<std::uint32_t> usKeysymForVirtualKey(std::uint16_t virtualKey) {
    const KeyRow* row = rowForVirtualKey(virtualKey);
    if (!row || row->keysym == 0)
        return std::nullopt;
    return row->keysym;
}

std::optional<std::uint16_t> virtualKeyFromQt(int qtKey, Qt::KeyboardModifiers modifiers,
                                              std::uint32_t nativeScanCode) {
    // Named keys (Return, Escape, arrows...) by their name: a virtual keyboard (Wayland's, or a
    // remote desktop's) numbers its keys as it likes. Character keys by their position, so
    // that a shortcut means the same key on every layout.
    if (qtKey >= Qt::Key_Escape) {
        if (auto key = virtualKeyFromQtKey(qtKey, modifiers))
            return key;
    }
    if (nativeScanCode != 0) {
        if (auto key = virtualKeyFromXKeycode(nativeScanCode))
            return key;
    }
    return virtualKeyFromQtKey(qtKey, modifiers);
}

CGEventFlags eventFlagsFromQt(Qt::KeyboardModifiers modifiers) {
    CGEventFlags flags = 0;
    if (modifiers.testFlag(Qt::ControlModifier))
        flags |= eventflags::command;
    if (modifiers.testFlag(Qt::MetaModifier))
        flags |= eventflags::control;
    if (modifiers.testFlag(Qt::AltModifier))
        flags |= eventflags::option;
    if (modifiers.testFlag(Qt::ShiftModifier))
        flags |= eventflags::shift;
    if (modifiers.testFlag(Qt::KeypadModifier))
        flags |= eventflags::numericPad;
    return flags;
}

} // namespace platform
