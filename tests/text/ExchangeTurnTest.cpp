#include "text/ExchangeTurn.h"

#include "support/Error.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace std::chrono_literals;

// A second rewrite waits until the first has pasted; a cancelled one stops waiting.
TEST(ExchangeTurnTest, OneRewriteAtATime) {
    std::atomic<bool> secondHasTurn{false};
    std::optional<ExchangeTurn> first(std::in_place, std::stop_token());
    std::jthread second([&] {
        const ExchangeTurn turn{std::stop_token()};
        secondHasTurn = true;
    });
    std::stop_source cancel;
    std::jthread third(
        [&] { EXPECT_THROW(ExchangeTurn{cancel.get_token()}, support::CancellationError); });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(secondHasTurn.load());
    cancel.request_stop();
    third.join();
    first.reset();
    second.join();
    EXPECT_TRUE(secondHasTurn.load());
}
