#include "app/InstanceBus.h"

#include "BuildConfig.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace app {

namespace {

QString serviceName() {
    return QString::fromLatin1(mendwise::build::appId);
}

// The object path from the id: "app.mendwise.Mendwise" -> "/app/mendwise/Mendwise".
QString objectPath() {
    return u'/' + serviceName().replace(u'.', u'/');
}

// D-Bus activation may have to start Mendwise first.
constexpr int callTimeoutMs = 10000;

} // namespace

InstanceService::InstanceService(Actions actions, QObject* parent)
    : QObject(parent), actions_(std::move(actions)) {}

InstanceService::Claim InstanceService::claim() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return Claim::noBus;
    if (!bus.registerObject(objectPath(), this, QDBusConnection::ExportAllSlots))
        return Claim::noBus;
    const auto reply =
        bus.interface()->registerService(serviceName(), QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid()) {
        bus.unregisterObject(objectPath());
        return Claim::noBus;
    }
    if (reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return Claim::owned;
    bus.unregisterObject(objectPath());
    return Claim::alreadyRunning;
}

void InstanceService::Trigger() {
    if (actions_.trigger)
        actions_.trigger();
}

void InstanceService::OpenSettings() {
    if (actions_.openSettings)
        actions_.openSettings();
}

QString callRunningInstance(const QString& method) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return QStringLiteral("Mendwise: no session bus, so the running Mendwise cannot be "
                              "reached. Start this command from within your desktop session.");
    const QDBusMessage reply =
        bus.call(QDBusMessage::createMethodCall(serviceName(), objectPath(), serviceName(), method),
                 QDBus::Block, callTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return {};
    if (reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
        reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner"))
        return QStringLiteral("Mendwise is not running. Start it first (run: mendwise).");
    return QStringLiteral("Mendwise did not answer: %1").arg(reply.errorMessage());
}

} // namespace app
