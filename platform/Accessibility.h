#pragma once

#include "platform/Geometry.h"

#include <QString>
#include <cstdint>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

// The accessibility port: read the user interface of other applications (their focused
// control, its selected text, where that text is on screen).
//
// Every element and value the port hands out is an owned reference (AXRef); it is released
// when the last copy goes away. AXObject::liveCount() lets tests check that nothing is kept.
// Geometry values are in accessibility coordinates (origin top-left of the primary screen,
// y down). Implementations must be callable from any thread and must answer in bounded time.
namespace platform {

using AXError = std::int32_t;

// Error codes of accessibility calls; 0 is success.
namespace ax {
inline constexpr AXError success = 0;
inline constexpr AXError failure = -25200;
inline constexpr AXError illegalArgument = -25201;
inline constexpr AXError invalidUIElement = -25202;
inline constexpr AXError invalidUIElementObserver = -25203;
inline constexpr AXError cannotComplete = -25204;
inline constexpr AXError attributeUnsupported = -25205;
inline constexpr AXError actionUnsupported = -25206;
inline constexpr AXError notificationUnsupported = -25207;
inline constexpr AXError notImplemented = -25208;
inline constexpr AXError notificationAlreadyRegistered = -25209;
inline constexpr AXError notificationNotRegistered = -25210;
inline constexpr AXError apiDisabled = -25211;
inline constexpr AXError noValue = -25212;
inline constexpr AXError parameterizedAttributeUnsupported = -25213;
inline constexpr AXError notEnoughPrecision = -25214;
} // namespace ax

// Attribute names, as the accessibility interface spells them.
namespace axattr {
inline constexpr auto windows = "AXWindows";
inline constexpr auto focusedUIElement = "AXFocusedUIElement";
inline constexpr auto role = "AXRole";
inline constexpr auto selectedText = "AXSelectedText";
inline constexpr auto selectedTextRange = "AXSelectedTextRange";
inline constexpr auto boundsForRange = "AXBoundsForRange"; // parameterized: takes a range
inline constexpr auto position = "AXPosition";
inline constexpr auto size = "AXSize";
} // namespace axattr

// Type codes for unpacking geometry values.
enum class AXValueType : int { cgPoint = 1, cgSize = 2, cgRect = 3, cfRange = 4 };

struct CFRange {
    std::int64_t location = 0;
    std::int64_t length = 0;
    friend bool operator==(const CFRange&, const CFRange&) = default;
};

// A backend's own representation of a user-interface element (an application, a control).
class AXElementImpl {
public:
    virtual ~AXElementImpl() = default;
    [[nodiscard]] virtual QString describe() const = 0;
};

class AXObject;
using AXRef = std::shared_ptr<const AXObject>;

// Anything an accessibility call returns: an element, a text, a geometry value, a range, a
// Boolean, a number or an array of such.
class AXObject {
public:
    using Payload = std::variant<std::shared_ptr<AXElementImpl>, QString, Point, Size, Rect,
                                 CFRange, bool, double, std::vector<AXRef>>;

    explicit AXObject(Payload payload);
    ~AXObject();
    AXObject(const AXObject&) = delete;
    AXObject& operator=(const AXObject&) = delete;

    [[nodiscard]] const Payload& payload() const { return payload_; }
    // The element behind this object, or nullptr when it is a value.
    [[nodiscard]] AXElementImpl* element() const;
    [[nodiscard]] QString describe() const;

    // Objects currently alive, over the whole process.
    static std::int64_t liveCount();

private:
    Payload payload_;
};

template <typename T> AXRef makeAX(T value) {
    return std::make_shared<const AXObject>(AXObject::Payload(std::move(value)));
}

// The result of an attribute read: an error code and, on success, a value (which may still be
// absent).
struct AXResult {
    AXError error = ax::failure;
    AXRef value;
};

// The text held by a value, when the value is a text.
std::optional<QString> axString(const AXRef& value);
// A readable description of any value; "nil" for an absent one.
QString axDescribe(const AXRef& value);
// Unpack a geometry value of the given kind; false (and `out` untouched) when it is another.
bool axValueGetValue(const AXRef& value, Point& out);
bool axValueGetValue(const AXRef& value, Size& out);
bool axValueGetValue(const AXRef& value, Rect& out);
bool axValueGetValue(const AXRef& value, CFRange& out);

class AccessibilityPort {
public:
    virtual ~AccessibilityPort() = default;

    // Whether this process may use the accessibility interface. Never prompts.
    virtual bool isProcessTrusted() = 0;
    // The same answer, and asks the system to offer the user to grant it.
    virtual bool isProcessTrustedWithPrompt() = 0;
    // The element standing for the application with this process id.
    virtual AXRef createApplication(std::int32_t pid) = 0;
    virtual AXResult copyAttributeValue(const AXRef& element, const QString& attribute) = 0;
    virtual AXResult copyParameterizedAttributeValue(const AXRef& element, const QString& attribute,
                                                     const AXRef& parameter) = 0;
    // Writes one attribute. Setting "AXSelectedText" of a text control replaces its selection
    // (or inserts at the caret) with the given text, without keystrokes or clipboard.
    virtual AXError setAttributeValue(const AXRef& element, const QString& attribute,
                                      const AXRef& value) = 0;
};

} // namespace platform
