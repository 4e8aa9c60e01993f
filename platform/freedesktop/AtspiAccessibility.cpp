#include "platform/freedesktop/AtspiAccessibility.h"

#include "platform/freedesktop/GuiThread.h"
#include "platform/freedesktop/ScreenMapping.h"
#include "platform/freedesktop/ThreadSanitizer.h"
#include "support/Log.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <unistd.h>
#include <variant>

namespace platform::freedesktop {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto busService = "org.a11y.Bus";
constexpr auto busPath = "/org/a11y/bus";
constexpr auto registryService = "org.a11y.atspi.Registry";
constexpr auto rootPath = "/org/a11y/atspi/accessible/root";
constexpr auto nullPath = "/org/a11y/atspi/null";
constexpr auto accessibleInterface = "org.a11y.atspi.Accessible";
constexpr auto textInterface = "org.a11y.atspi.Text";
constexpr auto componentInterface = "org.a11y.atspi.Component";
constexpr auto collectionInterface = "org.a11y.atspi.Collection";
constexpr auto editableTextInterface = "org.a11y.atspi.EditableText";
constexpr auto propertiesInterface = "org.freedesktop.DBus.Properties";

// AT-SPI constants.
constexpr std::uint32_t coordTypeScreen = 0;
constexpr int stateActive = 1;
constexpr int stateDefunct = 6;
constexpr int stateEditable = 7;
constexpr int stateFocused = 12;
constexpr int stateShowing = 25;
constexpr int stateManagesDescendants = 31;
constexpr int matchAll = 1;
constexpr std::uint32_t sortCanonical = 1;
constexpr int stateVisible = 30;
constexpr int walkLimit = 2000;
// Focused objects taken from one Collection answer: the chain from a window down.
constexpr int collectionMatchLimit = 16;
// Objects searched below a focused container the Collection answer ended on.
constexpr int diveLimit = 300;
// How long the focused object found is taken on trust (see focusedElement).
constexpr std::chrono::milliseconds recentFocus{2000};
// How long to wait before asking again for a place not known yet (see boundsForRange).
constexpr std::chrono::milliseconds placeRetry{40};
// Ranges longer than this are placed by their first and last characters (see boundsForRange).
constexpr int longRange = 100;
// A container that manages its descendants is searched only when it holds this few.
constexpr int managedChildrenLimit = 500;

// An accessibility attribute that no platform header names: the whole text of a text object.
constexpr auto valueAttribute = "AXValue";

struct ObjectRef {
    QString service;
    QString path;
};

// One accessible object on the bus. An application element made from a pid has no service
// yet: it is looked up on each read (and cached by the port).
class AtspiElement final : public AXElementImpl {
public:
    AtspiElement(std::int32_t pid, QString service, QString path, bool application)
        : pid(pid), service(std::move(service)), path(std::move(path)), application(application) {}

    [[nodiscard]] QString describe() const override {
        if (application && service.isEmpty())
            return QStringLiteral("<AXUIElement application pid=%1>").arg(pid);
        return QStringLiteral("<AXUIElement %1%2>").arg(service, path);
    }

    const std::int32_t pid;
    const QString service;
    const QString path;
    const bool application;
};

class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds budget) : end_(Clock::now() + budget) {}
    // What is left of the budget, capped at `cap`; zero when it is used up.
    [[nodiscard]] int remainingMs(std::chrono::milliseconds cap) const {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
        return static_cast<int>(std::max<std::int64_t>(0, std::min(left, cap).count()));
    }

private:
    Clock::time_point end_;
};

