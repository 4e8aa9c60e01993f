#include "platform/wayland/PortalRemoteDesktop.h"

#include "platform/freedesktop/ThreadSanitizer.h"
#include "platform/wayland/PortalSupport.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QObject>
#include <QPointer>
#include <QRandomGenerator>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace platform::wayland {

using portal::deleteReceiver;
using portal::meansNoPortal;
using portal::objectPathOf;
using RemoteDesktopSignal = portal::Signal;

namespace {

const QString remoteDesktopInterface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");

constexpr std::uint32_t keyboardDevice = 1;
constexpr std::uint32_t persistUntilRevoked = 2;
// A key that takes longer than this to reach the portal is reported as not sent.
constexpr int keyTimeoutMs = 500;

struct Outcome {
    bool answered = false;
    std::uint32_t response = 2;
    QVariantMap results;
    QString errorName; // the call itself failed
};

} // namespace

const QString PortalRemoteDesktop::notAllowedText =
    QStringLiteral("Mendwise may not type into other applications: applications without "
                   "accessible text cannot be fixed.");

struct PortalRemoteDesktop::Impl {
    PortalRemoteDesktop* q;
    LoadToken loadToken;
    SaveToken saveToken;
    QDBusConnection bus = QDBusConnection::sessionBus();

    // Shared with the threads that send keys or wait in prepare().
    mutable std::mutex mutex;
    std::condition_variable answered;
    State current = State::needsPermission;
    bool starting = false;
    QString session; // the started session, empty unless ready

    // GUI thread only.
    QString heldSession; // created by the portal, started or not
    RemoteDesktopSignal* sessionClosed = nullptr;
    // Parent of every subscription and pending call; declared last so that it goes first and
    // no callback runs into a half-destroyed channel.
    std::unique_ptr<QObject> context = std::make_unique<QObject>();

    Impl(PortalRemoteDesktop* owner, LoadToken load, SaveToken save)
        : q(owner), loadToken(std::move(load)), saveToken(std::move(save)) {}

    ~Impl() {
        closeSession();
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        context.reset();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    [[nodiscard]] bool onGuiThread() const { return QThread::currentThread() == context->thread(); }

    // Request and session handles embed our unique name without ':' and with '.' as '_'.
    [[nodiscard]] QString senderPart() const { return portal::senderPart(bus); }

    static QString newToken() {
        return QStringLiteral("mendwise_") +
               QString::number(QRandomGenerator::global()->generate64(), 16);
    }

    // Marks a start as under way (from any thread) and has the GUI thread begin it; false when
    // one already is, or the keyboard is granted.
    bool requestStart() {
        {
            const std::lock_guard lock(mutex);
            if (starting || current == State::ready)
                return false;
            starting = true;
        }
        if (onGuiThread())
            begin();
        else
            QTimer::singleShot(0, context.get(), [this] { begin(); });
        return true;
    }

    // GUI thread: records the answer of a start (or the end of a session) and wakes waiters.
    void settle(State state, const QString& startedSession = {}) {
        bool changed = false;
        {
            const std::lock_guard lock(mutex);
            starting = false;
            session = state == State::ready ? startedSession : QString();
            changed = current != state;
            current = state;
        }
        answered.notify_all();
        if (changed)
            q->notifyState(state);
    }

    // Calls a portal method whose answer comes as the Response signal of a Request object.
    // Subscribes before calling, at the path the portal will use, and follows the returned
    // handle where an older portal chose another.
    void request(const QString& method, QVariantList arguments, QVariantMap options,
                 std::function<void(const Outcome&)> done) {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        const QString token = newToken();
        options.insert(QStringLiteral("handle_token"), token);
        arguments.append(options);

        auto shared = std::make_shared<std::function<void(const Outcome&)>>(std::move(done));
        auto subscribe = [this, shared](const QString& path) {
            auto* receiver = new RemoteDesktopSignal(nullptr, context.get());
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
                std::exchange(*shared, nullptr)(outcome);
            });
            bus.connect(portal::service, path, portal::requestInterface, QStringLiteral("Response"),
                        receiver, SLOT(receive(QDBusMessage)));
            return QPointer<QObject>(receiver);
        };
        const QString expected =
            portal::path + QStringLiteral("/request/") + senderPart() + QLatin1Char('/') + token;
        QPointer<QObject> subscription = subscribe(expected);

        QDBusMessage call = QDBusMessage::createMethodCall(portal::service, portal::path,
                                                           remoteDesktopInterface, method);
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

    // Ends a start that went wrong at any step.
    void fail(const Outcome& outcome) {
        closeSession();
        settle(!outcome.errorName.isEmpty() && meansNoPortal(outcome.errorName) ? State::unavailable
                                                                                : State::refused);
    }

    [[nodiscard]] static bool granted(const Outcome& outcome) {
        return outcome.errorName.isEmpty() && outcome.answered && outcome.response == 0;
    }

    // CreateSession, SelectDevices, Start, each after the previous one's answer.
    void begin() {
        closeSession();
        const QString sessionToken = newToken();
        request(QStringLiteral("CreateSession"), {},
                {{QStringLiteral("session_handle_token"), sessionToken}},
                [this, sessionToken](const Outcome& outcome) {
                    // Nobody was asked yet: the desktop cannot give this program a session at
                    // all (KDE's portal without its screen-cast protocol says so), and asking
                    // the user again would not help.
                    if (!granted(outcome)) {
                        settle(outcome.errorName.isEmpty() || meansNoPortal(outcome.errorName)
                                   ? State::unavailable
                                   : State::refused);
                        return;
                    }
                    QString path =
                        objectPathOf(outcome.results.value(QStringLiteral("session_handle")));
                    if (path.isEmpty())
                        path = portal::path + QStringLiteral("/session/") + senderPart() +
                               QLatin1Char('/') + sessionToken;
                    openSession(path);
                    selectDevices();
                });
    }

