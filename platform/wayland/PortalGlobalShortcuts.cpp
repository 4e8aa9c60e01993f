#include "platform/wayland/PortalGlobalShortcuts.h"

#include "platform/VirtualKeys.h"
#include "platform/freedesktop/ThreadSanitizer.h"
#include "platform/wayland/PortalSupport.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QKeyEvent>
#include <QPointer>
#include <QRandomGenerator>
#include <QStringList>
#include <QTimer>
#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <utility>
#include <vector>
#include <xkbcommon/xkbcommon.h>

namespace platform::wayland::detail {

// One shortcut as the portal exchanges it: (sa{sv}).
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

// Sees the key events of the application's own windows.
class KeyFilter final : public QObject {
public:
    KeyFilter(std::function<bool(QKeyEvent&)> onKey, QObject* parent)
        : QObject(parent), onKey_(std::move(onKey)) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)
            return onKey_(*static_cast<QKeyEvent*>(event));
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<bool(QKeyEvent&)> onKey_;
};

} // namespace platform::wayland::detail

Q_DECLARE_METATYPE(platform::wayland::detail::PortalShortcut)

namespace platform::wayland {

using portal::deleteReceiver;
using portal::meansNoPortal;
using portal::objectPathOf;
using DBusSignal = portal::Signal;
using detail::PortalShortcut;

namespace {

const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString registryInterface = QStringLiteral("org.freedesktop.host.portal.Registry");
const QString shortcutDescription = QStringLiteral("Fix or rewrite the selected text");

void registerDBusTypes() {
    static const bool registered = [] {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<QList<PortalShortcut>>();
        return true;
    }();
    (void)registered;
}

// What a request's Response signal brought, or why the call itself failed.
struct Outcome {
    bool answered = false;
    std::uint32_t response = 2;
    QVariantMap results;
    QString errorName; // the call failed
};

struct PortalRegistration final : HotKeyRegistration {
    HotKeyID id;
    QString shortcutId;
    QString trigger;
};

// (shortcut id, preferred trigger) in registration order.
using ShortcutSet = std::vector<std::pair<QString, QString>>;

std::uint32_t carbonFromQt(Qt::KeyboardModifiers modifiers) {
    std::uint32_t carbon = 0;
    if (modifiers & Qt::ControlModifier)
        carbon |= carbonmodifiers::command;
    if (modifiers & Qt::ShiftModifier)
        carbon |= carbonmodifiers::shift;
    if (modifiers & Qt::AltModifier)
        carbon |= carbonmodifiers::option;
    if (modifiers & Qt::MetaModifier)
        carbon |= carbonmodifiers::control;
    return carbon;
}

} // namespace

const QString PortalGlobalShortcuts::refusedText =
    QStringLiteral("The desktop refused the shortcut");
const QString PortalGlobalShortcuts::unavailableText =
    QStringLiteral("No global shortcuts on this desktop");
const QString PortalGlobalShortcuts::noKeysText =
    QStringLiteral("The desktop assigned no keys to the shortcut");

struct PortalGlobalShortcuts::Impl {
    PortalGlobalShortcuts* q;
    QString appId;
    QDBusConnection bus = QDBusConnection::sessionBus();

    std::vector<std::shared_ptr<PortalRegistration>> live;
    EventHandler handler;
    std::set<HotKeyEventKind> kinds;
    // Raw presses the handler took, by native key, so their releases are taken too.
    std::set<quint32> takenRawPresses;

    bool prepared = false; // the host registry knows our app id, or has none
    bool busy = false;     // a session is being created or bound
    bool resync = false;   // the live set changed meanwhile
    bool syncQueued = false;
    QString sessionPath;
    ShortcutSet bound;
    QString granted;
    QString error;
    // The desktop's trigger description of each bound shortcut id.
    std::map<QString, QString> descriptions;

    DBusSignal* sessionClosed = nullptr;    // owned by context
    detail::KeyFilter* keyFilter = nullptr; // owned by context
    // Parent of every subscription, pending call and filter; declared last so that it goes
    // first and no callback runs into a half-destroyed port.
    std::unique_ptr<QObject> context = std::make_unique<QObject>();

