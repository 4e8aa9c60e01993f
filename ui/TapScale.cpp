#include "ui/TapScale.h"

#include "ui/AnimatedValue.h"
#include "ui/Spring.h"

#include <QAbstractButton>
#include <QWidget>

namespace ui {

TapScale::TapScale(QWidget* target)
    : QObject(target), value_(new AnimatedValue(
                           1.0, [target] { target->update(); }, this)) {}

TapScale* TapScale::attach(QAbstractButton* button) {
    auto* tap = new TapScale(button);
    connect(button, &QAbstractButton::pressed, tap, [tap] { tap->setPressed(true); });
    connect(button, &QAbstractButton::released, tap, [tap] { tap->setPressed(false); });
    return tap;
}

void TapScale::setPressed(bool pressed) {
    if (pressed == pressed_)
        return;
    pressed_ = pressed;
    value_->animateTo(pressed ? pressedScale : 1.0, springCurve<tapSpring>(),
                      springDurationMs(tapSpring));
}

double TapScale::scale() const {
    return value_->value();
}

} // namespace ui
