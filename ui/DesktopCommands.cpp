#include "ui/DesktopCommands.h"

#include "platform/freedesktop/ThreadSanitizer.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

namespace ui::desktop {

namespace {

struct SettingsTool {
    const char* desktop; // as named in XDG_CURRENT_DESKTOP
    const char* program;
    const char* argument; // the accessibility page
};

constexpr SettingsTool tools[] = {
    {"GNOME", "gnome-control-center", "universal-access"},
    {"KDE", "systemsettings", "kcm_access"},
    {"KDE", "systemsettings5", "kcm_access"},
};

bool launch(const SettingsTool& tool) {
    const QString program = QStandardPaths::findExecutable(QString::fromLatin1(tool.program));
    return !program.isEmpty() &&
           QProcess::startDetached(program, {QString::fromLatin1(tool.argument)});
}

} // namespace

void notify(const QString& summary, const QString& body) {
    // Nobody sees a notification of a program drawn offscreen.
    if (QGuiApplication::platformName() == QLatin1String("offscreen"))
        return;
    // Qt's D-Bus thread takes the message over under locks ThreadSanitizer cannot see.
    [[maybe_unused]] const platform::freedesktop::ThreadSanitizerBlindSpot blindSpot;
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"),
        QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    // A session without a running server shows nothing rather than gaining a daemon that
    // outlives us.
    message.setAutoStartService(false);
    message << QCoreApplication::applicationName() << 0U << QString() << summary << body
            << QStringList() << QVariantMap() << -1;
    QDBusConnection::sessionBus().call(message, QDBus::NoBlock);
}

bool openAccessibilitySettings() {
    // The current desktop's own tool first, then whichever is installed.
    const QStringList current =
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").toUpper().split(QLatin1Char(':'));
    for (const SettingsTool& tool : tools) {
        if (current.contains(QString::fromLatin1(tool.desktop)) && launch(tool))
            return true;
    }
    for (const SettingsTool& tool : tools) {
        if (launch(tool))
            return true;
    }
    return false;
}

void relaunchApplication() {
    QProcess::startDetached(QCoreApplication::applicationFilePath(),
                            QCoreApplication::arguments().mid(1));
    QCoreApplication::quit();
}

} // namespace ui::desktop
