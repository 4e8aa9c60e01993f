#pragma once

#include "hotkeys/Hotkeys.h"
#include "support/NotificationCenter.h"
#include "ui/SettingsForm.h"

#include <QWidget>
#include <functional>

class AppSettings;
class QAbstractButton;
class QColor;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;
class QTabBar;

namespace Hotkeys {
class Recorder;
class RecorderField;
} // namespace Hotkeys

namespace platform {
class AccessibilityPort;
class WorkspacePort;
} // namespace platform

namespace ui {

class SettingsIcon;
class ToggleSwitch;

// The model provider's page where API keys are created.
inline constexpr const char* apiKeyConsoleUrl = "https://console.anthropic.com/settings/keys";

// The "General" tab: the three switches, the trigger shortcut, and the accessibility
// permission with its two commands. Every control is bound to the settings both ways.
class GeneralSettingsTab : public FormPage {
    Q_OBJECT
public:
    struct Commands {
        // "Open System Settings": the desktop's accessibility settings; false when there are
        // none, and the tab then explains what to do instead.
        std::function<bool()> openAccessibilitySettings;
        // "Restart App".
        std::function<void()> restartApp;
    };

    // `triggerName`: the shortcut name the recorder of the "Trigger Shortcut" row edits.
    GeneralSettingsTab(AppSettings& settings, platform::AccessibilityPort& accessibility,
                       const Hotkeys::Name& triggerName, Commands commands,
                       QWidget* parent = nullptr);

    // Asks the accessibility port again and shows the answer.
    void refreshPermission();
    // A line under the accessibility row saying what Mendwise changed and what to do about
    // it; empty hides it.
    void setAccessibilityNotice(const QString& notice);
    [[nodiscard]] QString accessibilityNotice() const;
    // A line under the accessibility row while Mendwise may not type into other applications,
    // with an "Allow…" button that runs `retry`; empty text hides both.
    void setKeystrokeProblem(const QString& text, std::function<void()> retry);
    // What the row of the trigger shortcut says about it: empty while the desktop holds it.
    [[nodiscard]] QString shortcutProblem() const;
    [[nodiscard]] Hotkeys::Recorder* recorder() const { return recorder_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    static QLabel* hint(const QColor& color);
    void refresh();
    void refreshShortcutProblem();
    void openAccessibilitySettings();

    AppSettings& settings_;
    platform::AccessibilityPort& accessibility_;
    Commands commands_;
    ToggleSwitch* launchAtLogin_;
    ToggleSwitch* showMenuBarIcon_;
    ToggleSwitch* autoFix_;
    Hotkeys::Recorder* recorder_;
    Hotkeys::Name triggerName_;
    QLabel* shortcutProblem_ = nullptr;
    support::Observation shortcutObserver_;
    QLabel* accessibilityNotice_ = nullptr;
    QLabel* keystrokeProblem_ = nullptr;
    QPushButton* allowKeystrokes_ = nullptr;
    std::function<void()> retryKeystrokes_;
    SettingsIcon* permissionIcon_;
    QWidget* permissionDot_;
    QLabel* permissionText_;
};

// The "AI" tab: the API key (edited here and stored only on "Save"), the model and the
// system prompt.
class AISettingsTab : public FormPage {
    Q_OBJECT
public:
    static constexpr int savedForMs = 1500;

    AISettingsTab(AppSettings& settings, platform::WorkspacePort& workspace,
                  QWidget* parent = nullptr);

    [[nodiscard]] QString apiKeyText() const;
    [[nodiscard]] bool apiKeySaved() const { return apiKeySaved_; }

    // The parts, for tests and pictures.
    [[nodiscard]] QLineEdit* keyField() const { return keyField_; }
    [[nodiscard]] QAbstractButton* eyeButton() const { return eye_; }
    [[nodiscard]] QPushButton* saveButton() const { return save_; }
    [[nodiscard]] QAbstractButton* keyPageLink() const { return keyPage_; }
    [[nodiscard]] QComboBox* modelPicker() const { return model_; }
    [[nodiscard]] QPlainTextEdit* promptEditor() const { return prompt_; }
    [[nodiscard]] QAbstractButton* resetButton() const { return reset_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();
    void saveKey();
    void toggleKeyVisibility();

    AppSettings& settings_;
    platform::WorkspacePort& workspace_;
    bool showingAPIKey_ = false;
    bool apiKeySaved_ = false;
    QLineEdit* keyField_;
    QAbstractButton* eye_;
    QPushButton* save_;
    QAbstractButton* keyPage_;
    QComboBox* model_;
    QPlainTextEdit* prompt_;
    QAbstractButton* reset_;
};

// The content of the settings window: a fixed 450 x 340 tab view with "General" and "AI".
class SettingsView : public QWidget {
    Q_OBJECT
public:
    static constexpr int viewWidth = 450;
    static constexpr int viewHeight = 340;

    // `triggerName`: the trigger shortcut's name, for its recorder. Without commands, the
    // desktop's own are used (see DesktopCommands.h).
    SettingsView(AppSettings& settings, platform::WorkspacePort& workspace,
                 platform::AccessibilityPort& accessibility, const Hotkeys::Name& triggerName,
                 GeneralSettingsTab::Commands commands = {}, QWidget* parent = nullptr);

    // 0 "General", 1 "AI".
    void setCurrentTab(int index);
    [[nodiscard]] int currentTab() const;
    [[nodiscard]] QTabBar* tabBar() const { return tabBar_; }
    [[nodiscard]] GeneralSettingsTab* generalTab() const { return general_; }
    [[nodiscard]] Hotkeys::RecorderField* recorderField() const;
    [[nodiscard]] AISettingsTab* aiTab() const { return ai_; }

private:
    QTabBar* tabBar_;
    QStackedWidget* pages_;
    GeneralSettingsTab* general_;
    AISettingsTab* ai_;
};

} // namespace ui