    Impl(PortalGlobalShortcuts* owner, QString id) : q(owner), appId(std::move(id)) {
        registerDBusTypes();
        for (const char* name : {"Activated", "Deactivated", "ShortcutsChanged"}) {
            const QString signal = QString::fromLatin1(name);
            auto* receiver = new DBusSignal(
                [this, signal](const QDBusMessage& message) { onShortcutSignal(signal, message); },
                context.get());
            bus.connect(portal::service, portal::path, shortcutsInterface, signal, receiver,
                        SLOT(receive(QDBusMessage)));
        }
    }

    ~Impl() {
        closeSession();
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        context.reset(); // with every receiver in it (see deleteReceiver)
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // Request and session handles embed our unique name without ':' and with '.' as '_'.
    QString senderPart() const { return portal::senderPart(bus); }

    static QString newToken() {
        return QStringLiteral("mendwise_") +
               QString::number(QRandomGenerator::global()->generate64(), 16);
    }

    // Calls a portal method whose last argument is an options map and whose answer comes as the
    // Response signal of a Request object. Subscribes before calling, at the path the portal
    // will use, and follows the returned handle where an older portal chose another.
    void request(const QString& method, QVariantList arguments, QVariantMap options,
                 std::function<void(const Outcome&)> done) {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        const QString token = newToken();
        options.insert(QStringLiteral("handle_token"), token);
        arguments.append(options);

        auto shared = std::make_shared<std::function<void(const Outcome&)>>(std::move(done));
        auto subscribe = [this, shared](const QString& path) {
            auto* receiver = new DBusSignal(context.get());
            receiver->setHandler([shared, receiver](const QDBusMessage& message) {
                receiver->deleteLater();
                if (!*shared)
                    return;
                Outcome outcome;
                const QVariantList args = message.arguments();
                if (args.size() >= 2) {
                    outcome.answered = true;
                    outcome.response = args.at(0).toUInt();
                    outcome.results = qdbus_cast<QVariantMap>(args.at(1));
                }
                const auto callback = std::exchange(*shared, nullptr);
                callback(outcome);
            });
            bus.connect(portal::service, path, portal::requestInterface, QStringLiteral("Response"),
                        receiver, SLOT(receive(QDBusMessage)));
            return QPointer<QObject>(receiver);
        };
        const QString expected =
            portal::path + QStringLiteral("/request/") + senderPart() + QLatin1Char('/') + token;
        QPointer<QObject> subscription = subscribe(expected);

        QDBusMessage call = QDBusMessage::createMethodCall(portal::service, portal::path,
                                                           shortcutsInterface, method);
        call.setArguments(arguments);
        auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), context.get());
        QObject::connect(
            watcher, &QDBusPendingCallWatcher::finished, context.get(),
            [shared, subscription, expected, subscribe, watcher]() mutable {
                watcher->deleteLater();
                const QDBusMessage reply = watcher->reply();
                if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
                    deleteReceiver(subscription);
                    Outcome outcome;
                    outcome.errorName = reply.type() == QDBusMessage::ErrorMessage
                                            ? reply.errorName()
                                            : QStringLiteral("org.freedesktop.DBus.Error.Failed");
                    if (*shared)
                        std::exchange(*shared, nullptr)(outcome);
                    return;
                }
                const QString handle = objectPathOf(reply.arguments().first());
                if (handle != expected && *shared) {
                    deleteReceiver(subscription);
                    subscribe(handle);
                }
            });
    }

    // Newer portals learn the app id of a process outside a sandbox from their host registry,
    // which must hear it before any other portal call.
    void prepare(std::function<void()> then) {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        if (prepared) {
            then();
            return;
        }
        const QDBusMessage introspect = QDBusMessage::createMethodCall(
            portal::service, portal::path, QStringLiteral("org.freedesktop.DBus.Introspectable"),
            QStringLiteral("Introspect"));
        auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(introspect), context.get());
        QObject::connect(
            watcher, &QDBusPendingCallWatcher::finished, context.get(),
            [this, watcher, then = std::move(then)] {
                watcher->deleteLater();
                const QDBusMessage reply = watcher->reply();
                const bool hasRegistry =
                    reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
                    reply.arguments().first().toString().contains(registryInterface);
                if (!hasRegistry) {
                    prepared = true;
                    then();
                    return;
                }
                QDBusMessage registerCall = QDBusMessage::createMethodCall(
                    portal::service, portal::path, registryInterface, QStringLiteral("Register"));
                registerCall.setArguments({appId, QVariantMap()});
                auto* registered =
                    new QDBusPendingCallWatcher(bus.asyncCall(registerCall), context.get());
                // A refusal (already registered, or running sandboxed) changes nothing here.
                QObject::connect(registered, &QDBusPendingCallWatcher::finished, context.get(),
                                 [this, registered, then] {
                                     registered->deleteLater();
                                     prepared = true;
                                     then();
                                 });
            });
    }

    [[nodiscard]] ShortcutSet desired() const {
        ShortcutSet set;
        for (const auto& registration : live)
            set.emplace_back(registration->shortcutId, registration->trigger);
        return set;
    }

    void scheduleSync() {
        if (syncQueued)
            return;
        syncQueued = true;
        // Coalesces the unregister-and-register pairs of one turn into one binding.
        QTimer::singleShot(0, context.get(), [this] {
            syncQueued = false;
            sync();
        });
    }

    void sync() {
        if (busy) {
            resync = true;
            return;
        }
        const ShortcutSet want = desired();
        if (!sessionPath.isEmpty() && want == bound)
            return;
        closeSession();
        if (want.empty())
            return;
        busy = true;
        prepare([this, want] { createSession(want); });
    }

    void finishSync() {
        busy = false;
        if (resync) {
            resync = false;
            scheduleSync();
        }
    }

    static QList<PortalShortcut> portalShortcuts(const ShortcutSet& set) {
        QList<PortalShortcut> shortcuts;
        for (const auto& [id, trigger] : set)
            shortcuts.append({id,
                              {{QStringLiteral("description"), shortcutDescription},
                               {QStringLiteral("preferred_trigger"), trigger}}});
        return shortcuts;
    }

    void createSession(const ShortcutSet& want) {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        // Plasma 5.27 names the shortcuts' group after the session token and binds only what
        // the session was created with (an earlier draft of the interface); later portals take
        // the shortcuts from BindShortcuts alone. A fixed token keeps the group, and with it the
        // user's keys, the same at every start; one session is open at a time.
        const QString sessionToken = QStringLiteral("mendwise");
        request(QStringLiteral("CreateSession"), {},
                {{QStringLiteral("session_handle_token"), sessionToken},
                 {QStringLiteral("shortcuts"), QVariant::fromValue(portalShortcuts(want))}},
                [this, want, sessionToken](const Outcome& outcome) {
                    if (!outcome.errorName.isEmpty() || !outcome.answered ||
                        outcome.response != 0) {
                        publish({}, !outcome.errorName.isEmpty() && meansNoPortal(outcome.errorName)
                                        ? unavailableText
                                        : refusedText);
                        finishSync();
                        return;
                    }
                    QString path =
                        objectPathOf(outcome.results.value(QStringLiteral("session_handle")));
                    if (path.isEmpty())
                        path = portal::path + QStringLiteral("/session/") + senderPart() +
                               QLatin1Char('/') + sessionToken;
                    openSession(path);
                    bind(want);
                });
    }

    void openSession(const QString& path) {
        sessionPath = path;
        sessionClosed = new DBusSignal(
            [this](const QDBusMessage&) {
                // The desktop ended the session: its shortcuts no longer fire.
                forgetSession();
                publish({}, refusedText);
            },
            context.get());
        bus.connect(portal::service, path, portal::sessionInterface, QStringLiteral("Closed"),
                    sessionClosed, SLOT(receive(QDBusMessage)));
    }

    void forgetSession() {
        deleteReceiver(sessionClosed);
        sessionClosed = nullptr;
        sessionPath.clear();
        bound.clear();
        descriptions.clear();
    }

    void closeSession() {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        if (sessionPath.isEmpty())
            return;
        bus.send(QDBusMessage::createMethodCall(portal::service, sessionPath,
                                                portal::sessionInterface, QStringLiteral("Close")));
        forgetSession();
    }

    void bind(const ShortcutSet& want) {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        const QString session = sessionPath;
        request(QStringLiteral("BindShortcuts"),
                {QVariant::fromValue(QDBusObjectPath(session)),
                 QVariant::fromValue(portalShortcuts(want)), QString()},
                {}, [this, want, session](const Outcome& outcome) {
                    if (session == sessionPath)
                        bound = want; // a session binds once, whatever the answer
                    if (!outcome.errorName.isEmpty())
                        publish({},
                                meansNoPortal(outcome.errorName) ? unavailableText : refusedText);
                    else if (!outcome.answered || outcome.response != 0)
                        publish({}, refusedText);
                    else
                        publishGranted(outcome.results.value(QStringLiteral("shortcuts")), true);
                    finishSync();
                });
    }

    // Takes in the desktop's descriptions of shortcuts (all of them after a bind, the changed
    // ones after ShortcutsChanged) and tells what the live ones are bound to.
    void publishGranted(const QVariant& shortcutList, bool complete) {
        if (complete)
            descriptions.clear();
        for (const auto& shortcut : qdbus_cast<QList<PortalShortcut>>(shortcutList))
            descriptions[shortcut.id] =
                shortcut.properties.value(QStringLiteral("trigger_description")).toString();
        QStringList triggers;
        QString problem;
        for (const auto& registration : live) {
            const auto it = descriptions.find(registration->shortcutId);
            if (it == descriptions.end())
                problem = refusedText;
            else if (it->second.isEmpty() && problem.isEmpty())
                problem = noKeysText;
            else if (!it->second.isEmpty())
                triggers.append(it->second);
        }
        publish(triggers.join(QStringLiteral(", ")), problem);
    }

    void publish(const QString& trigger, const QString& why) {
        granted = trigger;
        error = why;
        Q_EMIT q->bindingChanged(granted, error);
    }

    void onShortcutSignal(const QString& signal, const QDBusMessage& message) {
        const QVariantList args = message.arguments();
        if (args.size() < 2 || sessionPath.isEmpty() || objectPathOf(args.at(0)) != sessionPath)
            return;
        if (signal == QLatin1String("ShortcutsChanged")) {
            publishGranted(args.at(1), false);
            return;
        }
        const auto kind = signal == QLatin1String("Activated") ? HotKeyEventKind::hotKeyPressed
                                                               : HotKeyEventKind::hotKeyReleased;
        const QString shortcutId = args.at(1).toString();
        for (const auto& registration : live) {
            if (registration->shortcutId != shortcutId)
                continue;
            if (handler && kinds.count(kind) != 0) {
                HotKeyEvent event;
                event.kind = kind;
                event.hotKeyID = registration->id;
                const EventHandler current = handler; // it may replace itself
                current(event);
            }
            return;
        }
    }

    bool onKey(QKeyEvent& key) {
        const bool press = key.type() == QEvent::KeyPress;
        const quint32 native =
            key.nativeScanCode() != 0 ? key.nativeScanCode() : static_cast<quint32>(key.key());
        const bool taken = takenRawPresses.count(native) != 0;
        if (!press) {
            takenRawPresses.erase(native);
        } else if (key.isAutoRepeat()) {
            return taken;
        }
        const auto kind = press ? HotKeyEventKind::rawKeyDown : HotKeyEventKind::rawKeyUp;
        if (!handler || kinds.count(kind) == 0)
            return taken;
        const auto virtualKey = virtualKeyFromQt(key.key(), key.modifiers(), key.nativeScanCode());
        if (!virtualKey)
            return taken;
        HotKeyEvent event;
        event.kind = kind;
        event.keyCode = *virtualKey;
        event.modifiers = carbonFromQt(key.modifiers());
        const EventHandler current = handler;
        const bool handled = current(event) == osstatus::noErr;
        if (press && handled)
            takenRawPresses.insert(native);
        return handled || taken;
    }

    void updateKeyFilter() {
        const bool wanted = kinds.count(HotKeyEventKind::rawKeyDown) != 0 ||
                            kinds.count(HotKeyEventKind::rawKeyUp) != 0;
        auto* app = QCoreApplication::instance();
        if (wanted && keyFilter == nullptr && app != nullptr) {
            keyFilter =
                new detail::KeyFilter([this](QKeyEvent& key) { return onKey(key); }, context.get());
            app->installEventFilter(keyFilter);
        } else if (!wanted && keyFilter != nullptr) {
            delete keyFilter;
            keyFilter = nullptr;
            takenRawPresses.clear();
        }
    }
};

