#include "ui/ActionPickerView.h"

#include "support/Error.h"
#include "support/MainThread.h"
#include "ui/AnimatedValue.h"
#include "ui/Color.h"
#include "ui/KeyHandler.h"
#include "ui/PickerParts.h"
#include "ui/Spring.h"
#include "ui/TransformEffect.h"

#include <QApplication>
#include <QFocusEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QVariantAnimation>
#include <memory>

namespace ui {

namespace {

namespace key {
constexpr std::uint16_t returnKey = 36;
constexpr std::uint16_t escape = 53;
constexpr std::uint16_t left = 123;
constexpr std::uint16_t right = 124;
constexpr std::uint16_t down = 125;
constexpr std::uint16_t up = 126;
} // namespace key

constexpr int spinPeriodMs = 700;

// Where a badge or the field starts growing from when it appears.
constexpr double badgeFromScale = 0.8;
constexpr double fieldFromScale = 0.85;

void animate(AnimatedValue* value, double target) {
    value->animateTo(target, springCurve<phaseSpring>(), springDurationMs(phaseSpring));
}

// Shows a piece while it is (or is becoming) visible, faded and grown by its presence.
void present(QWidget* widget, TransformEffect* effect, const AnimatedValue& presence,
             double fromScale) {
    const double p = presence.value();
    widget->setVisible(p > 0.001 || presence.target() > 0.0);
    effect->setOpacity(std::clamp(p, 0.0, 1.0));
    effect->setScale(fromScale + (1.0 - fromScale) * p);
}

} // namespace

ActionPickerView::ActionPickerView(FixTyposAction onFixTypos, CustomPromptAction onCustomPrompt,
                                   DismissAction onDismiss, QWidget* parent)
    : QWidget(parent), onFixTypos_(std::move(onFixTypos)),
      onCustomPrompt_(std::move(onCustomPrompt)), onDismiss_(std::move(onDismiss)),
      row_(new ButtonRow(
          {ActionStyle{QStringLiteral("textformat.abc.dottedunderline"), colorFromHex(u"8B5CF6"),
                       colorFromHex(u"6366F1")},
           ActionStyle{QStringLiteral("pencil"), colorFromHex(u"52525B"), colorFromHex(u"3F3F46")}},
          this)),
      // Back to front: button row, the three badges, the instruction field.
      loadingBadge_(new StatusBadge(StatusBadge::Kind::loading, this)),
      successBadge_(new StatusBadge(StatusBadge::Kind::success, this)),
      failureBadge_(new StatusBadge(StatusBadge::Kind::failure, this)),
      field_(new InstructionField(this)), notice_(new QLabel(this)),
      spinner_(new QVariantAnimation(this)) {
    setAutoFillBackground(false);
    resize(240, 140);

    rowOpacity_ = new AnimatedValue(
        1.0,
        [this] {
            row_->effect()->setOpacity(rowOpacity_->value());
            row_->setVisible(rowOpacity_->value() > 0.001 || rowOpacity_->target() > 0.0);
        },
        this);
    rowScale_ = new AnimatedValue(
        1.0, [this] { row_->effect()->setScale(rowScale_->value()); }, this);
    rowBlur_ = new AnimatedValue(
        0.0, [this] { row_->effect()->setBlurRadius(std::max(0.0, rowBlur_->value())); }, this);

    loadingPresence_ = new AnimatedValue(
        0.0,
        [this] {
            present(loadingBadge_, loadingBadge_->effect(), *loadingPresence_, badgeFromScale);
            // The spinner turns for as long as any of it can be seen.
            if (!loadingBadge_->isVisible())
                spinner_->stop();
        },
        this);
    successPresence_ = new AnimatedValue(
        0.0,
        [this] {
            present(successBadge_, successBadge_->effect(), *successPresence_, badgeFromScale);
        },
        this);
    failurePresence_ = new AnimatedValue(
        0.0,
        [this] {
            present(failureBadge_, failureBadge_->effect(), *failurePresence_, badgeFromScale);
        },
        this);
    fieldPresence_ = new AnimatedValue(
        0.0, [this] { present(field_, field_->effect(), *fieldPresence_, fieldFromScale); }, this);
    for (auto* badge : {loadingBadge_, successBadge_, failureBadge_})
        badge->hide();
    field_->hide();
    notice_->setWordWrap(true);
    notice_->setAlignment(Qt::AlignCenter);
    notice_->setStyleSheet(QStringLiteral("QLabel { color: white; background: rgba(0, 0, 0, 170); "
                                          "border-radius: 6px; padding: 2px 4px; }"));
    notice_->hide();

    spinner_->setStartValue(0.0);
    spinner_->setEndValue(360.0);
    spinner_->setDuration(spinPeriodMs);
    spinner_->setLoopCount(-1);
    spinner_->setEasingCurve(QEasingCurve::Linear);
    connect(spinner_, &QVariantAnimation::valueChanged, this, [this](const QVariant& angle) {
        spinAngle_ = angle.toDouble();
        loadingBadge_->setSpinAngle(spinAngle_);
    });

    connect(row_, &ButtonRow::clicked, this, &ActionPickerView::select);
    connect(field_->lineEdit(), &QLineEdit::returnPressed, this, [this] {
        if (phase_.kind() == Phase::Kind::custom)
            submitCustom();
    });
    connect(field_->submitButton(), &QAbstractButton::clicked, this, [this] {
        if (phase_.kind() == Phase::Kind::custom)
            submitCustom();
    });

    layoutParts();
    applyPhase();
}

ActionPickerView::~ActionPickerView() {
    KeyHandler::shared().clearOnKey(this);
}

QString ActionPickerView::prompt() const {
    return field_->lineEdit()->text();
}

QString ActionPickerView::noticeText() const {
    return notice_->isVisible() ? notice_->text() : QString();
}

QLineEdit* ActionPickerView::instructionField() const {
    return field_->lineEdit();
}

QAbstractButton* ActionPickerView::submitButton() const {
    return field_->submitButton();
}

QPoint ActionPickerView::buttonCenter(int index) const {
    return row_->mapTo(this, row_->buttonCenter(index).toPoint());
}

bool ActionPickerView::isSettled() const {
    for (const AnimatedValue* v : {rowOpacity_, rowScale_, rowBlur_, loadingPresence_,
                                   successPresence_, failurePresence_, fieldPresence_}) {
        if (v->isAnimating())
            return false;
    }
    return true;
}

void ActionPickerView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    KeyHandler& keys = KeyHandler::shared();
    keys.setOnKey([this](std::uint16_t keyCode) { handleKey(keyCode); }, this);
    // A picker that appears starts with the keys of its own phase: a new one (in its button
    // phase) never inherits typing left switched on by a picker it replaced.
    keys.setAllowTyping(phase_.kind() == Phase::Kind::custom);
}

