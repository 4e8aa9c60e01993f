#include "hotkeys/Hotkeys.h"

#include "hotkeys/Runtime.h"
#include "support/MainThread.h"
#include "support/NotificationCenter.h"

#include <QApplication>
#include <QEvent>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>
#include <QSettings>
#include <cmath>
#include <unordered_map>

namespace Hotkeys {

using detail::runtime;

namespace {

constexpr std::int64_t maxKeyCode = 0xFFFF;
constexpr std::int64_t maxModifiers = 0xFFFFFFFF;

bool inRange(const Shortcut& shortcut) {
    return shortcut.carbonKeyCode >= 0 && shortcut.carbonKeyCode <= maxKeyCode &&
           shortcut.carbonModifiers >= 0 && shortcut.carbonModifiers <= maxModifiers;
}

std::optional<std::int64_t> integerMember(const QJsonObject& object, QLatin1StringView name,
                                          std::int64_t max) {
    const QJsonValue value = object.value(name);
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (!std::isfinite(number) || std::floor(number) != number || number < 0 ||
        number > static_cast<double>(max))
        return std::nullopt;
    return static_cast<std::int64_t>(number);
}

std::optional<Shortcut> decodeText(const QString& text) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    const auto keyCode = integerMember(object, QLatin1StringView("carbonKeyCode"), maxKeyCode);
    const auto modifiers =
        integerMember(object, QLatin1StringView("carbonModifiers"), maxModifiers);
    if (!keyCode || !modifiers)
        return std::nullopt;
    return Shortcut(*keyCode, *modifiers);
}

// A shortcut whose values could not be read back is not written at all.
std::optional<QString> encodeText(const Shortcut& shortcut) {
    if (!inRange(shortcut))
        return std::nullopt;
    const QJsonObject object{{QStringLiteral("carbonKeyCode"), qint64(shortcut.carbonKeyCode)},
                             {QStringLiteral("carbonModifiers"), qint64(shortcut.carbonModifiers)}};
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

// The entry under the name's key: the shortcut's JSON text, a Boolean (the false marker),
// something else, or invalid when absent.
QVariant storedValue(const Name& name) {
    return detail::normalizedStoredValue(detail::openDefaults()->value(name.storageKey()));
}

void postChange(const Name& name) {
    support::NotificationCenter::defaultCenter().post(
        QString::fromLatin1(shortcutByNameDidChange),
        QVariantMap{{QStringLiteral("name"), QVariant::fromValue(name)}});
    // The name now stands for another shortcut, whose registration may have gone otherwise;
    // the registry posted that before the new shortcut was stored.
    support::NotificationCenter::defaultCenter().post(
        QString::fromLatin1(registrationStatusDidChange));
}

void dispatch(const Shortcut& pressed, EventType type) {
    auto& state = runtime();
    if (state.recorderIsActive)
        return;
    // Copies: an action may add or remove actions and streams.
    const auto actions = type == EventType::keyDown ? state.keyDownActions : state.keyUpActions;
    for (auto it = actions.cbegin(); it != actions.cend(); ++it) {
        if (shortcut(it.key()) == pressed) {
            for (const auto& action : it.value())
                action();
        }
    }
    const auto streams =
        type == EventType::keyDown ? runtime().keyDownStreams : runtime().keyUpStreams;
    for (auto it = streams.cbegin(); it != streams.cend(); ++it) {
        if (shortcut(it.key()) == pressed) {
            for (const auto& sink : it.value())
                sink(type);
        }
    }
}

void registerShortcut(const Shortcut& shortcut) {
    auto& state = runtime();
    if (state.liveShortcuts.contains(shortcut))
        return;
    HotKeyRegistry::registerHotKey(
        shortcut, [](const Shortcut& pressed) { dispatch(pressed, EventType::keyDown); },
        [](const Shortcut& released) { dispatch(released, EventType::keyUp); });
    // Counted even when refused; the registry has reported that.
    state.liveShortcuts.insert(shortcut);
}

void unregisterShortcut(const Shortcut& shortcut) {
    HotKeyRegistry::unregisterHotKey(shortcut);
    runtime().liveShortcuts.erase(shortcut);
}

template <typename Map> bool usedByAny(const Map& map, const Shortcut& wanted) {
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (shortcut(it.key()) == wanted)
            return true;
    }
    return false;
}

bool usedByStreams(const Shortcut& wanted) {
    const auto& state = runtime();
    return usedByAny(state.keyDownStreams, wanted) || usedByAny(state.keyUpStreams, wanted);
}

bool usedByActions(const Shortcut& wanted) {
    const auto& state = runtime();
    return usedByAny(state.keyDownActions, wanted) || usedByAny(state.keyUpActions, wanted);
}

void setMenuIsOpen(bool open) {
    auto& state = runtime();
    if (state.menuIsOpen == open)
        return;
    state.menuIsOpen = open;
    HotKeyRegistry::updateEventHandler();
}

// Follows every menu of the application: open while any of them is shown.
class MenuObserver final : public QObject {
public:
    using QObject::QObject;

