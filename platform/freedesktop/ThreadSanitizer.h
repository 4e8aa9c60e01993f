#pragma once

// Qt's D-Bus thread hands messages to and from the calling thread through QtCore's futex locks,
// which ThreadSanitizer cannot see (Qt is not instrumented), so every allocation crossing that
// hand-off looks like a race. The memory accesses of the calling thread between construction
// and destruction of a blind spot are left out of race detection (synchronisation still
// counts). Keep it to the Qt D-Bus call and the copying out of its answer.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_ignore_thread_begin();
extern "C" void __tsan_ignore_thread_end();
#endif

namespace platform::freedesktop {

class ThreadSanitizerBlindSpot {
public:
#if defined(__SANITIZE_THREAD__)
    ThreadSanitizerBlindSpot() {
        __tsan_ignore_thread_begin();
    }
    ~ThreadSanitizerBlindSpot() {
        __tsan_ignore_thread_end();
    }
#else
    ThreadSanitizerBlindSpot() = default;
    ~ThreadSanitizerBlindSpot() = default;
#endif
    ThreadSanitizerBlindSpot(const ThreadSanitizerBlindSpot&) = delete;
    ThreadSanitizerBlindSpot& operator=(const ThreadSanitizerBlindSpot&) = delete;
};

} // namespace platform::freedesktop
