// Prints what a user feels of Mendwise on a real X11 desktop, with its tray:
//  - shortcut release → panel on screen: from the moment the server has the release of J (sent
//    with XTest) until the panel's window is viewable; its 0.2 s fade-in starts then;
//  - answer → paste posted: from the moment a local stand-in for the Messages API hands over its
//    answer until Mendwise says it has posted Ctrl+V (this includes the 50 ms it leaves the
//    clipboard to settle);
//  - start-up time (exec → tray icon on screen) and idle memory 3 s after start, of Mendwise
//    and, started the same way in the same run, of qlipper, a small Qt tray utility from Debian.
// Run it inside a desktop session:
//   tests/x11/desktop-session.sh build/bench/desktop_latency_bench [ROUNDS]
#include "tests/common/LoopbackHttpServer.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double msBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// `text` padded to `width` characters (printf pads bytes, and the arrows take three).
std::string padded(const char* text, std::size_t width) {
    std::string out(text);
    const auto characters =
        static_cast<std::size_t>(std::count_if(out.begin(), out.end(), [](char c) {
            return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
        }));
    if (characters < width)
        out.append(width - characters, ' ');
    return out;
}

void report(const char* what, std::vector<double> values, const char* unit = "ms") {
    const std::string label = padded(what, 46);
    if (values.empty()) {
        std::printf("  %s no successful rounds\n", label.c_str());
        return;
    }
    std::sort(values.begin(), values.end());
    std::printf("  %s median %8.1f %s   min %8.1f   max %8.1f   (%zu rounds)\n", label.c_str(),
                values[values.size() / 2], unit, values.front(), values.back(), values.size());
}

bool pollUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout,
               std::chrono::microseconds interval = 500us) {
    const auto deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(interval);
    }
    return true;
}

// A child process; with `captureOutput` its standard output is read line by line on a thread
// of its own, each line stamped with the time it arrived.
class Child {
public:
    Child(const std::vector<std::string>& argv, bool captureOutput) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        int pipeFds[2] = {-1, -1};
        if (captureOutput && pipe2(pipeFds, O_CLOEXEC) == 0) {
            posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
        } else {
            posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        }
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::vector<char*> args;
        for (const auto& arg : argv)
            args.push_back(const_cast<char*>(arg.c_str())); // NOLINT: posix_spawn's signature
        args.push_back(nullptr);
        started_ = Clock::now();
        if (posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        if (pipeFds[1] >= 0)
            close(pipeFds[1]);
        if (pipeFds[0] >= 0)
            reader_ = std::thread([this, fd = pipeFds[0]] { readLines(fd); });
    }
    ~Child() {
        stop();
        if (reader_.joinable())
            reader_.join();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] Clock::time_point started() const { return started_; }

    // When the `occurrence`-th line containing `text` arrived (1-based), if it has.
    [[nodiscard]] std::optional<Clock::time_point> lineTime(const std::string& text,
                                                            int occurrence = 1) const {
        const std::lock_guard lock(mutex_);
        int seen = 0;
        for (const auto& [time, line] : lines_) {
            if (line.find(text) != std::string::npos && ++seen == occurrence)
                return time;
        }
        return std::nullopt;
    }
    [[nodiscard]] int lineCount(const std::string& text) const {
        const std::lock_guard lock(mutex_);
        return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), [&](const auto& l) {
            return l.second.find(text) != std::string::npos;
        }));
    }

    void stop() {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGTERM);
        if (!pollUntil([&] { return waitpid(pid_, nullptr, WNOHANG) == pid_; }, 5s, 1ms)) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }

private:
    void readLines(int fd) {
        std::string pending;
        char buffer[4096];
        for (;;) {
            const ssize_t n = read(fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            const auto now = Clock::now();
            pending.append(buffer, static_cast<std::size_t>(n));
            for (auto end = pending.find('\n'); end != std::string::npos;
                 end = pending.find('\n')) {
                const std::lock_guard lock(mutex_);
                lines_.emplace_back(now, pending.substr(0, end));
                pending.erase(0, end + 1);
            }
        }
        close(fd);
    }

    pid_t pid_ = -1;
    Clock::time_point started_;
    std::thread reader_;
    mutable std::mutex mutex_;
    std::vector<std::pair<Clock::time_point, std::string>> lines_;
};

// The X server, seen through a connection of our own.
class Desktop {
public:
    Desktop() : display_(XOpenDisplay(nullptr)) {
        if (display_)
            pidAtom_ = XInternAtom(display_, "_NET_WM_PID", False);
    }
    ~Desktop() {
        if (display_)
            XCloseDisplay(display_);
    }
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    [[nodiscard]] bool ok() const { return display_ != nullptr; }

    // A viewable window of process `pid` whose size matches (0: any), if there is one.
    std::optional<Window> viewableWindow(pid_t pid, int width = 0, int height = 0) {
        return search(DefaultRootWindow(display_), pid, width, height);
    }

