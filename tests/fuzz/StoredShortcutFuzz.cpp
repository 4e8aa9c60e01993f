// The text a store may hold under a shortcut's name: a shortcut's JSON, the word false, or
// whatever a person or another program wrote there.
#include "FuzzSupport.h"
#include "hotkeys/Runtime.h"

#include <QVariant>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QVariant stored = Hotkeys::detail::normalizedStoredValue(text);
    const auto shortcut = Hotkeys::detail::decodeStoredShortcut(stored);
    if (!shortcut)
        return 0;
    fuzz::require(text != QLatin1StringView("false"), "the false marker read as a shortcut");
    // Whatever is read back must be writable and read back the same.
    const auto written = Hotkeys::detail::encodeStoredShortcut(*shortcut);
    fuzz::require(written.has_value(), "a shortcut read that cannot be written");
    fuzz::require(Hotkeys::detail::decodeStoredShortcut(*written) == shortcut,
                  "a shortcut that does not survive writing and reading");
    return 0;
}
