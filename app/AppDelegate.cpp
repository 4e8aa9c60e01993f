#include "app/AppDelegate.h"

#include "app/HotkeyManager.h"
#include "app/MenuBarView.h"
#include "app/PanelPlacement.h"
#include "app/Popover.h"
#include "hotkeys/Hotkeys.h"
#include "platform/freedesktop/GuiThread.h"
#include "service/AnthropicService.h"
#include "service/AppSettings.h"
#include "support/Background.h"
#include "support/Log.h"
#include "support/NotificationCenter.h"
#include "text/BoundedAnchor.h"
#include "text/ExchangeTurn.h"
#include "text/TextSelectionService.h"
#include "ui/ActionPickerView.h"
#include "ui/DesktopCommands.h"
#include "ui/FloatingPanel.h"
#include "ui/Icons.h"
#include "ui/NativeWindow.h"
#include "ui/SettingsView.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QThread>
#include <QVBoxLayout>
#include <thread>

namespace app {

namespace {

QString nameOrNil(const std::optional<platform::RunningApplication>& app) {
    return app && app->localizedName ? *app->localizedName : QStringLiteral("nil");
}

} // namespace

QString AppDelegate::MendwiseError::errorDescription() const {
    return QStringLiteral("No text selected");
}

AppDelegate::AppDelegate(Desktop desktop, AppSettings& settings, Options options, QObject* parent)
    : QObject(parent),
      textService_(std::make_shared<TextSelectionService>(
          *desktop.accessibility, *desktop.pasteboard, *desktop.keyboardEvents, *desktop.workspace,
          desktop.replaceThroughAccessibility ? TextSelectionService::PasteRoad::accessibilityFirst
                                              : TextSelectionService::PasteRoad::keystroke)),
      aiService_(std::make_shared<const AnthropicService>(options.endpoint, settings)),
      settings_(settings), desktop_(std::move(desktop)), options_(std::move(options)) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    checkInstallLocation();

    if (desktop_.accessibility->isProcessTrusted()) {
        support::log(QStringLiteral("[AppDelegate] ✅ Accessibility granted"));
    } else {
        support::log(QStringLiteral("[AppDelegate] ⚠️ Requesting Accessibility permission…"));
        // On Linux the "prompt" switches the desktop's accessibility support on: applications
        // that started before then do not expose their text until restarted, which the user
        // must learn somewhere they look.
        if (desktop_.accessibility->isProcessTrustedWithPrompt())
            accessibilityNotice_ = QStringLiteral(
                "Mendwise switched on your desktop's accessibility support. Restart applications "
                "started before Mendwise so it can read their selected text.");
    }

    setupStatusItem();
    if (!accessibilityNotice_.isEmpty())
        ui::desktop::notify(QStringLiteral("Accessibility switched on"), accessibilityNotice_);

    floatingPanel_ = std::make_unique<ui::FloatingPanel>();
    // The user clicked elsewhere while choosing: the picker goes, and with it the grab.
    connect(floatingPanel_.get(), &ui::FloatingPanel::dismissRequested, this, [this] {
        const auto* picker = qobject_cast<ui::ActionPickerView*>(floatingPanel_->contentView());
        if (picker && picker->phase().kind() != ui::ActionPickerView::Phase::Kind::loading)
            floatingPanel_->hide([] {});
    });
    // Without the keyboard, Return would reach the user's application: say so at once.
    connect(floatingPanel_.get(), &ui::FloatingPanel::keyboardGrabFailed, this, [this] {
        if (auto* picker = qobject_cast<ui::ActionPickerView*>(floatingPanel_->contentView()))
            picker->showFailure(QStringLiteral("Another program holds the keyboard"));
    });

    setupHotkey();
}

void AppDelegate::applicationWillTerminate() {
    if (!hotkeyManager_)
        return;
    Hotkeys::disable({Hotkeys::triggerMendwise()});
    hotkeyManager_->callback = nullptr;
}

// --- Install location -------------------------------------------------------------------------

bool AppDelegate::shouldWarnAboutInstallLocation(const QString& path) {
    const bool inApplications = path.startsWith(QLatin1String("/Applications")) ||
                                path.contains(QLatin1String("/Applications/"));
    const bool inUserApplications =
        path.contains(QLatin1String("/Users/")) && path.contains(QLatin1String("/Applications/"));
    if (inApplications || inUserApplications)
        return false;
    for (const char* place : {"/Volumes/", "/Downloads/", "/private/var/"}) {
        if (path.contains(QLatin1String(place)))
            return true;
    }
    return false;
}

