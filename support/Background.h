#pragma once

#include "support/MainThread.h"

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stop_token>

// The shared background executor: one process-wide pool of threads. Work receives a stop
// token; its waits are cancellable sleeps, and a cancelled wait throws CancellationError.
namespace support {

// Sleeps for `duration`; throws CancellationError at once if `stop` is (or becomes) requested.
void sleepFor(std::stop_token stop, std::chrono::nanoseconds duration);
void throwIfCancelled(const std::stop_token& stop);

// Cancels the task it was returned for; copies share the same task.
class TaskHandle {
public:
    TaskHandle() = default;
    explicit TaskHandle(std::stop_source source) : source_(std::move(source)) {}
    void cancel() { source_.request_stop(); }
    [[nodiscard]] bool isCancellationRequested() const { return source_.stop_requested(); }
    [[nodiscard]] std::stop_token token() const { return source_.get_token(); }

private:
    std::stop_source source_;
};

// A finished task: its value, or the exception it ended with.
template <typename T> struct Outcome {
    std::optional<T> value;
    std::exception_ptr error;
    [[nodiscard]] bool ok() const { return !error; }
};
template <> struct Outcome<void> {
    std::exception_ptr error;
    [[nodiscard]] bool ok() const { return !error; }
};

// Runs `job` on the background executor.
void startInBackground(std::function<void()> job);

// Runs `work` on the background executor and hands its outcome to `done` on the main thread,
// unless `context` is gone by then. Call from the main thread.
template <typename T>
TaskHandle runInBackground(QObject* context, std::function<T(std::stop_token)> work,
                           std::function<void(Outcome<T>)> done) {
    TaskHandle handle;
    const QPointer<QObject> guard(context);
    startInBackground(
        [guard, stop = handle.token(), work = std::move(work), done = std::move(done)]() mutable {
            auto outcome = std::make_shared<Outcome<T>>();
            try {
                if constexpr (std::is_void_v<T>)
                    work(stop);
                else
                    outcome->value.emplace(work(stop));
            } catch (...) {
                outcome->error = std::current_exception();
            }
            runOnMain(guard, [done = std::move(done), outcome] { done(std::move(*outcome)); });
        });
    return handle;
}

// Waits (blocking the calling thread) until the executor has no running or queued work.
void waitForBackgroundIdle();

} // namespace support
