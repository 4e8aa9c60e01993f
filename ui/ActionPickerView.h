#pragma once

#include <QString>
#include <QWidget>
#include <cstdint>
#include <exception>
#include <functional>

class QAbstractButton;
class QLabel;
class QLineEdit;
class QVariantAnimation;

namespace ui {

class AnimatedValue;
class ButtonRow;
class InstructionField;
class StatusBadge;

// The content of the floating panel: two action buttons beside the user's selection. The
// first runs the fixed correction, the second opens a one-line field for an instruction of the
// user's own. While the chosen action runs the picker shows a spinner, then a green check (for
// 0.4 s) or a red cross (for 1.0 s), and then dismisses itself. Driven by keys (through
// KeyHandler) and by the mouse. Main thread only.
//
// The picker does no work of its own; it calls its callbacks. The two actions are
// asynchronous: each receives a completion to call once, with no error on success or with the
// failure, from any thread (it is brought to the main thread). The picker turns any failure
// into its error phase with the failure's description.
class ActionPickerView : public QWidget {
    Q_OBJECT
public:
    using Completion = std::function<void(std::exception_ptr error)>;
    using FixTyposAction = std::function<void(Completion)>;
    using CustomPromptAction = std::function<void(const QString& prompt, Completion)>;
    using DismissAction = std::function<void()>;

    class Phase {
    public:
        enum class Kind { error, picker, custom, loading, success };

        static Phase error(QString description) { return {Kind::error, std::move(description)}; }
        static Phase picker() { return {Kind::picker, {}}; }
        static Phase custom() { return {Kind::custom, {}}; }
        static Phase loading() { return {Kind::loading, {}}; }
        static Phase success() { return {Kind::success, {}}; }

        [[nodiscard]] Kind kind() const { return kind_; }
        // The failure's description; empty for every other phase.
        [[nodiscard]] const QString& errorDescription() const { return description_; }
        friend bool operator==(const Phase&, const Phase&) = default;

    private:
        Phase(Kind kind, QString description) : kind_(kind), description_(std::move(description)) {}
        Kind kind_;
        QString description_;
    };

    // How long the outcome stays on screen before the picker dismisses itself.
    static constexpr int successDelayMs = 400;
    static constexpr int failureDelayMs = 1000;
    // A failure that asks the user to do something (paste the answer themselves) is spelled
    // out under the red cross, long enough to be read.
    static constexpr int noticeDelayMs = 4000;
    // How long after the instruction field opens it receives the keyboard focus.
    static constexpr int fieldFocusDelayMs = 150;

    ActionPickerView(FixTyposAction onFixTypos, CustomPromptAction onCustomPrompt,
                     DismissAction onDismiss, QWidget* parent = nullptr);
    ~ActionPickerView() override;

    [[nodiscard]] const Phase& phase() const { return phase_; }
    // The highlighted action: 0 the fix, 1 the custom instruction.
    [[nodiscard]] int selected() const { return selected_; }
    // The contents of the instruction field.
    [[nodiscard]] QString prompt() const;
    // Whether the instruction field has the panel's keyboard focus.
    [[nodiscard]] bool focused() const { return focused_; }

    // A key press the panel swallowed, as a virtual key code.
    void handleKey(std::uint16_t keyCode);
    // A click on action button `index`.
    void select(int index);
    // Return in the instruction field, or its submit button.
    void submitCustom();
    // Shows `description` as a failure and dismisses as a failed action does; only while the
    // user is still choosing (an action under way reports its own outcome).
    void showFailure(const QString& description);

    // Parts, for tests and pictures.
    [[nodiscard]] QLineEdit* instructionField() const;
    // The text under the red cross, empty unless the failure asks something of the user.
    [[nodiscard]] QString noticeText() const;
    [[nodiscard]] QAbstractButton* submitButton() const;
    [[nodiscard]] QPoint buttonCenter(int index) const;
    // Whether the look has stopped moving (every transition finished).
    [[nodiscard]] bool isSettled() const;

Q_SIGNALS:
    void phaseChanged();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void run(const std::function<void(Completion)>& action);
    void finish(const std::exception_ptr& error);
    void dismiss();
    void setPhase(Phase phase);
    void openField();
    void closeField();
    void focusField();
    void unfocusField();
    void applyPhase();
    void layoutParts();

    Phase phase_ = Phase::picker();
    int selected_ = 0;
    double spinAngle_ = 0;
    bool focused_ = false;
    FixTyposAction onFixTypos_;
    CustomPromptAction onCustomPrompt_;
    DismissAction onDismiss_;

    ButtonRow* row_;
    StatusBadge* loadingBadge_;
    StatusBadge* successBadge_;
    StatusBadge* failureBadge_;
    InstructionField* field_;
    QLabel* notice_;
    QVariantAnimation* spinner_;

    // Row: opacity, scale, blur; badges and field: how far they have appeared.
    AnimatedValue* rowOpacity_;
    AnimatedValue* rowScale_;
    AnimatedValue* rowBlur_;
    AnimatedValue* loadingPresence_;
    AnimatedValue* successPresence_;
    AnimatedValue* failurePresence_;
    AnimatedValue* fieldPresence_;
};

} // namespace ui
