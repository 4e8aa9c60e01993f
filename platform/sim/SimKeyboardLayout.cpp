#include "platform/sim/SimKeyboardLayout.h"

#include "platform/VirtualKeys.h"

namespace platform::sim {

std::optional<QString> SimKeyboardLayout::characters(std::uint16_t virtualKey) {
    if (!available_)
        return std::nullopt;
    if (const auto it = overrides_.constFind(virtualKey); it != overrides_.constEnd())
        return *it;
    const auto keysym = usKeysymForVirtualKey(virtualKey);
    if (!keysym)
        return std::nullopt;
    if (*keysym >= 0x20 && *keysym <= 0x7e)
        return QString(QChar(static_cast<char16_t>(*keysym)));
    // Keypad keysyms type the ASCII character 0xff80 below them (KP_0 is '0').
    if (*keysym >= 0xffaa && *keysym <= 0xffb9)
        return QString(QChar(static_cast<char16_t>(*keysym - 0xff80)));
    return QString(); // a key without text (Return, arrows, modifiers, media keys)
}

void SimKeyboardLayout::setCharacters(std::uint16_t virtualKey,
                                      const std::optional<QString>& text) {
    overrides_.insert(virtualKey, text);
}

void SimKeyboardLayout::reset() {
    available_ = true;
    overrides_.clear();
}

} // namespace platform::sim
