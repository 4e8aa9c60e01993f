// Settings shared by the user-interface test programs.
#include <QThreadPool>
#include <QtGlobal>
#include <gtest/gtest.h>

namespace {

class UiTestEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        // The offscreen platform has no window opacity, keyboard grab or stacking; its
        // warnings about that say nothing about the code under test.
        previous_ = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
                if (message.startsWith(QLatin1String("This plugin does not support")))
                    return;
                if (previous_)
                    previous_(type, context, message);
            });
        // These tests need no accessibility bridge; without it Qt starts no D-Bus thread of
        // its own when the first window appears.
        qunsetenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON");
#if defined(__SANITIZE_THREAD__)
        // Qt paints large areas on its global thread pool and guards that pool with futexes
        // ThreadSanitizer cannot see. One pool thread keeps Qt's threads from racing each
        // other as far as the tool can tell; the rest is in tests/tsan.supp.
        QThreadPool::globalInstance()->setMaxThreadCount(1);
#endif
    }

private:
    static inline QtMessageHandler previous_ = nullptr;
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new UiTestEnvironment);

} // namespace

#if defined(__SANITIZE_THREAD__)
// A longer access history, so the reports that tests/tsan.supp names by function keep their
// stacks; and the X11 tests' own option, which this replaces (see tests/x11/DesktopApps.cpp).
extern "C" const char* __tsan_default_options() {
    return "history_size=7:die_after_fork=0";
}
#endif
