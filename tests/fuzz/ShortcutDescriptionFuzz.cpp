// What the user sees for a shortcut: any key code and modifiers, on a layout whose key gives
// any text (or none).
#include "FuzzSupport.h"
#include "hotkeys/Hotkeys.h"
#include "hotkeys/SpecialKey.h"
#include "platform/KeyboardLayout.h"
#include "support/Graphemes.h"

#include <QKeySequence>
#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>

namespace {

class FuzzedLayout final : public platform::KeyboardLayoutPort {
public:
    std::optional<QString> characters(std::uint16_t) override { return text; }
    std::optional<QString> text;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto layout = [] {
        auto port = std::make_shared<FuzzedLayout>();
        Hotkeys::setPorts({nullptr, port});
        return port;
    }();
    FuzzedDataProvider input(data, size);
    const auto keyCode = input.ConsumeIntegral<std::int64_t>();
    const auto modifiers = input.ConsumeIntegral<std::int64_t>();
    const auto qtKey = input.ConsumeIntegral<int>();
    layout->text.reset();
    if (input.ConsumeBool()) {
        const std::string bytes = input.ConsumeRemainingBytesAsString();
        layout->text = QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
    }

    const Hotkeys::Shortcut shortcut(keyCode, modifiers);
    const QString description = shortcut.description();
    fuzz::require(!description.isEmpty() && description.isValidUtf16(),
                  "a description that is empty or not valid text");
    if (const auto character = shortcut.keyToCharacter())
        fuzz::require(support::graphemeCount(*character) == 1, "a key character of many graphemes");
    const Hotkeys::KeyEquivalent equivalent =
        Hotkeys::keyEquivalent(QKeySequence(QKeyCombination::fromCombined(qtKey)));
    fuzz::require(equivalent.key.isValidUtf16(), "a menu key that is not valid text");
    return 0;
}