bool PortalGlobalShortcuts::available(std::chrono::milliseconds timeout) {
    [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage get = QDBusMessage::createMethodCall(
        portal::service, portal::path, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get.setArguments({shortcutsInterface, QStringLiteral("version")});
    const QDBusMessage reply =
        bus.call(get, QDBus::Block, static_cast<int>(std::max<std::int64_t>(1, timeout.count())));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    bool ok = false;
    const uint version = reply.arguments().first().value<QDBusVariant>().variant().toUInt(&ok);
    return ok && version >= 1;
}

PortalGlobalShortcuts::PortalGlobalShortcuts(QString appId, QObject* parent)
    : QObject(parent), d(std::make_unique<Impl>(this, std::move(appId))) {}

PortalGlobalShortcuts::~PortalGlobalShortcuts() = default;

QString PortalGlobalShortcuts::shortcutId(HotKeyID id) {
    QString signature;
    for (const int shift : {24, 16, 8, 0}) {
        const auto c = static_cast<char>((id.signature >> shift) & 0xFF);
        signature += (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')
                         ? QChar::fromLatin1(c)
                         : QLatin1Char('_');
    }
    return signature + QLatin1Char('-') + QString::number(id.id);
}

std::optional<QString> PortalGlobalShortcuts::preferredTrigger(std::uint32_t keyCode,
                                                               std::uint32_t modifiers) {
    if ((modifiers & carbonmodifiers::function) != 0 || keyCode > 0xFFFF)
        return std::nullopt;
    const auto keysym = usKeysymForVirtualKey(static_cast<std::uint16_t>(keyCode));
    if (!keysym)
        return std::nullopt;
    char name[64];
    const int length = xkb_keysym_get_name(*keysym, name, sizeof name);
    if (length <= 0)
        return std::nullopt;
    QStringList parts;
    if (modifiers & carbonmodifiers::command)
        parts << QStringLiteral("CTRL");
    if (modifiers & carbonmodifiers::option)
        parts << QStringLiteral("ALT");
    if (modifiers & carbonmodifiers::shift)
        parts << QStringLiteral("SHIFT");
    if (modifiers & carbonmodifiers::control)
        parts << QStringLiteral("LOGO");
    parts << QString::fromLatin1(name, length);
    return parts.join(QLatin1Char('+'));
}

OSStatus PortalGlobalShortcuts::registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers,
                                               HotKeyID id, HotKeyRef& out) {
    const auto trigger = preferredTrigger(keyCode, modifiers);
    if (!trigger)
        return osstatus::eventHotKeyInvalidErr;
    auto registration = std::make_shared<PortalRegistration>();
    registration->id = id;
    registration->shortcutId = shortcutId(id);
    registration->trigger = *trigger;
    // A second registration under the same id takes the desktop's shortcut over.
    std::erase_if(d->live,
                  [&](const auto& r) { return r->shortcutId == registration->shortcutId; });
    d->live.push_back(registration);
    out = registration;
    d->scheduleSync();
    return osstatus::noErr;
}

OSStatus PortalGlobalShortcuts::unregisterHotKey(const HotKeyRef& hotKey) {
    const auto before = d->live.size();
    std::erase_if(d->live, [&](const auto& r) { return r == hotKey; });
    if (d->live.size() == before)
        return osstatus::paramErr;
    // Its signals stop at once; the desktop hears of it in the next binding.
    d->scheduleSync();
    return osstatus::noErr;
}

OSStatus PortalGlobalShortcuts::installEventHandler(EventHandler handler) {
    d->handler = std::move(handler);
    return osstatus::noErr;
}

void PortalGlobalShortcuts::addEventKinds(const std::vector<HotKeyEventKind>& kinds) {
    d->kinds.insert(kinds.begin(), kinds.end());
    d->updateKeyFilter();
}

void PortalGlobalShortcuts::removeEventKinds(const std::vector<HotKeyEventKind>& kinds) {
    for (const auto kind : kinds)
        d->kinds.erase(kind);
    d->updateKeyFilter();
}

OSStatus PortalGlobalShortcuts::copySymbolicHotKeys(std::vector<SymbolicHotKey>& out) {
    out.clear();
    return osstatus::noErr;
}

QString PortalGlobalShortcuts::grantedTrigger() const {
    return d->granted;
}

QString PortalGlobalShortcuts::bindingError() const {
    return d->error;
}

} // namespace platform::wayland
