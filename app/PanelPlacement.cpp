#include "app/PanelPlacement.h"

namespace placement {

platform::Point candidateOriginFromAnchor(platform::Point anchor) {
    return {anchor.x + anchorOffsetX, anchor.y - panelHeight - verticalGap};
}

platform::Point candidateOriginFromMouse(platform::Point mouse) {
    return {mouse.x + mouseOffsetX, mouse.y - panelHeight - verticalGap};
}

platform::Point candidateOrigin(const std::optional<platform::Point>& anchor,
                                platform::ScreensPort& screens) {
    return anchor ? candidateOriginFromAnchor(*anchor)
                  : candidateOriginFromMouse(screens.mouseLocation());
}

platform::Point clampToVisibleFrame(double x, double y, double width, double height,
                                    platform::ScreensPort& screens) {
    const std::vector<platform::Screen> all = screens.screens();
    std::optional<platform::Screen> chosen;
    for (const platform::Screen& screen : all) {
        if (screen.frame.contains({x, y})) {
            chosen = screen;
            break;
        }
    }
    if (!chosen)
        chosen = screens.mainScreen();
    if (!chosen && !all.empty())
        chosen = all.front();
    if (!chosen)
        return {x, y};

    const platform::Rect& visible = chosen->visibleFrame;
    if (visible.maxX() < x + width)
        x = visible.maxX() - width - edgeMargin;
    if (x < visible.minX())
        x = visible.minX() + edgeMargin;
    if (visible.maxY() < y + height)
        y = visible.maxY() - height - edgeMargin;
    if (y < visible.minY())
        y = visible.minY() + edgeMargin;
    return {x, y};
}

platform::Point panelOrigin(const std::optional<platform::Point>& anchor,
                            platform::ScreensPort& screens) {
    const platform::Point candidate = candidateOrigin(anchor, screens);
    return clampToVisibleFrame(candidate.x, candidate.y, panelWidth, panelHeight, screens);
}

} // namespace placement