    bool isViewable(Window window) {
        XWindowAttributes attributes;
        return XGetWindowAttributes(display_, window, &attributes) &&
               attributes.map_state == IsViewable;
    }

    // Presses the keys in order and lets them go in reverse; returns when the server has the
    // last release.
    void chord(const std::vector<KeySym>& keys) {
        for (const KeySym key : keys)
            XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, key), True, CurrentTime);
        for (auto it = keys.rbegin(); it != keys.rend(); ++it)
            XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, *it), False, CurrentTime);
        XSync(display_, False);
    }

    // The trigger, Ctrl+Shift+J: returns the moment the server has the release of J, the key
    // whose release fires it.
    Clock::time_point trigger() {
        const auto code = [&](KeySym key) { return XKeysymToKeycode(display_, key); };
        XTestFakeKeyEvent(display_, code(XK_Control_L), True, CurrentTime);
        XTestFakeKeyEvent(display_, code(XK_Shift_L), True, CurrentTime);
        XTestFakeKeyEvent(display_, code(XK_j), True, CurrentTime);
        XSync(display_, False);
        XTestFakeKeyEvent(display_, code(XK_j), False, CurrentTime);
        XSync(display_, False);
        const auto released = Clock::now();
        XTestFakeKeyEvent(display_, code(XK_Shift_L), False, CurrentTime);
        XTestFakeKeyEvent(display_, code(XK_Control_L), False, CurrentTime);
        XSync(display_, False);
        return released;
    }

private:
    std::optional<pid_t> windowPid(Window window) {
        Atom type = None;
        int format = 0;
        unsigned long items = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        std::optional<pid_t> pid;
        if (XGetWindowProperty(display_, window, pidAtom_, 0, 1, False, XA_CARDINAL, &type, &format,
                               &items, &after, &data) == Success &&
            data && format == 32 && items == 1) {
            pid = static_cast<pid_t>(*reinterpret_cast<unsigned long*>(data)); // NOLINT: Xlib
        }
        if (data)
            XFree(data);
        return pid;
    }

    std::optional<Window> search(Window parent, pid_t pid, int width, int height) {
        Window root = 0;
        Window up = 0;
        Window* children = nullptr;
        unsigned int count = 0;
        if (!XQueryTree(display_, parent, &root, &up, &children, &count))
            return std::nullopt;
        std::optional<Window> found;
        for (unsigned int i = 0; i < count && !found; ++i) {
            const Window child = children[i];
            XWindowAttributes attributes;
            if (!XGetWindowAttributes(display_, child, &attributes) ||
                attributes.map_state != IsViewable)
                continue;
            if (windowPid(child) == pid && (width == 0 || attributes.width == width) &&
                (height == 0 || attributes.height == height))
                found = child;
            else
                found = search(child, pid, width, height);
        }
        if (children)
            XFree(children);
        return found;
    }

    Display* display_;
    Atom pidAtom_ = None;
};

long kilobytesFrom(const QString& path, const QByteArray& field) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(field.size()).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

struct StartupFigures {
    std::vector<double> iconMs;
    std::vector<double> readyMs; // Mendwise only: the shortcut is bound
    std::vector<double> rssMb;
    std::vector<double> pssMb;
};

void measureStartup(Desktop& desktop, const std::vector<std::string>& argv, StartupFigures& out,
                    const char* readyLine) {
    Child child(argv, readyLine != nullptr);
    if (child.pid() <= 0)
        return;
    if (pollUntil([&] { return desktop.viewableWindow(child.pid()).has_value(); }, 20s, 1ms))
        out.iconMs.push_back(msBetween(child.started(), Clock::now()));
    if (readyLine && pollUntil([&] { return child.lineTime(readyLine).has_value(); }, 20s))
        out.readyMs.push_back(msBetween(child.started(), *child.lineTime(readyLine)));
    std::this_thread::sleep_for(3s);
    const QString proc = QStringLiteral("/proc/%1/").arg(child.pid());
    const long rss = kilobytesFrom(proc + QStringLiteral("status"), "VmRSS:");
    const long pss = kilobytesFrom(proc + QStringLiteral("smaps_rollup"), "Pss:");
    if (rss > 0)
        out.rssMb.push_back(static_cast<double>(rss) / 1024.0);
    if (pss > 0)
        out.pssMb.push_back(static_cast<double>(pss) / 1024.0);
}

void writeSettings() {
    const QString dir =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/Mendwise";
    QDir().mkpath(dir);
    QFile file(dir + "/Mendwise.conf");
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write("[General]\nanthropic_api_key=sk-ant-bench\n");
}

const std::string sentence = "They're going to the park tomorrow, if the weather is nice.";