    void selectDevices() {
        // Portals older than the persistence options take only the keys they know.
        QVariantMap options{{QStringLiteral("types"), keyboardDevice},
                            {QStringLiteral("persist_mode"), persistUntilRevoked}};
        const QString restoreToken = loadToken ? loadToken() : QString();
        if (!restoreToken.isEmpty())
            options.insert(QStringLiteral("restore_token"), restoreToken);
        request(QStringLiteral("SelectDevices"),
                {QVariant::fromValue(QDBusObjectPath(heldSession))}, options,
                [this](const Outcome& outcome) {
                    if (!granted(outcome)) {
                        fail(outcome);
                        return;
                    }
                    startSession();
                });
    }

    void startSession() {
        const QString path = heldSession;
        request(QStringLiteral("Start"), {QVariant::fromValue(QDBusObjectPath(path)), QString()},
                {}, [this, path](const Outcome& outcome) {
                    if (path != heldSession)
                        return; // closed meanwhile
                    const auto devices = outcome.results.value(QStringLiteral("devices")).toUInt();
                    if (!granted(outcome) || (devices & keyboardDevice) == 0) {
                        fail(outcome);
                        return;
                    }
                    // A restore token is good for one start: keep the new one, or none.
                    if (saveToken)
                        saveToken(
                            outcome.results.value(QStringLiteral("restore_token")).toString());
                    settle(State::ready, path);
                });
    }

    void openSession(const QString& path) {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        heldSession = path;
        sessionClosed = new RemoteDesktopSignal(
            [this](const QDBusMessage&) {
                // The desktop ended the session (the user revoked it, or the portal quit). The
                // receiver is inside its own slot, so it goes later.
                sessionClosed->deleteLater();
                sessionClosed = nullptr;
                heldSession.clear();
                settle(State::unavailable);
            },
            context.get());
        bus.connect(portal::service, path, portal::sessionInterface, QStringLiteral("Closed"),
                    sessionClosed, SLOT(receive(QDBusMessage)));
    }

    void forgetSession() {
        deleteReceiver(sessionClosed);
        sessionClosed = nullptr;
        heldSession.clear();
    }

    void closeSession() {
        [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
        if (heldSession.isEmpty())
            return;
        bus.send(QDBusMessage::createMethodCall(portal::service, heldSession,
                                                portal::sessionInterface, QStringLiteral("Close")));
        forgetSession();
    }
};

bool PortalRemoteDesktop::available(std::chrono::milliseconds timeout) {
    [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage get = QDBusMessage::createMethodCall(
        portal::service, portal::path, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get.setArguments({remoteDesktopInterface, QStringLiteral("AvailableDeviceTypes")});
    const QDBusMessage reply =
        bus.call(get, QDBus::Block, static_cast<int>(std::max<std::int64_t>(1, timeout.count())));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    bool ok = false;
    const uint types = reply.arguments().first().value<QDBusVariant>().variant().toUInt(&ok);
    return ok && (types & keyboardDevice) != 0;
}

PortalRemoteDesktop::PortalRemoteDesktop(LoadToken loadToken, SaveToken saveToken)
    : d(std::make_unique<Impl>(this, std::move(loadToken), std::move(saveToken))) {}

PortalRemoteDesktop::~PortalRemoteDesktop() = default;

void PortalRemoteDesktop::start() {
    d->requestStart();
}

bool PortalRemoteDesktop::sendKey(std::uint32_t evdevCode, bool down) {
    QString session;
    {
        const std::lock_guard lock(d->mutex);
        if (d->current != State::ready)
            return false;
        session = d->session;
    }
    [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
    QDBusMessage call =
        QDBusMessage::createMethodCall(portal::service, portal::path, remoteDesktopInterface,
                                       QStringLiteral("NotifyKeyboardKeycode"));
    call.setArguments({QVariant::fromValue(QDBusObjectPath(session)), QVariantMap(),
                       static_cast<int>(evdevCode), down ? 1U : 0U});
    const QDBusMessage reply = d->bus.call(call, QDBus::Block, keyTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

KeystrokeChannel::State PortalRemoteDesktop::prepare(int timeoutMs) {
    {
        const std::lock_guard lock(d->mutex);
        // A refusal stands until the user asks again from the settings window.
        if (d->current == State::ready || d->current == State::refused)
            return d->current;
    }
    d->requestStart();
    std::unique_lock lock(d->mutex);
    // The GUI thread does the work, so it cannot wait for it.
    if (!d->onGuiThread())
        d->answered.wait_for(lock, std::chrono::milliseconds(std::max(0, timeoutMs)),
                             [this] { return !d->starting; });
    return d->current;
}

KeystrokeChannel::State PortalRemoteDesktop::state() const {
    const std::lock_guard lock(d->mutex);
    return d->current;
}

QString PortalRemoteDesktop::name() const {
    return QStringLiteral("the RemoteDesktop portal");
}

} // namespace platform::wayland