bool AppDelegate::isInstalledOrBuilt(const QString& path, const QString& home) {
    QStringList places{QStringLiteral("/usr/"), QStringLiteral("/opt/")};
    if (!home.isEmpty())
        places << QDir(home).filePath(QStringLiteral(".local")) + u'/';
    for (const QString& place : places) {
        if (path.startsWith(place))
            return true;
    }
    // A build tree: CMake leaves its cache at the top.
    QDir dir = QFileInfo(path).absoluteDir();
    do {
        if (dir.exists(QStringLiteral("CMakeCache.txt")))
            return true;
    } while (dir.cdUp());
    return false;
}

void AppDelegate::checkInstallLocation() {
    if (isInstalledOrBuilt(options_.programPath, QDir::homePath()) ||
        !shouldWarnAboutInstallLocation(options_.programPath))
        return;
    // Queued: the alert appears only once the launch sequence has finished.
    QMetaObject::invokeMethod(this, &AppDelegate::showInstallAlert, Qt::QueuedConnection);
}

// On Linux there is no Applications folder: the alert names the folder the program runs from
// and offers to show it, so the user can move the program. The program quits only once that
// folder is really shown.
void AppDelegate::showInstallAlert() {
    QMessageBox alert(QMessageBox::Warning, QStringLiteral("Install Mendwise"),
                      QStringLiteral("Install Mendwise"));
    const QString folder = QFileInfo(options_.programPath).absolutePath();
    alert.setInformativeText(
        QStringLiteral("Mendwise is running from %1, a place that may be cleaned up or "
                       "unmounted. Install it (for example under ~/.local or /opt) and run it from "
                       "there, so that starting at login keeps working.")
            .arg(folder));
    auto* open = alert.addButton(QStringLiteral("Show in Folder"), QMessageBox::AcceptRole);
    alert.addButton(QStringLiteral("Continue Anyway"), QMessageBox::RejectRole);
    alert.setDefaultButton(open);
    alert.exec();
    if (alert.clickedButton() != open)
        return;
    if (desktop_.workspace->openFolder(folder))
        QApplication::quit();
}

// --- Tray icon and popover --------------------------------------------------------------------

void AppDelegate::setupStatusItem() {
    statusItem_ = std::make_unique<QSystemTrayIcon>();
    statusItem_->setIcon(ui::symbolIcon(QStringLiteral("text.badge.checkmark"),
                                        QApplication::palette().windowText().color()));
    statusItem_->setToolTip(QStringLiteral("Mendwise"));
    connect(statusItem_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context)
                    togglePopover();
            });
    // Shown even without a tray: the icon appears by itself if a tray starts later. The
    // "Show Menu Bar Icon" switch hides it and brings it back at once.
    statusItem_->setVisible(settings_.showMenuBarIcon());
    iconVisibilityObserver_ = support::NotificationCenter::defaultCenter().addObserver(
        QStringLiteral("menuBarIconVisibilityChanged"),
        [self = QPointer<AppDelegate>(this)](const support::Notification&) {
            if (!self || !self->statusItem_)
                return;
            const bool visible = self->settings_.showMenuBarIcon();
            self->statusItem_->setVisible(visible);
            if (!visible && self->popover_)
                self->popover_->close();
        });
    if (settings_.showMenuBarIcon() && !QSystemTrayIcon::isSystemTrayAvailable()) {
        support::log(QStringLiteral(
            "[AppDelegate] ⚠️ No system tray on this desktop: Mendwise keeps working through "
            "its shortcut (Ctrl+Shift+J); the icon appears when a tray starts. Start it with "
            "--settings to open the settings window."));
    }

    const QPointer<AppDelegate> self(this);
    auto* content = new MenuBarView(MenuBarView::Commands{
        [self] {
            if (self)
                self->openSettings();
        },
        [] { QApplication::quit(); },
        [] { return Hotkeys::registrationError(Hotkeys::triggerMendwise()); }});
    popover_ = std::make_unique<Popover>(content);
}

void AppDelegate::togglePopover() {
    if (!statusItem_ || !popover_)
        return;
    if (popover_->isVisible()) {
        popover_->close();
        return;
    }
    if (popover_->justClosed())
        return; // this very click closed it
    popover_->showBelow(statusItem_->geometry());
}

// --- Settings window --------------------------------------------------------------------------

