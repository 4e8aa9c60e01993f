#pragma once

#include <QString>
#include <optional>

// The login-item port: whether the application starts when the user logs in.
namespace platform {

class LoginItemPort {
public:
    virtual ~LoginItemPort() = default;

    // Add / remove the running application from the user's login items. Each returns
    // std::nullopt on success, or the description of what went wrong.
    [[nodiscard]] virtual std::optional<QString> registerLoginItem() = 0;
    [[nodiscard]] virtual std::optional<QString> unregisterLoginItem() = 0;
};

} // namespace platform
