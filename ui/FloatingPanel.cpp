#include "ui/FloatingPanel.h"

#include "ui/KeyHandler.h"
#include "ui/NativeWindow.h"
#include "ui/ScreenGeometry.h"

#include <QBitmap>
#include <QEasingCurve>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPropertyAnimation>
#include <QTimer>
#include <QWindow>

namespace ui {

namespace {

// The standard ease-in and ease-out timing curves (cubic Béziers).
QEasingCurve easeOut() {
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(0.0, 0.0), QPointF(0.58, 1.0), QPointF(1.0, 1.0));
    return curve;
}

QEasingCurve easeIn() {
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(0.42, 0.0), QPointF(1.0, 1.0), QPointF(1.0, 1.0));
    return curve;
}

// The hot key's own grab may still be active for a moment after the trigger fires; until it
// ends our grab is refused, so it is retried briefly.
constexpr int grabRetryIntervalMs = 15;
constexpr int grabAttemptsMax = 40;

// How often the cut-out shape follows the content, without a compositor.
constexpr int shapeIntervalMs = 33;

// Wayland lets no client grab the keyboard or place its windows: the panel takes the focus
// like any window (the compositor gives it back to the application when the panel goes) and
// stands where the compositor puts it.
bool onWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

} // namespace

FloatingPanel::FloatingPanel()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::NoDropShadowWindowHint),
      fadeIn_(new QPropertyAnimation(this, "fade", this)),
      fadeOut_(new QPropertyAnimation(this, "fade", this)), grabRetry_(new QTimer(this)),
      shapeTimer_(new QTimer(this)) {
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating, !onWayland());
    setAttribute(Qt::WA_X11NetWmWindowTypeUtility);
    setAttribute(Qt::WA_DeleteOnClose, false);
    setAutoFillBackground(false);
    setWindowTitle(QStringLiteral("Mendwise"));
    setGeometry(0, 0, 0, 0);

    fadeIn_->setDuration(showDurationMs);
    fadeIn_->setEasingCurve(easeOut());
    fadeIn_->setEndValue(1.0);
    fadeOut_->setDuration(hideDurationMs);
    fadeOut_->setEasingCurve(easeIn());
    fadeOut_->setEndValue(0.0);
    connect(fadeOut_, &QPropertyAnimation::finished, this, &FloatingPanel::finishHide);

    grabRetry_->setInterval(grabRetryIntervalMs);
    connect(grabRetry_, &QTimer::timeout, this, &FloatingPanel::tryGrabKeyboard);
    shapeTimer_->setInterval(shapeIntervalMs);
    connect(shapeTimer_, &QTimer::timeout, this, &FloatingPanel::updateShape);
}

FloatingPanel::~FloatingPanel() {
    releaseKeyboard();
}

void FloatingPanel::setFade(qreal opacity) {
    fade_ = opacity;
    // Wayland has no window opacity for clients: the fade keeps its timing, unseen.
    if (!onWayland())
        setWindowOpacity(opacity);
}

void FloatingPanel::mousePressEvent(QMouseEvent* event) {
    // Under the pointer grab, a press anywhere on screen comes here; outside the panel it is
    // the user moving on.
    if (pointerGrabbed_ && !rect().contains(event->position().toPoint())) {
        event->accept();
        Q_EMIT dismissRequested();
        return;
    }
    QWidget::mousePressEvent(event);
}

void FloatingPanel::setContentView(QWidget* view) {
    if (view == content_)
        return;
    if (QWidget* old = content_) {
        // Hidden first, so the old content's reaction to going away happens before the new
        // content appears.
        old->hide();
        delete old;
    }
    content_ = view;
    if (!view)
        return;
    view->setParent(this);
    view->setGeometry(rect());
    if (isVisible())
        view->show();
    else
        QMetaObject::invokeMethod(this, &FloatingPanel::prepareShape, Qt::QueuedConnection);
}

void FloatingPanel::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (content_)
        content_->setGeometry(rect());
}

void FloatingPanel::paintEvent(QPaintEvent*) {
    if (composited_)
        return;
    // Edges that are partly clear blend with the window colour instead of black.
    QPainter painter(this);
    painter.fillRect(rect(), palette().color(QPalette::Window));
}

