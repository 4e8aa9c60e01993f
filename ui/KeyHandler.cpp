#include "ui/KeyHandler.h"

#include "platform/VirtualKeys.h"
#include "ui/FloatingPanel.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QWidget>

namespace ui {

namespace {
constexpr std::uint16_t escapeKey = 53;
}

KeyHandler& KeyHandler::shared() {
    static KeyHandler handler;
    return handler;
}

KeyHandler::KeyHandler() {
    Q_ASSERT(QCoreApplication::instance());
    if (auto* app = QCoreApplication::instance())
        app->installEventFilter(this);
}

KeyHandler::~KeyHandler() {
    if (auto* app = QCoreApplication::instance())
        app->removeEventFilter(this);
}

void KeyHandler::setOnKey(KeyCallback callback, const void* owner) {
    onKey_ = std::move(callback);
    owner_ = onKey_ ? owner : nullptr;
}

void KeyHandler::clearOnKey(const void* owner) {
    if (owner_ != owner)
        return;
    onKey_ = nullptr;
    owner_ = nullptr;
}

void KeyHandler::reset() {
    onKey_ = nullptr;
    owner_ = nullptr;
    allowTyping_ = false;
}

bool KeyHandler::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress || !onKey_)
        return false;
    // Only widgets: a key press is offered to the panel's native window first and then to the
    // widget it is for; deciding at the widget is enough and decides once.
    auto* widget = qobject_cast<QWidget*>(watched);
    if (!widget || !qobject_cast<FloatingPanel*>(widget->window()))
        return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    const auto code = platform::virtualKeyFromQt(key->key(), key->modifiers(),
                                                 static_cast<std::uint32_t>(key->nativeScanCode()));
    if (allowTyping_ && code != escapeKey)
        return false;
    if (code) {
        // Copy first: the callback may replace or clear onKey.
        const KeyCallback callback = onKey_;
        callback(*code);
    }
    return true;
}

} // namespace ui