    bool eventFilter(QObject* watched, QEvent* event) override {
        const auto type = event->type();
        if ((type == QEvent::Show || type == QEvent::Hide) && watched->isWidgetType()) {
            if (auto* menu = qobject_cast<QMenu*>(watched)) {
                if (type == QEvent::Show)
                    opened(menu);
                else
                    closed(menu);
            }
        }
        return false;
    }

private:
    void opened(QMenu* menu) {
        if (!openMenus_.contains(menu)) {
            openMenus_.emplace(
                menu, connect(menu, &QObject::destroyed, this, [this, menu] { closed(menu); }));
        }
        setMenuIsOpen(true);
    }

    void closed(QMenu* menu) {
        const auto it = openMenus_.find(menu);
        if (it == openMenus_.end())
            return;
        disconnect(it->second);
        openMenus_.erase(it);
        setMenuIsOpen(!openMenus_.empty());
    }

    std::unordered_map<const QMenu*, QMetaObject::Connection> openMenus_;
};

} // namespace

namespace detail {

// The INI store gives a Boolean back as the bare word, so the words stand for the Booleans.
QVariant normalizedStoredValue(QVariant value) {
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text == QLatin1StringView("false") || text == QLatin1StringView("true"))
            return QVariant(text == QLatin1StringView("true"));
    }
    return value;
}

std::optional<Shortcut> decodeStoredShortcut(const QVariant& stored) {
    if (stored.typeId() != QMetaType::QString)
        return std::nullopt;
    return decodeText(stored.toString());
}

std::optional<QString> encodeStoredShortcut(const Shortcut& shortcut) {
    return encodeText(shortcut);
}

} // namespace detail

// Name

Name::Name(QString rawValue) : rawValue_(std::move(rawValue)) {
    installMenuObservers();
}

Name::Name(QString rawValue, std::optional<Shortcut> defaultShortcut)
    : rawValue_(std::move(rawValue)), defaultShortcut_(defaultShortcut) {
    if (defaultShortcut_ && !hasStoredValue(*this))
        Hotkeys::setShortcut(defaultShortcut_, *this);
    installMenuObservers();
}

QString Name::storageKey() const {
    return QString::fromLatin1(storageKeyPrefix) + rawValue_;
}

std::optional<Shortcut> Name::shortcut() const {
    return Hotkeys::shortcut(*this);
}

void Name::setShortcut(const std::optional<Shortcut>& shortcut) const {
    Hotkeys::setShortcut(shortcut, *this);
}

Name constantName(const QString& rawValue, const std::optional<Shortcut>& defaultShortcut) {
    auto& state = runtime();
    const auto it = state.constants.constFind(rawValue);
    if (it != state.constants.constEnd())
        return *it;
    Name name(rawValue, defaultShortcut);
    runtime().constants.insert(rawValue, name);
    return name;
}

