#pragma once

#include <QObject>
#include <cstdint>
#include <functional>

namespace ui {

// Routes the key presses addressed to the floating panel to whoever shows content in it (the
// action picker). One handler exists for the whole process; it watches every key press of the
// application (an application-wide event filter) and lets everything pass that is not for a
// FloatingPanel.
//
// For a key press addressed to a FloatingPanel, while onKey is set: with allowTyping off every
// key goes to onKey and no further; with allowTyping on only Escape does, and every other key
// goes on to the panel's focused text field. Keys are handed over as virtual key codes (Escape
// 53, Return 36, arrows 123-126). Main thread only.
class KeyHandler : public QObject {
    Q_OBJECT
public:
    using KeyCallback = std::function<void(std::uint16_t keyCode)>;

    // The process-wide handler, created on first use; needs the QApplication.
    static KeyHandler& shared();
    ~KeyHandler() override;

    [[nodiscard]] const KeyCallback& onKey() const { return onKey_; }
    [[nodiscard]] bool allowTyping() const { return allowTyping_; }
    void setAllowTyping(bool allow) { allowTyping_ = allow; }

    // Sets onKey on behalf of `owner` (which may be null).
    void setOnKey(KeyCallback callback, const void* owner = nullptr);
    // Clears onKey, but only while `owner` is still the one that set it, so a view that goes
    // away after its successor took over does not undo the successor's routing.
    void clearOnKey(const void* owner);
    // Clears onKey whoever set it, and allowTyping.
    void reset();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    KeyHandler();

    KeyCallback onKey_;
    bool allowTyping_ = false;
    const void* owner_ = nullptr;
};

} // namespace ui
