#pragma once

// The pieces the action picker is built from. Internal to ui/.

#include <QAbstractButton>
#include <QColor>
#include <QString>
#include <QWidget>
#include <array>

class QLineEdit;

namespace ui {

class AnimatedValue;
class TapScale;
class TransformEffect;

// How one action button looks.
struct ActionStyle {
    QString symbol;
    QColor from; // gradient, top-leading ...
    QColor to;   // ... to bottom-trailing
};

// The two action buttons side by side, drawn as one piece so their shadows, the highlight and
// the dimming of the whole row can overlap freely. The widget spans the picker; the buttons
// sit at its centre, 12 apart.
class ButtonRow : public QWidget {
    Q_OBJECT
public:
    static constexpr double buttonSize = 36;
    static constexpr double spacing = 12;

    ButtonRow(std::array<ActionStyle, 2> styles, QWidget* parent);

    // Which button is highlighted (scaled up, lit border, coloured shadow).
    void setSelected(int index);
    // Whether clicks are taken (only while the row is the picker's active content).
    void setInteractive(bool interactive);
    [[nodiscard]] QPointF buttonCenter(int index) const;
    [[nodiscard]] TransformEffect* effect() const { return effect_; }

Q_SIGNALS:
    void clicked(int index);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    [[nodiscard]] int buttonAt(QPointF point) const;
    void paintButton(QPainter& painter, int index) const;

    std::array<ActionStyle, 2> styles_;
    std::array<AnimatedValue*, 2> highlight_{};
    std::array<TapScale*, 2> taps_{};
    TransformEffect* effect_;
    int pressed_ = -1;
    bool interactive_ = true;
};

// One of the three round-cornered badges shown over the picker while it works: the spinner,
// the green check or the red cross. Ignores the mouse.
class StatusBadge : public QWidget {
    Q_OBJECT
public:
    enum class Kind { loading, success, failure };
    static constexpr int extent = 64; // the 36-point badge with room for its shadow

    StatusBadge(Kind kind, QWidget* parent);
    void setSpinAngle(double degrees);
    [[nodiscard]] TransformEffect* effect() const { return effect_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Kind kind_;
    double spinAngle_ = 0;
    TransformEffect* effect_;
};

// The round submit button of the instruction field.
class SubmitButton : public QAbstractButton {
    Q_OBJECT
public:
    static constexpr int extent = 22;
    explicit SubmitButton(QWidget* parent);
    // How far it has appeared (0 gone, 1 fully there): fades and grows from nothing.
    void setPresence(double presence);
    [[nodiscard]] QSize sizeHint() const override { return {extent, extent}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    [[nodiscard]] bool hitButton(const QPoint& pos) const override;

private:
    TapScale* tap_;
    double presence_ = 1.0;
};

// The capsule with the one-line instruction field and, while it holds text, the submit
// button. The widget leaves room around the capsule for its shadow.
class InstructionField : public QWidget {
    Q_OBJECT
public:
    static constexpr int width = 180;
    static constexpr int margin = 20; // around the capsule, for the shadow

    explicit InstructionField(QWidget* parent);
    [[nodiscard]] QLineEdit* lineEdit() const { return lineEdit_; }
    [[nodiscard]] SubmitButton* submitButton() const { return submit_; }
    [[nodiscard]] TransformEffect* effect() const { return effect_; }
    [[nodiscard]] QRectF capsuleRect() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void updateSubmitButton();

    QLineEdit* lineEdit_;
    SubmitButton* submit_;
    AnimatedValue* submitPresence_;
    TransformEffect* effect_;
};

} // namespace ui
