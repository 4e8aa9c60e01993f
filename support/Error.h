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
    // Whether the description asks the user to do something, so it must be shown, not only
    // logged (a plain failure shows a red cross).
    [[nodiscard]] virtual bool isNotice() const { return false; }

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
// Whether the error is one of ours that the user must read (Error::isNotice).
bool isNotice(const std::exception_ptr& error);

} // namespace support
