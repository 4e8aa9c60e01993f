#pragma once

#include <QEasingCurve>
#include <QObject>
#include <functional>

class QVariantAnimation;

namespace ui {

// One number of a view that moves towards its target over time (an opacity, a scale, a
// highlight). A new target starts from wherever the value stands, so interrupted motion stays
// continuous. `changed` runs for every new value, typically to repaint.
class AnimatedValue : public QObject {
    Q_OBJECT
public:
    AnimatedValue(double initial, std::function<void()> changed, QObject* parent);
    ~AnimatedValue() override;

    [[nodiscard]] double value() const { return value_; }
    [[nodiscard]] double target() const { return target_; }
    [[nodiscard]] bool isAnimating() const;

    // Moves to `target` along `curve` in `durationMs`; nothing happens if it is already headed
    // there.
    void animateTo(double target, const QEasingCurve& curve, int durationMs);
    // Jumps to `value` at once, stopping any motion.
    void setValue(double value);

private:
    void apply(double value);

    double value_;
    double target_;
    std::function<void()> changed_;
    QVariantAnimation* animation_;
};

} // namespace ui
