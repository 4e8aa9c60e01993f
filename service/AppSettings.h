#pragma once

#include "service/ClaudeModel.h"

#include <QObject>
#include <QString>
#include <memory>
#include <mutex>

class QSettings;

namespace platform {
class LoginItemPort;
}

// The user's settings: loaded once from the per-user store, written back the moment a value is
// assigned. Assign on the main thread; read from any thread (reads take a short lock, so a
// background request never races an edit made in the settings window).
class AppSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString apiKey READ apiKey WRITE setApiKey NOTIFY changed)
    Q_PROPERTY(QString systemPrompt READ systemPrompt WRITE setSystemPrompt NOTIFY changed)
    Q_PROPERTY(ClaudeModel selectedModel READ selectedModel WRITE setSelectedModel NOTIFY changed)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY changed)
    Q_PROPERTY(bool showMenuBarIcon READ showMenuBarIcon WRITE setShowMenuBarIcon NOTIFY changed)
    Q_PROPERTY(bool autoFixOnTrigger READ autoFixOnTrigger WRITE setAutoFixOnTrigger NOTIFY changed)

public:
    // Names of the entries in the store.
    static inline const QString apiKeyKey = QStringLiteral("anthropic_api_key");
    static inline const QString systemPromptKey = QStringLiteral("system_prompt");
    static inline const QString modelKey = QStringLiteral("selected_model");
    static inline const QString launchAtLoginKey = QStringLiteral("launch_at_login");
    static inline const QString showMenuBarIconKey = QStringLiteral("show_menu_bar_icon");
    static inline const QString autoFixOnTriggerKey = QStringLiteral("auto_fix_on_trigger");

    static inline const QString defaultSystemPrompt = QStringLiteral(
        "Fix English spelling and grammar in this message. Return ONLY the corrected text. No "
        "explanations, no alternatives, no extra text. Just the fixed message.");

    // The one process-wide instance over the user's store (organization and application
    // "Mendwise"), created and loaded on first call from any thread, never destroyed.
    static AppSettings& shared();
    // The login-item service the shared instance uses. Call before the first shared(); returns
    // false (and changes nothing) once the shared instance exists. Without one, changing
    // launchAtLogin only logs that login items are unavailable.
    static bool setSharedLoginItem(std::unique_ptr<platform::LoginItemPort> loginItem);

    // An instance over the given store, loaded at once; `loginItem` must outlive it.
    AppSettings(std::unique_ptr<QSettings> store, platform::LoginItemPort& loginItem,
                QObject* parent = nullptr);
    ~AppSettings() override;
    AppSettings(const AppSettings&) = delete;
    AppSettings& operator=(const AppSettings&) = delete;

    [[nodiscard]] QString apiKey() const;
    [[nodiscard]] QString systemPrompt() const;
    [[nodiscard]] ClaudeModel selectedModel() const;
    [[nodiscard]] bool launchAtLogin() const;
    [[nodiscard]] bool showMenuBarIcon() const;
    [[nodiscard]] bool autoFixOnTrigger() const;

    // Every assignment, also of the current value: objectWillChange(), the new value, the
    // write (synced to disk), side effects, changed().
    void setApiKey(const QString& apiKey);
    void setSystemPrompt(const QString& systemPrompt);
    void setSelectedModel(ClaudeModel selectedModel);
    void setLaunchAtLogin(bool launchAtLogin);     // then registers or unregisters the login item
    void setShowMenuBarIcon(bool showMenuBarIcon); // then posts "menuBarIconVisibilityChanged"
    void setAutoFixOnTrigger(bool autoFixOnTrigger);

Q_SIGNALS:
    // Before an assigned value is in place (the getters still return the old value).
    void objectWillChange();
    // After an assigned value is in place, written and its side effects done.
    void changed();

private:
    struct Values {
        QString apiKey;
        QString systemPrompt;
        ClaudeModel selectedModel;
        bool launchAtLogin = false;
        bool showMenuBarIcon = true;
        bool autoFixOnTrigger = false;
    };

    void load();
    template <typename T> void assign(T Values::*field, const T& value, const QString& key);
    void write(const QString& key, const QVariant& value);
    void updateLoginItem();

    QSettings* store_; // owned (a child of this object)
    platform::LoginItemPort& loginItem_;
    mutable std::mutex mutex_; // guards values_ between the main thread and readers
    Values values_;
};