void ActionPickerView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    KeyHandler::shared().clearOnKey(this);
}

void ActionPickerView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    layoutParts();
}

void ActionPickerView::layoutParts() {
    row_->setGeometry(rect());
    // Everything else is centred.
    for (QWidget* part :
         std::initializer_list<QWidget*>{loadingBadge_, successBadge_, failureBadge_, field_}) {
        part->move((width() - part->width()) / 2, (height() - part->height()) / 2);
    }
    notice_->setGeometry(4, height() - 44, width() - 8, 42);
}

void ActionPickerView::handleKey(std::uint16_t keyCode) {
    switch (phase_.kind()) {
    case Phase::Kind::picker:
        switch (keyCode) {
        case key::returnKey:
            if (selected_ == 0) {
                run(onFixTypos_);
            } else {
                KeyHandler::shared().setAllowTyping(true);
                setPhase(Phase::custom());
            }
            break;
        case key::escape:
            dismiss();
            break;
        case key::left:
        case key::up:
            selected_ = 0;
            row_->setSelected(selected_);
            break;
        case key::right:
        case key::down:
            selected_ = 1;
            row_->setSelected(selected_);
            break;
        default:
            break;
        }
        break;
    case Phase::Kind::custom:
        if (keyCode == key::escape) {
            KeyHandler::shared().setAllowTyping(false);
            field_->lineEdit()->clear();
            setPhase(Phase::picker());
        }
        break;
    case Phase::Kind::loading:
    case Phase::Kind::success:
    case Phase::Kind::error:
        break;
    }
}

void ActionPickerView::select(int index) {
    selected_ = index;
    row_->setSelected(selected_);
    if (selected_ != 0) {
        KeyHandler::shared().setAllowTyping(true);
        setPhase(Phase::custom());
    } else {
        run(onFixTypos_);
    }
}

void ActionPickerView::submitCustom() {
    const QString instruction = prompt().trimmed();
    if (instruction.isEmpty())
        return;
    KeyHandler::shared().setAllowTyping(false);
    run([action = onCustomPrompt_, instruction](Completion completion) {
        if (action)
            action(instruction, std::move(completion));
        else
            completion(nullptr);
    });
}

