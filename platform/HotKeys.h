#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

// The hot-key port: system-wide key combinations registered with the desktop, and the events
// they produce.
//
// Key codes are virtual key codes (kVK values) and modifiers are Carbon modifier bits
// (Command 0x100, Shift 0x200, Caps Lock 0x400, Option 0x800, Control 0x1000, Function 0x20000);
// a backend translates both to the real keyboard. Main thread only.
namespace platform {

using OSStatus = std::int32_t;

namespace osstatus {
inline constexpr OSStatus noErr = 0;
inline constexpr OSStatus paramErr = -50;
inline constexpr OSStatus eventParameterNotFoundErr = -9870;
inline constexpr OSStatus eventNotHandledErr = -9874;
// The combination is already taken by another client.
inline constexpr OSStatus eventHotKeyExistsErr = -9878;
// The combination cannot be expressed on this keyboard or display.
inline constexpr OSStatus eventHotKeyInvalidErr = -9879;
} // namespace osstatus

namespace carbonmodifiers {
inline constexpr std::uint32_t command = 0x100;
inline constexpr std::uint32_t shift = 0x200;
inline constexpr std::uint32_t alphaLock = 0x400;
inline constexpr std::uint32_t option = 0x800;
inline constexpr std::uint32_t control = 0x1000;
inline constexpr std::uint32_t function = 0x20000;
} // namespace carbonmodifiers

constexpr std::uint32_t fourCharCode(const char (&code)[5]) {
    return (static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) << 24) |
           (static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 16) |
           (static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 8) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[3]));
}

// Identifies one registration to its owner: a signature naming the owner and its own number.
struct HotKeyID {
    std::uint32_t signature = 0;
    std::uint32_t id = 0;
    friend bool operator==(const HotKeyID&, const HotKeyID&) = default;
};

// The kinds of keyboard events the handler can listen to.
enum class HotKeyEventKind : std::uint32_t {
    rawKeyDown = 1,
    rawKeyUp = 3,
    hotKeyPressed = 5,
    hotKeyReleased = 6,
};

// One event handed to the handler. A parameter a backend could not supply is left empty.
struct HotKeyEvent {
    HotKeyEventKind kind = HotKeyEventKind::hotKeyPressed;
    // Pressed and released hot keys: which registration fired.
    std::optional<HotKeyID> hotKeyID;
    // Raw key events: the key and the Carbon modifier state at that moment.
    std::optional<std::uint32_t> keyCode;
    std::optional<std::uint32_t> modifiers;
};

// A registration the backend holds; unregistering it ends it.
class HotKeyRegistration {
public:
    virtual ~HotKeyRegistration() = default;
};
using HotKeyRef = std::shared_ptr<HotKeyRegistration>;

// One of the desktop's own reserved shortcuts. A field the desktop did not provide, or
// provided with another type, is empty.
struct SymbolicHotKey {
    std::optional<bool> enabled;
    std::optional<std::int64_t> keyCode;
    std::optional<std::int64_t> modifiers;
};

class HotKeysPort {
public:
    virtual ~HotKeysPort() = default;

    // Registers a system-wide hot key. Returns noErr and sets `out` on success; otherwise a
    // non-zero status (eventHotKeyExistsErr when another client holds the combination).
    virtual OSStatus registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, HotKeyID id,
                                    HotKeyRef& out) = 0;
    virtual OSStatus unregisterHotKey(const HotKeyRef& hotKey) = 0;

    // The one handler for every event kind listened to. It answers noErr when it took the
    // event; a raw key event it took does not reach the application. Installing it again
    // replaces it.
    using EventHandler = std::function<OSStatus(const HotKeyEvent&)>;
    virtual OSStatus installEventHandler(EventHandler handler) = 0;
    // Which kinds reach the handler (none at first).
    virtual void addEventKinds(const std::vector<HotKeyEventKind>& kinds) = 0;
    virtual void removeEventKinds(const std::vector<HotKeyEventKind>& kinds) = 0;

    // The desktop's reserved shortcuts, in its own order; a non-zero status when they cannot
    // be read.
    virtual OSStatus copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) = 0;

    // Told when the desktop drops a registration by itself or takes it back: a desktop may have
    // to make it again (after a keyboard mapping change) and be refused then. `status` is noErr
    // when the registration holds again. A backend that never drops one never calls it.
    using StatusHandler = std::function<void(const HotKeyRef&, OSStatus)>;
    virtual void setStatusHandler(const StatusHandler& /*handler*/) {}
};

} // namespace platform
