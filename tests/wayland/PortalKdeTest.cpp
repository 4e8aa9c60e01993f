// The portal trigger against KDE's own portal under a headless KWin (kde-portal-session.sh
// starts them): the binding the desktop grants, and the shortcut fired through kglobalaccel.
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "tests/common/TestUtil.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <cstdio>
#include <gtest/gtest.h>

using platform::HotKeyEvent;
using platform::HotKeyEventKind;
using platform::wayland::PortalGlobalShortcuts;
namespace carbon = platform::carbonmodifiers;

namespace {

QDBusMessage kglobalaccel(const QString& path, const QString& interface, const QString& method,
                          const QVariantList& arguments = {}) {
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.kde.kglobalaccel"), path,
                                                       interface, method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call);
}

// The kglobalaccel component that holds a shortcut of this name.
QString componentWith(const QString& shortcutName) {
    const QDBusMessage reply =
        kglobalaccel(QStringLiteral("/kglobalaccel"), QStringLiteral("org.kde.KGlobalAccel"),
                     QStringLiteral("allComponents"));
    const auto paths = qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().value(0));
    for (const auto& path : paths) {
        const QDBusMessage names =
            kglobalaccel(path.path(), QStringLiteral("org.kde.kglobalaccel.Component"),
                         QStringLiteral("shortcutNames"));
        if (names.arguments().value(0).toStringList().contains(shortcutName))
            return path.path();
    }
    return {};
}

TEST(PortalKdeTest, BindsAndFiresThroughKGlobalAccel) {
    ASSERT_TRUE(PortalGlobalShortcuts::available(std::chrono::seconds(5)));
    PortalGlobalShortcuts port(QStringLiteral("app.mendwise.Mendwise"));
    QString granted;
    QString error;
    bool answered = false;
    QObject::connect(&port, &PortalGlobalShortcuts::bindingChanged,
                     [&](const QString& trigger, const QString& why) {
                         granted = trigger;
                         error = why;
                         answered = true;
                     });
    std::vector<HotKeyEvent> events;
    port.installEventHandler([&events](const HotKeyEvent& event) {
        events.push_back(event);
        return platform::osstatus::noErr;
    });
    port.addEventKinds({HotKeyEventKind::hotKeyPressed, HotKeyEventKind::hotKeyReleased});
    const platform::HotKeyID id{platform::fourCharCode("HKTS"), 1};
    platform::HotKeyRef ref;
    ASSERT_EQ(port.registerHotKey(38, carbon::command | carbon::shift, id, ref),
              platform::osstatus::noErr);
    ASSERT_TRUE(testutil::waitUntil([&answered] { return answered; }, std::chrono::seconds(20)));
    std::printf("granted \"%s\", error \"%s\"\n", qPrintable(granted), qPrintable(error));
    EXPECT_EQ(error, QString());
    EXPECT_FALSE(granted.isEmpty());

    const QString shortcutId = PortalGlobalShortcuts::shortcutId(id);
    const QString component = componentWith(shortcutId);
    ASSERT_FALSE(component.isEmpty())
        << "kglobalaccel holds no shortcut " << qPrintable(shortcutId);
    const QDBusMessage invoked =
        kglobalaccel(component, QStringLiteral("org.kde.kglobalaccel.Component"),
                     QStringLiteral("invokeShortcut"), {shortcutId});
    ASSERT_EQ(invoked.type(), QDBusMessage::ReplyMessage) << qPrintable(invoked.errorMessage());
    // kglobalaccel invokes a shortcut as a press only; the release needs a real key, which
    // nothing can type into this KWin (it offers no virtual keyboard to clients).
    ASSERT_TRUE(
        testutil::waitUntil([&events] { return !events.empty(); }, std::chrono::seconds(10)));
    EXPECT_EQ(events.front().kind, HotKeyEventKind::hotKeyPressed);
    EXPECT_EQ(events.front().hotKeyID, std::optional(id));
}

} // namespace
