#pragma once

#include <QObject>
#include <QPointer>
#include <chrono>
#include <functional>

// The "main queue": the Qt GUI thread and its event loop.
namespace support {

[[nodiscard]] bool isMainThread();

// Runs `work` on the main thread in a later turn of its event loop, from any thread. When a
// context is given, `work` is dropped if the context is destroyed before it runs (create the
// QPointer on the main thread, where the context lives).
void runOnMain(std::function<void()> work);
void runOnMain(const QPointer<QObject>& context, std::function<void()> work);

// Main thread only: runs `work` after `delay`, unless `context` is destroyed first.
void runOnMainAfter(QObject* context, std::chrono::milliseconds delay, std::function<void()> work);

} // namespace support
