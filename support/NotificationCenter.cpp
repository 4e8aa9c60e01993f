#include "support/NotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace support {

struct Observation::Entry {
    QString name;
    NotificationCenter::Callback callback;
    std::atomic<bool> removed{false};
};

struct NotificationCenter::State {
    std::mutex mutex;
    std::vector<std::shared_ptr<Observation::Entry>> entries;
};

Observation::Observation(NotificationCenter* center, std::shared_ptr<Entry> entry)
    : center_(center), entry_(std::move(entry)) {}

Observation::~Observation() {
    reset();
}

Observation::Observation(Observation&& other) noexcept
    : center_(std::exchange(other.center_, nullptr)), entry_(std::move(other.entry_)) {}

Observation& Observation::operator=(Observation&& other) noexcept {
    if (this != &other) {
        reset();
        center_ = std::exchange(other.center_, nullptr);
        entry_ = std::move(other.entry_);
    }
    return *this;
}

void Observation::reset() {
    if (entry_ && center_)
        center_->remove(entry_);
    entry_.reset();
    center_ = nullptr;
}

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}
NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
    // Never destroyed: observers held by other statics may still be released at exit.
    static auto* center = new NotificationCenter;
    return *center;
}

Observation NotificationCenter::addObserver(const QString& name, Callback callback) {
    auto entry = std::make_shared<Observation::Entry>();
    entry->name = name;
    entry->callback = std::move(callback);
    const std::lock_guard lock(state_->mutex);
    state_->entries.push_back(entry);
    return Observation(this, std::move(entry));
}

void NotificationCenter::remove(const std::shared_ptr<Observation::Entry>& entry) {
    entry->removed = true;
    const std::lock_guard lock(state_->mutex);
    std::erase(state_->entries, entry);
}

void NotificationCenter::post(const QString& name, const QVariantMap& userInfo) {
    std::vector<std::shared_ptr<Observation::Entry>> targets;
    {
        const std::lock_guard lock(state_->mutex);
        for (const auto& entry : state_->entries) {
            if (entry->name.isEmpty() || entry->name == name)
                targets.push_back(entry);
        }
    }
    const Notification notification{name, userInfo};
    // Delivered outside the lock, so an observer may post, add or remove observers.
    for (const auto& entry : targets) {
        if (!entry->removed)
            entry->callback(notification);
    }
}

} // namespace support