AXError errorFor(const QDBusError& error, bool parameterized) {
    const QString name = error.name();
    if (name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner"))
        return ax::invalidUIElement;
    switch (error.type()) {
    case QDBusError::NoReply:
    case QDBusError::Timeout:
    case QDBusError::TimedOut:
        return ax::cannotComplete;
    case QDBusError::ServiceUnknown:
    case QDBusError::UnknownObject:
    case QDBusError::Disconnected:
        return ax::invalidUIElement;
    case QDBusError::UnknownMethod:
    case QDBusError::UnknownInterface:
    case QDBusError::UnknownProperty:
        return parameterized ? ax::parameterizedAttributeUnsupported : ax::attributeUnsupported;
    case QDBusError::InvalidArgs:
    case QDBusError::InvalidSignature:
        return ax::illegalArgument;
    case QDBusError::AccessDenied:
        return ax::apiDisabled;
    default:
        return ax::failure;
    }
}

// One argument of an answer, copied out of Qt's D-Bus message into plain values.
using Value =
    std::variant<std::monostate, int, std::uint32_t, bool, QString, std::vector<ObjectRef>,
                 std::vector<std::uint32_t>, std::array<int, 4>, std::vector<QString>>;

// The answer of one call: its arguments, or an error code.
struct Answer {
    AXError error = ax::failure;
    std::vector<Value> arguments;
    [[nodiscard]] bool ok() const { return error == ax::success; }
    template <typename T> [[nodiscard]] const T* argument(std::size_t index) const {
        return index < arguments.size() ? std::get_if<T>(&arguments[index]) : nullptr;
    }
};

// A fresh copy: Qt's own string may share its data with the D-Bus thread's message.
QString deepCopy(const QString& text) {
    return QString(text.unicode(), text.size());
}

std::vector<ObjectRef> objectRefsOf(const QDBusArgument& argument) {
    std::vector<ObjectRef> refs;
    argument.beginArray();
    while (!argument.atEnd()) {
        QString service;
        QDBusObjectPath path;
        argument.beginStructure();
        argument >> service >> path;
        argument.endStructure();
        if (!service.isEmpty() && !path.path().isEmpty() && path.path() != QLatin1String(nullPath))
            refs.push_back({deepCopy(service), deepCopy(path.path())});
    }
    argument.endArray();
    return refs;
}

Value copyOut(const QVariant& value) {
    const QMetaType type = value.metaType();
    if (type == QMetaType::fromType<QDBusVariant>())
        return copyOut(value.value<QDBusVariant>().variant());
    if (type == QMetaType::fromType<int>())
        return value.toInt();
    if (type == QMetaType::fromType<std::uint32_t>())
        return static_cast<std::uint32_t>(value.toUInt());
    if (type == QMetaType::fromType<bool>())
        return value.toBool();
    if (type == QMetaType::fromType<QString>())
        return deepCopy(value.toString());
    if (type == QMetaType::fromType<QStringList>()) {
        std::vector<QString> items;
        for (const QString& item : value.toStringList())
            items.push_back(deepCopy(item));
        return items;
    }
    if (!value.canConvert<QDBusArgument>())
        return std::monostate{};
    const auto argument = value.value<QDBusArgument>();
    const QString signature = argument.currentSignature();
    if (signature == QLatin1String("a(so)"))
        return objectRefsOf(argument);
    if (signature == QLatin1String("(so)")) {
        // One reference (an object's parent): a list of one, or none for the null object.
        QString service;
        QDBusObjectPath path;
        argument.beginStructure();
        argument >> service >> path;
        argument.endStructure();
        std::vector<ObjectRef> refs;
        if (!service.isEmpty() && !path.path().isEmpty() && path.path() != QLatin1String(nullPath))
            refs.push_back({deepCopy(service), deepCopy(path.path())});
        return refs;
    }
    if (signature == QLatin1String("as")) {
        std::vector<QString> items;
        argument.beginArray();
        while (!argument.atEnd()) {
            QString item;
            argument >> item;
            items.push_back(deepCopy(item));
        }
        argument.endArray();
        return items;
    }
    if (signature == QLatin1String("au")) {
        std::vector<std::uint32_t> values;
        argument.beginArray();
        while (!argument.atEnd()) {
            std::uint32_t item = 0;
            argument >> item;
            values.push_back(item);
        }
        argument.endArray();
        return values;
    }
    if (signature == QLatin1String("(iiii)")) {
        std::array<int, 4> box{};
        argument.beginStructure();
        argument >> box[0] >> box[1] >> box[2] >> box[3];
        argument.endStructure();
        return box;
    }
    return std::monostate{};
}

// A boolean wrapped in a D-Bus variant, as property setters take it.
struct VariantBool {
    bool value = false;
};
// The Collection match rule "objects in the focused state".
struct FocusedRule {};

// One argument of a call, as plain values: the Qt D-Bus values are made inside the call.
using Argument = std::variant<int, std::uint32_t, bool, QString, VariantBool, FocusedRule>;

QVariant toQt(const Argument& argument) {
    struct Convert {
        QVariant operator()(int value) const { return value; }
        QVariant operator()(std::uint32_t value) const { return QVariant::fromValue(value); }
        QVariant operator()(bool value) const { return value; }
        QVariant operator()(const QString& value) const { return deepCopy(value); }
        QVariant operator()(VariantBool value) const {
            return QVariant::fromValue(QDBusVariant(value.value));
        }
        QVariant operator()(FocusedRule /*rule*/) const {
            QDBusArgument rule;
            rule.beginStructure();
            rule << QList<int>{1 << stateFocused, 0} << matchAll << QMap<QString, QString>{}
                 << matchAll << QList<int>{} << matchAll << QStringList{} << matchAll << false;
            rule.endStructure();
            return QVariant::fromValue(rule);
        }
    };
    return std::visit(Convert{}, argument);
}

Answer answerOf(const QDBusMessage& reply, bool parameterized,
                QDBusError::ErrorType* errorType = nullptr) {
    Answer answer;
    if (reply.type() == QDBusMessage::ErrorMessage) {
        const QDBusError error(reply);
        if (errorType != nullptr)
            *errorType = error.type();
        answer.error = errorFor(error, parameterized);
        return answer;
    }
    if (reply.type() != QDBusMessage::ReplyMessage)
        return answer;
    answer.error = ax::success;
    const QList<QVariant> replyValues = reply.arguments();
    for (const QVariant& value : replyValues)
        answer.arguments.push_back(copyOut(value));
    return answer;
}

// One blocking call. Everything Qt's D-Bus thread may touch (the message, its arguments, the
// reply) is made and dropped inside the blind spot; the answer leaves as fresh copies.
Answer exchange(const std::function<QDBusConnection()>& connection, const QString& service,
                const QString& path, const QString& interface, const QString& method,
                const std::vector<Argument>& arguments, int timeoutMs, bool parameterized,
                QDBusError::ErrorType* errorType = nullptr) {
    [[maybe_unused]] const ThreadSanitizerBlindSpot blindSpot;
    auto message = QDBusMessage::createMethodCall(deepCopy(service), deepCopy(path),
                                                  deepCopy(interface), deepCopy(method));
    QList<QVariant> values;
    for (const Argument& argument : arguments)
        values.append(toQt(argument));
    message.setArguments(values);
    return answerOf(connection().call(message, QDBus::Block, timeoutMs), parameterized, errorType);
}

// The same method without arguments on several objects at once: all questions are sent before
// the first answer is awaited, so a walk pays one round trip per level of the tree, not one per
// object.
std::vector<Answer> exchangeAll(const std::function<QDBusConnection()>& connection,
                                const std::vector<ObjectRef>& targets, const QString& interface,
                                const QString& method, int timeoutMs) {
    [[maybe_unused]] const ThreadSanitizerBlindSpot blindSpot;
    const QDBusConnection bus = connection();
    std::vector<QDBusPendingCall> pending;
    pending.reserve(targets.size());
    for (const auto& target : targets) {
        pending.push_back(bus.asyncCall(
            QDBusMessage::createMethodCall(deepCopy(target.service), deepCopy(target.path),
                                           deepCopy(interface), deepCopy(method)),
            timeoutMs));
    }
    std::vector<Answer> answers;
    answers.reserve(pending.size());
    for (auto& call : pending) {
        call.waitForFinished();
        answers.push_back(answerOf(call.reply(), false));
    }
    return answers;
}

std::optional<std::vector<ObjectRef>> objectRefs(const Answer& answer) {
    if (const auto* refs = answer.argument<std::vector<ObjectRef>>(0))
        return *refs;
    return std::nullopt;
}

std::optional<std::vector<std::uint32_t>> uintArray(const Answer& answer) {
    if (const auto* values = answer.argument<std::vector<std::uint32_t>>(0))
        return *values;
    return std::nullopt;
}

// Four integers, either as four arguments or as one (iiii) structure.
std::optional<std::array<int, 4>> fourInts(const Answer& answer) {
    if (const auto* box = answer.argument<std::array<int, 4>>(0))
        return *box;
    std::array<int, 4> values{};
    for (std::size_t i = 0; i < 4; ++i) {
        const auto* item = answer.argument<int>(i);
        if (item == nullptr)
            return std::nullopt;
        values[i] = *item;
    }
    return values;
}

bool hasState(const std::vector<std::uint32_t>& states, int state) {
    const auto word = static_cast<std::size_t>(state / 32);
    return word < states.size() && (states[word] & (1U << (state % 32))) != 0;
}

AXRef elementRef(std::int32_t pid, const ObjectRef& ref) {
    return makeAX(std::shared_ptr<AXElementImpl>(
        std::make_shared<AtspiElement>(pid, ref.service, ref.path, false)));
}

AXResult errorResult(AXError error) {
    return AXResult{error, nullptr};
}

AXResult valueResult(AXRef value) {
    return AXResult{ax::success, std::move(value)};
}

} // namespace

class AtspiAccessibility::Impl {
public:
    explicit Impl(Timeouts timeouts) : timeouts(timeouts) {}