void measureLatency(Desktop& desktop, int rounds) {
    std::atomic<Clock::time_point> answered{};
    testutil::LoopbackHttpServer server(MENDWISE_E2E_PORT);
    server.setHandler([&](const testutil::HttpRequest&) {
        auto response = testutil::HttpResponse::messagesAnswer(QString::fromStdString(sentence));
        answered = Clock::now(); // what follows is one write on loopback
        return response;
    });

    const QString note = QDir::temp().filePath(QStringLiteral("mendwise-bench-note.txt"));
    QFile file(note);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    file.write(QByteArray::fromStdString(sentence));
    file.close();
    Child editor({"mousepad", "--disable-server", note.toStdString()}, false);
    if (!pollUntil([&] { return desktop.viewableWindow(editor.pid()).has_value(); }, 20s, 5ms)) {
        std::printf("  mousepad did not come up\n");
        return;
    }
    std::this_thread::sleep_for(1s);
    Child app({MENDWISE_E2E_APP}, true);
    if (!pollUntil([&] { return app.lineTime("Registered shortcut").has_value(); }, 20s)) {
        std::printf("  Mendwise did not start\n");
        return;
    }

    std::vector<double> toPanel;
    std::vector<double> toResponse;
    std::vector<double> toPasteBegin;
    std::vector<double> toClipboard;
    std::vector<double> toPaste;
    std::optional<Window> panel;
    for (int round = 1; round <= rounds; ++round) {
        desktop.chord({XK_Control_L, XK_a});
        std::this_thread::sleep_for(200ms);
        const auto released = desktop.trigger();
        const bool shown = pollUntil(
            [&] {
                if (!panel)
                    panel = desktop.viewableWindow(app.pid(), 240, 140);
                return panel && desktop.isViewable(*panel);
            },
            5s, 1ms);
        if (!shown)
            continue;
        toPanel.push_back(msBetween(released, Clock::now()));

        std::this_thread::sleep_for(300ms);
        desktop.chord({XK_Return});
        if (!pollUntil([&] { return app.lineCount("✅ pasteText END") >= round; }, 10s))
            continue;
        const auto answer = answered.load();
        const auto since = [&](const char* line, std::vector<double>& into) {
            if (const auto time = app.lineTime(line, round))
                into.push_back(msBetween(answer, *time));
        };
        since("📡 [API] Response", toResponse);
        since("📤 pasteText BEGIN", toPasteBegin);
        since("✅ Text written to pasteboard", toClipboard);
        toPaste.push_back(msBetween(answer, *app.lineTime("✅ pasteText END", round)));
        // The check shows for 0.4 s, then the panel fades out.
        pollUntil([&] { return !desktop.isViewable(*panel); }, 5s, 5ms);
        std::this_thread::sleep_for(200ms);
    }
    report("shortcut release → panel on screen", toPanel);
    report("answer sent → response read by Mendwise", toResponse);
    report("answer sent → paste begins", toPasteBegin);
    report("answer sent → clipboard holds the answer", toClipboard);
    report("answer sent → Ctrl+V posted (50 ms settle)", toPaste);
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
    Desktop desktop;
    if (!desktop.ok()) {
        std::fprintf(stderr, "desktop_latency_bench: no X display; run it inside "
                             "tests/x11/desktop-session.sh\n");
        return 1;
    }
    writeSettings();
    const bool haveTrayer = !QStandardPaths::findExecutable(QStringLiteral("trayer")).isEmpty();
    std::optional<Child> tray;
    if (haveTrayer) {
        tray.emplace(std::vector<std::string>{"trayer", "--edge", "top", "--align", "right",
                                              "--widthtype", "pixel", "--width", "200", "--height",
                                              "24", "--transparent", "false"},
                     false);
        std::this_thread::sleep_for(1s);
    }

    std::printf("Mendwise on this desktop (%d rounds)\n", rounds);
    measureLatency(desktop, rounds);

    const int startRounds = std::max(3, rounds / 2);
    const bool haveQlipper = !QStandardPaths::findExecutable(QStringLiteral("qlipper")).isEmpty();
    StartupFigures mendwise;
    StartupFigures qlipper;
    for (int i = 0; i < startRounds; ++i) {
        measureStartup(desktop, {MENDWISE_APP}, mendwise, "Registered shortcut");
        if (haveQlipper)
            measureStartup(desktop, {"qlipper"}, qlipper, nullptr);
    }
    std::printf("\nStart-up and idle memory, 3 s after start (%d starts each%s)\n", startRounds,
                haveTrayer ? ", with a tray" : ", no tray: trayer is not installed");
    report("mendwise: exec → tray icon on screen", mendwise.iconMs);
    report("mendwise: exec → shortcut bound", mendwise.readyMs);
    report("mendwise: resident memory", mendwise.rssMb, "MB");
    report("mendwise: proportional set size", mendwise.pssMb, "MB");
    if (haveQlipper) {
        report("qlipper:  exec → tray icon on screen", qlipper.iconMs);
        report("qlipper:  resident memory", qlipper.rssMb, "MB");
        report("qlipper:  proportional set size", qlipper.pssMb, "MB");
    } else {
        std::printf("  qlipper is not installed (apt-get install qlipper): no comparison\n");
    }
    return 0;
}
