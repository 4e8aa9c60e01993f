#include "ui/StatusDot.h"

#include <QPainter>

namespace ui {

StatusDot::StatusDot(QColor color, QWidget* parent) : QWidget(parent), color_(color) {
    setFixedSize(8, 8);
}

void StatusDot::setColor(const QColor& color) {
    color_ = color;
    update();
}

void StatusDot::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color_);
    p.drawEllipse(QRectF(rect()));
}

} // namespace ui
