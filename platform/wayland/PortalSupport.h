#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariant>
#include <functional>

// What every desktop-portal client here shares: the portal's names, the D-Bus signal receiver
// and the small rules of its Request/Session protocol.
namespace platform::wayland::portal {

inline const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
inline const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
inline const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");

// Receives one D-Bus signal as a whole message; deleting it (with deleteReceiver) ends the
// subscription.
class Signal final : public QObject {
    Q_OBJECT
public:
    explicit Signal(QObject* parent) : QObject(parent) {}
    Signal(std::function<void(const QDBusMessage&)> onSignal, QObject* parent)
        : QObject(parent), onSignal_(std::move(onSignal)) {}
    void setHandler(std::function<void(const QDBusMessage&)> onSignal) {
        onSignal_ = std::move(onSignal);
    }
    Q_SLOT void receive(const QDBusMessage& message) {
        if (onSignal_)
            onSignal_(message);
    }

private:
    std::function<void(const QDBusMessage&)> onSignal_;
};

// Deletes a signal receiver. Qt's D-Bus thread hooked it up under QtCore locks that
// ThreadSanitizer cannot see, so the deletion is kept out of its race detection.
void deleteReceiver(QObject* receiver);

// An object path the portal sent; older portals send session handles as strings.
QString objectPathOf(const QVariant& value);

// Whether a failed call means there is no portal (or it went away), rather than a refusal.
bool meansNoPortal(const QString& errorName);

// This connection's unique name as request and session paths carry it (":1.42" -> "1_42").
QString senderPart(const QDBusConnection& bus);

} // namespace platform::wayland::portal
