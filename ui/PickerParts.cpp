#include "ui/PickerParts.h"

#include "ui/AnimatedValue.h"
#include "ui/Color.h"
#include "ui/Drawing.h"
#include "ui/Icons.h"
#include "ui/Spring.h"
#include "ui/TapScale.h"
#include "ui/TransformEffect.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <cmath>

namespace ui {

namespace {

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(static_cast<float>(alpha));
    return color;
}

QColor mix(const QColor& a, const QColor& b, double t) {
    const auto lerp = [t](float x, float y) { return static_cast<float>(x + (y - x) * t); };
    return QColor::fromRgbF(lerp(a.redF(), b.redF()), lerp(a.greenF(), b.greenF()),
                            lerp(a.blueF(), b.blueF()), lerp(a.alphaF(), b.alphaF()));
}

// The rounded square behind the badges and the action buttons.
QPainterPath badgeShape() {
    return continuousRoundedRect(QRectF(-18, -18, 36, 36), 12);
}

// How large each symbol is drawn inside a 36-point button (our drawings differ in how much of
// their square they fill).
qreal symbolBox(const QString& symbol) {
    if (symbol == QLatin1String("textformat.abc.dottedunderline"))
        return 22;
    return 19;
}

} // namespace

// ---------------------------------------------------------------------------------------------

ButtonRow::ButtonRow(std::array<ActionStyle, 2> styles, QWidget* parent)
    : QWidget(parent), styles_(std::move(styles)), effect_(new TransformEffect(this)) {
    for (std::size_t i = 0; i < 2; ++i) {
        highlight_[i] = new AnimatedValue(
            i == 0 ? 1.0 : 0.0, [this] { update(); }, this);
        taps_[i] = new TapScale(this);
    }
    setGraphicsEffect(effect_);
}

void ButtonRow::setSelected(int index) {
    for (std::size_t i = 0; i < 2; ++i)
        highlight_[i]->animateTo(static_cast<int>(i) == index ? 1.0 : 0.0,
                                 springCurve<selectionSpring>(), springDurationMs(selectionSpring));
}

void ButtonRow::setInteractive(bool interactive) {
    interactive_ = interactive;
    if (!interactive && pressed_ >= 0) {
        taps_[static_cast<std::size_t>(pressed_)]->setPressed(false);
        pressed_ = -1;
    }
}

QPointF ButtonRow::buttonCenter(int index) const {
    const QPointF center = QRectF(rect()).center();
    const double half = (buttonSize + spacing) / 2;
    return {center.x() + (index == 0 ? -half : half), center.y()};
}

int ButtonRow::buttonAt(QPointF point) const {
    for (int i = 0; i < 2; ++i) {
        const auto n = static_cast<std::size_t>(i);
        const double side = buttonSize * (1.0 + 0.1 * highlight_[n]->value()) * taps_[n]->scale();
        const QPointF c = buttonCenter(i);
        if (QRectF(c.x() - side / 2, c.y() - side / 2, side, side).contains(point))
            return i;
    }
    return -1;
}

void ButtonRow::mousePressEvent(QMouseEvent* event) {
    const int index =
        interactive_ && event->button() == Qt::LeftButton ? buttonAt(event->position()) : -1;
    if (index < 0) {
        event->ignore();
        return;
    }
    pressed_ = index;
    taps_[static_cast<std::size_t>(index)]->setPressed(true);
}

void ButtonRow::mouseMoveEvent(QMouseEvent* event) {
    if (pressed_ < 0)
        return;
    // Dragging off the button releases the pressed look; dragging back restores it.
    taps_[static_cast<std::size_t>(pressed_)]->setPressed(buttonAt(event->position()) == pressed_);
}

void ButtonRow::mouseReleaseEvent(QMouseEvent* event) {
    if (pressed_ < 0 || event->button() != Qt::LeftButton)
        return;
    const int index = pressed_;
    pressed_ = -1;
    taps_[static_cast<std::size_t>(index)]->setPressed(false);
    if (buttonAt(event->position()) == index)
        Q_EMIT clicked(index);
}

