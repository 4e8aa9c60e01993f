#include "platform/wayland/WaylandPasteboard.h"

#include <QProcess>
#include <QStandardPaths>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ; // NOLINT(readability-redundant-declaration): posix_spawn's environment

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

struct WaylandPasteboard::Watcher {
    pid_t child = -1;
    int readEnd = -1;
    std::thread reader;
    std::atomic<bool> watching{false};
    std::atomic<std::int64_t> seen{0}; // changes the watcher reported
    std::mutex mutex;
    std::optional<std::int32_t> keystrokePid;
    std::int64_t seenAtKeystroke = 0;
    // What the clipboard held when the keystroke went out: the watcher reports a change only
    // once its command has run, so a refill just before the keystroke may be counted after it.
    std::optional<QString> textAtKeystroke;
    std::optional<QString> textBeforeClearing;
    std::chrono::steady_clock::time_point keystrokeAt;

    Watcher() = default;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    ~Watcher() {
        if (child > 0) {
            kill(child, SIGTERM);
            waitpid(child, nullptr, 0);
        }
        if (reader.joinable())
            reader.join();
        if (readEnd >= 0)
            close(readEnd);
    }

    bool start() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        // One line per change. The command takes in what changed, or wl-paste could die
        // writing to a command that left without reading it.
        char wlPaste[] = "wl-paste";
        char watch[] = "--watch";
        char shell[] = "sh";
        char dashC[] = "-c";
        char script[] = "cat >/dev/null; echo";
        char* argv[] = {wlPaste, watch, shell, dashC, script, nullptr};
        const int spawned = posix_spawnp(&child, "wl-paste", &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        readEnd = fds[0];
        if (spawned != 0) {
            child = -1;
            return false;
        }
        watching = true;
        reader = std::thread([this] {
            char buffer[256];
            for (;;) {
                const ssize_t n = read(readEnd, buffer, sizeof buffer);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    break;
                for (ssize_t i = 0; i < n; ++i) {
                    if (buffer[i] == '\n')
                        ++seen;
                }
            }
            // Without data-control wl-paste refuses to watch and ends at once.
            watching = false;
        });
        return true;
    }
};

WaylandPasteboard::WaylandPasteboard(int timeoutMs) : timeoutMs_(timeoutMs) {}

WaylandPasteboard::~WaylandPasteboard() = default;

bool WaylandPasteboard::watchChanges() {
    if (watcher_)
        return watcher_->watching;
    watcher_ = std::make_unique<Watcher>();
    if (!watcher_->start()) {
        watcher_.reset();
        return false;
    }
    return true;
}

void WaylandPasteboard::noteKeystroke(std::int32_t pid) {
    if (!watcher_)
        return;
    std::optional<QString> text = string();
    const std::lock_guard lock(watcher_->mutex);
    watcher_->keystrokePid = pid;
    watcher_->seenAtKeystroke = watcher_->seen;
    watcher_->textAtKeystroke = std::move(text);
    watcher_->keystrokeAt = std::chrono::steady_clock::now();
}

std::optional<std::int32_t> WaylandPasteboard::ownerProcess() {
    if (!watcher_ || !watcher_->watching)
        return std::nullopt;
    std::optional<QString> atKeystroke;
    std::optional<QString> beforeClearing;
    std::int32_t pid = -1;
    bool late = false;
    {
        const std::lock_guard lock(watcher_->mutex);
        if (!watcher_->keystrokePid)
            return std::nullopt;
        if (watcher_->seen <= watcher_->seenAtKeystroke)
            return -1;
        pid = *watcher_->keystrokePid;
        atKeystroke = watcher_->textAtKeystroke;
        beforeClearing = watcher_->textBeforeClearing;
        late = std::chrono::steady_clock::now() - watcher_->keystrokeAt >= lateCopy;
    }
    if (late)
        return pid;
    const std::optional<QString> now = string();
    const auto isOld = [&now](const std::optional<QString>& old) {
        return old && !old->isEmpty() && now == old;
    };
    return isOld(atKeystroke) || isOld(beforeClearing) ? -1 : pid;
}

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
    if (watcher_) {
        std::optional<QString> text = string();
        const std::lock_guard lock(watcher_->mutex);
        watcher_->textBeforeClearing = std::move(text);
    }
    // An empty text of our own rather than no owner at all: clipboard managers put their last
    // entry back into an ownerless clipboard (Klipper does by default), racing the copy that
    // is to come; none of them keeps an empty text.
    if (setString(QString()))
        return;
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