// Storage

std::optional<Shortcut> shortcut(const Name& name) {
    return detail::decodeStoredShortcut(storedValue(name));
}

void setShortcut(const std::optional<Shortcut>& newShortcut, const Name& name) {
    if (newShortcut) {
        const auto json = detail::encodeStoredShortcut(*newShortcut);
        if (!json)
            return;
        if (const auto old = shortcut(name))
            unregisterShortcut(*old);
        registerShortcut(*newShortcut);
        detail::openDefaults()->setValue(name.storageKey(), *json);
        postChange(name);
        return;
    }
    const auto old = shortcut(name);
    if (!old)
        return;
    if (name.defaultShortcut())
        detail::openDefaults()->setValue(name.storageKey(), false);
    else
        detail::openDefaults()->remove(name.storageKey());
    unregisterShortcut(*old);
    postChange(name);
}

bool hasStoredValue(const Name& name) {
    return detail::openDefaults()->contains(name.storageKey());
}

void reset(const QList<Name>& names) {
    for (const Name& name : names)
        setShortcut(name.defaultShortcut(), name);
}

void resetAll() {
    const QSet<Name> names = storedNames();
    reset(QList<Name>(names.cbegin(), names.cend()));
}

QSet<Name> storedNames() {
    const QString prefix = QString::fromLatin1(storageKeyPrefix);
    QSet<Name> names;
    for (const QString& key : detail::openDefaults()->allKeys()) {
        if (key.startsWith(prefix))
            names.insert(Name(key.mid(prefix.size())));
    }
    return names;
}

// Registration

void enable(const QList<Name>& names) {
    for (const Name& name : names) {
        if (const auto stored = shortcut(name))
            registerShortcut(*stored);
    }
}

void disable(const QList<Name>& names) {
    for (const Name& name : names) {
        if (const auto stored = shortcut(name))
            unregisterShortcut(*stored);
    }
}

bool isEnabled(const Name& name) {
    if (!runtime().shortcutsEnabled)
        return false;
    const auto stored = shortcut(name);
    return stored && runtime().liveShortcuts.contains(*stored);
}

// Actions

void onKeyDown(const Name& name, Action action) {
    runtime().keyDownActions[name].append(std::move(action));
    if (const auto stored = shortcut(name))
        registerShortcut(*stored);
}

void onKeyUp(const Name& name, Action action) {
    runtime().keyUpActions[name].append(std::move(action));
    if (const auto stored = shortcut(name))
        registerShortcut(*stored);
}

void removeActions(const Name& name) {
    auto& state = runtime();
    state.keyDownActions.remove(name);
    state.keyUpActions.remove(name);
    if (const auto stored = shortcut(name); stored && !usedByStreams(*stored))
        unregisterShortcut(*stored);
}

void removeAllActions() {
    auto& state = runtime();
    std::unordered_set<Shortcut> unused;
    for (const auto* actions : {&state.keyDownActions, &state.keyUpActions}) {
        for (auto it = actions->cbegin(); it != actions->cend(); ++it) {
            if (const auto stored = shortcut(it.key()))
                unused.insert(*stored);
        }
    }
    for (const auto* streams : {&state.keyDownStreams, &state.keyUpStreams}) {
        for (auto it = streams->cbegin(); it != streams->cend(); ++it) {
            if (const auto stored = shortcut(it.key()))
                unused.erase(*stored);
        }
    }
    for (const auto& stored : unused)
        unregisterShortcut(stored);
    state.keyDownActions.clear();
    state.keyUpActions.clear();
}

// Streams

struct EventStream::Alive {
    QUuid id;
    Name name;
    std::weak_ptr<detail::Runtime> state;
    bool ended = false;
};

EventStream::~EventStream() {
    end();
}

EventStream::EventStream(EventStream&& other) noexcept : alive_(std::move(other.alive_)) {}