void ButtonRow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // The highlighted button is drawn last, so its larger shadow lies over its neighbour's.
    const int front = highlight_[1]->value() > highlight_[0]->value() ? 1 : 0;
    paintButton(painter, 1 - front);
    paintButton(painter, front);
}

void ButtonRow::paintButton(QPainter& painter, int index) const {
    const auto n = static_cast<std::size_t>(index);
    const ActionStyle& style = styles_[n];
    const double h = std::clamp(highlight_[n]->value(), -0.2, 1.2);
    const double scale = (1.0 + 0.1 * h) * taps_[n]->scale();

    painter.save();
    painter.translate(buttonCenter(index));
    painter.scale(scale, scale);
    const QPainterPath shape = badgeShape();

    const double hc = std::clamp(h, 0.0, 1.0);
    drawShadow(painter, shape, mix(QColor(0, 0, 0, 51), withAlpha(style.from, 0.6), hc),
               4.0 + 4.0 * hc, QPointF(0, 2.0 + 2.0 * hc));

    QLinearGradient fill(QPointF(-18, -18), QPointF(18, 18));
    fill.setColorAt(0, style.from);
    fill.setColorAt(1, style.to);
    painter.fillPath(shape, fill);

    // A one-point border just inside the edge.
    QPen border(withAlpha(Qt::white, 0.1 + 0.3 * hc), 1.0);
    painter.setPen(border);
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(continuousRoundedRect(QRectF(-17.5, -17.5, 35, 35), 11.5));

    const qreal box = symbolBox(style.symbol);
    drawSymbol(painter, style.symbol, QRectF(-box / 2, -box / 2, box, box), Qt::white);
    painter.restore();
}

// ---------------------------------------------------------------------------------------------

StatusBadge::StatusBadge(Kind kind, QWidget* parent)
    : QWidget(parent), kind_(kind), effect_(new TransformEffect(this)) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFixedSize(extent, extent);
    setGraphicsEffect(effect_);
}

void StatusBadge::setSpinAngle(double degrees) {
    if (degrees == spinAngle_)
        return;
    spinAngle_ = degrees;
    if (kind_ == Kind::loading)
        update();
}

void StatusBadge::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(QRectF(rect()).center());
    const QPainterPath shape = badgeShape();

    QColor shadow(0, 0, 0, 38);
    if (kind_ == Kind::success)
        shadow = withAlpha(colors::green(), 0.3);
    else if (kind_ == Kind::failure)
        shadow = withAlpha(colors::red(), 0.3);
    drawShadow(painter, shape, shadow, 6, QPointF(0, 3));
    fillMaterial(painter, shape);

    switch (kind_) {
    case Kind::loading: {
        // An open ring, 0 to 0.7 of the circle from three o'clock clockwise, turned by the
        // spin angle; the gradient turns with it.
        painter.rotate(spinAngle_);
        QPainterPath arc;
        arc.arcMoveTo(QRectF(-10, -10, 20, 20), 0);
        arc.arcTo(QRectF(-10, -10, 20, 20), 0, -0.7 * 360);
        QLinearGradient gradient(QPointF(-10, 0), QPointF(10, 0));
        gradient.setColorAt(0, colors::blue());
        gradient.setColorAt(1, colors::cyan());
        QPen pen(QBrush(gradient), 2.5, Qt::SolidLine, Qt::RoundCap);
        painter.strokePath(arc, pen);
        break;
    }
    case Kind::success:
        drawSymbol(painter, QStringLiteral("checkmark"), QRectF(-9, -9, 18, 18), colors::green());
        break;
    case Kind::failure:
        drawSymbol(painter, QStringLiteral("xmark"), QRectF(-8.5, -8.5, 17, 17), colors::red());
        break;
    }
}

