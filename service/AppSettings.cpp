#include "service/AppSettings.h"

#include "platform/LoginItem.h"
#include "support/Log.h"
#include "support/NotificationCenter.h"
#include "support/SettingsFormat.h"

#include <QCoreApplication>
#include <QFile>
#include <QMetaType>
#include <QSettings>
#include <QThread>
#include <QVariant>

namespace {

// What a hand-edited store holds under a key: the value, or nothing when the key is missing.
// A present value of the wrong type is reported once (the fallback applies) and read as
// missing, so the user learns which line of the file was ignored.
template <typename T>
std::optional<T> storedValue(const QSettings& store, const QString& key, const char* expected,
                             std::optional<T> (*convert)(const QVariant&)) {
    if (!store.contains(key))
        return std::nullopt;
    std::optional<T> value = convert(store.value(key));
    if (!value) {
        support::log(QStringLiteral("[AppSettings] ⚠️ Ignoring %1 in %2: not %3; using the "
                                    "default")
                         .arg(key, store.fileName(), QLatin1String(expected)));
    }
    return value;
}

// In the INI store every scalar reads back as text, so only lists (an unquoted comma) and
// values the store itself typed (e.g. "@Variant(...)") are not strings. What we write is
// always quoted where needed, so commas, quotes and newlines of our own survive.
std::optional<QString> asString(const QVariant& value) {
    if (value.typeId() == QMetaType::QString)
        return value.toString();
    return std::nullopt;
}

// The INI format keeps no types: QSettings writes a Boolean as the bare word true or false and
// reads every scalar back as text. So here a Boolean is exactly what we write for one, the
// words "true" and "false" in lower case (or a real bool still in QSettings' cache). Everything
// else is not a Boolean: "yes", "1", "False", an empty value, a list. A user who edits the file
// and writes show_menu_bar_icon=false gets what they wrote; a misspelt value gets the fallback.
std::optional<bool> asBool(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text == u"true")
            return true;
        if (text == u"false")
            return false;
    }
    return std::nullopt;
}

std::optional<QString> storedString(const QSettings& store, const QString& key) {
    return storedValue<QString>(store, key, "text", asString);
}

std::optional<bool> storedBool(const QSettings& store, const QString& key) {
    return storedValue<bool>(store, key, "true or false", asBool);
}

// Stands in when the process was given no login-item service (e.g. the command-line tool).
class UnavailableLoginItem final : public platform::LoginItemPort {
public:
    std::optional<QString> registerLoginItem() override { return unavailable(); }
    std::optional<QString> unregisterLoginItem() override { return unavailable(); }

private:
    static QString unavailable() {
        return QStringLiteral("Login items are not available in this process.");
    }
};

struct SharedLoginItem {
    std::mutex mutex;
    std::unique_ptr<platform::LoginItemPort> port; // guarded by mutex
    bool taken = false;                            // guarded by mutex
};

SharedLoginItem& sharedLoginItem() {
    static auto* state = new SharedLoginItem; // never destroyed, like the instance using it
    return *state;
}

} // namespace

AppSettings& AppSettings::shared() {
    // Thread-safe one-time creation; never destroyed, so readers on background threads can
    // never see it go away at exit.
    static AppSettings* const instance = [] {
        platform::LoginItemPort* port = nullptr;
        {
            SharedLoginItem& state = sharedLoginItem();
            const std::lock_guard lock(state.mutex);
            state.taken = true;
            if (!state.port)
                state.port = std::make_unique<UnavailableLoginItem>();
            port = state.port.get();
        }
        auto* settings = new AppSettings(support::openUserSettings(), *port);
        // Assignments and their signals belong to the main thread, whichever thread came first.
        if (const QCoreApplication* app = QCoreApplication::instance();
            app && settings->thread() != app->thread())
            settings->moveToThread(app->thread());
        return settings;
    }();
    return *instance;
}

bool AppSettings::setSharedLoginItem(std::unique_ptr<platform::LoginItemPort> loginItem) {
    SharedLoginItem& state = sharedLoginItem();
    const std::lock_guard lock(state.mutex);
    if (state.taken)
        return false;
    state.port = std::move(loginItem);
    return true;
}

