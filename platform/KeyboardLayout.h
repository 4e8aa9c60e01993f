#pragma once

#include <QString>
#include <cstdint>
#include <optional>

// The keyboard-layout port: what a key types on the user's current layout. Main thread only.
namespace platform {

class KeyboardLayoutPort {
public:
    virtual ~KeyboardLayoutPort() = default;

    // The text the key (a virtual key code) types on the current layout without any modifier,
    // as a key cap shows it: possibly empty (a dead key, a key without text) or several
    // characters. None when there is no current layout or the key cannot be translated. The
    // layout is read again at every call, so a change of layout shows at once.
    virtual std::optional<QString> characters(std::uint16_t virtualKey) = 0;
};

} // namespace platform
