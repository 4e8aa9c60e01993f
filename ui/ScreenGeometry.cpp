#include "ui/ScreenGeometry.h"

#include <QGuiApplication>
#include <QScreen>
#include <cmath>

namespace ui {

QRect qtRectFromGlobal(const platform::Rect& frame, const QRect& primaryScreenGeometry) {
    const double left = primaryScreenGeometry.x() + frame.x;
    const double top =
        primaryScreenGeometry.y() + primaryScreenGeometry.height() - (frame.y + frame.height);
    return {static_cast<int>(std::lround(left)), static_cast<int>(std::lround(top)),
            static_cast<int>(std::lround(frame.width)),
            static_cast<int>(std::lround(frame.height))};
}

QRect qtRectFromGlobal(const platform::Rect& frame) {
    const QScreen* primary = QGuiApplication::primaryScreen();
    return qtRectFromGlobal(frame, primary ? primary->geometry() : QRect());
}

} // namespace ui
