#pragma once

#include "platform/LoginItem.h"

#include <QString>
#include <mutex>
#include <optional>

namespace platform::sim {

// A login-item service in memory: remembers whether the application is registered, counts
// calls, and fails with a given description when told to.
class SimLoginItem final : public LoginItemPort {
public:
    [[nodiscard]] std::optional<QString> registerLoginItem() override;
    [[nodiscard]] std::optional<QString> unregisterLoginItem() override;

    // Every following call fails with `description` (and changes nothing); nullopt succeeds.
    void failWith(std::optional<QString> description);

    [[nodiscard]] bool isRegistered() const;
    [[nodiscard]] int registerCalls() const;
    [[nodiscard]] int unregisterCalls() const;

private:
    mutable std::mutex mutex_;
    std::optional<QString> failure_;
    bool registered_ = false;
    int registerCalls_ = 0;
    int unregisterCalls_ = 0;
};

} // namespace platform::sim
