#pragma once

#include "platform/Accessibility.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <QString>
#include <QStringList>
#include <chrono>
#include <future>
#include <memory>
#include <optional>

// Real X clients for the X11 tests, and small helpers around the X tools of the test desktop.
namespace x11test {

using namespace std::chrono_literals;

// Runs a program to its end (at most `timeout`, the event loop running) with `input` on its
// standard input, and returns its standard output; none when it could not start, timed out or
// failed.
std::optional<QString> run(const QString& program, const QStringList& arguments,
                           std::chrono::milliseconds timeout = 10s,
                           const QByteArray& input = QByteArray());
// xdotool with these arguments (or with these words); fails the current test when xdotool does.
void xdotool(const QStringList& arguments);
void xdotool(const QString& words);

// The process id owning the window manager's active window, read with xdotool; -1 when none.
qint64 activeWindowPid();
// The window manager's active window, as xdotool names it; empty when none.
QString activeWindowId();
// What other clients paste from the X selection `selection` ("clipboard" or "primary").
std::optional<QString> pastedElsewhere(const QString& selection = QStringLiteral("clipboard"));
// Selects `length` characters from `start` on the first line of the active editor with keys, as
// a user would.
void selectWithKeys(int start, int length);

// Double-clicks the first word the terminal in front shows.
void selectFirstTerminalWord();

// The focused element of `pid` through accessibility, waiting up to `timeout` for one; null
// when none came.
platform::AXRef focusedElement(platform::AccessibilityPort& accessibility, qint64 pid,
                               std::chrono::milliseconds timeout = 0s);
// The text under `attribute` of the focused element of `pid`, through accessibility.
std::optional<QString> focusedText(platform::AccessibilityPort& accessibility, qint64 pid,
                                   const char* attribute = "AXValue");

// Runs `work` on a thread of its own, as the trigger flow does, while this (GUI) thread keeps
// serving the clipboard; rethrows what it threw.
template <typename Work> auto offMainThread(Work work) {
    auto result = std::async(std::launch::async, std::move(work));
    testutil::waitUntil([&] { return result.wait_for(0s) == std::future_status::ready; }, 30s);
    return result.get();
}

// An application under test, ended (terminated, then killed) when its object goes.
class App : public testutil::ChildProcess {
public:
    using ChildProcess::ChildProcess;
    ~App() { stop(); }

    // Waits until the app's window is the active one.
    bool waitUntilActive(std::chrono::milliseconds timeout = 10s);
    // The whole lines the app wrote to standard output so far.
    QStringList outputLines();
    bool waitForLine(const QString& line, std::chrono::milliseconds timeout = 5s);
    // Ends the process now (the tests of hung and vanished applications use it).
    void stop();

private:
    bool stopped_ = false;
};

// mousepad (GTK 3) with a file holding `text`; waits until its window is active.
std::unique_ptr<App> startMousepad(const QString& text);
// The Qt text app of tests/x11/apps; waits for its "ready".
std::unique_ptr<App> startQtTextApp(const QString& text, int selectStart, int selectLength,
                                    bool oneLine = false);
// A terminal emulator running the SIGINT sentinel, which writes to `report`; waits until the
// sentinel is ready and the terminal's window active. `command` is the terminal and its
// options up to the one that runs a program ("-e").
std::unique_ptr<App> startTerminal(const QString& command, const QString& report);

// The keyboard layout group locked now (0 is the first layout), -1 when unknown.
int lockedLayoutGroup();

// The text content of a file, empty when there is none.
QString readFile(const QString& path);
// Writes a file (and the folders it needs), executable if asked; whether that worked.
bool writeFile(const QString& path, const QByteArray& content, bool executable = false);

} // namespace x11test
