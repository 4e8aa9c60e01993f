#include "hotkeys/RecorderField.h"

#include "hotkeys/HotKeyRegistry.h"
#include "hotkeys/Localization.h"
#include "platform/VirtualKeys.h"
#include "support/NotificationCenter.h"

#include <QAction>
#include <QApplication>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QMenuBar>
#include <QMessageBox>
#include <QMouseEvent>
#include <QOperatingSystemVersion>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QWindow>

namespace Hotkeys {

namespace {

constexpr std::uint16_t escapeKeyCode = 53;
constexpr std::uint16_t f12KeyCode = 111;
constexpr int firstButtonResponse = 1000;
constexpr int secondButtonResponse = 1001;
// Room kept on either side of centred text for the clear button.
constexpr int clearButtonSpace = 18;

// Modifier tests on event flags. "No modifiers" ignores Caps Lock, the numeric-pad flag and
// the low 16 bits; "no Control, Option or Command" also ignores Shift and Function.
bool hasNoModifiers(EventFlags flags) {
    return (flags & 0xFFDE0000ULL) == 0;
}
bool hasNoControlOptionCommand(EventFlags flags) {
    return (flags & 0xFF5C0000ULL) == 0;
}

// A modifier key pressed on its own is a change of modifiers, not a key press.
bool isModifierKey(int qtKey) {
    switch (qtKey) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
        return true;
    default:
        return false;
    }
}

// Function keys accepted without modifiers: F1 to F35.
bool isFunctionKey(int qtKey) {
    return qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F35;
}

// The title of a menu item as the user reads it (without its mnemonic marker).
QString menuItemTitle(const QAction* action) {
    QString title;
    const QString text = action->text();
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'&' && i + 1 < text.size())
            ++i;
        title += text[i];
    }
    return title;
}

// The first item of any of the application's menu bars that uses the shortcut.
QAction* menuItemUsing(const Shortcut& shortcut) {
    for (QWidget* top : QApplication::topLevelWidgets()) {
        for (const QMenuBar* bar : top->findChildren<QMenuBar*>()) {
            if (QAction* item = shortcut.menuItemWithMatchingShortcut(bar))
                return item;
        }
    }
    return nullptr;
}

void postActiveStatus(bool active) {
    support::NotificationCenter::defaultCenter().post(
        QString::fromLatin1(recorderActiveStatusDidChange), {{QStringLiteral("isActive"), active}});
}

} // namespace

// Sees this application's key presses and left and right mouse releases, wherever they go,
// before their receivers do, for as long as it exists; the field decides which to swallow.
class LocalEventMonitor : public QObject {
public:
    explicit LocalEventMonitor(RecorderField* field) : field_(field) {
        qApp->installEventFilter(this);
    }
    ~LocalEventMonitor() override { stop(); }
    LocalEventMonitor(const LocalEventMonitor&) = delete;
    LocalEventMonitor& operator=(const LocalEventMonitor&) = delete;

    void stop() {
        if (auto* app = QCoreApplication::instance())
            app->removeEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        bool watchedType = false;
        switch (event->type()) {
        case QEvent::KeyPress:
        case QEvent::ShortcutOverride:
            watchedType = !isModifierKey(static_cast<QKeyEvent*>(event)->key());
            break;
        case QEvent::MouseButtonRelease: {
            const Qt::MouseButton button = static_cast<QMouseEvent*>(event)->button();
            watchedType = button == Qt::LeftButton || button == Qt::RightButton;
            break;
        }
        default:
            break;
        }
        // An event reaches the native window first and then its widget: decide once, at the
        // widget.
        if (!watchedType || !qobject_cast<QWidget*>(watched))
            return false;
        if (!field_)
            return true;
        if (event->type() == QEvent::ShortcutOverride) {
            // Taken here so that no shortcut of the application fires; the key press that
            // follows comes to the field.
            event->accept();
            return true;
        }
        return field_->handleEvent(watched, event);
    }

private:
    QPointer<RecorderField> field_;
};

RecorderField::Environment RecorderField::Environment::current() {
    static const bool sandboxed = qEnvironmentVariableIsSet("APP_SANDBOX_CONTAINER_ID");
    Environment environment;
    const QOperatingSystemVersion os = QOperatingSystemVersion::current();
    if (os.type() == QOperatingSystemVersion::MacOS)
        environment.macOSVersion = QVersionNumber(os.majorVersion(), os.minorVersion());
    environment.sandboxed = sandboxed;
    environment.beep = [] { QApplication::beep(); };
    return environment;
}

