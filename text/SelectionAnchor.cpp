#include "text/TextSelectionService.h"

using platform::AXResult;

namespace {

// Accessibility geometry has its origin at the top-left; flipping it takes the height of the
// main screen, or a usual one when there is no screen to ask.
double screenHeight(platform::ScreensPort& screens) {
    const auto main = screens.mainScreen();
    return main ? main->frame.height : 900.0;
}

} // namespace

std::optional<platform::Point>
TextSelectionService::selectionAnchor(std::int32_t pid, platform::AccessibilityPort& accessibility,
                                      platform::ScreensPort& screens) {
    if (!accessibility.isProcessTrusted())
        return std::nullopt;
    // Every value read below is an owned reference, released on whichever path returns.
    const platform::AXRef application = accessibility.createApplication(pid);
    const AXResult focused = accessibility.copyAttributeValue(
        application, QLatin1String(platform::axattr::focusedUIElement));
    if (focused.error != platform::ax::success || !focused.value)
        return std::nullopt;

    // Below the selection itself, when the control can say where it is (a bare caret too).
    const AXResult range = accessibility.copyAttributeValue(
        focused.value, QLatin1String(platform::axattr::selectedTextRange));
    if (range.error == platform::ax::success && range.value) {
        const AXResult bounds = accessibility.copyParameterizedAttributeValue(
            focused.value, QLatin1String(platform::axattr::boundsForRange), range.value);
        platform::Rect rect;
        if (bounds.error == platform::ax::success && bounds.value &&
            platform::axValueGetValue(bounds.value, rect)) {
            return platform::Point{rect.maxX(), screenHeight(screens) - rect.maxY()};
        }
    }

    // Otherwise below the middle of the control the user was typing in.
    const AXResult position =
        accessibility.copyAttributeValue(focused.value, QLatin1String(platform::axattr::position));
    if (position.error != platform::ax::success)
        return std::nullopt;
    const AXResult size =
        accessibility.copyAttributeValue(focused.value, QLatin1String(platform::axattr::size));
    if (size.error != platform::ax::success || !position.value || !size.value)
        return std::nullopt;
    // A value of another kind leaves zero in its place rather than giving up.
    platform::Point origin;
    platform::Size extent;
    platform::axValueGetValue(position.value, origin);
    platform::axValueGetValue(size.value, extent);
    return platform::Point{origin.x + extent.width * 0.5,
                           screenHeight(screens) - origin.y - extent.height};
}
