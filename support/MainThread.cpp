#include "support/MainThread.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>
#include <deque>
#include <mutex>

namespace support {

namespace {

// Work for the main thread waits in a queue of ours, guarded by a std::mutex, and the main
// thread is only woken through Qt. Handing the work itself through Qt's event queue would be
// just as correct, but Qt's locks are invisible to ThreadSanitizer, which would then report
// the hand-over of every callback as a race.
class MainQueue : public QObject {
    Q_OBJECT

public:
    void push(std::function<void()> work) {
        {
            const std::lock_guard lock(mutex_);
            queue_.push_back(std::move(work));
        }
        QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
    }

    Q_INVOKABLE void drain() {
        for (;;) {
            std::function<void()> work;
            {
                const std::lock_guard lock(mutex_);
                if (queue_.empty())
                    return;
                work = std::move(queue_.front());
                queue_.pop_front();
            }
            work();
        }
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> queue_;
};

MainQueue* mainQueue() {
    static auto* const queue = new MainQueue; // lives as long as the process
    return queue;
}

// Made on the main thread as the application starts rather than by whichever thread first hands
// over work: a QObject made on a worker and then used by the main thread is passed over through
// Qt's event queue, which ThreadSanitizer cannot see.
void makeMainQueue() {
    mainQueue();
}
Q_COREAPP_STARTUP_FUNCTION(makeMainQueue)

} // namespace

bool isMainThread() {
    const auto* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void runOnMain(std::function<void()> work) {
    if (!QCoreApplication::instance())
        return; // no event loop: the process is shutting down
    mainQueue()->push(std::move(work));
}

void runOnMain(const QPointer<QObject>& context, std::function<void()> work) {
    runOnMain([context, work = std::move(work)] {
        if (context)
            work();
    });
}

void runOnMainAfter(QObject* context, std::chrono::milliseconds delay, std::function<void()> work) {
    QTimer::singleShot(delay, context, std::move(work));
}

} // namespace support

#include "MainThread.moc"