RecorderField::RecorderField(const Name& name, OnChange onChange, QWidget* parent)
    : QLineEdit(parent), shortcutName_(name), onChange_(std::move(onChange)),
      environment_(Environment::current()) {
    setPlaceholderText(localizedString(strings::recordShortcut));
    setAlignment(Qt::AlignCenter);
    setFrame(false);
    setClearButtonEnabled(true);
    setContextMenuPolicy(Qt::NoContextMenu);
    setDragEnabled(false);
    setAcceptDrops(false);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setMinimumWidth(minimumWidth);
    setFocusPolicy(Qt::ClickFocus);
    QPalette clear = palette();
    clear.setColor(QPalette::Base, Qt::transparent);
    setPalette(clear);

    connect(this, &QLineEdit::textEdited, this, [this](const QString& text) {
        if (text.isEmpty())
            textCleared();
    });

    refreshText();

    shortcutsNameChangeObserver_ = std::make_unique<support::Observation>(
        support::NotificationCenter::defaultCenter().addObserver(
            QString::fromLatin1(shortcutByNameDidChange),
            [this](const support::Notification& notification) {
                const QVariant changed = notification.userInfo.value(QStringLiteral("name"));
                if (changed.canConvert<Name>() &&
                    changed.value<Name>().rawValue() == shortcutName_.rawValue())
                    refreshText();
            }));
}

RecorderField::~RecorderField() {
    shortcutsNameChangeObserver_.reset();
    endRecording();
}

void RecorderField::setShortcutName(const Name& name) {
    const bool differs = name.rawValue() != shortcutName_.rawValue();
    shortcutName_ = name;
    if (!differs)
        return;
    refreshText();
    // Older macOS releases keep editing the old name otherwise.
    if (environment_.macOSVersion && environment_.macOSVersion->majorVersion() < 12)
        QTimer::singleShot(0, this, [this] { clearWindowFirstResponder(); });
}

void RecorderField::setEnvironment(Environment environment) {
    environment_ = std::move(environment);
}

QSize RecorderField::sizeHint() const {
    return {minimumWidth, std::max(fieldHeight, QLineEdit::sizeHint().height())};
}

void RecorderField::refreshText() {
    const std::optional<Shortcut> current = shortcut(shortcutName_);
    setText(current ? current->displayName() : QString());
    updateClearButton();
}

void RecorderField::updateClearButton() {
    // Qt shows the clear button exactly while there is text, which is the rule here.
    update();
}

// --- Focus ---------------------------------------------------------------------------------

void RecorderField::preventFocus() {
    canBecomeKey_ = false;
    setFocusPolicy(Qt::ClickFocus);
    QTimer::singleShot(0, this, [this] {
        canBecomeKey_ = true;
        setFocusPolicy(Qt::StrongFocus);
    });
}

void RecorderField::showEvent(QShowEvent* event) {
    QLineEdit::showEvent(event);
    if (!shownOnce_) {
        // Moved into a window.
        shownOnce_ = true;
        preventFocus();
    }
}

void RecorderField::hideEvent(QHideEvent* event) {
    QLineEdit::hideEvent(event);
    endRecording();
}

void RecorderField::changeEvent(QEvent* event) {
    QLineEdit::changeEvent(event);
    if (event->type() == QEvent::ParentChange) {
        shownOnce_ = false;
        endRecording();
    }
}

bool RecorderField::event(QEvent* event) {
    // A window passes its activation on to its widgets before it hands out the focus.
    if (event->type() == QEvent::WindowActivate) {
        preventFocus();
    } else if (event->type() == QEvent::WindowDeactivate) {
        endRecording();
        clearWindowFirstResponder();
    }
    return QLineEdit::event(event);
}

void RecorderField::focusInEvent(QFocusEvent* event) {
    QLineEdit::focusInEvent(event);
    const bool asked = focusRequested_;
    focusRequested_ = false;
    if (!canBecomeKey_ && event->reason() == Qt::ActiveWindowFocusReason && !asked) {
        // The window handing its focus back as it becomes active: not a request to record.
        QTimer::singleShot(0, this, [this] {
            if (!isRecording())
                clearWindowFirstResponder();
        });
        return;
    }
    startRecording();
}

