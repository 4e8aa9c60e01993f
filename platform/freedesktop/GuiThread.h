#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>

// Qt's clipboard, screens and cursor belong to the GUI thread. Ports callable from any thread
// hop there with a bounded wait: a busy or departing GUI thread must not hang the caller.
namespace platform::freedesktop {

[[nodiscard]] inline bool onGuiThread() {
    const auto* app = QCoreApplication::instance();
    return app != nullptr && QThread::currentThread() == app->thread();
}

// Runs `work` on the GUI thread and returns its result; at once when already there. Returns
// none when there is no application object, or when the GUI thread has not started the work
// within `timeout` (the work is then skipped). Work that has started is always waited for.
template <typename T>
std::optional<T> callOnGuiThread(std::function<T()> work, std::chrono::milliseconds timeout) {
    auto* app = QCoreApplication::instance();
    if (app == nullptr)
        return std::nullopt;
    if (QThread::currentThread() == app->thread())
        return work();

    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool started = false;
        bool abandoned = false;
        bool finished = false;
        std::optional<T> result;
    };
    auto state = std::make_shared<State>();
    QMetaObject::invokeMethod(
        app,
        [state, work = std::move(work)] {
            {
                const std::lock_guard lock(state->mutex);
                if (state->abandoned)
                    return;
                state->started = true;
                state->changed.notify_all();
            }
            std::optional<T> result = work();
            const std::lock_guard lock(state->mutex);
            state->result = std::move(result);
            state->finished = true;
            state->changed.notify_all();
        },
        Qt::QueuedConnection);

    std::unique_lock lock(state->mutex);
    if (!state->changed.wait_for(lock, timeout, [&] { return state->started; })) {
        state->abandoned = true;
        return std::nullopt;
    }
    state->changed.wait(lock, [&] { return state->finished; });
    return std::move(state->result);
}

} // namespace platform::freedesktop
