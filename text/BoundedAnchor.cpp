#include "text/BoundedAnchor.h"

#include "text/TextSelectionService.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

std::optional<platform::Point>
selectionAnchorBefore(std::chrono::steady_clock::time_point deadline, std::int32_t pid,
                      std::shared_ptr<platform::AccessibilityPort> accessibility,
                      std::shared_ptr<platform::ScreensPort> screens) {
    if (std::chrono::steady_clock::now() >= deadline)
        return std::nullopt;
    struct Answer {
        std::mutex mutex;
        std::condition_variable ready;
        bool done = false;
        std::optional<platform::Point> anchor;
    };
    auto answer = std::make_shared<Answer>();
    std::thread([answer, pid, accessibility = std::move(accessibility),
                 screens = std::move(screens)] {
        auto anchor = TextSelectionService::selectionAnchor(pid, *accessibility, *screens);
        {
            const std::lock_guard lock(answer->mutex);
            answer->anchor = anchor;
            answer->done = true;
            answer->ready.notify_all();
        }
        // Wakes a GUI thread waiting for events; a no-op turn when it has stopped waiting.
        if (auto* application = QCoreApplication::instance())
            QMetaObject::invokeMethod(
                application, [] {}, Qt::QueuedConnection);
    }).detach();

    const bool serveEvents = QCoreApplication::instance() != nullptr &&
                             QThread::currentThread() == QCoreApplication::instance()->thread();
    if (!serveEvents) {
        std::unique_lock lock(answer->mutex);
        answer->ready.wait_until(lock, deadline, [&] { return answer->done; });
        return answer->done ? answer->anchor : std::nullopt;
    }
    // The lookup hops to this thread for screen geometry, several times: sleeping between
    // looks at the queue would add that sleep to every hop. Waiting for events serves each hop
    // at once; the timer ends the wait at the deadline.
    QTimer timeUp;
    timeUp.setTimerType(Qt::PreciseTimer);
    timeUp.setSingleShot(true);
    const auto isDone = [&] {
        const std::lock_guard lock(answer->mutex);
        return answer->done;
    };
    while (!isDone()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            break;
        if (!timeUp.isActive())
            timeUp.start(left);
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents |
                                        QEventLoop::WaitForMoreEvents);
    }
    const std::lock_guard lock(answer->mutex);
    return answer->done ? answer->anchor : std::nullopt;
}