void RecorderField::focusOutEvent(QFocusEvent* event) {
    QLineEdit::focusOutEvent(event);
    endRecording();
}

void RecorderField::clearWindowFirstResponder() {
    if (hasFocus() || (window() && window()->focusWidget() == this))
        clearFocus();
}

void RecorderField::makeFirstResponder() {
    // Asked for on purpose: if the window only becomes active again later (after an alert),
    // the focus it then hands back starts recording.
    focusRequested_ = true;
    if (QWidget* w = window())
        w->activateWindow();
    setFocus(Qt::OtherFocusReason);
}

// --- Recording -----------------------------------------------------------------------------

void RecorderField::startRecording() {
    if (isRecording() || !isVisible())
        return;
    setPlaceholderText(localizedString(strings::pressShortcut));
    updateClearButton();
    setRecorderIsActive(true);
    postActiveStatus(true);
    eventMonitor_ = std::make_unique<LocalEventMonitor>(this);
    // Chords that other programs (or the desktop) hold would otherwise go to them and never
    // reach the recorder; with the keyboard taken they come here, and the system check can
    // warn about them.
    if (QWindow* handle = window()->windowHandle())
        keyboardGrabbed_ = handle->setKeyboardGrabEnabled(true);
}

void RecorderField::endRecording() {
    if (!isRecording())
        return;
    // Stopped at once, released later: this may run inside the monitor's own callback.
    eventMonitor_->stop();
    eventMonitor_.release()->deleteLater();
    if (QWindow* handle = window()->windowHandle(); handle && keyboardGrabbed_)
        handle->setKeyboardGrabEnabled(false);
    keyboardGrabbed_ = false;
    setPlaceholderText(localizedString(strings::recordShortcut));
    updateClearButton();
    setRecorderIsActive(false);
    postActiveStatus(false);
}

void RecorderField::textCleared() {
    if (text().isEmpty()) {
        setShortcut(std::nullopt, shortcutName_);
        if (onChange_)
            onChange_(std::nullopt);
    }
    updateClearButton();
    if (text().isEmpty())
        makeFirstResponder();
}

void RecorderField::pressClearButton() {
    clear();
    textCleared();
}

bool RecorderField::handleEvent(QObject* receiver, QEvent* event) {
    if (event->type() == QEvent::MouseButtonRelease) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        const QPointF point = mapFromGlobal(mouse->globalPosition());
        if (!QRectF(rect()).adjusted(-3, -3, 3, 3).contains(point)) {
            clearWindowFirstResponder();
            return false;
        }
        // The clear button inside the field takes its click.
        auto* widget = static_cast<QWidget*>(receiver);
        return !(widget != this && isAncestorOf(widget));
    }
    if (event->type() != QEvent::KeyPress)
        return true;
    return handleKeyDown(static_cast<QKeyEvent*>(event));
}

