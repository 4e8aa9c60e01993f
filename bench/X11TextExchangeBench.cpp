// Prints how long the X11 text-exchange operations take against real applications: the
// accessibility reads (focused element, selected text, range, bounds, extents) of mousepad
// (GTK 3) and of the Qt test editor, and how soon CLIPBOARD holds the selection after a
// synthetic Ctrl+C. Needs a desktop session:
//   tests/x11/desktop-session.sh build/bench/x11_text_exchange_bench [ROUNDS]
// With --active NAME it measures instead the application whose window is active, as the trigger
// flow meets it: the whole selection read and the anchor (start the application, select some
// text, then run it).
#include "platform/freedesktop/AtspiAccessibility.h"
#include "platform/freedesktop/QtScreens.h"
#include "platform/x11/X11KeyboardEvents.h"
#include "platform/x11/X11Pasteboard.h"
#include "platform/x11/X11Workspace.h"
#include "support/Log.h"
#include "text/TextSelectionService.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace platform;

namespace {

bool pumpUntil(const std::function<bool()>& condition, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        QThread::usleep(200);
    }
    return true;
}

void report(const char* what, std::vector<double> ms) {
    if (ms.empty()) {
        std::printf("  %-38s no successful rounds\n", what);
        return;
    }
    std::sort(ms.begin(), ms.end());
    std::printf("  %-38s median %7.2f ms   min %7.2f   max %7.2f   (%zu rounds)\n", what,
                ms[ms.size() / 2], ms.front(), ms.back(), ms.size());
}

double timed(const std::function<bool()>& work) {
    QElapsedTimer timer;
    timer.start();
    const bool ok = work();
    return ok ? static_cast<double>(timer.nsecsElapsed()) / 1e6 : -1;
}

qint64 activePid() {
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
                  {QStringLiteral("getactivewindow"), QStringLiteral("getwindowpid")});
    xdotool.waitForFinished(5000);
    return QString::fromLatin1(xdotool.readAllStandardOutput()).trimmed().toLongLong();
}

void keys(const QStringList& arguments) {
    QProcess::execute(QStringLiteral("xdotool"), QStringList{QStringLiteral("key")} + arguments);
}

void postCopy(KeyboardEventsPort& keyboard, std::int32_t pid) {
    const auto source = keyboard.createEventSource(hidSystemState);
    for (const bool down : {true, false}) {
        const auto event = keyboard.createKeyboardEvent(source, 8, down);
        setEventFlags(event, eventflags::command);
        keyboard.postToPid(pid, event);
    }
}

void measure(const char* name, QProcess& app, int rounds,
             freedesktop::AtspiAccessibility& accessibility, x11::X11KeyboardEvents& keyboard,
             x11::X11Pasteboard& pasteboard) {
    const auto pid = static_cast<std::int32_t>(app.processId());
    if (!pumpUntil([&] { return activePid() == pid; }, 10000)) {
        std::printf("%s: its window never became active\n", name);
        return;
    }
    std::printf("%s (pid %d)\n", name, pid);
    std::vector<double> focus, text, range, bounds, extents, trusted, fill, chord;
    for (int round = 0; round < rounds; ++round) {
        AXRef focused;
        CFRange selection;
        trusted.push_back(timed([&] { return accessibility.isProcessTrusted(); }));
        focus.push_back(timed([&] {
            const auto result = accessibility.copyAttributeValue(
                accessibility.createApplication(pid), axattr::focusedUIElement);
            focused = result.value;
            return result.error == ax::success;
        }));
        if (!focused)
            continue;
        text.push_back(timed([&] {
            return accessibility.copyAttributeValue(focused, axattr::selectedText).error ==
                   ax::success;
        }));
        range.push_back(timed([&] {
            const auto result =
                accessibility.copyAttributeValue(focused, axattr::selectedTextRange);
            return result.error == ax::success && axValueGetValue(result.value, selection);
        }));
        bounds.push_back(timed([&] {
            return accessibility
                       .copyParameterizedAttributeValue(focused, axattr::boundsForRange,
                                                        makeAX(selection))
                       .error == ax::success;
        }));
        extents.push_back(timed([&] {
            return accessibility.copyAttributeValue(focused, axattr::position).error ==
                       ax::success &&
                   accessibility.copyAttributeValue(focused, axattr::size).error == ax::success;
        }));
        pasteboard.clearContents();
        QElapsedTimer sinceKeyDown;
        sinceKeyDown.start();
        postCopy(keyboard, pid);
        const double chordMs = static_cast<double>(sinceKeyDown.nsecsElapsed()) / 1e6;
        if (pumpUntil(
                [&] {
                    return pasteboard.string().value_or(QString()).startsWith(
                        QLatin1String("quick"));
                },
                2000)) {
            chord.push_back(chordMs);
            fill.push_back(static_cast<double>(sinceKeyDown.nsecsElapsed()) / 1e6 - chordMs);
        }
    }
    for (auto* series : {&focus, &text, &range, &bounds, &extents, &trusted})
        series->erase(std::remove(series->begin(), series->end(), -1.0), series->end());
    report("trust check (IsEnabled + bus)", trusted);
    report("AXFocusedUIElement (app by pid)", focus);
    report("AXSelectedText", text);
    report("AXSelectedTextRange", range);
    report("AXBoundsForRange", bounds);
    report("AXPosition + AXSize", extents);
    report("Ctrl+C posted (key-down to key-up)", chord);
    report("clipboard filled after the key-up", fill);
}

