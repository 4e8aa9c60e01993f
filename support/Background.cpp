#include "support/Background.h"

#include "support/Error.h"

#include <QThreadPool>
#include <condition_variable>
#include <mutex>

namespace support {

namespace {

QThreadPool& pool() {
    // Never destroyed: a job that outlives main() must not find its pool gone.
    static auto* threads = [] {
        auto* p = new QThreadPool;
        // Jobs block in waits and network calls, so allow more threads than cores.
        p->setMaxThreadCount(std::max(8, QThread::idealThreadCount()));
        p->setExpiryTimeout(30'000);
        return p;
    }();
    return *threads;
}

} // namespace

void sleepFor(std::stop_token stop, std::chrono::nanoseconds duration) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    wake.wait_for(lock, stop, duration, [] { return false; });
    throwIfCancelled(stop);
}

void throwIfCancelled(const std::stop_token& stop) {
    if (stop.stop_requested())
        throw CancellationError();
}

void startInBackground(std::function<void()> job) {
    pool().start(std::move(job));
}

void waitForBackgroundIdle() {
    pool().waitForDone();
}

} // namespace support