// ---------------------------------------------------------------------------------------------

SubmitButton::SubmitButton(QWidget* parent)
    : QAbstractButton(parent), tap_(TapScale::attach(this)) {
    setFixedSize(extent, extent);
    setCursor(Qt::ArrowCursor);
    setFocusPolicy(Qt::NoFocus);
}

void SubmitButton::setPresence(double presence) {
    presence_ = presence;
    update();
}

bool SubmitButton::hitButton(const QPoint& pos) const {
    const QPointF d = QPointF(pos) - QRectF(rect()).center();
    return std::hypot(d.x(), d.y()) <= extent / 2.0;
}

void SubmitButton::paintEvent(QPaintEvent*) {
    if (presence_ <= 0.001)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(std::clamp(presence_, 0.0, 1.0));
    painter.translate(QRectF(rect()).center());
    const double scale = std::max(presence_, 0.00001) * tap_->scale();
    painter.scale(scale, scale);
    const double box = extent + 2;
    drawSymbol(painter, QStringLiteral("arrow.up.circle.fill"),
               QRectF(-box / 2, -box / 2, box, box), colors::blue());
}

// ---------------------------------------------------------------------------------------------

InstructionField::InstructionField(QWidget* parent)
    : QWidget(parent), lineEdit_(new QLineEdit(this)), submit_(new SubmitButton(this)),
      submitPresence_(nullptr), effect_(new TransformEffect(this)) {
    constexpr int rowHeight = SubmitButton::extent;
    setFixedSize(width + 2 * margin, rowHeight + 20 + 2 * margin);
    setGraphicsEffect(effect_);
    // Grows from its bottom edge when it appears.
    effect_->setAnchor(QPointF(0.5, (height() - margin) / static_cast<double>(height())));

    QFont font = lineEdit_->font();
    font.setPixelSize(13);
    font.setWeight(QFont::Medium);
    lineEdit_->setFont(font);
    lineEdit_->setFrame(false);
    lineEdit_->setPlaceholderText(QStringLiteral("rewrite this..."));
    lineEdit_->setFixedHeight(rowHeight);
    lineEdit_->setAttribute(Qt::WA_MacShowFocusRect, false);
    QPalette palette = lineEdit_->palette();
    palette.setColor(QPalette::Base, Qt::transparent);
    palette.setColor(QPalette::Text, colors::primaryText());
    lineEdit_->setPalette(palette);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(margin + 14, margin + 10, margin + 14, margin + 10);
    row->setSpacing(8);
    row->addWidget(lineEdit_, 1, Qt::AlignVCenter);
    row->addWidget(submit_, 0, Qt::AlignVCenter);

    submit_->setPresence(0);
    submit_->hide();
    submitPresence_ = new AnimatedValue(
        0.0,
        [this] {
            submit_->setPresence(submitPresence_->value());
            if (submitPresence_->target() == 0.0 && submitPresence_->value() == 0.0)
                submit_->hide();
        },
        this);
    connect(lineEdit_, &QLineEdit::textChanged, this, &InstructionField::updateSubmitButton);
}

QRectF InstructionField::capsuleRect() const {
    return QRectF(rect()).adjusted(margin, margin, -margin, -margin);
}

void InstructionField::updateSubmitButton() {
    // Shown for any text at all, even a lone space.
    const bool wanted = !lineEdit_->text().isEmpty();
    if (wanted)
        submit_->show();
    submitPresence_->animateTo(wanted ? 1.0 : 0.0, springCurve<phaseSpring>(),
                               springDurationMs(phaseSpring));
}

void InstructionField::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF capsule = capsuleRect();
    const QPainterPath shape = continuousRoundedRect(capsule, capsule.height() / 2);
    drawShadow(painter, shape, QColor(0, 0, 0, 38), 12, QPointF(0, 4));
    fillMaterial(painter, shape);
}

} // namespace ui
