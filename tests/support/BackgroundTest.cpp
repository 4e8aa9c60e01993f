#include "support/Background.h"

#include "support/Error.h"
#include "tests/common/TestUtil.h"

#include <QThread>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using namespace support;

// The outcome comes on the main thread, unless its context is gone by then.
TEST(Background, OutcomeArrivesOnTheMainThreadWhileItsContextLives) {
    QObject context;
    std::optional<Outcome<int>> result;
    bool onMain = false;
    std::atomic<bool> ranInBackground{false};
    runInBackground<int>(
        &context,
        [&](const std::stop_token&) {
            ranInBackground = !isMainThread();
            return 42;
        },
        [&](Outcome<int> outcome) {
            onMain = isMainThread();
            result = std::move(outcome);
        });
    ASSERT_TRUE(testutil::waitUntil([&] { return result.has_value(); }));
    EXPECT_TRUE(ranInBackground);
    EXPECT_TRUE(onMain);
    EXPECT_TRUE(result->ok());
    EXPECT_EQ(result->value, 42);

    bool delivered = false;
    std::atomic<bool> finished{false};
    {
        QObject gone;
        runInBackground<void>(
            &gone,
            [&](const std::stop_token& stop) {
                sleepFor(stop, 50ms);
                finished = true;
            },
            [&](const Outcome<void>&) { delivered = true; });
    }
    ASSERT_TRUE(testutil::waitUntil([&] { return finished.load(); }));
    testutil::processEventsFor(50ms);
    EXPECT_FALSE(delivered);
}

TEST(Background, CancellationEndsAWaitAtOnce) {
    QObject context;
    std::optional<Outcome<void>> result;
    const auto started = std::chrono::steady_clock::now();
    TaskHandle handle = runInBackground<void>(
        &context, [](const std::stop_token& stop) { sleepFor(stop, 10s); },
        [&](Outcome<void> outcome) { result = std::move(outcome); });
    QThread::msleep(20);
    handle.cancel();
    ASSERT_TRUE(testutil::waitUntil([&] { return result.has_value(); }));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
    ASSERT_FALSE(result->ok());
    EXPECT_THROW(std::rethrow_exception(result->error), CancellationError);
}
