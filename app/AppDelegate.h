#pragma once

#include "app/Desktop.h"
#include "support/Error.h"
#include "support/NotificationCenter.h"

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

class AnthropicService;
class AppSettings;
class HotkeyManager;
class QSystemTrayIcon;
class QWidget;
class TextSelectionService;

namespace ui {
class FloatingPanel;
}

namespace app {

class Popover;

// The one long-lived controller of the process. At launch it checks where the program runs
// from, checks (and if needed requests) accessibility trust, puts its icon into the tray with a
// popover behind it, creates the floating panel and binds the trigger shortcut. Each release of
// the shortcut shows the action picker below the user's selection; the chosen action reads the
// selection, has it rewritten and pastes the answer back. Main thread only, except
// processSelection, which runs on the background executor.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    class MendwiseError : public support::Error {
    public:
        enum class Case { noTextSelected };
        explicit MendwiseError(Case c = Case::noTextSelected) : case_(c) {}
        [[nodiscard]] Case errorCase() const { return case_; }
        [[nodiscard]] QString errorDescription() const override;

    private:
        Case case_;
    };

    struct Options {
        // The path of the running program, for the install-location check.
        QString programPath;
        // The Messages API endpoint.
        QUrl endpoint;
    };

    AppDelegate(Desktop desktop, AppSettings& settings, Options options, QObject* parent = nullptr);
    ~AppDelegate() override;

    // The launch sequence; call once, with the event loop about to run.
    void applicationDidFinishLaunching();
    // Releases the trigger shortcut; connected to the application's aboutToQuit.
    void applicationWillTerminate();

    void togglePopover();
    void openSettings();
    // Acts as on a release of the trigger shortcut (`mendwise --trigger`).
    void trigger();
    void showPicker(const std::optional<platform::RunningApplication>& sourceApp);

    // Where the panel holds the keyboard focus (Wayland), a synthetic keystroke must wait for
    // the focus to be back with the user's application: the first takes the panel aside and
    // returns once Mendwise has lost the focus (bounded), the second brings the panel back.
    // Called from a background thread; the delegate may be gone by then.
    static void stepAsideForKeystroke(const QPointer<AppDelegate>& self);
    static void comeBackAfterKeystroke(const QPointer<AppDelegate>& self);

    // Called with true once the selection is read and with false before the answer is pasted:
    // in between, keys the user types should reach no application.
    using KeyboardHold = std::function<void(bool hold)>;

    // Reads the selection of `sourceApp`, has it rewritten with `customPrompt` (or the stored
    // system prompt, read now) and pastes the answer. Blocks; runs on a background thread.
    static void processSelection(TextSelectionService& textService,
                                 const AnthropicService& aiService, const AppSettings& settings,
                                 const std::optional<platform::RunningApplication>& sourceApp,
                                 const std::optional<QString>& customPrompt,
                                 const std::stop_token& stop,
                                 const KeyboardHold& holdKeyboard = nullptr);

    // Whether a program at `path` should warn that it is not installed where permissions last.
    static bool shouldWarnAboutInstallLocation(const QString& path);
    // Whether `path` lies where Linux programs are installed (/usr, /usr/local, /opt,
    // ~/.local) or in a build tree: such a program is never warned about.
    static bool isInstalledOrBuilt(const QString& path, const QString& home);
    void checkInstallLocation();

    [[nodiscard]] ui::FloatingPanel* floatingPanel() const { return floatingPanel_.get(); }
    [[nodiscard]] QWidget* settingsWindow() const { return settingsWindow_.get(); }
    [[nodiscard]] QSystemTrayIcon* statusItem() const { return statusItem_.get(); }
    [[nodiscard]] const QString& accessibilityNotice() const { return accessibilityNotice_; }
    // Why keystrokes cannot reach other applications (empty when they can), and how to ask
    // again; shown in the settings window.
    void setKeystrokeProblem(const QString& text, std::function<void()> retry);

Q_SIGNALS:
    // After showPicker has put a fresh picker into the panel and shown it.
    void pickerShown();

private:
    void setupStatusItem();
    void setupHotkey();
    void showInstallAlert();
    void runAction(const std::optional<platform::RunningApplication>& sourceApp,
                   const std::optional<QString>& customPrompt,
                   std::function<void(std::exception_ptr)> completion);

    std::unique_ptr<QSystemTrayIcon> statusItem_;
    std::unique_ptr<Popover> popover_;
    std::unique_ptr<HotkeyManager> hotkeyManager_;
    std::unique_ptr<ui::FloatingPanel> floatingPanel_;
    std::unique_ptr<QWidget> settingsWindow_;
    // Shared with the background tasks of the trigger flow, which may outlive a picker.
    std::shared_ptr<TextSelectionService> textService_;
    std::shared_ptr<const AnthropicService> aiService_;
    AppSettings& settings_;

    Desktop desktop_;
    Options options_;
    support::Observation iconVisibilityObserver_;
    // Said once at start and in the settings window when Mendwise switched accessibility on.
    QString accessibilityNotice_;
    QString keystrokeProblem_;
    std::function<void()> keystrokeRetry_;
};

} // namespace app
