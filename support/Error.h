#pragma once

#include <QString>
#include <exception>
#include <string>

namespace support {

// Base of every error this program raises. Each error type carries the one user-facing
// description the picker shows (errorDescription); what() returns the same text in UTF-8.
class Error : public std::exception {
public:
    [[nodiscard]] virtual QString errorDescription() const = 0;
    [[nodiscard]] const char* what() const noexcept override;

private:
    mutable std::string whatCache_;
};

// Raised by a cancellable wait when its task was cancelled.
class CancellationError : public Error {
public:
    [[nodiscard]] QString errorDescription() const override;
};

// The user-facing description of any exception: errorDescription() for ours, what() for any
// other std::exception, and a fixed text for anything else.
QString describeError(const std::exception_ptr& error);

} // namespace support