QRegion FloatingPanel::contentShape() const {
    QImage image(size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    content_->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    // Whatever the content draws at least half opaque is kept; faint shadows are cut away.
    const QRegion shape(QBitmap::fromImage(image.createAlphaMask(Qt::ThresholdAlphaDither)));
    return shape.isEmpty() ? QRegion(0, 0, 1, 1) : shape;
}

void FloatingPanel::updateShape() {
    if (!content_ || size().isEmpty())
        return;
    QRegion shape;
    if (preparedShape_ && preparedShape_->content == content_ && preparedShape_->size == size())
        shape = std::move(preparedShape_->shape);
    else
        shape = contentShape();
    preparedShape_.reset();
    if (shape != mask())
        setMask(shape);
}

void FloatingPanel::prepareShape() {
    if (isVisible() || !content_ || size().isEmpty())
        return;
    composited_ = native::hasCompositor();
    if (!composited_)
        preparedShape_ = PreparedShape{content_, size(), contentShape()};
}

void FloatingPanel::show(const platform::Rect& frame) {
    aside_ = false;
    cancelHide();
    fadeIn_->stop();

    setGeometry(qtRectFromGlobal(frame));
    // A window whose size cannot change is a dialog to tiling compositors (sway), which float
    // and centre it instead of tiling it across half the screen.
    if (onWayland())
        setFixedSize(size());
    setFade(0.0);
    if (!isVisible())
        native::keepOnAllDesktops(this);
    composited_ = native::hasCompositor();
    if (composited_) {
        shapeTimer_->stop();
        clearMask();
    } else {
        updateShape();
        shapeTimer_->start();
    }
    QWidget::show();
    raise();
    // When one of our own windows is active (the settings window), this application is the
    // one in front anyway; the panel then takes the focus from it, so keys go to the panel.
    if (QWindow* focus = QGuiApplication::focusWindow();
        onWayland() || (focus && focus != windowHandle()))
        activateWindow();

    holdKeyboard();

    fadeIn_->setStartValue(0.0);
    fadeIn_->start();
}

void FloatingPanel::hide(std::function<void()> completion) {
    aside_ = false;
    KeyHandler::shared().reset();
    releaseKeyboard();
    pendingCompletions_.push_back(std::move(completion));

    fadeIn_->stop();
    fadeOut_->stop();
    fadeOut_->setStartValue(fade_);
    fadeOut_->start();
}

void FloatingPanel::finishHide() {
    aside_ = false;
    shapeTimer_->stop();
    QWidget::hide();
    setFade(1.0);
    // Taken out first: a completion may show or hide the panel again.
    auto completions = std::move(pendingCompletions_);
    pendingCompletions_.clear();
    for (auto& completion : completions) {
        if (completion)
            completion();
    }
}

void FloatingPanel::stepAside() {
    if (!isVisible() || fadeOut_->state() == QAbstractAnimation::Running)
        return;
    aside_ = true;
    QWidget::hide();
    // Keys sent next travel on another connection: the compositor must have hidden the panel
    // and given the keyboard back to the window behind before they arrive.
    native::syncWithServer();
}

void FloatingPanel::comeBack() {
    if (!aside_)
        return;
    aside_ = false;
    QWidget::show();
    raise();
    activateWindow();
}

void FloatingPanel::cancelHide() {
    if (fadeOut_->state() != QAbstractAnimation::Running)
        return;
    fadeOut_->stop();
    auto completions = std::move(pendingCompletions_);
    pendingCompletions_.clear();
    for (auto& completion : completions) {
        if (completion)
            completion();
    }
}

void FloatingPanel::holdKeyboard() {
    grabAttempts_ = 0;
    tryGrabKeyboard();
}

void FloatingPanel::tryGrabKeyboard() {
    grabRetry_->stop();
    QWindow* window = windowHandle();
    if (!window || !isVisible() || keyboardGrabbed_ || onWayland())
        return;
    ++grabAttempts_;
    if (window->setKeyboardGrabEnabled(true)) {
        keyboardGrabbed_ = true;
        pointerGrabbed_ = window->setMouseGrabEnabled(true);
        activeWindowWatch_ = native::ActiveWindowWatch::start([this] {
            if (keyboardGrabbed_)
                Q_EMIT dismissRequested();
        });
        return;
    }
    // Only X11 refuses a grab for a moment and then grants it; elsewhere one attempt tells.
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return;
    if (grabAttempts_ < grabAttemptsMax)
        grabRetry_->start();
    else
        Q_EMIT keyboardGrabFailed();
}

void FloatingPanel::releaseKeyboard() {
    grabRetry_->stop();
    activeWindowWatch_.reset();
    if (!keyboardGrabbed_)
        return;
    keyboardGrabbed_ = false;
    if (QWindow* window = windowHandle()) {
        window->setKeyboardGrabEnabled(false);
        if (pointerGrabbed_)
            window->setMouseGrabEnabled(false);
    }
    pointerGrabbed_ = false;
    // Until the server has let go, GTK applications report no focused element, and an
    // accessibility read that follows at once would find nothing.
    native::syncWithServer();
}

} // namespace ui
