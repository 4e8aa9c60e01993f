#include "tests/x11/DesktopApps.h"

#include "tests/common/TestUtil.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

#if !defined(MENDWISE_QT_TEXT_APP) || !defined(MENDWISE_TEST_SCRIPTS_DIR)
#error "the build names the Qt text app and the folder of the test scripts"
#endif

namespace x11test {

std::optional<QString> run(const QString& program, const QStringList& arguments,
                           std::chrono::milliseconds timeout, const QByteArray& input) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(static_cast<int>(timeout.count())))
        return std::nullopt;
    if (!input.isNull()) {
        process.write(input);
        process.closeWriteChannel();
    }
    // The event loop keeps running meanwhile: the program may ask this process for the
    // clipboard, which Qt serves from it.
    if (!testutil::waitUntil([&] { return process.state() == QProcess::NotRunning; }, timeout)) {
        process.kill();
        process.waitForFinished();
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return std::nullopt;
    return QString::fromUtf8(process.readAllStandardOutput());
}

void xdotool(const QStringList& arguments) {
    ASSERT_TRUE(run(QStringLiteral("xdotool"), arguments).has_value())
        << "xdotool " << arguments.join(u' ').toStdString();
}

void xdotool(const QString& words) {
    xdotool(words.split(u' ', Qt::SkipEmptyParts));
}

qint64 activeWindowPid() {
    const auto out = run(QStringLiteral("xdotool"),
                         {QStringLiteral("getactivewindow"), QStringLiteral("getwindowpid")});
    bool ok = false;
    const qint64 pid = out ? out->trimmed().toLongLong(&ok) : -1;
    return ok ? pid : -1;
}

QString activeWindowId() {
    return run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")})
        .value_or(QString())
        .trimmed();
}

std::optional<QString> pastedElsewhere(const QString& selection) {
    return run(QStringLiteral("xclip"),
               {QStringLiteral("-o"), QStringLiteral("-selection"), selection});
}

void selectWithKeys(int start, int length) {
    xdotool(QStringLiteral("key --delay 10 ctrl+Home") + QStringLiteral(" Right").repeated(start) +
            QStringLiteral(" shift+Right").repeated(length));
}

void selectFirstTerminalWord() {
    xdotool(
        QStringLiteral("getactivewindow mousemove --window %1 20 8 click --repeat 2 --delay 80 1"));
}

platform::AXRef focusedElement(platform::AccessibilityPort& accessibility, qint64 pid,
                               std::chrono::milliseconds timeout) {
    const auto ask = [&]() -> platform::AXRef {
        const auto result = accessibility.copyAttributeValue(
            accessibility.createApplication(static_cast<std::int32_t>(pid)),
            platform::axattr::focusedUIElement);
        return result.error == platform::ax::success ? result.value : nullptr;
    };
    platform::AXRef focused = ask();
    if (!focused && timeout > 0s)
        testutil::waitUntil([&] { return (focused = ask()) != nullptr; }, timeout);
    return focused;
}

std::optional<QString> focusedText(platform::AccessibilityPort& accessibility, qint64 pid,
                                   const char* attribute) {
    const platform::AXRef focused = focusedElement(accessibility, pid);
    if (!focused)
        return std::nullopt;
    return platform::axString(accessibility.copyAttributeValue(focused, attribute).value);
}

void App::stop() {
    if (stopped_ || !started())
        return;
    stopped_ = true;
    ::kill(pid(), SIGCONT); // in case a test stopped it
    ::kill(pid(), SIGTERM);
    finish({}, 3s);
}

bool App::waitUntilActive(std::chrono::milliseconds timeout) {
    return testutil::waitUntil([this] { return activeWindowPid() == pid(); }, timeout);
}

QStringList App::outputLines() {
    QStringList lines = QString::fromUtf8(output()).split(u'\n');
    lines.removeLast(); // what follows the last line end
    return lines;
}

bool App::waitForLine(const QString& line, std::chrono::milliseconds timeout) {
    return testutil::waitUntil([&] { return outputLines().contains(line); }, timeout);
}

std::unique_ptr<App> startMousepad(const QString& text) {
    static int count = 0;
    const QString path = QDir::home().filePath(
        QStringLiteral("mousepad-%1-%2.txt").arg(QCoreApplication::applicationPid()).arg(++count));
    if (!writeFile(path, text.toUtf8()))
        return nullptr;
    auto app = std::make_unique<App>(QStringLiteral("mousepad"),
                                     QStringList{QStringLiteral("--disable-server"), path});
    if (!app->waitUntilActive())
        return nullptr;
    return app;
}

std::unique_ptr<App> startQtTextApp(const QString& text, int selectStart, int selectLength,
                                    bool oneLine) {
    QStringList arguments{QStringLiteral("--select"),
                          QStringLiteral("%1,%2").arg(selectStart).arg(selectLength)};
    if (oneLine)
        arguments << QStringLiteral("--line");
    arguments << text;
    auto app = std::make_unique<App>(QStringLiteral(MENDWISE_QT_TEXT_APP), arguments);
    if (!app->waitForLine(QStringLiteral("ready"), 10s) || !app->waitUntilActive())
        return nullptr;
    return app;
}

std::unique_ptr<App> startTerminal(const QString& command, const QString& report) {
    QFile::remove(report);
    const QStringList words = command.split(u' ');
    auto app = std::make_unique<App>(
        words.first(),
        words.mid(1) + QStringList{QStringLiteral("bash"),
                                   QStringLiteral(MENDWISE_TEST_SCRIPTS_DIR "/sigint-sentinel.sh"),
                                   report});
    if (!testutil::waitUntil([&] { return readFile(report).contains(QLatin1String("ready")); },
                             10s) ||
        !app->waitUntilActive())
        return nullptr;
    return app;
}

QString readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

bool writeFile(const QString& path, const QByteArray& content, bool executable) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(content) == content.size() &&
           (!executable || file.setPermissions(file.permissions() | QFileDevice::ExeOwner));
}

} // namespace x11test

#if defined(__SANITIZE_THREAD__)
// Qt starts child processes with a clone that shares this process's memory until the exec;
// ThreadSanitizer's fork hook then marks this very process as a fork child and would end it at
// its next new thread. The child execs at once, so there is nothing to protect against here.
// Weak: a test program with options of its own includes this one in them.
extern "C" __attribute__((weak)) const char* __tsan_default_options() {
    return "die_after_fork=0";
}
#endif
