#include "platform/wayland/WaylandPasteboard.h"

#include <QProcess>
#include <QStandardPaths>
#include <optional>

namespace platform::wayland {

namespace {

struct Run {
    bool ok = false;
    QByteArray output;
};

Run run(const QString& program, const QStringList& arguments,
        const std::optional<QByteArray>& input, int timeoutMs) {
    QProcess process;
    // wl-copy leaves a child behind that serves the text: it must not hold our pipes open.
    if (program == QLatin1String("wl-copy")) {
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
    } else {
        process.setStandardErrorFile(QProcess::nullDevice());
    }
    process.start(program, arguments);
    if (!process.waitForStarted(timeoutMs))
        return {};
    if (input) {
        process.write(*input);
        process.closeWriteChannel();
    }
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(100);
        return {};
    }
    Run result;
    result.ok = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (program != QLatin1String("wl-copy"))
        result.output = process.readAllStandardOutput();
    return result;
}

} // namespace

bool WaylandPasteboard::available() {
    return !QStandardPaths::findExecutable(QStringLiteral("wl-copy")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("wl-paste")).isEmpty();
}

std::optional<QString> WaylandPasteboard::string() {
    // wl-paste fails with "No selection" or "No suitable type" when there is no text.
    const Run paste =
        run(QStringLiteral("wl-paste"),
            {QStringLiteral("--no-newline"), QStringLiteral("--type"), QStringLiteral("text")},
            std::nullopt, timeoutMs_);
    if (!paste.ok)
        return std::nullopt;
    return QString::fromUtf8(paste.output);
}

void WaylandPasteboard::clearContents() {
    if (run(QStringLiteral("wl-copy"), {QStringLiteral("--clear")}, std::nullopt, timeoutMs_).ok)
        ++changes_;
}

bool WaylandPasteboard::setString(const QString& text) {
    const bool ok = run(QStringLiteral("wl-copy"),
                        {QStringLiteral("--type"), QStringLiteral("text/plain;charset=utf-8")},
                        text.toUtf8(), timeoutMs_)
                        .ok;
    if (ok)
        ++changes_;
    return ok;
}

std::int64_t WaylandPasteboard::changeCount() {
    return changes_;
}

QStringList WaylandPasteboard::types() {
    const Run list =
        run(QStringLiteral("wl-paste"), {QStringLiteral("--list-types")}, std::nullopt, timeoutMs_);
    if (!list.ok)
        return {};
    QStringList types;
    for (const QByteArray& line : list.output.split('\n')) {
        if (!line.trimmed().isEmpty())
            types << QString::fromUtf8(line.trimmed());
    }
    return types;
}

} // namespace platform::wayland