AppSettings::AppSettings(std::unique_ptr<QSettings> store, platform::LoginItemPort& loginItem,
                         QObject* parent)
    : QObject(parent), store_(store.release()), loginItem_(loginItem) {
    store_->setParent(this);
    load();
}

AppSettings::~AppSettings() = default;

// Loading sets initial values only: no write, no side effect, no announcement.
void AppSettings::load() {
    Values loaded;
    loaded.apiKey = storedString(*store_, apiKeyKey).value_or(QString());
    loaded.systemPrompt = storedString(*store_, systemPromptKey).value_or(defaultSystemPrompt);
    loaded.launchAtLogin = storedBool(*store_, launchAtLoginKey).value_or(false);
    loaded.showMenuBarIcon = storedBool(*store_, showMenuBarIconKey).value_or(true);
    loaded.autoFixOnTrigger = storedBool(*store_, autoFixOnTriggerKey).value_or(false);
    // An unknown identifier stays in the store until the user picks a model.
    if (const std::optional<QString> raw = storedString(*store_, modelKey))
        loaded.selectedModel = ClaudeModel::fromRawValue(*raw).value_or(ClaudeModel::haiku);
    const std::lock_guard lock(mutex_);
    values_ = std::move(loaded);
}

QString AppSettings::apiKey() const {
    const std::lock_guard lock(mutex_);
    return values_.apiKey;
}

QString AppSettings::systemPrompt() const {
    const std::lock_guard lock(mutex_);
    return values_.systemPrompt;
}

ClaudeModel AppSettings::selectedModel() const {
    const std::lock_guard lock(mutex_);
    return values_.selectedModel;
}

bool AppSettings::launchAtLogin() const {
    const std::lock_guard lock(mutex_);
    return values_.launchAtLogin;
}

bool AppSettings::showMenuBarIcon() const {
    const std::lock_guard lock(mutex_);
    return values_.showMenuBarIcon;
}

bool AppSettings::autoFixOnTrigger() const {
    const std::lock_guard lock(mutex_);
    return values_.autoFixOnTrigger;
}

template <typename T>
void AppSettings::assign(T Values::*field, const T& value, const QString& key) {
    Q_EMIT objectWillChange();
    {
        const std::lock_guard lock(mutex_);
        values_.*field = value;
    }
    if constexpr (std::is_same_v<T, ClaudeModel>)
        write(key, value.rawValue());
    else
        write(key, QVariant::fromValue(value));
}

// Written and synced at once: an edit survives a crash right after it. The file holds the API
// key, so only its owner may read it.
void AppSettings::write(const QString& key, const QVariant& value) {
    store_->setValue(key, value);
    store_->sync();
    if (const QString file = store_->fileName(); QFile::exists(file))
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

void AppSettings::setApiKey(const QString& apiKey) {
    assign(&Values::apiKey, apiKey, apiKeyKey);
    Q_EMIT changed();
}

void AppSettings::setSystemPrompt(const QString& systemPrompt) {
    assign(&Values::systemPrompt, systemPrompt, systemPromptKey);
    Q_EMIT changed();
}

void AppSettings::setSelectedModel(ClaudeModel selectedModel) {
    assign(&Values::selectedModel, selectedModel, modelKey);
    Q_EMIT changed();
}

void AppSettings::setLaunchAtLogin(bool launchAtLogin) {
    assign(&Values::launchAtLogin, launchAtLogin, launchAtLoginKey);
    updateLoginItem();
    Q_EMIT changed();
}

void AppSettings::setShowMenuBarIcon(bool showMenuBarIcon) {
    assign(&Values::showMenuBarIcon, showMenuBarIcon, showMenuBarIconKey);
    support::NotificationCenter::defaultCenter().post(
        QStringLiteral("menuBarIconVisibilityChanged"));
    Q_EMIT changed();
}

void AppSettings::setAutoFixOnTrigger(bool autoFixOnTrigger) {
    assign(&Values::autoFixOnTrigger, autoFixOnTrigger, autoFixOnTriggerKey);
    Q_EMIT changed();
}

// The setting keeps its value whether or not the registration succeeds; no retry.
void AppSettings::updateLoginItem() {
    const std::optional<QString> error =
        launchAtLogin() ? loginItem_.registerLoginItem() : loginItem_.unregisterLoginItem();
    if (error)
        support::log(QStringLiteral("Failed to update login item: ") + *error);
}
