#include "platform/freedesktop/ScreenMapping.h"

#include <QGuiApplication>
#include <QScreen>

namespace platform::freedesktop {

namespace {

QRectF nativeGeometry(const ScreenScale& screen) {
    const QRectF logical(screen.geometry);
    return {logical.topLeft(), logical.size() * screen.devicePixelRatio};
}

// The screen whose native area holds the point: the first one that does, else the primary.
const ScreenScale* screenForNative(Point native, const ScreenLayout& layout) {
    for (const auto& screen : layout.screens) {
        const QRectF area = nativeGeometry(screen);
        if (native.x >= area.left() && native.x < area.left() + area.width() &&
            native.y >= area.top() && native.y < area.top() + area.height())
            return &screen;
    }
    if (layout.primary >= 0 && layout.primary < static_cast<int>(layout.screens.size()))
        return &layout.screens[static_cast<std::size_t>(layout.primary)];
    return nullptr;
}

double ratioOf(const ScreenScale* screen) {
    return screen != nullptr && screen->devicePixelRatio > 0 ? screen->devicePixelRatio : 1.0;
}

} // namespace

QRect primaryGeometry(const ScreenLayout& layout) {
    if (layout.primary < 0 || layout.primary >= static_cast<int>(layout.screens.size()))
        return {};
    return layout.screens[static_cast<std::size_t>(layout.primary)].geometry;
}

Rect globalFromQt(const QRectF& rect, const ScreenLayout& layout) {
    const QRect primary = primaryGeometry(layout);
    const double bottom = primary.y() + primary.height();
    return {rect.x() - primary.x(), bottom - rect.y() - rect.height(), rect.width(), rect.height()};
}

Point globalFromQt(const QPointF& point, const ScreenLayout& layout) {
    const QRect primary = primaryGeometry(layout);
    const double bottom = primary.y() + primary.height();
    return {point.x() - primary.x(), bottom - point.y()};
}

Point accessibilityFromNative(Point native, const ScreenLayout& layout) {
    const ScreenScale* screen = screenForNative(native, layout);
    const double ratio = ratioOf(screen);
    const QPointF origin = screen != nullptr ? QPointF(screen->geometry.topLeft()) : QPointF();
    const QPointF qt = origin + (QPointF(native.x, native.y) - origin) / ratio;
    const QRect primary = primaryGeometry(layout);
    return {qt.x() - primary.x(), qt.y() - primary.y()};
}

Rect accessibilityFromNative(const Rect& native, const ScreenLayout& layout) {
    const Point topLeft = accessibilityFromNative(Point{native.x, native.y}, layout);
    const double ratio = ratioOf(screenForNative(Point{native.x, native.y}, layout));
    return {topLeft.x, topLeft.y, native.width / ratio, native.height / ratio};
}

ScreenLayout currentScreenLayout() {
    ScreenLayout layout;
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr)
        return layout;
    const QScreen* primary = QGuiApplication::primaryScreen();
    const auto screens = QGuiApplication::screens();
    for (const QScreen* screen : screens) {
        if (screen == primary)
            layout.primary = static_cast<int>(layout.screens.size());
        layout.screens.push_back(
            {screen->geometry(), screen->availableGeometry(), screen->devicePixelRatio()});
    }
    return layout;
}

} // namespace platform::freedesktop
