#pragma once

#include <QObject>

class QAbstractButton;
class QWidget;

namespace ui {

class AnimatedValue;

// The pressed look shared by the picker's buttons: while a button is held down its content
// shrinks to 0.9 about its centre and springs back to 1.0 when released (spring response
// 0.2 s, damping 0.6, so it bounces slightly). The owner paints with scale(); the target widget
// is repainted as the scale moves.
class TapScale : public QObject {
    Q_OBJECT
public:
    static constexpr double pressedScale = 0.9;

    explicit TapScale(QWidget* target);

    // Follows a button's own pressed state (including dragging out of it and back).
    static TapScale* attach(QAbstractButton* button);

    void setPressed(bool pressed);
    [[nodiscard]] bool isPressed() const { return pressed_; }
    [[nodiscard]] double scale() const;

private:
    AnimatedValue* value_;
    bool pressed_ = false;
};

} // namespace ui
