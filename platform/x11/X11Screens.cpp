#include "platform/x11/X11Screens.h"

#include "platform/freedesktop/GuiThread.h"
#include "platform/freedesktop/ScreenMapping.h"

#include <QCursor>
#include <QGuiApplication>

namespace platform::x11 {

using freedesktop::callOnGuiThread;
using freedesktop::currentScreenLayout;
using freedesktop::globalFromQt;
using freedesktop::ScreenLayout;
using freedesktop::ScreenScale;

namespace {

constexpr std::chrono::seconds guiWait{1};

Screen screenOf(const ScreenScale& screen, const ScreenLayout& layout) {
    return {globalFromQt(QRectF(screen.geometry), layout),
            globalFromQt(QRectF(screen.available), layout)};
}

} // namespace

std::vector<Screen> X11Screens::screens() {
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

std::optional<Screen> X11Screens::mainScreen() {
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

Point X11Screens::mouseLocation() {
    return callOnGuiThread<Point>(
               [] {
                   if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr)
                       return Point{};
                   return globalFromQt(QPointF(QCursor::pos()), currentScreenLayout());
               },
               guiWait)
        .value_or(Point{});
}

} // namespace platform::x11
