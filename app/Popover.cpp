#include "app/Popover.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QVBoxLayout>

namespace app {

namespace {
// A click on the tray icon closes an open popover before the icon reports the click.
constexpr qint64 toggleWindowMs = 300;
} // namespace

Popover::Popover(QWidget* content) : QWidget(nullptr, Qt::Popup | Qt::FramelessWindowHint) {
    setObjectName(QStringLiteral("MendwisePopover"));
    setFixedSize(width, height);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(content);
}

void Popover::showBelow(const QRect& anchor) {
    const QPoint reference =
        anchor.isValid() ? QPoint(anchor.center().x(), anchor.bottom() + 1) : QCursor::pos();
    const QScreen* screen = QGuiApplication::screenAt(reference);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    QPoint topLeft(reference.x() - width / 2, reference.y());
    if (screen) {
        const QRect available = screen->availableGeometry();
        // A tray at the bottom of the screen: hang above the icon instead.
        if (topLeft.y() + height > available.bottom() && anchor.isValid())
            topLeft.setY(anchor.top() - height);
        topLeft.setX(std::clamp(topLeft.x(), available.left(),
                                std::max(available.left(), available.right() - width + 1)));
        topLeft.setY(std::clamp(topLeft.y(), available.top(),
                                std::max(available.top(), available.bottom() - height + 1)));
    }
    move(topLeft);
    show();
    raise();
    activateWindow();
}

bool Popover::justClosed() const {
    return closedAt_.isValid() && closedAt_.elapsed() < toggleWindowMs;
}

void Popover::hideEvent(QHideEvent* event) {
    closedAt_.start();
    QWidget::hideEvent(event);
}

} // namespace app
