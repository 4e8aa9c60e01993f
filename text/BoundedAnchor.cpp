#include "text/BoundedAnchor.h"

#include "text/TextSelectionService.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
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
        const std::lock_guard lock(answer->mutex);
        answer->anchor = anchor;
        answer->done = true;
        answer->ready.notify_all();
    }).detach();

    const bool serveEvents = QCoreApplication::instance() != nullptr &&
                             QThread::currentThread() == QCoreApplication::instance()->thread();
    std::unique_lock lock(answer->mutex);
    while (!answer->done && std::chrono::steady_clock::now() < deadline) {
        const auto slice =
            std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(2));
        answer->ready.wait_until(lock, slice, [&] { return answer->done; });
        if (answer->done || !serveEvents)
            continue;
        lock.unlock();
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        lock.lock();
    }
    return answer->done ? answer->anchor : std::nullopt;
}
