#include "ui/AnimatedValue.h"

#include <QVariantAnimation>

namespace ui {

AnimatedValue::AnimatedValue(double initial, std::function<void()> changed, QObject* parent)
    : QObject(parent), value_(initial), target_(initial), changed_(std::move(changed)),
      animation_(new QVariantAnimation(this)) {
    connect(animation_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& v) { apply(v.toDouble()); });
}

AnimatedValue::~AnimatedValue() {
    // No repaint requests from a value whose owner is being torn down.
    animation_->disconnect(this);
}

bool AnimatedValue::isAnimating() const {
    return animation_->state() == QAbstractAnimation::Running;
}

void AnimatedValue::animateTo(double target, const QEasingCurve& curve, int durationMs) {
    if (target == target_ && (isAnimating() || value_ == target))
        return;
    target_ = target;
    animation_->stop();
    if (durationMs <= 0 || value_ == target) {
        value_ = target;
        // Told even when the number stays: the target (which owners read) has changed.
        if (changed_)
            changed_();
        return;
    }
    animation_->setStartValue(value_);
    animation_->setEndValue(target);
    animation_->setEasingCurve(curve);
    animation_->setDuration(durationMs);
    animation_->start();
}

void AnimatedValue::setValue(double value) {
    animation_->stop();
    target_ = value;
    apply(value);
}

void AnimatedValue::apply(double value) {
    if (value == value_)
        return;
    value_ = value;
    if (changed_)
        changed_();
}

} // namespace ui
