#pragma once

#include "hotkeys/Hotkeys.h"
#include "hotkeys/Shortcut.h"

#include <QLineEdit>
#include <QVersionNumber>
#include <functional>
#include <optional>

namespace support {
class Observation;
}

namespace Hotkeys {

// Posted on the default notification centre when a recorder starts (user info "isActive":
// true) and stops (false) recording.
inline constexpr const char* recorderActiveStatusDidChange =
    "Hotkeys_recorderActiveStatusDidChange";

class LocalEventMonitor;

// The control with which a user picks the shortcut of one Name: a search-field-styled text
// field showing the current shortcut. It records while it has the keyboard focus (a click in
// it, Tab, or a restart after an alert or a clear), takes the next key combination, checks it
// against the application's menus and the system's reserved shortcuts, and stores it. Its clear
// button removes the shortcut. While it records, no shortcut action runs (recorderIsActive),
// and its window holds the keyboard where the desktop allows, so chords other programs have
// taken reach it too.
// Main thread only.
class RecorderField : public QLineEdit {
    Q_OBJECT
public:
    using OnChange = std::function<void(const std::optional<Shortcut>&)>;

    static constexpr int minimumWidth = 130;
    static constexpr int fieldHeight = 24;

    // What the recorder asks of the system, replaceable for tests.
    struct Environment {
        // The macOS release the rules about particular releases refer to; none elsewhere.
        std::optional<QVersionNumber> macOSVersion;
        // Whether the process runs in an app sandbox (APP_SANDBOX_CONTAINER_ID is set).
        bool sandboxed = false;
        // The system beep that refuses a combination.
        std::function<void()> beep;

        // The real system; the sandbox variable is read once, at the first call.
        static Environment current();
    };

    RecorderField(const Name& name, OnChange onChange = {}, QWidget* parent = nullptr);
    ~RecorderField() override;

    [[nodiscard]] const Name& shortcutName() const { return shortcutName_; }
    // Another name: the text follows it when its raw value differs.
    void setShortcutName(const Name& name);

    void setEnvironment(Environment environment);

    [[nodiscard]] bool isRecording() const { return eventMonitor_ != nullptr; }
    // False for a moment whenever the window opens or becomes active, so the field never takes
    // the focus (and starts recording) by itself.
    [[nodiscard]] bool canBecomeKey() const { return canBecomeKey_; }

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool event(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    friend class LocalEventMonitor;

    void refreshText();
    void updateClearButton();
    void startRecording();
    void endRecording();
    void preventFocus();
    void clearWindowFirstResponder();
    void makeFirstResponder();
    void textCleared();
    void pressClearButton();
    // The local event monitor's callback: true swallows the event.
    bool handleEvent(QObject* receiver, QEvent* event);
    bool handleKeyDown(QKeyEvent* event);
    // Shows a warning without icon (window-modal on this control's window) with the buttons in
    // this order, and returns the response: 1000 for the first button, 1001 for the second...
    int showAlert(const QString& message, const QString& informativeText,
                  const QStringList& buttonTitles);

    Name shortcutName_;
    OnChange onChange_;
    bool canBecomeKey_ = false;
    std::unique_ptr<LocalEventMonitor> eventMonitor_;
    std::unique_ptr<support::Observation> shortcutsNameChangeObserver_;
    Environment environment_;
    bool shownOnce_ = false;
    bool keyboardGrabbed_ = false;
    bool focusRequested_ = false;
};

} // namespace Hotkeys
