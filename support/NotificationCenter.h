#pragma once

#include <QString>
#include <QVariantMap>
#include <functional>
#include <memory>

// The in-process notification centre: named notifications with a user-info map, delivered
// synchronously, on the posting thread, to every observer of that name (an empty name
// observes every notification).
namespace support {

struct Notification {
    QString name;
    QVariantMap userInfo;
};

class NotificationCenter;

// Keeps an observer registered for as long as it lives; destroying or resetting it removes
// the observer (also from inside that observer's own callback).
class Observation {
public:
    Observation() = default;
    ~Observation();
    Observation(Observation&& other) noexcept;
    Observation& operator=(Observation&& other) noexcept;
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

    void reset();
    [[nodiscard]] bool isActive() const { return entry_ != nullptr; }

private:
    friend class NotificationCenter;
    struct Entry;
    Observation(NotificationCenter* center, std::shared_ptr<Entry> entry);

    NotificationCenter* center_ = nullptr;
    std::shared_ptr<Entry> entry_;
};

class NotificationCenter {
public:
    using Callback = std::function<void(const Notification&)>;

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // The process-wide centre.
    static NotificationCenter& defaultCenter();

    [[nodiscard]] Observation addObserver(const QString& name, Callback callback);
    void post(const QString& name, const QVariantMap& userInfo = {});

private:
    friend class Observation;
    void remove(const std::shared_ptr<Observation::Entry>& entry);

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace support
