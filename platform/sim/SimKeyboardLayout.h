#pragma once

#include "platform/KeyboardLayout.h"

#include <QHash>

// A simulated keyboard layout: US by default; single keys can be changed (a dead key, a key
// typing two characters) and the layout can be taken away.
namespace platform::sim {

class SimKeyboardLayout final : public KeyboardLayoutPort {
public:
    std::optional<QString> characters(std::uint16_t virtualKey) override;

    // Without a layout every translation fails.
    void setAvailable(bool available) { available_ = available; }
    // What the key types from now on; none makes its translation fail.
    void setCharacters(std::uint16_t virtualKey, const std::optional<QString>& text);
    // Back to the plain US layout.
    void reset();

private:
    bool available_ = true;
    QHash<std::uint16_t, std::optional<QString>> overrides_;
};

} // namespace platform::sim