EventStream& EventStream::operator=(EventStream&& other) noexcept {
    if (this != &other) {
        end();
        alive_ = std::move(other.alive_);
    }
    return *this;
}

void EventStream::end() {
    if (!alive_)
        return;
    alive_->ended = true;
    support::runOnMain([alive = std::move(alive_)] {
        const auto owner = alive->state.lock();
        if (!owner || owner.get() != detail::weakRuntime().lock().get())
            return;
        auto& state = *owner;
        for (auto* streams : {&state.keyDownStreams, &state.keyUpStreams}) {
            const auto it = streams->find(alive->name);
            if (it == streams->end())
                continue;
            it->remove(alive->id);
            if (it->isEmpty())
                streams->erase(it);
        }
        if (const auto stored = shortcut(alive->name);
            stored && !usedByActions(*stored) && !usedByStreams(*stored))
            unregisterShortcut(*stored);
    });
}

EventStream events(const Name& name, std::function<void(EventType)> sink) {
    EventStream stream;
    stream.alive_ = std::make_shared<EventStream::Alive>();
    stream.alive_->id = QUuid::createUuid();
    stream.alive_->name = name;
    stream.alive_->state = detail::weakRuntime();
    support::runOnMain([alive = stream.alive_, sink = std::move(sink)] {
        const auto owner = alive->state.lock();
        if (alive->ended || !owner || owner.get() != detail::weakRuntime().lock().get())
            return;
        const detail::Sink guarded = [alive, sink](EventType type) {
            if (!alive->ended)
                sink(type);
        };
        owner->keyDownStreams[alive->name].insert(alive->id, guarded);
        owner->keyUpStreams[alive->name].insert(alive->id, guarded);
        if (const auto stored = shortcut(alive->name))
            registerShortcut(*stored);
    });
    return stream;
}

EventStream events(EventType type, const Name& name, std::function<void()> sink) {
    return events(name, [type, sink = std::move(sink)](EventType received) {
        if (received == type)
            sink();
    });
}

// Switches

bool shortcutsEnabled() {
    return runtime().shortcutsEnabled;
}

void setShortcutsEnabled(bool enabled) {
    auto& state = runtime();
    if (state.shortcutsEnabled == enabled)
        return;
    state.shortcutsEnabled = enabled;
    HotKeyRegistry::updateEventHandler();
}

std::optional<QString> registrationError(const Name& name) {
    const auto stored = shortcut(name);
    if (!stored)
        return std::nullopt;
    const auto& errors = runtime().registrationErrors;
    const auto it = errors.find(*stored);
    if (it == errors.end())
        return std::nullopt;
    return it->second;
}

void setRegistrationError(const Name& name, const std::optional<QString>& error) {
    if (const auto stored = shortcut(name))
        detail::setRegistrationError(runtime(), *stored, error);
}

void detail::setRegistrationError(Runtime& state, const Shortcut& shortcut,
                                  const std::optional<QString>& error) {
    auto& errors = state.registrationErrors;
    const auto it = errors.find(shortcut);
    const std::optional<QString> before =
        it == errors.end() ? std::nullopt : std::optional<QString>(it->second);
    if (before == error)
        return;
    if (error)
        errors[shortcut] = *error;
    else
        errors.erase(it);
    support::NotificationCenter::defaultCenter().post(
        QString::fromLatin1(registrationStatusDidChange));
}

bool recorderIsActive() {
    return runtime().recorderIsActive;
}

void setRecorderIsActive(bool active) {
    runtime().recorderIsActive = active;
}

bool menuIsOpen() {
    return runtime().menuIsOpen;
}

void installMenuObservers() {
    auto& state = runtime();
    auto* app = QCoreApplication::instance();
    if (state.menuObserversInstalled || !app)
        return;
    state.menuObserversInstalled = true;
    auto observer = std::make_unique<MenuObserver>();
    app->installEventFilter(observer.get());
    state.menuObserver = std::move(observer);
}

} // namespace Hotkeys
