#include "ui/ToggleSwitch.h"

#include "ui/AnimatedValue.h"
#include "ui/Color.h"
#include "ui/Drawing.h"
#include "ui/Spring.h"

#include <QPainter>

namespace ui {

ToggleSwitch::ToggleSwitch(QWidget* parent)
    : QAbstractButton(parent), position_(new AnimatedValue(
                                   0.0, [this] { update(); }, this)) {
    setCheckable(true);
    setFixedSize(sizeHint());
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
}

void ToggleSwitch::checkStateSet() {
    // The knob slides when the user flips the switch and jumps when the program sets it (a
    // bound value that changed elsewhere).
    const double target = isChecked() ? 1.0 : 0.0;
    if (userFlip_)
        position_->animateTo(target, springCurve<selectionSpring>(),
                             springDurationMs(selectionSpring));
    else
        position_->setValue(target);
}

void ToggleSwitch::nextCheckState() {
    userFlip_ = true;
    QAbstractButton::nextCheckState();
    userFlip_ = false;
}

void ToggleSwitch::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const double t = std::clamp(position_->value(), 0.0, 1.0);
    const QRectF track = QRectF(rect()).adjusted(1, 1, -1, -1);
    QColor off = colors::primaryText();
    off.setAlphaF(0.16F);
    const QColor on = colors::accent();
    const QColor fill =
        QColor::fromRgbF(static_cast<float>(off.redF() + (on.redF() - off.redF()) * t),
                         static_cast<float>(off.greenF() + (on.greenF() - off.greenF()) * t),
                         static_cast<float>(off.blueF() + (on.blueF() - off.blueF()) * t),
                         static_cast<float>(off.alphaF() + (on.alphaF() - off.alphaF()) * t));
    QPainterPath shape;
    shape.addRoundedRect(track, track.height() / 2, track.height() / 2);
    p.fillPath(shape, isEnabled() ? fill : off);
    if (hasFocus()) {
        QColor ring = colors::accent();
        ring.setAlphaF(0.5F);
        p.setPen(QPen(ring, 2));
        p.drawPath(shape);
    }

    const qreal knob = track.height() - 2;
    const qreal x = track.left() + 1 + (track.width() - knob - 2) * t;
    const QRectF knobRect(x, track.top() + 1, knob, knob);
    QPainterPath knobShape;
    knobShape.addEllipse(knobRect);
    drawShadow(p, knobShape, QColor(0, 0, 0, 60), 2, QPointF(0, 0.5));
    p.fillPath(knobShape, Qt::white);
}

} // namespace ui