void AppDelegate::openSettings() {
    if (popover_)
        popover_->close();
    if (!settingsWindow_) {
        settingsWindow_ = std::make_unique<QWidget>();
        settingsWindow_->setWindowTitle(QStringLiteral("Mendwise"));
        settingsWindow_->setWindowFlags(Qt::Window | Qt::WindowTitleHint |
                                        Qt::WindowCloseButtonHint);
        auto* layout = new QVBoxLayout(settingsWindow_.get());
        layout->setContentsMargins(0, 0, 0, 0);
        auto* view = new ui::SettingsView(settings_, *desktop_.workspace, *desktop_.accessibility,
                                          Hotkeys::triggerMendwise());
        view->generalTab()->setAccessibilityNotice(accessibilityNotice_);
        view->generalTab()->setKeystrokeProblem(keystrokeProblem_, keystrokeRetry_);
        layout->addWidget(view);
        settingsWindow_->setFixedSize(450, 340);
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            QRect frame(QPoint(), settingsWindow_->size());
            frame.moveCenter(screen->availableGeometry().center());
            settingsWindow_->move(frame.topLeft());
        }
    }
    settingsWindow_->show();
    settingsWindow_->raise();
    settingsWindow_->activateWindow();
}

void AppDelegate::setKeystrokeProblem(const QString& text, std::function<void()> retry) {
    keystrokeProblem_ = text;
    keystrokeRetry_ = std::move(retry);
    if (settingsWindow_) {
        if (auto* view = settingsWindow_->findChild<ui::SettingsView*>())
            view->generalTab()->setKeystrokeProblem(keystrokeProblem_, keystrokeRetry_);
    }
}

// --- Trigger ----------------------------------------------------------------------------------

void AppDelegate::setupHotkey() {
    hotkeyManager_ = std::make_unique<HotkeyManager>(desktop_.workspace);
    const QPointer<AppDelegate> self(this);
    hotkeyManager_->registerCallback(
        [self](const std::optional<platform::RunningApplication>& app) {
            if (self)
                self->showPicker(app);
        });
}

void AppDelegate::trigger() {
    if (hotkeyManager_)
        hotkeyManager_->handleHotkey();
}

void AppDelegate::showPicker(const std::optional<platform::RunningApplication>& sourceApp) {
    support::log(QStringLiteral("[AppDelegate] 🚀 showPicker — ") + nameOrNil(sourceApp));
    if (!floatingPanel_)
        return;

    const QPointer<AppDelegate> self(this);
    // The callbacks are made in place: GCC 12 takes the moved-from copies of named ones for
    // uninitialized when it optimizes.
    floatingPanel_->setContentView(new ui::ActionPickerView(
        [self, sourceApp](ui::ActionPickerView::Completion done) {
            if (!self) {
                done(nullptr);
                return;
            }
            self->runAction(sourceApp, std::nullopt, std::move(done));
        },
        [self, sourceApp](const QString& prompt, ui::ActionPickerView::Completion done) {
            if (!self) {
                done(nullptr);
                return;
            }
            self->runAction(sourceApp, prompt, std::move(done));
        },
        [self] {
            if (self && self->floatingPanel_)
                self->floatingPanel_->hide([] {});
        }));
    floatingPanel_->resize(static_cast<int>(placement::panelWidth),
                           static_cast<int>(placement::panelHeight));

    // A picker already on screen holds the keyboard, and while another client holds it GTK
    // applications report no focused element: let go first, so the new selection is found.
    // The application takes the focus back only once it has handled that, which on a busy
    // desktop may come after the first question; a few more are worth a short wait.
    const bool wasHoldingKeyboard = floatingPanel_->hasKeyboardGrab();
    floatingPanel_->releaseKeyboard();
    // An application slow to answer costs at most 100 ms here; the panel then stands at the
    // mouse.
    const auto anchorDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    std::optional<platform::Point> anchor;
    for (int attempt = 0; sourceApp && !anchor && attempt < (wasHoldingKeyboard ? 6 : 1);
         ++attempt) {
        if (attempt > 0)
            QThread::msleep(15);
        anchor = selectionAnchorBefore(anchorDeadline, sourceApp->processIdentifier,
                                       desktop_.accessibility, desktop_.screens);
    }
    const platform::Point origin = placement::panelOrigin(anchor, *desktop_.screens);
    floatingPanel_->show(
        platform::Rect{origin.x, origin.y, placement::panelWidth, placement::panelHeight});
    // Auto-Fix Mode: the trigger itself chooses the fix, so the panel opens working.
    if (settings_.autoFixOnTrigger()) {
        if (auto* picker = qobject_cast<ui::ActionPickerView*>(floatingPanel_->contentView()))
            picker->select(0);
    }
    Q_EMIT pickerShown();
}

