#pragma once

#include "platform/Geometry.h"

#include <QPointer>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QPropertyAnimation;
class QTimer;

namespace ui {

namespace native {
class ActiveWindowWatch;
}

// The small borderless panel that shows the action picker next to the user's selection.
//
// It floats above ordinary windows on every desktop, has no frame, no shadow and a clear
// background, and is shown without activating this application: the application the user was
// working in stays in front (and later receives the synthetic copy and paste). While it is
// shown it holds the keyboard, so the key presses made meanwhile come to it; KeyHandler routes
// them to the content. It holds the pointer too, so a click outside it (or another window
// becoming active) asks for it to go away instead of leaving the keyboard taken.
//
// One panel is made at launch and reused: each trigger puts new content in and shows it; the
// content's dismissal hides it. Between triggers it is off screen at opacity 1. Main thread
// only.
class FloatingPanel : public QWidget {
    Q_OBJECT
    // The window's opacity as the fades animate it.
    Q_PROPERTY(qreal fade READ fade WRITE setFade)
public:
    static constexpr int showDurationMs = 200;
    static constexpr int hideDurationMs = 150;

    FloatingPanel();
    ~FloatingPanel() override;

    // Makes `view` the panel's content, filling it; the panel takes ownership and deletes the
    // content it replaces.
    void setContentView(QWidget* view);
    [[nodiscard]] QWidget* contentView() const { return content_; }

    [[nodiscard]] qreal fade() const { return fade_; }
    void setFade(qreal opacity);

    // Puts the panel at `frame` (global coordinates: origin bottom-left of the primary screen,
    // y up; already clamped to a screen), transparent, in front without activating this
    // application, takes the keyboard and fades in over 0.2 s (ease-out). Returns at once.
    //
    // A show that comes while an earlier hide is still fading cancels that fade: the panel stays
    // on screen with its new content, and the cancelled hide's completion runs at once.
    void show(const platform::Rect& frame);

    // Stops routing keys to the content and lets go of the keyboard at once, then fades out over
    // 0.15 s (ease-in), takes the panel off screen, sets its opacity back to 1 and calls
    // `completion` (exactly once). Returns at once.
    void hide(std::function<void()> completion);

    // Whether the panel currently holds the keyboard (always false where the window system
    // offers no grab, for example offscreen).
    [[nodiscard]] bool hasKeyboardGrab() const { return keyboardGrabbed_; }

    // Lets go of the keyboard (and the pointer) while the panel stays on screen: once an action
    // runs, the synthetic copy and paste it sends must reach the user's application, not the
    // panel.
    void releaseKeyboard();
    // Takes the keyboard again, for as long as the panel stays on screen.
    void holdKeyboard();

    // Where the panel holds the keyboard focus (Wayland), a keystroke for the user's
    // application needs it back there: stepAside takes the panel off screen at once, without a
    // fade and without ending it; comeBack puts it back where it was, unless it was hidden or
    // shown anew meanwhile. Whether it is aside now:
    void stepAside();
    void comeBack();
    [[nodiscard]] bool isAside() const { return aside_; }

Q_SIGNALS:
    // While the panel holds the keyboard, the user clicked outside it, or the window manager
    // activated another window: the user has moved on, and the content should go away.
    void dismissRequested();
    // The keyboard could not be taken (another program holds it): keys the user types go to
    // their application, so the content should say so and go away.
    void keyboardGrabFailed();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    // Without a compositing manager a translucent window shows black where it is clear. The
    // panel then paints an opaque backdrop and cuts the window to the shape of what its content
    // draws, following the content as it changes.
    void updateShape();
    [[nodiscard]] QRegion contentShape() const;
    // The shape of content put in while the panel is hidden, worked out at the next turn of
    // the event loop: the trigger waits for the selection's place there, and the show after it
    // then finds the shape ready.
    void prepareShape();

    void tryGrabKeyboard();
    void finishHide();
    void cancelHide();

    QPointer<QWidget> content_;
    QPropertyAnimation* fadeIn_;
    QPropertyAnimation* fadeOut_;
    QTimer* grabRetry_;
    QTimer* shapeTimer_;
    bool composited_ = true;
    struct PreparedShape {
        QPointer<QWidget> content;
        QSize size;
        QRegion shape;
    };
    std::optional<PreparedShape> preparedShape_;
    bool aside_ = false;
    int grabAttempts_ = 0;
    bool keyboardGrabbed_ = false;
    qreal fade_ = 1.0;
    bool pointerGrabbed_ = false;
    std::unique_ptr<native::ActiveWindowWatch> activeWindowWatch_;
    std::vector<std::function<void()>> pendingCompletions_;
};

} // namespace ui
