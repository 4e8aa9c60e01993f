#include "platform/freedesktop/QtScreens.h"

#include "platform/freedesktop/GuiThread.h"
#include "platform/freedesktop/ScreenMapping.h"

#include <QCursor>
#include <QGuiApplication>

namespace platform::freedesktop {

namespace {

constexpr std::chrono::seconds guiWait{1};

Screen screenOf(const ScreenScale& screen, const ScreenLayout& layout) {
    return {globalFromQt(QRectF(screen.geometry), layout),
            globalFromQt(QRectF(screen.available), layout)};
}

} // namespace

std::vector<Screen> QtScreens::screens() {
    return callOnGuiThread<std::vector<Screen>>(
               [] {
                   const ScreenLayout layout = currentScreenLayout();
                   std::vector<Screen> result;
                   for (const auto& screen : layout.screens)
                       result.push_back(screenOf(screen, layout));
                   return result;
               },
               guiWait)
        .value_or(std::vector<Screen>{});
}

std::optional<Screen> QtScreens::mainScreen() {
    return callOnGuiThread<std::optional<Screen>>(
               []() -> std::optional<Screen> {
                   const ScreenLayout layout = currentScreenLayout();
                   if (layout.primary < 0)
                       return std::nullopt;
                   return screenOf(layout.screens[static_cast<std::size_t>(layout.primary)],
                                   layout);
               },
               guiWait)
        .value_or(std::nullopt);
}

Point QtScreens::mouseLocation() {
    return callOnGuiThread<Point>(
               [pointer = pointer_] {
                   if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr)
                       return Point{};
                   const ScreenLayout layout = currentScreenLayout();
                   if (pointer == Pointer::unknown) {
                       const QRect main = primaryGeometry(layout);
                       return globalFromQt(QPointF(main.center()), layout);
                   }
                   return globalFromQt(QPointF(QCursor::pos()), layout);
               },
               guiWait)
        .value_or(Point{});
}

} // namespace platform::freedesktop
