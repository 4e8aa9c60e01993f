#pragma once

#include <QByteArray>
#include <cstdint>
#include <memory>
#include <optional>

// A keyboard layout as xkbcommon compiles it, and where its keys are: which key types a
// symbol, so that a keystroke asks for "the key that types c" rather than a fixed position
// (on Dvorak, c is where i is on QWERTY).
namespace platform::wayland {

struct KeyPlace {
    std::uint32_t evdevCode = 0; // the Linux input key code
    std::uint32_t layout = 0;    // the layout (XKB group) that types it, 0 first
    bool shifted = false;        // typed with Shift (level 2)
};

class XkbKeymap {
public:
    // From a keymap in XKB's text form (what a compositor sends its clients); none when it does
    // not compile.
    static std::unique_ptr<XkbKeymap> fromText(const QByteArray& text);
    // From layout names ("us", "ru,us"); empty names take the XKB_DEFAULT_* environment, then
    // the system default. None when they do not compile.
    static std::unique_ptr<XkbKeymap> fromNames(const char* layout = nullptr,
                                                const char* variant = nullptr);
    ~XkbKeymap();
    XkbKeymap(const XkbKeymap&) = delete;
    XkbKeymap& operator=(const XkbKeymap&) = delete;

    // The key typing `keysym` without Shift, else with it; in the lowest layout that has one.
    [[nodiscard]] std::optional<KeyPlace> locate(std::uint32_t keysym) const;
    // The keymap in text form, NUL included, as the virtual-keyboard protocol wants it.
    [[nodiscard]] QByteArray text() const;
    [[nodiscard]] std::uint32_t layoutCount() const;

    // The modifier state after pressing or releasing a key, for keyboards that must tell the
    // compositor their modifiers themselves.
    struct Modifiers {
        std::uint32_t depressed = 0, latched = 0, locked = 0;
    };
    Modifiers updateKey(std::uint32_t evdevCode, bool down);

private:
    struct Impl;
    explicit XkbKeymap(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d_;
};

} // namespace platform::wayland
