#pragma once

#include <QAbstractButton>

namespace ui {

class AnimatedValue;

// An on/off switch: a small pill in the accent colour when on, grey when off, with a white
// knob that slides across. Checkable; toggled() reports the user's change.
class ToggleSwitch : public QAbstractButton {
    Q_OBJECT
public:
    explicit ToggleSwitch(QWidget* parent = nullptr);
    [[nodiscard]] QSize sizeHint() const override { return {34, 20}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void checkStateSet() override;
    void nextCheckState() override;

private:
    AnimatedValue* position_;
    bool userFlip_ = false;
};

} // namespace ui
