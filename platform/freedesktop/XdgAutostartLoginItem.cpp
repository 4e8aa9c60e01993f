#include "platform/freedesktop/XdgAutostartLoginItem.h"

#include "BuildConfig.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace platform::freedesktop {

namespace {

// One argument of an Exec key, always quoted: inside double quotes a double quote, backquote,
// dollar sign and backslash take a backslash, and a percent sign is doubled (field codes).
QString quotedExecArgument(const QString& argument) {
    QString quoted = QStringLiteral("\"");
    for (const QChar c : argument) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        else if (c == u'%')
            quoted += u'%';
        quoted += c;
    }
    return quoted + u'"';
}

// A desktop-entry string value: backslashes and control characters are escaped once more.
QString escapedValue(const QString& value) {
    QString escaped;
    escaped.reserve(value.size());
    for (const QChar c : value) {
        switch (c.unicode()) {
        case u'\\':
            escaped += QStringLiteral("\\\\");
            break;
        case u'\n':
            escaped += QStringLiteral("\\n");
            break;
        case u'\t':
            escaped += QStringLiteral("\\t");
            break;
        case u'\r':
            escaped += QStringLiteral("\\r");
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

QString autostartFolder() {
    // Only an absolute XDG_CONFIG_HOME counts; otherwise the default applies.
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || QDir::isRelativePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart/");
}

std::optional<QString> removeEntry(const QString& path) {
    // Not registered is what was asked for.
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return std::nullopt;
    QFile file(path);
    if (!file.remove())
        return QStringLiteral("Could not remove %1: %2").arg(path, file.errorString());
    return std::nullopt;
}

} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable)
    : executable_(std::move(executable)) {}

QString XdgAutostartLoginItem::entryPath() {
    return autostartFolder() + QString::fromUtf8(mendwise::build::appId) +
           QStringLiteral(".desktop");
}

QString XdgAutostartLoginItem::legacyEntryPath() {
    return autostartFolder() + QStringLiteral("mendwise.desktop");
}

QString XdgAutostartLoginItem::programToStart(const QString& running, const QString& installed) {
    const QString installedTarget = QFileInfo(installed).canonicalFilePath();
    if (!installedTarget.isEmpty() && installedTarget == QFileInfo(running).canonicalFilePath())
        return installed;
    return running;
}

QByteArray XdgAutostartLoginItem::entryContents(const QString& executable) {
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Mendwise\n"
                                        "Comment=Fix or rewrite the selected text\n"
                                        "Exec=") +
                         escapedValue(quotedExecArgument(executable)) + QStringLiteral("\nIcon=") +
                         QString::fromUtf8(mendwise::build::appId) +
                         QStringLiteral("\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n");
    return text.toUtf8();
}

std::optional<QString> XdgAutostartLoginItem::registerLoginItem() {
    const QString executable =
        executable_.isEmpty() ? programToStart(QCoreApplication::applicationFilePath(),
                                               QString::fromUtf8(mendwise::build::installedProgram))
                              : executable_;
    if (executable.isEmpty())
        return QStringLiteral("The path of the running executable is unknown.");
    const QString path = entryPath();
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return QStringLiteral("Could not create the folder %1.").arg(folder);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QStringLiteral("Could not write %1: %2").arg(path, file.errorString());
    file.write(entryContents(executable));
    if (!file.commit())
        return QStringLiteral("Could not write %1: %2").arg(path, file.errorString());
    return removeEntry(legacyEntryPath());
}

std::optional<QString> XdgAutostartLoginItem::unregisterLoginItem() {
    if (std::optional<QString> error = removeEntry(entryPath()))
        return error;
    return removeEntry(legacyEntryPath());
}

} // namespace platform::freedesktop