    ~Impl() {
        const std::lock_guard lock(mutex);
        if (!connectionName.isEmpty()) {
            [[maybe_unused]] const ThreadSanitizerBlindSpot blindSpot;
            QDBusConnection::disconnectFromBus(deepCopy(connectionName));
        }
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // --- the session bus side: where the accessibility bus is, and whether it is switched on

    Answer sessionCall(const QString& interface, const QString& method,
                       const std::vector<Argument>& arguments, const Deadline& deadline) const {
        const int timeout = deadline.remainingMs(timeouts.call);
        if (timeout <= 0)
            return {ax::cannotComplete, {}};
        return exchange([] { return QDBusConnection::sessionBus(); }, QLatin1String(busService),
                        QLatin1String(busPath), interface, method, arguments, timeout, false);
    }

    std::optional<QString> busAddress(const Deadline& deadline) const {
        const Answer reply =
            sessionCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress"), {}, deadline);
        const auto* address = reply.argument<QString>(0);
        if (address == nullptr || address->isEmpty())
            return std::nullopt;
        return *address;
    }

    std::optional<bool> isEnabled(const Deadline& deadline) const {
        const Answer reply =
            sessionCall(QLatin1String(propertiesInterface), QStringLiteral("Get"),
                        {QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled")}, deadline);
        if (const auto* enabled = reply.argument<bool>(0))
            return *enabled;
        return std::nullopt;
    }

    bool setEnabled(bool enabled) {
        {
            const std::lock_guard lock(mutex);
            trustedUntil = {};
        }
        const Deadline deadline(timeouts.read);
        const Answer reply = sessionCall(
            QLatin1String(propertiesInterface), QStringLiteral("Set"),
            {QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"), VariantBool{enabled}},
            deadline);
        return reply.ok() && isEnabled(deadline) == enabled;
    }

    // The name of the accessibility bus connection, made once per bus address.
    std::optional<QString> accessibilityBus(const Deadline& deadline) {
        const auto address = busAddress(deadline);
        if (!address)
            return std::nullopt;
        const std::lock_guard lock(mutex);
        [[maybe_unused]] const ThreadSanitizerBlindSpot blindSpot;
        if (*address == connectedAddress && QDBusConnection(deepCopy(connectionName)).isConnected())
            return connectionName;
        if (!connectionName.isEmpty())
            QDBusConnection::disconnectFromBus(deepCopy(connectionName));
        connectionName = QStringLiteral("mendwise-accessibility-%1").arg(++generation);
        connectedAddress = *address;
        servicePids.clear();
        if (!QDBusConnection::connectToBus(deepCopy(*address), deepCopy(connectionName))
                 .isConnected())
            return std::nullopt;
        return connectionName;
    }

    // The accessibility bus when the process is trusted; apiDisabled otherwise. A trigger asks
    // a handful of questions within milliseconds: the two on the session bus are asked once
    // for all of them. Only a yes is kept, so switching on shows at once.
    std::variant<QString, AXError> trustedBus(const Deadline& deadline) {
        const auto now = std::chrono::steady_clock::now();
        {
            const std::lock_guard lock(mutex);
            if (now < trustedUntil)
                return deepCopy(connectionName);
        }
        if (isEnabled(deadline) != true)
            return ax::apiDisabled;
        auto bus = accessibilityBus(deadline);
        if (!bus)
            return ax::apiDisabled;
        const std::lock_guard lock(mutex);
        trustedUntil = now + trustKept;
        return *bus;
    }

    // --- calls on the accessibility bus (named by its connection)

    Answer call(const QString& bus, const ObjectRef& target, const QString& interface,
                const QString& method, const std::vector<Argument>& arguments,
                const Deadline& deadline, bool parameterized = false) const {
        const int timeout = deadline.remainingMs(timeouts.call);
        if (timeout <= 0)
            return {ax::cannotComplete, {}};
        QDBusError::ErrorType errorType = QDBusError::NoError;
        Answer answer =
            exchange([&bus] { return QDBusConnection(deepCopy(bus)); }, target.service, target.path,
                     interface, method, arguments, timeout, parameterized, &errorType);
        // Qt answers a method of an interface the object lacks with UnknownObject; the object
        // is only gone if it no longer answers as an accessible.
        if (errorType == QDBusError::UnknownObject &&
            interface != QLatin1String(accessibleInterface) &&
            call(bus, target, QLatin1String(accessibleInterface), QStringLiteral("GetRole"), {},
                 deadline)
                .ok())
            answer.error =
                parameterized ? ax::parameterizedAttributeUnsupported : ax::attributeUnsupported;
        return answer;
    }

    Answer property(const QString& bus, const ObjectRef& target, const QString& interface,
                    const QString& name, const Deadline& deadline) const {
        return call(bus, target, QLatin1String(propertiesInterface), QStringLiteral("Get"),
                    {interface, name}, deadline);
    }

    // --- applications by process id

    // The root object of the application of `pid`, from the registry's list of applications.
    std::variant<ObjectRef, AXError> applicationRoot(const QString& bus, std::int32_t pid,
                                                     const Deadline& deadline, bool refresh) {
        if (!refresh) {
            const std::lock_guard lock(mutex);
            for (const auto& [service, owner] : servicePids) {
                if (owner == pid)
                    return ObjectRef{service, QLatin1String(rootPath)};
            }
        }
        const Answer children =
            call(bus, {QLatin1String(registryService), QLatin1String(rootPath)},
                 QLatin1String(accessibleInterface), QStringLiteral("GetChildren"), {}, deadline);
        if (!children.ok())
            return children.error == ax::invalidUIElement ? ax::cannotComplete : children.error;
        const auto applications = objectRefs(children);
        if (!applications)
            return ax::failure;
        std::map<QString, std::int32_t> known;
        {
            const std::lock_guard lock(mutex);
            known = servicePids;
        }
        std::optional<ObjectRef> found;
        std::map<QString, std::int32_t> current;
        for (const auto& application : *applications) {
            auto owner = known.find(application.service);
            std::int32_t applicationPid = -1;
            if (owner != known.end()) {
                applicationPid = owner->second;
            } else {
                const Answer reply = call(bus,
                                          {QStringLiteral("org.freedesktop.DBus"),
                                           QStringLiteral("/org/freedesktop/DBus")},
                                          QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("GetConnectionUnixProcessID"),
                                          {application.service}, deadline);
                const auto* processId = reply.argument<std::uint32_t>(0);
                if (processId == nullptr)
                    continue;
                applicationPid = static_cast<std::int32_t>(*processId);
            }
            current[application.service] = applicationPid;
            if (applicationPid == pid && !found)
                found = application;
        }
        {
            const std::lock_guard lock(mutex);
            servicePids = std::move(current);
        }
        if (!found)
            return ax::cannotComplete;
        return *found;
    }

    // --- attributes

    AXResult read(const AXRef& element, const QString& attribute, const AXRef* parameter) {
        const auto* target =
            element ? dynamic_cast<const AtspiElement*>(element->element()) : nullptr;
        if (target == nullptr)
            return errorResult(ax::illegalArgument);
        const Deadline deadline(timeouts.read);
        auto bus = trustedBus(deadline);
        if (const auto* error = std::get_if<AXError>(&bus))
            return errorResult(*error);
        const auto& connection = std::get<QString>(bus);

        if (!target->application || !target->service.isEmpty())
            return readObject(connection, *target, {target->service, target->path}, attribute,
                              parameter, deadline);
        // An application by pid: a cached bus name may belong to an application that has gone
        // meanwhile; look it up afresh once.
        for (const bool refresh : {false, true}) {
            auto root = applicationRoot(connection, target->pid, deadline, refresh);
            if (const auto* error = std::get_if<AXError>(&root))
                return errorResult(*error);
            AXResult result = readObject(connection, *target, std::get<ObjectRef>(root), attribute,
                                         parameter, deadline);
            if (result.error != ax::invalidUIElement || refresh)
                return result;
        }
        return errorResult(ax::failure);
    }

    AXResult readObject(const QString& bus, const AtspiElement& element, const ObjectRef& target,
                        const QString& attribute, const AXRef* parameter,
                        const Deadline& deadline) {
        if (parameter != nullptr) {
            if (attribute == QLatin1String(axattr::boundsForRange) && screenCoordinatesKnown)
                return boundsForRange(bus, target, *parameter, deadline);
            return errorResult(ax::parameterizedAttributeUnsupported);
        }
        if (attribute == QLatin1String(axattr::role))
            return role(bus, target, deadline);
        if (attribute == QLatin1String(axattr::selectedText))
            return selectedText(bus, target, deadline);
        if (attribute == QLatin1String(axattr::selectedTextRange))
            return selectedTextRange(bus, target, deadline);
        if (!screenCoordinatesKnown && (attribute == QLatin1String(axattr::position) ||
                                        attribute == QLatin1String(axattr::size)))
            return errorResult(ax::attributeUnsupported);
        if (attribute == QLatin1String(axattr::position) ||
            attribute == QLatin1String(axattr::size))
            return extents(bus, target, attribute == QLatin1String(axattr::position), deadline);
        if (attribute == QLatin1String(valueAttribute))
            return wholeText(bus, target, deadline);
        if (element.application && attribute == QLatin1String(axattr::focusedUIElement))
            return rememberFocus(bus, element.pid,
                                 focusedElement(bus, element.pid, target, deadline), deadline);
        if (element.application && attribute == QLatin1String(axattr::windows))
            return windows(bus, element.pid, target, deadline);
        return errorResult(ax::attributeUnsupported);
    }

    AXResult role(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        const Answer answer = call(bus, target, QLatin1String(accessibleInterface),
                                   QStringLiteral("GetRoleName"), {}, deadline);
        if (!answer.ok())
            return errorResult(answer.error);
        const auto* text = answer.argument<QString>(0);
        if (text == nullptr)
            return errorResult(ax::failure);
        return valueResult(makeAX(*text));
    }

    std::optional<std::vector<ObjectRef>> children(const QString& bus, const ObjectRef& target,
                                                   const Deadline& deadline, AXError& error) {
        const Answer answer = call(bus, target, QLatin1String(accessibleInterface),
                                   QStringLiteral("GetChildren"), {}, deadline);
        error = answer.error;
        if (!answer.ok())
            return std::nullopt;
        auto refs = objectRefs(answer);
        if (!refs)
            error = ax::failure;
        return refs;
    }

    std::optional<std::vector<std::uint32_t>> states(const QString& bus, const ObjectRef& target,
                                                     const Deadline& deadline, AXError& error) {
        const Answer answer = call(bus, target, QLatin1String(accessibleInterface),
                                   QStringLiteral("GetState"), {}, deadline);
        error = answer.error;
        if (!answer.ok())
            return std::nullopt;
        auto values = uintArray(answer);
        if (!values)
            error = ax::failure;
        return values;
    }

    AXResult windows(const QString& bus, std::int32_t pid, const ObjectRef& root,
                     const Deadline& deadline) {
        AXError error = ax::success;
        const auto refs = children(bus, root, deadline, error);
        if (!refs)
            return errorResult(error);
        std::vector<AXRef> items;
        for (const auto& ref : *refs)
            items.push_back(elementRef(pid, ref));
        return valueResult(makeAX(std::move(items)));
    }

    // The object that holds the focus: the deepest focused object that offers Text, else the
    // deepest focused one. Toolkits mark a whole chain focused (LibreOffice: a panel, then the
    // paragraph below it), and Qt 5 marks unrelated objects focused too (KDE's status bar
    // buttons), so the first focused object is often not the one.
    AXResult focusedElement(const QString& bus, std::int32_t pid, const ObjectRef& root,
                            const Deadline& deadline) {
        // The object found a moment ago, while it keeps the focus: a second question (the read
        // after the anchor) then costs one call. Only a moment: an object may keep claiming the
        // focus it lost (Firefox's windows while it starts), and what took it over lies
        // elsewhere in the tree.
        if (auto known = lastFocus(pid, recentFocus);
            known && known->service == root.service && stillFocused(bus, *known, deadline))
            return valueResult(elementRef(pid, *known));
        // Collection: the application searches its own tree, in document order, so later
        // matches lie deeper.
        const Answer answer =
            call(bus, root, QLatin1String(collectionInterface), QStringLiteral("GetMatches"),
                 {FocusedRule{}, sortCanonical, collectionMatchLimit, true}, deadline);
        FocusChain chain;
        AXError walked = ax::success;
        if (answer.ok()) {
            const auto matches = objectRefs(answer);
            if (!matches)
                return errorResult(ax::failure);
            int depth = 0;
            for (const auto& match : *matches)
                chain.push_back({match, offersText(bus, match, deadline), depth++});
            // A focused container may still hold a focused object the search did not reach
            // (one that manages its descendants).
            if (!chain.empty() && !chain.back().text)
                searchBelow(bus, {{chain.back().ref, depth}}, deadline, chain, diveLimit, true);
        } else if (answer.error == ax::attributeUnsupported) {
            walked = walkForFocus(bus, root, deadline, chain);
        } else {
            return errorResult(answer.error);
        }
        if (chain.empty())
            return errorResult(walked == ax::success ? ax::noValue : walked);
        markSizeless(bus, chain, deadline);
        const ObjectRef& found = pick(chain);
        remember(pid, found);
        return valueResult(elementRef(pid, found));
    }

    struct Focused {
        ObjectRef ref;
        bool text = false;
        int depth = 0;
        bool sizeless = false; // takes no room on screen
    };
    using FocusChain = std::vector<Focused>;
    using Queue = std::deque<std::pair<ObjectRef, int>>; // object, depth

    // The deepest focused object that offers Text and takes room on screen, else the deepest
    // one that offers Text, else the deepest focused one.
    static const ObjectRef& pick(const FocusChain& chain) {
        const auto rank = [](const Focused& focused) {
            return std::pair(!focused.sizeless, focused.depth);
        };
        const Focused* best = nullptr;
        for (const auto& focused : chain) {
            if (focused.text && (best == nullptr || rank(focused) > rank(*best)))
                best = &focused;
        }
        return best != nullptr ? best->ref : chain.back().ref;
    }

    // Where several focused objects offer Text, marks those of no size: Chromium keeps the
    // empty documents of windows nobody sees (bubbles, popups) focused and showing beside the
    // text area that holds the focus. One call each, and only then.
    void markSizeless(const QString& bus, FocusChain& chain, const Deadline& deadline) {
        if (std::count_if(chain.begin(), chain.end(),
                          [](const Focused& focused) { return focused.text; }) < 2)
            return;
        for (auto& focused : chain) {
            if (!focused.text)
                continue;
            const auto box = objectBox(bus, focused.ref, deadline);
            // Not -1, Firefox's "not known yet".
            focused.sizeless = box && ((*box)[2] == 0 || (*box)[3] == 0);
        }
    }

    // The object found last for `pid`, if found no longer than `maxAge` ago.
    std::optional<ObjectRef> lastFocus(
        std::int32_t pid,
        std::chrono::steady_clock::duration maxAge = std::chrono::steady_clock::duration::max()) {
        const std::lock_guard lock(mutex);
        const auto known = lastFocused.find(pid);
        if (known == lastFocused.end() ||
            std::chrono::steady_clock::now() - known->second.at > maxAge)
            return std::nullopt;
        return known->second.ref;
    }

    void remember(std::int32_t pid, const ObjectRef& focused) {
        const std::lock_guard lock(mutex);
        lastFocused[pid] = {focused, std::chrono::steady_clock::now()};
    }

    // Still focused, on screen, and with nothing focused below it.
    bool stillFocused(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        AXError error = ax::success;
        const auto targetStates = states(bus, target, deadline, error);
        if (!targetStates || !hasState(*targetStates, stateFocused) ||
            hasState(*targetStates, stateDefunct) ||
            !(hasState(*targetStates, stateShowing) || hasState(*targetStates, stateVisible)))
            return false;
        FocusChain below;
        searchBelow(bus, {{target, 0}}, deadline, below, diveLimit, true);
        return below.empty();
    }

    bool offersText(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        const Answer answer = call(bus, target, QLatin1String(accessibleInterface),
                                   QStringLiteral("GetInterfaces"), {}, deadline);
        const auto* names = answer.argument<std::vector<QString>>(0);
        return names != nullptr && std::find(names->begin(), names->end(),
                                             QLatin1String(textInterface)) != names->end();
    }

    // Without Collection: breadth first from the windows, the active one first (see
    // searchBelow). cannotComplete when the time or
    // the object budget ran out first, the error when the application did not answer.
    AXError walkForFocus(const QString& bus, const ObjectRef& root, const Deadline& deadline,
                         FocusChain& chain) {
        AXError error = ax::success;
        const auto windowRefs = children(bus, root, deadline, error);
        if (!windowRefs)
            return error;
        Queue queue;
        for (const auto& window : *windowRefs) {
            const auto windowStates = states(bus, window, deadline, error);
            if (!windowStates)
                continue;
            if (hasState(*windowStates, stateFocused)) {
                chain.push_back({window, offersText(bus, window, deadline), 0});
                queue = {{window, 0}};
                break;
            }
            if (hasState(*windowStates, stateActive))
                queue.emplace_front(window, 0);
            else if (hasState(*windowStates, stateShowing))
                queue.emplace_back(window, 0);
        }
        return searchBelow(bus, std::move(queue), deadline, chain, walkLimit, !chain.empty())
                   ? ax::success
                   : ax::cannotComplete;
    }

    // Breadth first below the queued objects, adding every focused object to `chain`. The
    // subtrees of focused objects come first; the rest of the tree only while no focused
    // object that offers Text has been found (Qt 5 marks unrelated objects focused, so the
    // first focused subtree may not hold the text). Objects on screen only: showing, or
    // visible where the toolkit never says showing (GTK 4). False when the time or the object
    // budget ran out first.
    bool searchBelow(const QString& bus, Queue queue, const Deadline& deadline, FocusChain& chain,
                     int limit, bool focusedStart = false) {
        Queue focusedSubtrees;
        if (focusedStart)
            std::swap(queue, focusedSubtrees);
        const auto foundText = [&chain] {
            return std::any_of(chain.begin(), chain.end(),
                               [](const Focused& focused) { return focused.text; });
        };
        int visited = 0;
        AXError error = ax::success;
        while (!focusedSubtrees.empty() || (!queue.empty() && !foundText())) {
            const bool inFocus = !focusedSubtrees.empty();
            Queue& from = inFocus ? focusedSubtrees : queue;
            const auto [node, depth] = from.front();
            from.pop_front();
            const auto kids = children(bus, node, deadline, error);
            if (!kids || kids->empty())
                continue;
            const int timeout = deadline.remainingMs(timeouts.call);
            if (timeout <= 0)
                return false;
            const std::vector<Answer> kidAnswers = exchangeAll(
                [&bus] { return QDBusConnection(deepCopy(bus)); }, *kids,
                QLatin1String(accessibleInterface), QStringLiteral("GetState"), timeout);
            for (std::size_t i = 0; i < kids->size(); ++i) {
                const ObjectRef& kid = (*kids)[i];
                if (++visited > limit)
                    return false;
                const auto kidStates = uintArray(kidAnswers[i]);
                if (!kidStates || hasState(*kidStates, stateDefunct) ||
                    !(hasState(*kidStates, stateShowing) || hasState(*kidStates, stateVisible)))
                    continue;
                const bool focused = hasState(*kidStates, stateFocused);
                if (focused)
                    chain.push_back({kid, offersText(bus, kid, deadline), depth + 1});
                // A table or list that manages its descendants may hold millions of them.
                if (hasState(*kidStates, stateManagesDescendants) &&
                    childCount(bus, kid, deadline) > managedChildrenLimit)
                    continue;
                (inFocus || focused ? focusedSubtrees : queue).emplace_back(kid, depth + 1);
            }
        }
        return true;
    }

    int childCount(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        const Answer answer = property(bus, target, QLatin1String(accessibleInterface),
                                       QStringLiteral("ChildCount"), deadline);
        const auto* count = answer.argument<int>(0);
        return count != nullptr ? *count : INT32_MAX;
    }

    struct Selection {
        int start = 0;
        int end = 0;
    };

    // The first selection of a text object, none when nothing is selected; `error` otherwise.
    std::optional<Selection> firstSelection(const QString& bus, const ObjectRef& target,
                                            const Deadline& deadline, AXError& error) {
        const Answer count = call(bus, target, QLatin1String(textInterface),
                                  QStringLiteral("GetNSelections"), {}, deadline);
        error = count.error;
        if (!count.ok())
            return std::nullopt;
        const auto* selections = count.argument<int>(0);
        if (selections == nullptr) {
            error = ax::failure;
            return std::nullopt;
        }
        if (*selections <= 0)
            return std::nullopt;
        const Answer range = call(bus, target, QLatin1String(textInterface),
                                  QStringLiteral("GetSelection"), {0}, deadline);
        error = range.error;
        if (!range.ok())
            return std::nullopt;
        const auto* first = range.argument<int>(0);
        const auto* second = range.argument<int>(1);
        if (first == nullptr || second == nullptr) {
            error = ax::failure;
            return std::nullopt;
        }
        const int a = *first;
        const int b = *second;
        if (a == b)
            return std::nullopt;
        return Selection{std::min(a, b), std::max(a, b)};
    }

    AXResult text(const QString& bus, const ObjectRef& target, int start, int end,
                  const Deadline& deadline) {
        const Answer answer = call(bus, target, QLatin1String(textInterface),
                                   QStringLiteral("GetText"), {start, end}, deadline);
        if (!answer.ok())
            return errorResult(answer.error);
        const auto* text = answer.argument<QString>(0);
        if (text == nullptr)
            return errorResult(ax::failure);
        return valueResult(makeAX(*text));
    }

    AXResult selectedText(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        AXError error = ax::success;
        const auto selection = firstSelection(bus, target, deadline, error);
        if (error != ax::success)
            return errorResult(error);
        if (auto joined = selectionAcrossParagraphs(bus, target, deadline))
            return valueResult(makeAX(*joined));
        if (!selection)
            return valueResult(makeAX(QString()));
        return text(bus, target, selection->start, selection->end, deadline);
    }

    // A document that exposes one object per paragraph (LibreOffice) keeps a selection over
    // several paragraphs as one selection in each; the focused one holds only its own part.
    // The parts are joined in document order, one line each. None when the target is not such
    // a paragraph or nothing is selected.
    std::optional<QString> selectionAcrossParagraphs(const QString& bus, const ObjectRef& target,
                                                     const Deadline& deadline) {
        const Answer roleAnswer = call(bus, target, QLatin1String(accessibleInterface),
                                       QStringLiteral("GetRoleName"), {}, deadline);
        const auto* roleName = roleAnswer.argument<QString>(0);
        if (roleName == nullptr ||
            (*roleName != QLatin1String("paragraph") && *roleName != QLatin1String("heading")))
            return std::nullopt;
        const Answer parentAnswer = property(bus, target, QLatin1String(accessibleInterface),
                                             QStringLiteral("Parent"), deadline);
        const auto parent = objectRefs(parentAnswer);
        if (!parent || parent->empty())
            return std::nullopt;
        AXError error = ax::success;
        const auto parentStates = states(bus, parent->front(), deadline, error);
        if (!parentStates || !hasState(*parentStates, stateManagesDescendants) ||
            childCount(bus, parent->front(), deadline) > managedChildrenLimit)
            return std::nullopt;
        const auto paragraphs = children(bus, parent->front(), deadline, error);
        if (!paragraphs)
            return std::nullopt;
        QStringList parts;
        for (const auto& paragraph : *paragraphs) {
            const auto part = firstSelection(bus, paragraph, deadline, error);
            if (!part)
                continue;
            const AXResult piece = text(bus, paragraph, part->start, part->end, deadline);
            if (const auto pieceText = axString(piece.value))
                parts << *pieceText;
        }
        if (parts.isEmpty())
            return std::nullopt;
        return parts.join(u'\n');
    }

    AXResult wholeText(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        return text(bus, target, 0, -1, deadline);
    }

    AXResult selectedTextRange(const QString& bus, const ObjectRef& target,
                               const Deadline& deadline) {
        AXError error = ax::success;
        const auto selection = firstSelection(bus, target, deadline, error);
        if (error != ax::success)
            return errorResult(error);
        if (selection)
            return valueResult(
                makeAX(CFRange{selection->start, selection->end - selection->start}));
        const Answer caret = property(bus, target, QLatin1String(textInterface),
                                      QStringLiteral("CaretOffset"), deadline);
        if (!caret.ok())
            return errorResult(caret.error);
        const auto* caretOffset = caret.argument<int>(0);
        if (caretOffset == nullptr)
            return errorResult(ax::failure);
        const int offset = *caretOffset;
        if (offset < 0)
            return errorResult(ax::noValue);
        return valueResult(makeAX(CFRange{offset, 0}));
    }

    AXResult extents(const QString& bus, const ObjectRef& target, bool wantPosition,
                     const Deadline& deadline) {
        if (!knowsScreenPositions(bus, target.service, deadline))
            return errorResult(ax::noValue);
        const Answer answer = call(bus, target, QLatin1String(componentInterface),
                                   QStringLiteral("GetExtents"), {coordTypeScreen}, deadline);
        if (!answer.ok())
            return errorResult(answer.error);
        const auto box = fourInts(answer);
        if (!box)
            return errorResult(ax::failure);
        // Firefox says -1 everywhere for a place it does not know yet.
        if ((*box)[2] < 0 || (*box)[3] < 0)
            return errorResult(ax::noValue);
        const Rect rect = accessibilityFromNative(
            Rect{double((*box)[0]), double((*box)[1]), double((*box)[2]), double((*box)[3])},
            layout());
        if (wantPosition)
            return valueResult(makeAX(Point{rect.x, rect.y}));
        return valueResult(makeAX(Size{rect.width, rect.height}));
    }

    AXResult boundsForRange(const QString& bus, const ObjectRef& target, const AXRef& parameter,
                            const Deadline& deadline) {
        CFRange range;
        if (!axValueGetValue(parameter, range) || range.location < 0 || range.length < 0 ||
            range.location + range.length > INT32_MAX)
            return errorResult(ax::illegalArgument);
        const int start = static_cast<int>(range.location);
        const int last = static_cast<int>(range.location + range.length) - 1;
        std::optional<std::array<int, 4>> box;
        // GTK 3 measures a range character by character (in mousepad 2000 characters took
        // 100 ms, a whole page over a second, and held up every later question): a long range
        // is spanned by its first and last characters, which differ from its extents only in
        // the width of a range of several lines.
        if (range.length > longRange)
            box = characterSpan(bus, target, start, last, deadline);
        if (range.length > 0 && !box) {
            int end = last + 1;
            AXError error = ax::success;
            if (rangeEndIsInclusive(bus, target, start, deadline, error))
                --end;
            if (error != ax::success && error != ax::parameterizedAttributeUnsupported)
                return errorResult(error);
            const auto ask = [&] {
                return end > start ? call(bus, target, QLatin1String(textInterface),
                                          QStringLiteral("GetRangeExtents"),
                                          {start, end, coordTypeScreen}, deadline, true)
                                   : call(bus, target, QLatin1String(textInterface),
                                          QStringLiteral("GetCharacterExtents"),
                                          {start, coordTypeScreen}, deadline, true);
            };
            Answer answer = ask();
            // Firefox answers zeros while it fetches the place from the page's process (the
            // object itself then says -1 everywhere), and knows it a moment later: the first
            // question after a page loads.
            for (int tries = 0; tries < 5 && answer.ok() && !usable(fourInts(answer)) &&
                                deadline.remainingMs(placeRetry * 2) > placeRetry.count() &&
                                placeNotKnownYet(bus, target, deadline);
                 ++tries) {
                std::this_thread::sleep_for(placeRetry);
                answer = ask();
            }
            if (answer.ok())
                box = fourInts(answer);
            if (!usable(box)) {
                // Without range extents, the first and the last character span the range.
                if (auto span = characterSpan(bus, target, start, last, deadline))
                    box = span;
                else if (!answer.ok())
                    return errorResult(answer.error);
            }
        } else if (range.length == 0) {
            // A caret: the left edge of the character after it, or the right edge of the one
            // before it at the end of the text.
            const Answer answer = call(bus, target, QLatin1String(textInterface),
                                       QStringLiteral("GetCharacterExtents"),
                                       {start, coordTypeScreen}, deadline, true);
            if (!answer.ok())
                return errorResult(answer.error);
            box = fourInts(answer);
            if (box && (*box)[3] <= 0 && start > 0) {
                const Answer before = call(bus, target, QLatin1String(textInterface),
                                           QStringLiteral("GetCharacterExtents"),
                                           {start - 1, coordTypeScreen}, deadline, true);
                if (before.ok()) {
                    box = fourInts(before);
                    if (box)
                        (*box)[0] += (*box)[2];
                }
            }
            if (box)
                (*box)[2] = 0;
        }
        if (!box)
            return errorResult(ax::failure);
        if ((*box)[3] <= 0 || ((*box)[0] == 0 && (*box)[1] == 0 && (*box)[2] == 0))
            return errorResult(ax::noValue);
        return valueResult(makeAX(accessibilityFromNative(
            Rect{double((*box)[0]), double((*box)[1]), double((*box)[2]), double((*box)[3])},
            layout())));
    }

    // GTK 4 (4.8 measured) answers screen extents relative to its own window, which would
    // put the panel anywhere; better none. Found out once per application.
    bool knowsScreenPositions(const QString& bus, const QString& service,
                              const Deadline& deadline) {
        {
            const std::lock_guard lock(mutex);
            if (auto known = screenPositions.find(service); known != screenPositions.end())
                return known->second;
        }
        const ObjectRef root{service, QLatin1String(rootPath)};
        const Answer name = property(bus, root, QStringLiteral("org.a11y.atspi.Application"),
                                     QStringLiteral("ToolkitName"), deadline);
        const Answer version = property(bus, root, QStringLiteral("org.a11y.atspi.Application"),
                                        QStringLiteral("Version"), deadline);
        const auto* toolkit = name.argument<QString>(0);
        const auto* number = version.argument<QString>(0);
        if (toolkit == nullptr || number == nullptr)
            return true;
        const bool knows = !(*toolkit == QLatin1String("GTK") && number->startsWith(u'4'));
        const std::lock_guard lock(mutex);
        screenPositions[service] = knows;
        return knows;
    }

    // The object's own box on screen (x, y, width, height); none when it does not say.
    std::optional<std::array<int, 4>> objectBox(const QString& bus, const ObjectRef& target,
                                                const Deadline& deadline) {
        const Answer answer = call(bus, target, QLatin1String(componentInterface),
                                   QStringLiteral("GetExtents"), {coordTypeScreen}, deadline);
        return answer.ok() ? fourInts(answer) : std::nullopt;
    }

    bool placeNotKnownYet(const QString& bus, const ObjectRef& target, const Deadline& deadline) {
        return objectBox(bus, target, deadline) == std::array<int, 4>{-1, -1, -1, -1};
    }

    static bool usable(const std::optional<std::array<int, 4>>& box) {
        return box && (*box)[3] > 0 && ((*box)[0] != 0 || (*box)[1] != 0 || (*box)[2] != 0);
    }

    // The box around two characters, none when either has no usable extents.
    std::optional<std::array<int, 4>> characterSpan(const QString& bus, const ObjectRef& target,
                                                    int first, int last, const Deadline& deadline) {
        std::array<std::optional<std::array<int, 4>>, 2> boxes;
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            boxes.at(i) = fourInts(call(bus, target, QLatin1String(textInterface),
                                        QStringLiteral("GetCharacterExtents"),
                                        {i == 0 ? first : last, coordTypeScreen}, deadline, true));
            if (!usable(boxes.at(i)))
                return std::nullopt;
        }
        const auto& a = *boxes[0];
        const auto& b = *boxes[1];
        const int left = std::min(a[0], b[0]);
        const int top = std::min(a[1], b[1]);
        const int right = std::max(a[0] + a[2], b[0] + b[2]);
        const int bottom = std::max(a[1] + a[3], b[1] + b[3]);
        return std::array<int, 4>{left, top, right - left, bottom - top};
    }

    // Some toolkits (Qt 6.4 measured) include the character at the end offset in a range's
    // extents. Found out once per application: does the range of one character reach beyond
    // that character?
    bool rangeEndIsInclusive(const QString& bus, const ObjectRef& target, int start,
                             const Deadline& deadline, AXError& error) {
        {
            const std::lock_guard lock(mutex);
            if (auto known = inclusiveRangeEnds.find(target.service);
                known != inclusiveRangeEnds.end())
                return known->second;
        }
        const Answer one =
            call(bus, target, QLatin1String(textInterface), QStringLiteral("GetRangeExtents"),
                 {start, start + 1, coordTypeScreen}, deadline, true);
        error = one.error;
        if (!one.ok())
            return false;
        const Answer character =
            call(bus, target, QLatin1String(textInterface), QStringLiteral("GetCharacterExtents"),
                 {start, coordTypeScreen}, deadline, true);
        error = character.error;
        if (!character.ok())
            return false;
        const auto oneBox = fourInts(one);
        const auto characterBox = fourInts(character);
        if (!oneBox || !characterBox || (*characterBox)[2] <= 0)
            return false; // undecided (e.g. a line break): ask again next time
        const bool inclusive = (*oneBox)[2] > (*characterBox)[2] + 1;
        const std::lock_guard lock(mutex);
        inclusiveRangeEnds[target.service] = inclusive;
        return inclusive;
    }

    // The screen layout for converting geometry: fresh from the GUI thread when it answers
    // promptly, else the last one seen.
    ScreenLayout layout() {
        auto fresh =
            callOnGuiThread<ScreenLayout>(currentScreenLayout, std::chrono::milliseconds(500));
        const std::lock_guard lock(mutex);
        if (fresh && !fresh->screens.empty())
            lastLayout = std::move(*fresh);
        return lastLayout;
    }

    // The focused object found now, or, when the application has none at the moment (it is in
    // the background), the one it had when last asked, as long as that is alive.
    AXResult rememberFocus(const QString& bus, std::int32_t pid, AXResult found,
                           const Deadline& deadline) {
        // A success is remembered where it is found.
        if (found.error != ax::noValue)
            return found;
        const auto remembered = lastFocus(pid);
        if (!remembered)
            return found;
        AXError error = ax::success;
        const auto rememberedStates = states(bus, *remembered, deadline, error);
        if (!rememberedStates || hasState(*rememberedStates, stateDefunct)) {
            const std::lock_guard lock(mutex);
            lastFocused.erase(pid);
            return found;
        }
        return valueResult(elementRef(pid, *remembered));
    }

    AXError write(const AXRef& element, const QString& attribute, const AXRef& value) {
        const auto* target =
            element ? dynamic_cast<const AtspiElement*>(element->element()) : nullptr;
        const auto text = axString(value);
        if (target == nullptr || !text)
            return ax::illegalArgument;
        if (target->application || attribute != QLatin1String(axattr::selectedText))
            return ax::attributeUnsupported;
        const Deadline deadline(timeouts.read);
        auto bus = trustedBus(deadline);
        if (const auto* error = std::get_if<AXError>(&bus))
            return *error;
        return replaceSelection(std::get<QString>(bus), {target->service, target->path}, *text,
                                deadline);
    }

    AXError replaceSelection(const QString& bus, const ObjectRef& target, const QString& text,
                             const Deadline& deadline) {
        AXError error = ax::success;
        const auto objectStates = states(bus, target, deadline, error);
        if (!objectStates)
            return error;
        if (!hasState(*objectStates, stateEditable))
            return ax::attributeUnsupported;
        const auto selection = firstSelection(bus, target, deadline, error);
        if (error != ax::success)
            return error;
        int position = 0;
        if (selection) {
            const Answer deleted =
                call(bus, target, QLatin1String(editableTextInterface),
                     QStringLiteral("DeleteText"), {selection->start, selection->end}, deadline);
            if (!deleted.ok())
                return deleted.error;
            position = selection->start;
        } else {
            const Answer caret = property(bus, target, QLatin1String(textInterface),
                                          QStringLiteral("CaretOffset"), deadline);
            const auto* offset = caret.argument<int>(0);
            if (!caret.ok() || offset == nullptr)
                return caret.ok() ? ax::failure : caret.error;
            position = std::max(0, *offset);
        }
        // AT-SPI counts characters as Unicode code points.
        const auto length = static_cast<int>(text.toUcs4().size());
        const Answer inserted =
            call(bus, target, QLatin1String(editableTextInterface), QStringLiteral("InsertText"),
                 {position, text, length}, deadline);
        if (!inserted.ok())
            return inserted.error;
        // Some toolkits answer true and do nothing (a read-only view): trust what is there.
        const AXResult arrived = this->text(bus, target, position, position + length, deadline);
        if (arrived.error != ax::success)
            return arrived.error;
        if (axString(arrived.value) != text)
            return ax::failure;
        call(bus, target, QLatin1String(textInterface), QStringLiteral("SetCaretOffset"),
             {position + length}, deadline);
        return ax::success;
    }

    std::optional<ActiveApplication> activeApplication(std::int32_t ignoredPid) {
        const Deadline deadline(timeouts.read);
        auto bus = trustedBus(deadline);
        if (std::holds_alternative<AXError>(bus))
            return std::nullopt;
        const auto& connection = std::get<QString>(bus);
        // Fills the registry's pid cache; every application root is then known by its pid.
        if (std::holds_alternative<AXError>(
                applicationRoot(connection, ignoredPid, deadline, true)) &&
            servicePidsEmpty())
            return std::nullopt;
        std::map<QString, std::int32_t> applications;
        {
            const std::lock_guard lock(mutex);
            applications = servicePids;
        }
        for (const auto& [service, pid] : applications) {
            if (pid == ignoredPid || pid <= 0)
                continue;
            const ObjectRef root{service, QLatin1String(rootPath)};
            AXError error = ax::success;
            const auto windowRefs = children(connection, root, deadline, error);
            if (!windowRefs)
                continue;
            for (const auto& window : *windowRefs) {
                const auto windowStates = states(connection, window, deadline, error);
                if (!windowStates || !hasState(*windowStates, stateActive))
                    continue;
                const Answer name = property(connection, root, QLatin1String(accessibleInterface),
                                             QStringLiteral("Name"), deadline);
                const auto* applicationName = name.argument<QString>(0);
                return ActiveApplication{pid, applicationName ? *applicationName : QString()};
            }
        }
        return std::nullopt;
    }

    bool servicePidsEmpty() {
        const std::lock_guard lock(mutex);
        return servicePids.empty();
    }

    Timeouts timeouts;
    std::atomic<bool> screenCoordinatesKnown{true};
    std::function<void(const QString&)> publishBusAddress;
    std::mutex mutex;
    QString connectionName;
    QString connectedAddress;
    static constexpr auto trustKept = std::chrono::milliseconds(500);
    std::chrono::steady_clock::time_point trustedUntil; // connectionName answers until then
    int generation = 0;
    std::map<QString, std::int32_t> servicePids; // bus name -> process id
    std::map<QString, bool> inclusiveRangeEnds;  // bus name -> quirk found
    struct Remembered {
        ObjectRef ref;
        std::chrono::steady_clock::time_point at;
    };
    std::map<std::int32_t, Remembered> lastFocused; // process id -> its focused object
    std::map<QString, bool> screenPositions;        // bus name -> extents on screen
    ScreenLayout lastLayout;
};

AtspiAccessibility::AtspiAccessibility() : AtspiAccessibility(Timeouts{}) {}
AtspiAccessibility::AtspiAccessibility(Timeouts timeouts) : d_(std::make_unique<Impl>(timeouts)) {}
AtspiAccessibility::~AtspiAccessibility() = default;

bool AtspiAccessibility::isProcessTrusted() {
    const Deadline deadline(d_->timeouts.read);
    return std::holds_alternative<QString>(d_->trustedBus(deadline));
}

bool AtspiAccessibility::isProcessTrustedWithPrompt() {
    const Deadline deadline(d_->timeouts.read);
    if (!d_->busAddress(deadline)) {
        support::log(QStringLiteral(
            "[Accessibility] ❌ The desktop's accessibility bus (AT-SPI) does not answer. Install "
            "at-spi2-core, log out and in again, then restart Mendwise."));
        return false;
    }
    if (d_->publishBusAddress) {
        if (const auto address = d_->busAddress(deadline))
            d_->publishBusAddress(*address);
    }
    if (d_->isEnabled(deadline) == true)
        return isProcessTrusted();
    if (d_->setEnabled(true)) {
        support::log(QStringLiteral(
            "[Accessibility] ✅ Switched on the desktop's accessibility support (AT-SPI) for "
            "applications started from now on. Desktops that keep it in GSettings keep it on; to "
            "switch it on for good yourself: gsettings set org.gnome.desktop.interface "
            "toolkit-accessibility true"));
        if (const QStringList names = applicationsNeedingRestart(); !names.isEmpty()) {
            support::log(QStringLiteral("[Accessibility] ↻ Started before, so their text is "
                                        "copied until they restart: ") +
                         names.join(QStringLiteral(", ")));
        }
    } else {
        support::log(QStringLiteral(
            "[Accessibility] ❌ Could not switch on the desktop's accessibility support. Run: "
            "gsettings set org.gnome.desktop.interface toolkit-accessibility true, then log out "
            "and in again."));
    }
    return isProcessTrusted();
}

AXRef AtspiAccessibility::createApplication(std::int32_t pid) {
    return makeAX(std::shared_ptr<AXElementImpl>(
        std::make_shared<AtspiElement>(pid, QString(), QString(), true)));
}

AXResult AtspiAccessibility::copyAttributeValue(const AXRef& element, const QString& attribute) {
    return d_->read(element, attribute, nullptr);
}

AXResult AtspiAccessibility::copyParameterizedAttributeValue(const AXRef& element,
                                                             const QString& attribute,
                                                             const AXRef& parameter) {
    return d_->read(element, attribute, &parameter);
}

AXError AtspiAccessibility::setAttributeValue(const AXRef& element, const QString& attribute,
                                              const AXRef& value) {
    return d_->write(element, attribute, value);
}

bool AtspiAccessibility::setAccessibilityEnabled(bool enabled) {
    return d_->setEnabled(enabled);
}

void AtspiAccessibility::setScreenCoordinatesKnown(bool known) {
    d_->screenCoordinatesKnown = known;
}

std::optional<AtspiAccessibility::ActiveApplication>
AtspiAccessibility::activeApplication(std::int32_t ignoredPid) {
    return d_->activeApplication(ignoredPid);
}

void AtspiAccessibility::setBusAddressPublisher(std::function<void(const QString&)> publish) {
    d_->publishBusAddress = std::move(publish);
}

QStringList AtspiAccessibility::applicationsNeedingRestart() {
    const Deadline deadline(d_->timeouts.read);
    const auto bus = d_->trustedBus(deadline);
    if (!std::holds_alternative<QString>(bus))
        return {};
    // Looking up a pid that no process has refreshes the bus's list of applications.
    (void)d_->applicationRoot(std::get<QString>(bus), -1, deadline, true);
    std::set<std::int32_t> onBus;
    {
        const std::lock_guard lock(d_->mutex);
        for (const auto& [service, pid] : d_->servicePids)
            onBus.insert(pid);
    }
    const QByteArray sessionBus = "DBUS_SESSION_BUS_ADDRESS=" + qgetenv("DBUS_SESSION_BUS_ADDRESS");
    QStringList names;
    const QDir processes(QStringLiteral("/proc"));
    const auto self = static_cast<std::int32_t>(QCoreApplication::applicationPid());
    for (const QString& entry : processes.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        const auto pid = static_cast<std::int32_t>(entry.toInt(&numeric));
        if (!numeric || pid == self || onBus.count(pid) != 0 ||
            QFileInfo(processes.filePath(entry)).ownerId() != ::getuid())
            continue;
        QFile maps(processes.filePath(entry) + QStringLiteral("/maps"));
        if (!maps.open(QIODevice::ReadOnly))
            continue;
        const QByteArray mapped = maps.readAll();
        if (!mapped.contains("/libQt5Gui.so") && !mapped.contains("/libQt6Gui.so"))
            continue;
        // Of this desktop session only: the same session bus.
        QFile environment(processes.filePath(entry) + QStringLiteral("/environ"));
        if (!environment.open(QIODevice::ReadOnly) ||
            !environment.readAll().split('\0').contains(sessionBus))
            continue;
        names << QFileInfo(
                     QFileInfo(processes.filePath(entry) + QStringLiteral("/exe")).symLinkTarget())
                     .fileName();
    }
    names.removeDuplicates();
    names.sort();
    return names;
}

} // namespace platform::freedesktop