void ActionPickerView::run(const std::function<void(Completion)>& action) {
    spinAngle_ = 0;
    loadingBadge_->setSpinAngle(0);
    setPhase(Phase::loading());

    const QPointer<ActionPickerView> self(this);
    // Touched on the main thread only; the first outcome counts.
    auto finished = std::make_shared<bool>(false);
    Completion completion = [self, finished](const std::exception_ptr& error) {
        auto deliver = [self, finished, error] {
            if (*finished)
                return;
            *finished = true;
            if (self)
                self->finish(error);
        };
        if (support::isMainThread())
            deliver();
        else
            support::runOnMain(std::move(deliver));
    };
    try {
        if (action)
            action(completion);
        else
            completion(nullptr);
    } catch (...) {
        completion(std::current_exception());
    }
}

void ActionPickerView::finish(const std::exception_ptr& error) {
    if (!error) {
        setPhase(Phase::success());
        support::runOnMainAfter(this, std::chrono::milliseconds(successDelayMs),
                                [this] { dismiss(); });
    } else {
        setPhase(Phase::error(support::describeError(error)));
        const bool notice = support::isNotice(error);
        if (notice) {
            notice_->setText(phase_.errorDescription());
            notice_->show();
            notice_->raise();
        }
        support::runOnMainAfter(this,
                                std::chrono::milliseconds(notice ? noticeDelayMs : failureDelayMs),
                                [this] { dismiss(); });
    }
}

void ActionPickerView::showFailure(const QString& description) {
    if (phase_.kind() != Phase::Kind::picker && phase_.kind() != Phase::Kind::custom)
        return;
    KeyHandler::shared().setAllowTyping(false);
    setPhase(Phase::error(description));
    support::runOnMainAfter(this, std::chrono::milliseconds(failureDelayMs), [this] { dismiss(); });
}

void ActionPickerView::dismiss() {
    // Copied: dismissing may hide the panel and, with it, end this view.
    const DismissAction onDismiss = onDismiss_;
    if (onDismiss)
        onDismiss();
}

void ActionPickerView::setPhase(Phase phase) {
    if (phase == phase_)
        return;
    const bool wasCustom = phase_.kind() == Phase::Kind::custom;
    phase_ = std::move(phase);
    const bool isCustom = phase_.kind() == Phase::Kind::custom;
    if (isCustom && !wasCustom)
        openField();
    else if (wasCustom && !isCustom)
        closeField();
    applyPhase();
    Q_EMIT phaseChanged();
}

void ActionPickerView::applyPhase() {
    const Phase::Kind kind = phase_.kind();
    animate(rowOpacity_, kind == Phase::Kind::picker   ? 1.0
                         : kind == Phase::Kind::custom ? 0.3
                                                       : 0.0);
    animate(rowScale_, kind == Phase::Kind::custom ? 0.9 : 1.0);
    animate(rowBlur_, kind == Phase::Kind::custom ? 6.0 : 0.0);
    animate(loadingPresence_, kind == Phase::Kind::loading ? 1.0 : 0.0);
    animate(successPresence_, kind == Phase::Kind::success ? 1.0 : 0.0);
    animate(failurePresence_, kind == Phase::Kind::error ? 1.0 : 0.0);
    animate(fieldPresence_, kind == Phase::Kind::custom ? 1.0 : 0.0);
    // The dimmed row under an open field takes no clicks; only the button phase does.
    row_->setInteractive(kind == Phase::Kind::picker);
    field_->setAttribute(Qt::WA_TransparentForMouseEvents, kind != Phase::Kind::custom);
    if (kind == Phase::Kind::loading && spinner_->state() != QAbstractAnimation::Running)
        spinner_->start();
}

void ActionPickerView::openField() {
    field_->show();
    support::runOnMainAfter(this, std::chrono::milliseconds(fieldFocusDelayMs), [this] {
        if (phase_.kind() == Phase::Kind::custom)
            focusField();
    });
}

void ActionPickerView::closeField() {
    unfocusField();
}

void ActionPickerView::focusField() {
    QLineEdit* edit = field_->lineEdit();
    edit->setFocus(Qt::OtherFocusReason);
    // The panel never becomes the active window, so Qt does not tell the field it has the
    // focus; without that it would draw no caret. Keys reach it all the same: they go to the
    // panel's focus widget.
    if (!edit->hasFocus()) {
        QFocusEvent focusIn(QEvent::FocusIn, Qt::OtherFocusReason);
        QApplication::sendEvent(edit, &focusIn);
    }
    focused_ = true;
}

void ActionPickerView::unfocusField() {
    if (!focused_)
        return;
    QLineEdit* edit = field_->lineEdit();
    if (!edit->hasFocus()) {
        QFocusEvent focusOut(QEvent::FocusOut, Qt::OtherFocusReason);
        QApplication::sendEvent(edit, &focusOut);
    }
    edit->clearFocus();
    focused_ = false;
}

} // namespace ui
