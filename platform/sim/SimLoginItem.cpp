#include "platform/sim/SimLoginItem.h"

namespace platform::sim {

std::optional<QString> SimLoginItem::registerLoginItem() {
    const std::lock_guard lock(mutex_);
    ++registerCalls_;
    if (failure_)
        return failure_;
    registered_ = true;
    return std::nullopt;
}

std::optional<QString> SimLoginItem::unregisterLoginItem() {
    const std::lock_guard lock(mutex_);
    ++unregisterCalls_;
    if (failure_)
        return failure_;
    registered_ = false;
    return std::nullopt;
}

void SimLoginItem::failWith(std::optional<QString> description) {
    const std::lock_guard lock(mutex_);
    failure_ = std::move(description);
}

bool SimLoginItem::isRegistered() const {
    const std::lock_guard lock(mutex_);
    return registered_;
}

int SimLoginItem::registerCalls() const {
    const std::lock_guard lock(mutex_);
    return registerCalls_;
}

int SimLoginItem::unregisterCalls() const {
    const std::lock_guard lock(mutex_);
    return unregisterCalls_;
}

} // namespace platform::sim