// The anchor and the selection read of the active application, in the order of the trigger
// flow: the anchor when the shortcut fires (each round with a port that has not met the
// application's focus yet, its bus connection made beforehand), the read when an action is
// chosen (the same port).
int measureActive(const char* name, int rounds, x11::X11KeyboardEvents& keyboard,
                  x11::X11Pasteboard& pasteboard) {
    freedesktop::QtScreens screens;
    x11::X11Workspace workspace;
    const auto pid = static_cast<std::int32_t>(activePid());
    std::vector<double> read, anchor;
    QString text;
    const support::LogCapture quiet; // the read's diagnostics would drown the figures
    for (int round = 0; round < rounds; ++round) {
        freedesktop::AtspiAccessibility accessibility;
        accessibility.isProcessTrusted();
        TextSelectionService service(accessibility, pasteboard, keyboard, workspace);
        anchor.push_back(timed([&] {
            return TextSelectionService::selectionAnchor(pid, accessibility, screens).has_value();
        }));
        read.push_back(timed([&] {
            text = service.readSelectedTextViaAX(pid).value_or(QString());
            return !text.isEmpty();
        }));
    }
    std::printf("%s (pid %d): read \"%s\"\n", name, pid, qPrintable(text.left(40)));
    for (auto* series : {&read, &anchor})
        series->erase(std::remove(series->begin(), series->end(), -1.0), series->end());
    report("anchor (selectionAnchor, first question)", anchor);
    report("selection read (readSelectedTextViaAX)", read);
    return read.empty() ? 1 : 0;
}

void stop(QProcess& process) {
    process.terminate();
    if (!process.waitForFinished(3000))
        process.kill();
    process.waitForFinished(3000);
}

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 20;
    freedesktop::AtspiAccessibility accessibility;
    x11::X11KeyboardEvents keyboard;
    x11::X11Pasteboard pasteboard;
    if (!accessibility.setAccessibilityEnabled(true)) {
        std::printf(
            "the accessibility bus does not answer: run inside tests/x11/desktop-session.sh\n");
        return 1;
    }
    if (argc > 3 && QLatin1String(argv[2]) == QLatin1String("--active"))
        return measureActive(argv[3], rounds, keyboard, pasteboard);
    const QString text = QStringLiteral("The quick brown fox jumps over the lazy dog\nand more");

    const QString path = QDir::temp().filePath(
        QStringLiteral("mendwise-bench-%1.txt").arg(QCoreApplication::applicationPid()));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(text.toUtf8());
    file.close();
    QProcess mousepad;
    mousepad.start(QStringLiteral("mousepad"), {QStringLiteral("--disable-server"), path});
    if (pumpUntil([&] { return activePid() == mousepad.processId(); }, 10000)) {
        keys({QStringLiteral("ctrl+Home"), QStringLiteral("Right"), QStringLiteral("Right"),
              QStringLiteral("Right"), QStringLiteral("Right"), QStringLiteral("shift+ctrl+Right"),
              QStringLiteral("shift+ctrl+Right")});
        measure("mousepad", mousepad, rounds, accessibility, keyboard, pasteboard);
    }
    stop(mousepad);
    QFile::remove(path);

#ifdef MENDWISE_QT_TEXT_APP
    QProcess editor;
    editor.start(QStringLiteral(MENDWISE_QT_TEXT_APP),
                 {QStringLiteral("--select"), QStringLiteral("4,11"), text});
    measure("Qt text editor", editor, rounds, accessibility, keyboard, pasteboard);
    stop(editor);
#endif
    return 0;
}
