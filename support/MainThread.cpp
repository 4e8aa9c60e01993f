#include "support/MainThread.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

namespace support {

bool isMainThread() {
    const auto* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void runOnMain(std::function<void()> work) {
    auto* app = QCoreApplication::instance();
    if (!app)
        return; // no event loop: the process is shutting down
    QMetaObject::invokeMethod(app, std::move(work), Qt::QueuedConnection);
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
