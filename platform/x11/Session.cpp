#include "platform/x11/Session.h"

#include <QGuiApplication>

namespace platform::x11 {

std::optional<QString> unsupportedSessionMessage() {
    const QString sessionType = qEnvironmentVariable("XDG_SESSION_TYPE").toLower();
    if (sessionType == QLatin1String("wayland") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return QStringLiteral("Wayland sessions are not yet supported: Mendwise needs an X11 "
                              "session to read and replace selected text.");
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return QStringLiteral("No X11 display (DISPLAY is not set): Mendwise needs an X11 "
                              "session to read and replace selected text.");
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr &&
        QGuiApplication::platformName() != QLatin1String("xcb"))
        return QStringLiteral("Qt runs on the \"%1\" platform, not X11 (xcb): Mendwise needs an "
                              "X11 session to read and replace selected text.")
            .arg(QGuiApplication::platformName());
    return std::nullopt;
}

} // namespace platform::x11
