#include "text/ExchangeTurn.h"

#include "support/Background.h"

#include <condition_variable>
#include <mutex>

namespace {

std::mutex turnMutex;
std::condition_variable_any turnFree;
bool taken = false;

} // namespace

ExchangeTurn::ExchangeTurn(const std::stop_token& stop) {
    std::unique_lock lock(turnMutex);
    turnFree.wait(lock, stop, [] { return !taken; });
    support::throwIfCancelled(stop);
    taken = true;
}

ExchangeTurn::~ExchangeTurn() {
    {
        const std::lock_guard lock(turnMutex);
        taken = false;
    }
    turnFree.notify_one();
}