bool RecorderField::handleKeyDown(QKeyEvent* event) {
    const EventFlags flags = platform::eventFlagsFromQt(event->modifiers());
    const auto keyCode =
        platform::virtualKeyFromQt(event->key(), event->modifiers(), event->nativeScanCode());
    const int qtKey = event->key();

    if (hasNoModifiers(flags) && qtKey == Qt::Key_Tab) {
        // Passed on: the focus moves to the next control as usual, which ends recording.
        return false;
    }
    if (hasNoModifiers(flags) && keyCode == escapeKeyCode) {
        clearWindowFirstResponder();
        return true;
    }
    if (hasNoModifiers(flags) && (qtKey == Qt::Key_Backspace || qtKey == Qt::Key_Delete)) {
        pressClearButton();
        return true;
    }
    if (hasNoControlOptionCommand(flags) && !isFunctionKey(qtKey)) {
        if (environment_.beep)
            environment_.beep();
        return true;
    }

    const std::optional<Shortcut> shortcut = Shortcut::fromEvent(*event);
    if (!shortcut) {
        // A key without a virtual key code cannot be a shortcut.
        if (environment_.beep)
            environment_.beep();
        return true;
    }

    if (QAction* item = menuItemUsing(*shortcut)) {
        clearWindowFirstResponder();
        showAlert(localizedString(strings::keyboardShortcutUsedByMenuItem).arg(menuItemTitle(item)),
                  {}, {localizedString(strings::ok)});
        makeFirstResponder();
        return true;
    }

    if (environment_.macOSVersion && environment_.macOSVersion->majorVersion() == 15 &&
        environment_.macOSVersion->minorVersion() <= 1 && environment_.sandboxed &&
        (fromCarbon(shortcut->carbonModifiers) & 0x9D0000ULL) == eventflags::option) {
        clearWindowFirstResponder();
        showAlert(localizedString(strings::keyboardShortcutDisallowed), {},
                  {localizedString(strings::ok)});
        makeFirstResponder();
        return true;
    }

    const bool plainF12 = keyCode == f12KeyCode && hasNoModifiers(flags);
    if (!plainF12 && HotKeyRegistry::systemHotKeys().contains(*shortcut)) {
        clearWindowFirstResponder();
        const int response =
            showAlert(localizedString(strings::keyboardShortcutUsedBySystem),
                      localizedString(strings::keyboardShortcutsCanBeChanged),
                      {localizedString(strings::ok), localizedString(strings::forceUseShortcut)});
        makeFirstResponder();
        if (response != secondButtonResponse)
            return true;
    }

    setText(shortcut->displayName());
    updateClearButton();
    setShortcut(*shortcut, shortcutName_);
    if (onChange_)
        onChange_(*shortcut);
    clearWindowFirstResponder();
    // Stored, but the desktop refused it (another program holds it): say so now, not only in
    // the settings row.
    if (const std::optional<QString> problem = registrationError(shortcutName_))
        showAlert(*problem, {}, {localizedString(strings::ok)});
    return true;
}

int RecorderField::showAlert(const QString& message, const QString& informativeText,
                             const QStringList& buttonTitles) {
    // A sheet on the control's window, answered before the recorder goes on; without a window
    // of its own, a dialog for the whole application.
    QWidget* owner = window() != this ? window() : nullptr;
    QMessageBox alert(QMessageBox::NoIcon, QCoreApplication::applicationName(), message,
                      QMessageBox::NoButton, owner);
    alert.setInformativeText(informativeText);
    alert.setWindowModality(owner ? Qt::WindowModal : Qt::ApplicationModal);
    QList<QAbstractButton*> buttons;
    for (const QString& title : buttonTitles) {
        buttons.append(alert.addButton(title, buttons.isEmpty() ? QMessageBox::AcceptRole
                                                                : QMessageBox::ActionRole));
    }
    if (!buttons.isEmpty()) {
        alert.setDefaultButton(static_cast<QPushButton*>(buttons.first()));
        alert.setEscapeButton(buttons.first());
    }
    alert.exec();
    const qsizetype index = buttons.indexOf(alert.clickedButton());
    return firstButtonResponse + static_cast<int>(std::max<qsizetype>(index, 0));
}

void RecorderField::paintEvent(QPaintEvent* event) {
    {
        // The rounded look of a search field, with a focus ring while it records.
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF frame = QRectF(rect()).adjusted(1, 1, -1, -1);
        QPainterPath shape;
        shape.addRoundedRect(frame, 7, 7);
        p.fillPath(shape, QApplication::palette().color(QPalette::Base));
        QColor edge = QApplication::palette().color(QPalette::WindowText);
        edge.setAlphaF(0.18F);
        p.setPen(QPen(edge, 1));
        p.drawPath(shape);
        if (isRecording()) {
            QColor ring = QApplication::palette().color(QPalette::Highlight);
            ring.setAlphaF(0.7F);
            p.setPen(QPen(ring, 2));
            p.drawPath(shape);
        }
    }
    if (!isRecording()) {
        QLineEdit::paintEvent(event);
        return;
    }
    // While recording the field shows the shortcut (or the prompt to press one) without a
    // caret: it takes key combinations, not text.
    QPainter p(this);
    const QRectF area = QRectF(rect()).adjusted(8, 0, -8, 0);
    const bool empty = text().isEmpty();
    QColor ink = palette().color(empty ? QPalette::PlaceholderText : QPalette::Text);
    p.setPen(ink);
    p.setFont(font());
    const QString shown =
        fontMetrics().elidedText(empty ? placeholderText() : text(), Qt::ElideRight,
                                 static_cast<int>(area.width()) - 2 * clearButtonSpace);
    p.drawText(area, Qt::AlignCenter, shown);
}

} // namespace Hotkeys
