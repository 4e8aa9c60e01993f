#include "platform/wayland/PortalSupport.h"

#include "platform/freedesktop/ThreadSanitizer.h"

#include <QDBusObjectPath>

namespace platform::wayland::portal {

void deleteReceiver(QObject* receiver) {
    [[maybe_unused]] const freedesktop::ThreadSanitizerBlindSpot blindSpot;
    delete receiver;
}

QString objectPathOf(const QVariant& value) {
    if (value.canConvert<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    return value.toString();
}

bool meansNoPortal(const QString& errorName) {
    return errorName == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
           errorName == QLatin1String("org.freedesktop.DBus.Error.UnknownMethod") ||
           errorName == QLatin1String("org.freedesktop.DBus.Error.UnknownInterface") ||
           errorName == QLatin1String("org.freedesktop.DBus.Error.UnknownObject") ||
           errorName == QLatin1String("org.freedesktop.DBus.Error.NoReply") ||
           errorName == QLatin1String("org.freedesktop.DBus.Error.Disconnected");
}

QString senderPart(const QDBusConnection& bus) {
    QString sender = bus.baseService();
    if (sender.startsWith(QLatin1Char(':')))
        sender.remove(0, 1);
    return sender.replace(QLatin1Char('.'), QLatin1Char('_'));
}

} // namespace platform::wayland::portal
