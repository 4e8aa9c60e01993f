#include "app/AppDelegate.h"

#include "app/HotkeyManager.h"
#include "app/MenuBarView.h"
#include "app/PanelPlacement.h"
#include "app/Popover.h"
#include "hotkeys/Hotkeys.h"
#include "service/AnthropicService.h"
#include "service/AppSettings.h"
#include "support/Background.h"
#include "support/Log.h"
#include "text/BoundedAnchor.h"
#include "text/ExchangeTurn.h"
#include "text/TextSelectionService.h"
#include "ui/ActionPickerView.h"
#include "ui/FloatingPanel.h"
#include "ui/Icons.h"
#include "ui/SettingsView.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QThread>
#include <QVBoxLayout>

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
        (void)desktop_.accessibility->isProcessTrustedWithPrompt();
    }

    setupStatusItem();

    floatingPanel_ = std::make_unique<ui::FloatingPanel>();

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

void AppDelegate::checkInstallLocation() {
    if (!shouldWarnAboutInstallLocation(options_.programPath))
        return;
    // Queued: the alert appears only once the launch sequence has finished.
    QMetaObject::invokeMethod(this, &AppDelegate::showInstallAlert, Qt::QueuedConnection);
}

void AppDelegate::showInstallAlert() {
    QMessageBox alert(QMessageBox::Warning, QStringLiteral("Install Mendwise"),
                      QStringLiteral("Install Mendwise"));
    alert.setInformativeText(QStringLiteral(
        "For accessibility permissions to work correctly, please drag Mendwise to your "
        "Applications folder and run it from there."));
    auto* open =
        alert.addButton(QStringLiteral("Open Applications Folder"), QMessageBox::AcceptRole);
    alert.addButton(QStringLiteral("Continue Anyway"), QMessageBox::RejectRole);
    alert.setDefaultButton(open);
    alert.exec();
    if (alert.clickedButton() != open)
        return;
    desktop_.workspace->openFolder(QStringLiteral("/Applications"));
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
    // Shown even without a tray: the icon appears by itself if a tray starts later.
    statusItem_->show();
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        support::log(QStringLiteral(
            "[AppDelegate] ⚠️ No system tray on this desktop: Mendwise keeps working through "
            "its shortcut (Ctrl+Shift+J); the icon appears when a tray starts. Start it with "
            "--settings to open the settings window."));
    }

    const QPointer<AppDelegate> self(this);
    auto* content = new MenuBarView(MenuBarView::Commands{[self] {
                                                              if (self)
                                                                  self->openSettings();
                                                          },
                                                          [] { QApplication::quit(); }});
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
        layout->addWidget(new ui::SettingsView(
            settings_, *desktop_.workspace, *desktop_.accessibility, Hotkeys::triggerMendwise()));
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
    auto onFixTypos = [self, sourceApp](ui::ActionPickerView::Completion done) {
        if (!self) {
            done(nullptr);
            return;
        }
        self->runAction(sourceApp, std::nullopt, std::move(done));
    };
    auto onCustomPrompt = [self, sourceApp](const QString& prompt,
                                            ui::ActionPickerView::Completion done) {
        if (!self) {
            done(nullptr);
            return;
        }
        self->runAction(sourceApp, prompt, std::move(done));
    };
    auto onDismiss = [self] {
        if (self && self->floatingPanel_)
            self->floatingPanel_->hide([] {});
    };
    floatingPanel_->setContentView(new ui::ActionPickerView(
        std::move(onFixTypos), std::move(onCustomPrompt), std::move(onDismiss)));
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
    Q_EMIT pickerShown();
}

void AppDelegate::runAction(const std::optional<platform::RunningApplication>& sourceApp,
                            const std::optional<QString>& customPrompt,
                            std::function<void(std::exception_ptr)> completion) {
    // The synthetic copy and paste must reach the user's application, not the panel.
    if (floatingPanel_)
        floatingPanel_->releaseKeyboard();
    support::runInBackground<void>(
        this,
        [textService = textService_, aiService = aiService_, settings = &settings_, sourceApp,
         customPrompt](const std::stop_token& stop) {
            processSelection(*textService, *aiService, *settings, sourceApp, customPrompt, stop);
        },
        [completion = std::move(completion)](const support::Outcome<void>& outcome) {
            completion(outcome.error);
        });
}

void AppDelegate::processSelection(TextSelectionService& textService,
                                   const AnthropicService& aiService, const AppSettings& settings,
                                   const std::optional<platform::RunningApplication>& sourceApp,
                                   const std::optional<QString>& customPrompt,
                                   const std::stop_token& stop) {
    const ExchangeTurn turn(stop);
    const QString text = textService.copySelectedText(sourceApp, stop);
    if (text.isEmpty())
        throw MendwiseError(MendwiseError::Case::noTextSelected);
    const QString instruction = customPrompt ? *customPrompt : settings.systemPrompt();
    const QString answer = aiService.rewrite(text, instruction, stop);
    textService.pasteText(answer, stop);
}

} // namespace app