void AppDelegate::stepAsideForKeystroke(const QPointer<AppDelegate>& self) {
    using platform::freedesktop::callOnGuiThread;
    using Clock = std::chrono::steady_clock;
    constexpr auto guiWait = std::chrono::milliseconds(500);
    constexpr auto poll = std::chrono::milliseconds(10);
    // The trigger's modifiers may still be down; where the desktop merges keyboards they would
    // join the chord. Only a focused window learns the modifiers, so this asks before going.
    const auto modifiersHeld = [] {
        constexpr auto held =
            Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier;
        return (QGuiApplication::queryKeyboardModifiers() & held) != 0;
    };
    for (const auto deadline = Clock::now() + std::chrono::milliseconds(250);
         Clock::now() < deadline && callOnGuiThread<bool>(modifiersHeld, guiWait).value_or(false);)
        std::this_thread::sleep_for(poll);

    const auto aside = callOnGuiThread<bool>(
        [self] {
            if (!self || !self->floatingPanel_ || !self->floatingPanel_->isVisible())
                return false;
            self->floatingPanel_->stepAside();
            return true;
        },
        guiWait);
    if (!aside.value_or(false))
        return;
    // The compositor hands the focus to the window behind once the panel is gone.
    const auto focused = [] { return QGuiApplication::focusWindow() != nullptr; };
    for (const auto deadline = Clock::now() + std::chrono::milliseconds(300);
         Clock::now() < deadline && callOnGuiThread<bool>(focused, guiWait).value_or(false);)
        std::this_thread::sleep_for(poll);
}

void AppDelegate::comeBackAfterKeystroke(const QPointer<AppDelegate>& self) {
    // The application reads its key while it still has the focus.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    platform::freedesktop::callOnGuiThread<bool>(
        [self] {
            if (self && self->floatingPanel_)
                self->floatingPanel_->comeBack();
            return true;
        },
        std::chrono::milliseconds(500));
}

void AppDelegate::runAction(const std::optional<platform::RunningApplication>& sourceApp,
                            const std::optional<QString>& customPrompt,
                            std::function<void(std::exception_ptr)> completion) {
    // The synthetic copy and paste must reach the user's application, not the panel; while
    // the request runs, the keys the user types reach nobody.
    if (floatingPanel_)
        floatingPanel_->releaseKeyboard();
    auto block = std::make_shared<std::unique_ptr<ui::native::KeyboardBlock>>();
    KeyboardHold hold = [block](bool on) {
        if (on)
            *block = ui::native::KeyboardBlock::start();
        else
            block->reset();
    };
    const QPointer<AppDelegate> self(this);
    support::runInBackground<void>(
        this,
        [textService = textService_, aiService = aiService_, settings = &settings_, sourceApp,
         customPrompt, hold = std::move(hold)](const std::stop_token& stop) {
            processSelection(*textService, *aiService, *settings, sourceApp, customPrompt, stop,
                             hold);
        },
        [self, completion = std::move(completion)](const support::Outcome<void>& outcome) {
            // The outcome stays on screen for a moment: the panel holds the keyboard again
            // until it hides.
            if (self && self->floatingPanel_ && self->floatingPanel_->isVisible())
                self->floatingPanel_->holdKeyboard();
            completion(outcome.error);
        });
}

void AppDelegate::processSelection(TextSelectionService& textService,
                                   const AnthropicService& aiService, const AppSettings& settings,
                                   const std::optional<platform::RunningApplication>& sourceApp,
                                   const std::optional<QString>& customPrompt,
                                   const std::stop_token& stop, const KeyboardHold& holdKeyboard) {
    const ExchangeTurn turn(stop);
    const QString text = textService.copySelectedText(sourceApp, stop);
    if (text.isEmpty())
        throw MendwiseError(MendwiseError::Case::noTextSelected);
    const QString instruction = customPrompt ? *customPrompt : settings.systemPrompt();
    // Let go on every path, also when the request fails.
    struct Held {
        const KeyboardHold& hold;
        explicit Held(const KeyboardHold& h) : hold(h) {
            if (hold)
                hold(true);
        }
        ~Held() {
            if (hold)
                hold(false);
        }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;
    };
    QString answer;
    {
        const Held held(holdKeyboard);
        answer = aiService.rewrite(text, instruction, stop);
    }
    textService.pasteText(answer, stop);
}

} // namespace app
